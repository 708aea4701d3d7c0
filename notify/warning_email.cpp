#include "notify/warning_email.h"

#include "config/registry_readers.h"
#include "mail/mime/kv_email.h"
#include "notify/mail_settings.h"
#include "notify/user_tokens.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

// The user that a test mail is about, and the days it speaks of.
constexpr const char* kTestUserName = "jdoe-test";
constexpr const char* kTestFirstName = "Jane";
constexpr const char* kTestLastName = "Doe";
constexpr int kTestCountdown = 10;

constexpr const char* kExpiredText =
    "Your Windows password has expired.\r\n"
    "\r\n"
    "You will be prompted to change your password prior to your next logon.\r\n";

MailKind kindOf(const UserRecord& user) {
  return user.daysLeft() < 1 ? MailKind::Expired : MailKind::Warning;
}

TemplateChoice choiceFor(const MailTemplates& templates, const UserRecord& user) {
  return templates.choose(kindOf(user), user.slot, user.data.preferredLanguage);
}

void logWarning(const MessageTemplate* found, const UserRecord& user, config::DebugLog& log) {
  if (found == nullptr) {
    log.print("**No custom email text files found.  Using registry value for custom email body.\n");
  } else if (found->html) {
    log.print("**HTML email body file found.\n");
  } else {
    log.print("**Plain text email body file found.\n");
  }
  log.print("    user firstname: %s\n", user.data.firstName.c_str());
  log.print("    user lastname: %s\n", user.data.lastName.c_str());
  log.print("    days until expiration: %i\n", user.daysLeft());
  log.print("    ..search and replace countdown string done.\n");
}

// What is mailed where there is no template: fixed words for an expired password, else the custom
// message. False when that would be an empty mail in the place of a template that is lost.
bool composeWithoutTemplate(kelvado::KvEmail& email, MailKind kind,
                            const config::ExpirationSettings& settings,
                            const MailTemplates& templates, const TokenValues& values) {
  MessageTemplate own;
  if (kind == MailKind::Expired) {
    own.text.emplace(kExpiredText);
  } else {
    if (settings.emailCustomMsg.empty() && templates.anyLost(kind)) return false;
    own.text.emplace(platform::ansiToUtf8(settings.emailCustomMsg));
  }
  templates.fill(email, own, values);
  return true;
}

}  // namespace

// Before the send, so that a day on which the mail server fails half way counts as a mailing day.
// Written once: a write to a registry file waits for the disk.
void recordMailingDay(const WarningContext& context) {
  const int day = context.clock.localTime().day;
  const auto number = static_cast<std::uint32_t>(day);
  constexpr const char* kValue = "expirationLastRunDay";
  const bool written =
      config::readNumber(context.registry, config::kProductKey, kValue) == number ||
      config::writeNumber(context.registry, config::kProductKey, kValue, number);
  context.log.print("    expirationLastRunDay set to %i\n", day);
  const bool first = context.unsavedMailingDay == 0;
  context.unsavedMailingDay = written ? 0 : number;
  if (written || !first) return;
  const std::string reason = context.registry.lastError();
  const std::string text = "the day of this mailing (expirationLastRunDay) could not be written" +
                           (reason.empty() ? "" : ": " + reason);
  if (context.settings.limitEmails) {
    context.findings.problem(text + "; limitEmails holds until this program ends");
  } else {
    context.findings.note(text);
  }
}

UserRecord placeholderUser(const std::string& address) {
  UserRecord user;
  user.username = kTestUserName;
  user.data.firstName = kTestFirstName;
  user.data.lastName = kTestLastName;
  user.data.email = address;
  user.maxAge = kTestCountdown;
  return user;
}

bool composeWarning(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                    const MailTemplates& templates, const UserRecord& user, platform::Clock& clock,
                    config::DebugLog& log) {
  const MailKind kind = kindOf(user);
  const MessageTemplate* const found = choiceFor(templates, user).found;
  if (kind == MailKind::Warning) logWarning(found, user, log);
  const UserTokens values(user, clock, found == nullptr ? templates.language() : found->language);
  const std::string to = platform::ansiToUtf8(user.data.email);
  email.put_Utf8(true);
  email.AddHeaderField("X-Priority", "1");
  email.put_From(platform::ansiToUtf8(settings.emailFromAddress).c_str());
  email.AddTo(to.c_str(), to.c_str());
  markAutomatic(email, settings);
  if (found == nullptr) return composeWithoutTemplate(email, kind, settings, templates, values);
  templates.fill(email, *found, values);
  return true;
}

std::string warningSource(const MailTemplates& templates,
                          const config::ExpirationSettings& settings, const UserRecord& user) {
  const TemplateChoice choice = choiceFor(templates, user);
  std::string text = choiceText(choice, kindOf(user), user.data.preferredLanguage);
  if (choice.found != nullptr) return text;
  if (kindOf(user) == MailKind::Expired) return "fixed words: " + text;
  return (settings.emailCustomMsg.empty() ? "an empty text: " : "emailCustomMsg: ") + text;
}

MailOutcome sendWarningEmail(const WarningContext& context, const UserRecord& user) {
  if (context.mailer.hasGivenUp()) return context.mailer.notTried();
  config::DebugLog& log = context.log;
  const std::string& address = user.data.email;
  log.print("  emailUser() - begin\n");
  log.print("    countdown (inside emailUser): %i\n", user.daysLeft());
  log.print("    szUser: %s\n", user.username.c_str());
  log.print("    szUserEmail: %s\n", address.c_str());

  kelvado::KvEmail email;
  if (!composeWarning(email, context.settings, context.templates, user, context.clock, log)) {
    log.print("    no mail: its template cannot be used.\n  emailUser() - end\n");
    return {MailResult::RefusedForGood, kTemplateLost, true};
  }
  recordMailingDay(context);

  MailOutcome outcome = context.mailer.sendWarning(email, address);
  if (outcome.sent()) {
    log.print("    email sent (to: %s)\n", address.c_str());
  } else {
    // The path in the text is fixed; the file is in the current directory.
    log.print(
        "    emailUser failed. Check c:\\windows\\system32\\errors-norvyn-email.xml for more "
        "information.\n");
  }
  log.print("  emailUser() - end\n");
  return outcome;
}

}  // namespace notify
