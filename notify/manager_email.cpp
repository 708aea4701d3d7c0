#include "notify/manager_email.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "base/html.h"
#include "mail/mime/kv_email.h"
#include "notify/mail_settings.h"
#include "notify/user_tokens.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

constexpr const char* kSubject = "Windows passwords of your staff expire soon";
constexpr const char* kText =
    "Dear <%managerName%>,\n"
    "\n"
    "the Windows passwords of these users expire soon. Days of 0 and below mean that the password "
    "has expired.\n"
    "\n"
    "<%users%>  <%displayName%> (<%username%>): <%expirationDate%>, <%daysUntilExpiration%> day(s) "
    "left\n<%/users%>"
    "\n"
    "Please remind them to change their passwords. You get this mail because the directory names "
    "you as their manager.\n";
constexpr const char* kHtml =
    "<html><body style=\"font-family:Arial,Helvetica,sans-serif;color:#333333\">\n"
    "<p>Dear <%managerName%>,</p>\n"
    "<p>the Windows passwords of these users expire soon. Days of 0 and below mean that the "
    "password has expired.</p>\n"
    "<table cellpadding=\"6\" style=\"border-collapse:collapse;border:1px solid #DDDDDD\">\n"
    "<tr style=\"background-color:#F26721;color:#FFFFFF\"><th align=\"left\">Name</th>"
    "<th align=\"left\">User name</th><th align=\"left\">Expires</th>"
    "<th align=\"right\">Days left</th></tr>\n"
    "<%users%><tr><td><%displayName%></td><td><%username%></td><td><%expirationDate%></td>"
    "<td align=\"right\"><%daysUntilExpiration%></td></tr>\n<%/users%>"
    "</table>\n"
    "<p>Please remind them to change their passwords. You get this mail because the directory "
    "names you as their manager.</p>\n"
    "</body></html>\n";

// What stands outside <%users%> is about the manager; the rest of it is that of the first user.
class StaffTokens final : public TokenValues {
 public:
  StaffTokens(const Staff& staff, platform::Clock& clock, std::string language)
      : staff_(staff), clock_(clock), language_(std::move(language)) {}

  void append(Token token, TextFormat format, std::string& text) const override {
    const directory::UserDirectoryData& data = staff_.front().data;
    if (token != Token::ManagerName || !data.managerName.empty()) {
      return UserTokens(staff_.front(), clock_, language_).append(token, format, text);
    }
    const std::string address = platform::ansiToUtf8(data.managerEmail);
    text += format == TextFormat::Html ? base::escapeHtml(address) : address;
  }

  void appendUsers(const PreparedText& each, TextFormat format, std::string& text) const override {
    for (const UserRecord& user : staff_) {
      text += each.filled(UserTokens(user, clock_, language_), format);
    }
  }

 private:
  const Staff& staff_;
  platform::Clock& clock_;
  std::string language_;
};

MessageTemplate builtInTemplate(const config::ExpirationSettings& settings) {
  MessageTemplate own;
  own.kind = MailKind::Manager;
  own.language = "en";
  own.html.emplace(kHtml);
  if (settings.emailTextAlternative) own.text.emplace(kText);
  own.subject.emplace(kSubject);
  return own;
}

int commonSlot(const Staff& staff) {
  const int slot = staff.front().slot;
  const bool same = std::all_of(staff.begin(), staff.end(),
                                [slot](const UserRecord& user) { return user.slot == slot; });
  return same ? slot : kEveryPolicy;
}

}  // namespace

void composeManagerMail(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                        const MailTemplates& templates, const Staff& staff,
                        platform::Clock& clock) {
  const directory::UserDirectoryData& data = staff.front().data;
  const MessageTemplate* chosen =
      templates.choose(MailKind::Manager, commonSlot(staff), data.managerLanguage).found;
  std::optional<MessageTemplate> builtIn;
  if (chosen == nullptr) chosen = &builtIn.emplace(builtInTemplate(settings));
  const std::string to = platform::ansiToUtf8(data.managerEmail);
  email.put_Utf8(true);
  email.AddHeaderField("X-Priority", "1");
  email.put_From(platform::ansiToUtf8(settings.emailFromAddress).c_str());
  email.AddTo(to.c_str(), to.c_str());
  markAutomatic(email, settings);
  templates.fill(email, *chosen, StaffTokens(staff, clock, chosen->language));
}

MailOutcome sendManagerMail(const WarningContext& context, const Staff& staff) {
  if (context.mailer.hasGivenUp()) return context.mailer.notTried();
  const std::string& address = staff.front().data.managerEmail;
  kelvado::KvEmail email;
  composeManagerMail(email, context.settings, context.templates, staff, context.clock);
  recordMailingDay(context);
  MailOutcome outcome = context.mailer.sendWarning(email, address);
  context.log.print("  mail to manager %s about %i users: %s\n", address.c_str(),
                    static_cast<int>(staff.size()),
                    outcome.sent() ? "sent" : outcome.reason.c_str());
  return outcome;
}

}  // namespace notify
