// The mail server, as a pass will meet it: connect, greet, TLS, login, then whether it takes the
// sender and the administrator. RSET and QUIT end it; nothing is sent.
#include "base/text.h"
#include "check/checks.h"
#include "mail/mime/email_address.h"
#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"
#include "notify/access_token.h"
#include "notify/admin_report_mail.h"
#include "notify/mail_settings.h"
#include "platform/network/certificate.h"
#include "platform/text/text_lines.h"

namespace check {
namespace {

using kelvado::SmtpFailure;
using kelvado::SmtpStep;

constexpr std::uint32_t kSmtpPort = 25;
constexpr std::int64_t kFileTimePerDay = std::int64_t{86400} * 10'000'000;
constexpr std::int64_t kSoonDays = 30;

// The first row that fits counts. `part` stands in the text of the failure.
constexpr struct {
  SmtpStep step;
  const char* part;
  const char* cure;
} kCures[] = {
    {SmtpStep::Connect, "not found", "correct smtpServer, or the name server of this machine"},
    {SmtpStep::Connect, "refused", "correct smtpServer and smtpPort, or start the mail server"},
    {SmtpStep::Connect, "", "correct smtpServer and smtpPort, or open the way to the port"},
    {SmtpStep::Greeting, "timed out", "is that a port where TLS comes first? Then set smtpSsl"},
    {SmtpStep::Greeting, "", "let the mail server accept connections from this machine"},
    {SmtpStep::Hello, "", "give this machine a full name, or let the mail server take its name"},
    {SmtpStep::StartTls, "", "let the mail server offer STARTTLS, or clear smtpStartTls"},
    {SmtpStep::TlsHandshake, "timed out", "is that a port of a mail server with TLS?"},
    {SmtpStep::TlsHandshake, "",
     "does that port begin with TLS? If not, set smtpStartTls instead "
     "of smtpSsl"},
    {SmtpStep::Certificate, "expired", "renew the certificate of the mail server"},
    {SmtpStep::Certificate, "not for", "name the server in smtpServer as its certificate does"},
    {SmtpStep::Certificate, "",
     "let this machine trust the authority, or clear "
     "smtpRequireVerifiedCertificate"},
    {SmtpStep::Login, "535", "correct smtpUsername and smtpPassword"},
    {SmtpStep::Login, "", "correct smtpAuthMethod, smtpUsername and smtpPassword"},
    {SmtpStep::MailFrom, "",
     "write a sender that the server takes into emailFromAddress, or log in"},
    {SmtpStep::RcptTo, "", "correct the address, or let the server take mail for it from here"},
};

std::string cureOf(SmtpStep step, const std::string& text) {
  for (const auto& row : kCures) {
    if (row.step == step && text.find(row.part) != std::string::npos) return row.cure;
  }
  return "correct the settings of the mail server";
}

// Of what AccessToken and findTokenProblems() say; the first row whose part stands there counts.
std::string tokenCureOf(const std::string& problem) {
  constexpr struct {
    const char* part;
    const char* cure;
  } kTokenCures[] = {
      {"other users can read it", "chmod 600, or on Windows remove the others' rights"},
      {"smtpTokenFile ", "let the program that renews the token write it there as the first line"},
      {"oauthClientSecretFile ", "write the application's secret there as the first line"},
      {"not trusted", "add the authority's certificate to those of this machine"},
      {"the token server ", "correct what its answer names"},
  };
  for (const auto& row : kTokenCures) {
    if (problem.find(row.part) != std::string::npos) return row.cure;
  }
  return "correct that setting";
}

class MailServerCheck {
 public:
  MailServerCheck(const Site& site, Report& report) : site_(site), report_(report) {
    const config::ExpirationSettings& settings = site.settings;
    const std::uint32_t port = settings.smtpPort == 0 ? kSmtpPort : settings.smtpPort;
    subject_ = platform::loggableAnsiLine(settings.smtpServer) + ":" + std::to_string(port);
  }

  void run() {
    mailMan_.UnlockComponent(notify::kMailUnlockCode);
    const std::string unreadable = notify::configureMailMan(mailMan_, site_.settings);
    if (!unreadable.empty()) {
      return report_.fault("login", unreadable, "docs/settings.md says what this setting needs");
    }
    if (!accessToken()) return;
    const bool open = mailMan_.OpenSmtpConnection();
    const SmtpFailure failure = open ? SmtpFailure() : mailMan_.get_LastFailure();
    way(open, failure);
    if (!open) return failed(failure);
    const std::string sender = addressIn(site_.settings.emailFromAddress);
    if (!recipient(sender, "emailFromAddress", true)) return;
    if (site_.settings.emailAdminReports) {
      for (const std::string& one : notify::adminAddresses(site_.settings.adminEmailAddress)) {
        if (!recipient(one, "adminEmailAddress", false)) break;
      }
    }
    if (site_.settings.testEmailOnly) {
      recipient(addressIn(site_.settings.testEmailAddress), "testEmailAddress", false);
    }
    mailMan_.CloseSmtpConnection();
  }

 private:
  static std::string addressIn(const std::string& setting) {
    return kelvado::parseAddress(platform::ansiToUtf8(setting)).address;
  }
  bool accessToken();
  void way(bool open, const SmtpFailure& failure);
  void certificate(bool refused);
  void login(bool open);
  void failed(const SmtpFailure& failure);
  bool recipient(const std::string& address, const char* setting, bool isSender);

