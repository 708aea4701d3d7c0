#include "notify/warning_email.h"

#include "config/registry_readers.h"
#include "mail/mime/kv_email.h"
#include "notify/message_template.h"
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

MessageBody composeBody(const config::ExpirationSettings& settings, const UserRecord& user,
                        config::DebugLog& log) {
  const int countdown = user.daysLeft();
  // An expired password has its own fixed words; templates speak of days that remain.
  if (countdown < 1) return {kExpiredText, false};

  MessageBody body = loadMessageBody(settings.emailCustomMsg, log);
  const directory::UserDirectoryData& data = user.data;
  replaceTokens(body, user);
  log.print("    user firstname: %s\n", data.firstName.c_str());
  log.print("    user lastname: %s\n", data.lastName.c_str());
  log.print("    days until expiration: %i\n", countdown);
  log.print("    ..search and replace countdown string done.\n");
  return body;
}

// Before the send, so that a day on which the mail server fails half way counts as a mailing day.
void recordMailingDay(const WarningContext& context) {
  const int day = context.clock.localTime().day;
  const auto number = static_cast<std::uint32_t>(day);
  const bool written =
      config::writeNumber(context.registry, config::kProductKey, "expirationLastRunDay", number);
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

}  // namespace

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
                    const UserRecord& user, config::DebugLog& log) {
  const MessageBody body = composeBody(settings, user, log);
  if (body.templateLost) return false;
  const std::string to = platform::ansiToUtf8(user.data.email);
  email.put_Utf8(true);
  email.AddHeaderField("X-Priority", "1");
  email.put_From(platform::ansiToUtf8(settings.emailFromAddress).c_str());
  email.AddTo(to.c_str(), to.c_str());
  email.put_Subject(platform::ansiToUtf8(settings.emailSubject).c_str());
  if (body.isHtml) {
    email.SetHtmlBody(body.text.c_str());
  } else {
    email.put_Body(body.text.c_str());
  }
  return true;
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
  if (!composeWarning(email, context.settings, user, log)) {
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
