#include "notify/user_tokens.h"

#include "base/html.h"
#include "notify/date_forms.h"
#include "platform/text/text_lines.h"

namespace notify {

namespace {

constexpr std::int64_t kFileTimePerSecond = 10'000'000;

}  // namespace

void UserTokens::append(Token token, TextFormat format, std::string& text) const {
  const std::string utf8 = value(token);
  text += format == TextFormat::Html ? base::escapeHtml(utf8) : utf8;
}

// Where the moment is not known: as many days from now as are left.
base::LocalTime UserTokens::expiry() const {
  const std::int64_t known = user_.expiryTime();
  if (known != 0) return clock_.localTimeOf(known * kFileTimePerSecond);
  const std::int64_t seconds = std::int64_t{user_.daysLeft()} * kSecondsPerDay;
  return clock_.localTimeOf(clock_.fileTime() + seconds * kFileTimePerSecond);
}

std::string UserTokens::value(Token token) const {
  const directory::UserDirectoryData& data = user_.data;
  switch (token) {
    case Token::Username:
      return platform::ansiToUtf8(user_.username);
    case Token::FirstName:
      return platform::ansiToUtf8(data.firstName);
    case Token::LastName:
      return platform::ansiToUtf8(data.lastName);
    case Token::DaysUntilExpiration:
      return std::to_string(user_.daysLeft());
    case Token::Backslash:
      return "\\";
    case Token::ExpirationDate:
      return dateText(expiry(), language_);
    case Token::ExpirationTime:
      return timeText(expiry(), language_);
    case Token::DisplayName:
      return platform::ansiToUtf8(personName(data, user_.username));
    case Token::Domain:
      return platform::ansiToUtf8(data.domain);
    case Token::PolicyName:
      return platform::ansiToUtf8(user_.policyName);
    case Token::Email:
      return platform::ansiToUtf8(data.email);
    case Token::ManagerName:
      return platform::ansiToUtf8(data.managerName);
    case Token::Users:
      break;  // see appendUsers
  }
  return "";
}

std::string personName(const directory::UserDirectoryData& data, const std::string& otherwise) {
  if (!data.displayName.empty()) return data.displayName;
  if (data.firstName.empty() && data.lastName.empty()) return otherwise;
  const bool both = !data.firstName.empty() && !data.lastName.empty();
  return data.firstName + (both ? " " : "") + data.lastName;
}

}  // namespace notify