  const Site& site_;
  Report& report_;
  std::string subject_;
  kelvado::KvMailMan mailMan_;
};

// Gets the token to log in with, where the settings ask for one. False when there is none.
bool MailServerCheck::accessToken() {
  if (!notify::wantsAccessToken(site_.settings)) return true;
  std::string problem;
  notify::AccessToken token(site_.settings, site_.host.clock);
  mailMan_.put_OAuth2AccessToken(token.current(problem).c_str());
  if (problem.empty()) {
    report_.ok("access token",
               site_.settings.smtpTokenFile.empty()
                   ? "the token server gives one"
                   : platform::loggableAnsiLine(site_.settings.smtpTokenFile) + " holds one");
    return true;
  }
  report_.fault("access token", problem, tokenCureOf(problem));
  return false;
}

// What was in order on the way, as far as it went.
void MailServerCheck::way(bool open, const SmtpFailure& failure) {
  const kelvado::SmtpSession session = mailMan_.get_LastSession();
  if (!open && failure.step <= SmtpStep::Connect) return;
  report_.ok(subject_, "accepts connections");
  if (!session.greeting.empty()) {
    report_.ok(subject_, "greets with \"" + platform::utf8ToAnsi(session.greeting) + '"');
  }
  certificate(failure.step == SmtpStep::Certificate);
  if (open || failure.step >= SmtpStep::Login) {
    const std::string name = platform::utf8ToAnsi(session.helloName);
    if (session.extended) {
      report_.ok(subject_, "takes EHLO " + name);
    } else {
      report_.note(subject_, "refuses EHLO " + name + " and takes HELO: no TLS, no safe login",
                   "give this machine a full name");
    }
  }
  login(open);
}

void MailServerCheck::certificate(bool refused) {
  const kelvado::SmtpSession session = mailMan_.get_LastSession();
  const auto shown = platform::describeCertificate(session.certificate);
  if (!shown || refused) return;
  const std::string until = platform::dateText(shown->validUntil);
  const std::int64_t now = site_.host.clock.fileTime();
  if (!session.certificateProblem.empty()) {
    report_.note(subject_,
                 "its certificate " +
                     platform::certificateFault(*shown, site_.settings.smtpServer, now) + " (" +
                     session.certificateProblem + "); it is used all the same",
                 "set smtpRequireVerifiedCertificate once it verifies");
  } else {
    report_.ok(subject_, "TLS: the certificate of " + shown->subject + ", issued by " +
                             shown->issuer + ", is valid until " + until);
  }
  const std::int64_t left = (shown->validUntil - now) / kFileTimePerDay;
  if (left >= 0 && left < kSoonDays) {
    report_.note(subject_, "its certificate ends on " + until, "renew it before that day");
  }
}

void MailServerCheck::login(bool open) {
  const config::ExpirationSettings& settings = site_.settings;
  const bool wanted = notify::hasPassword(settings) || notify::wantsAccessToken(settings);
  if (!open || settings.smtpUsername.empty() || !wanted) return;
  const std::string user = platform::loggableAnsiLine(settings.smtpUsername);
  if (mailMan_.get_LastSession().loggedIn) {
    report_.ok(subject_, "accepts the login of " + user);
  } else {
    report_.note(subject_, "offers no method to log in: mail goes out without the login of " + user,
                 "remove smtpUsername and smtpPassword, or set smtpAuthMethod");
  }
}

void MailServerCheck::failed(const SmtpFailure& failure) {
  std::string text = platform::utf8ToAnsi(kelvado::failureText(failure));
  const auto shown = platform::describeCertificate(mailMan_.get_LastSession().certificate);
  if (failure.step == SmtpStep::Certificate && shown) {
    const std::int64_t now = site_.host.clock.fileTime();
    text = "its certificate " + platform::certificateFault(*shown, site_.settings.smtpServer, now) +
           " (" + mailMan_.get_LastSession().certificateProblem + ")";
  }
  const bool tokenRefused =
      failure.step == SmtpStep::Login && notify::wantsAccessToken(site_.settings);
  report_.fault(subject_, text,
                tokenRefused ? "the token has ended, or is not for this mailbox: renew it, or "
                               "correct smtpUsername and the rights of the application"
                             : cureOf(failure.step, text));
}

// Asks for one recipient. False when there is no use in asking for another.
bool MailServerCheck::recipient(const std::string& address, const char* setting, bool isSender) {
  kelvado::KvEmail email;
  const std::string sender = addressIn(site_.settings.emailFromAddress);
  if (!looksLikeAddress(sender) || !looksLikeAddress(address)) return true;  // of the settings
  email.put_Utf8(true);
  email.put_From(sender.c_str());
  email.AddTo(address.c_str(), address.c_str());
  const std::string shown = platform::loggableAnsiLine(platform::utf8ToAnsi(address));
  if (mailMan_.VerifyRecipients(email)) {
    report_.ok(subject_, "takes " + shown + (isSender ? " as sender and" : " as") + " recipient");
    return true;
  }
  const SmtpFailure failure = mailMan_.get_LastFailure();
  const std::string text = platform::utf8ToAnsi(kelvado::failureText(failure));
  const std::string where = valueName(site_, site_.settingsKey, setting);
  if (failure.step == SmtpStep::RcptTo && isSender) {
    report_.ok(subject_, "takes " + shown + " as sender");
    report_.note(where, shown + ": " + text + ": what comes back to it is lost",
                 "name a sender that exists, if bounces are to be read");
    return true;
  }
  report_.fault(where, shown + ": " + text, cureOf(failure.step, text));
  return failure.step == SmtpStep::RcptTo;
}

}  // namespace

void checkMailServer(const Site& site, Report& report) {
  report.begin(Part::Mail);
  if (site.settings.smtpServer.empty()) {
    report.note("mail server", "none is set, so that none is asked");
    return;
  }
  MailServerCheck(site, report).run();
}

}  // namespace check
