// What the tokens of a mail become that is about one user.
#pragma once

#include <string>
#include <utility>

#include "notify/message_template.h"
#include "notify/user_record.h"
#include "platform/system/clock.h"

namespace notify {

class UserTokens final : public TokenValues {
 public:
  // `user` and `clock` are borrowed. `language` is the template's, for the form of dates.
  UserTokens(const UserRecord& user, platform::Clock& clock, std::string language)
      : user_(user), clock_(clock), language_(std::move(language)) {}

  void append(Token token, TextFormat format, std::string& text) const override;
  // There is one.
  void appendUsers(const PreparedText& each, TextFormat format, std::string& text) const override {
    text += each.filled(*this, format);
  }

 private:
  std::string value(Token token) const;
  base::LocalTime expiry() const;

  const UserRecord& user_;
  platform::Clock& clock_;
  std::string language_;
};

// A person as a mail names one: the display name, else first and last name, else `otherwise`.
std::string personName(const directory::UserDirectoryData& data, const std::string& otherwise);

}  // namespace notify
