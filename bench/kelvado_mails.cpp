// Sends one warning mail again and again through the mail library. Run by bench.py against a sink,
// beside curl_mails, which sends the same.
//   kelvado_mails PORT COUNT MODE   sends to 127.0.0.1 and prints the seconds that it took; MODE:
//       each, kept              a connection for each mail, with objects of its own, as a pass
//                               does; or one for all, with one object
//       starttls-each, starttls-kept    with the authorities of the file in SSL_CERT_FILE
//       starttls-login-each             the same, logging in
//       starttls-oauth-kept             the same, logging in by an access token
//       attachment=MB           kept, each with so many megabytes attached
//   kelvado_mails                   prints the mail
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

namespace {

constexpr std::string_view kAttachment = "attachment=";

std::string body() {
  std::string html = "<html><body><h3>Your Windows password expires in 7 days</h3>\n";
  for (int i = 0; i < 12; ++i) {
    html += "<p>To change it, press Ctrl+Alt+Del and choose <i>Change a password</i>.</p>\n";
  }
  return html + "</body></html>\n";
}

void compose(kelvado::KvEmail& email, const std::string& html) {
  email.AddHeaderField("X-Priority", "1");
  email.put_From("Help Desk <helpdesk@bench.example>");
  email.AddTo("user@bench.example", "user@bench.example");
  email.put_Subject("Your Windows password will expire soon");
  email.SetHtmlBody(html.c_str());
}

class Sender {
 public:
  Sender(int port, std::string_view mode)
      : port_(port),
        startTls_(mode.starts_with("starttls")),
        login_(mode.find("login") != std::string_view::npos),
        oauth_(mode.find("oauth") != std::string_view::npos),
        kept_(mode.ends_with("kept") || mode.starts_with(kAttachment)) {
    if (!mode.starts_with(kAttachment)) return;
    const std::string size(mode.substr(kAttachment.size()));
    attachment_.assign(std::strtoul(size.c_str(), nullptr, 10) << 20, '\xA5');
  }

  bool send(int count) {
    if (kept_) {
      kelvado::KvMailMan mailMan;
      prepare(mailMan);
      for (int i = 0; i < count; ++i) {
        if (!sendOne(mailMan)) return false;
      }
      return mailMan.CloseSmtpConnection();
    }
    for (int i = 0; i < count; ++i) {
      kelvado::KvMailMan mailMan;
      prepare(mailMan);
      if (!sendOne(mailMan)) return false;
    }
    return true;
  }

 private:
  void prepare(kelvado::KvMailMan& mailMan) const {
    mailMan.UnlockComponent("bench");
    mailMan.put_SmtpHost("127.0.0.1");
    mailMan.put_SmtpPort(port_);
    mailMan.put_StartTLS(startTls_);
    mailMan.put_RequireVerifiedCertificate(startTls_);
    mailMan.put_HeloHostname("bench.example");
    if (!login_ && !oauth_) return;
    mailMan.put_SmtpUsername("bench");
    if (login_) mailMan.put_SmtpPassword("bench");
    if (oauth_) mailMan.put_OAuth2AccessToken("bench");
  }

  bool sendOne(kelvado::KvMailMan& mailMan) const {
    kelvado::KvEmail email;
    compose(email, html_);
    if (!attachment_.empty()) {
      email.AddDataAttachment("file.bin", attachment_.data(), attachment_.size());
    }
    if (mailMan.SendEmail(email)) return true;
    std::fprintf(stderr, "%s\n", mailMan.LastErrorText());
    return false;
  }

  int port_;
  bool startTls_;
  bool login_;
  bool oauth_;
  bool kept_;
  std::string html_ = body();
  std::string attachment_;
};

void printMail() {
  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("bench");
  kelvado::KvEmail email;
  compose(email, body());
  std::fputs(mailMan.RenderToMime(email), stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    printMail();
    return 0;
  }
  Sender sender(std::atoi(argv[1]), argv[3]);
  const auto start = std::chrono::steady_clock::now();
  if (!sender.send(std::atoi(argv[2]))) return 1;
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%.6f\n", seconds.count());
  return 0;
}
