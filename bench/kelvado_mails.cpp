// Sends one warning mail again and again through the mail library, each with objects and a
// connection of its own, as a pass does. Run by bench.py against a sink, beside curl_mails.
//   kelvado_mails PORT COUNT   sends to 127.0.0.1 and prints the seconds that it took
//   kelvado_mails              prints the mail, for the peer to send the same
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

namespace {

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

bool sendOne(int port, const std::string& html) {
  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("bench");
  mailMan.put_SmtpHost("127.0.0.1");
  mailMan.put_SmtpPort(port);
  mailMan.put_HeloHostname("bench.example");
  kelvado::KvEmail email;
  compose(email, html);
  if (mailMan.SendEmail(email)) return true;
  std::fprintf(stderr, "%s\n", mailMan.LastErrorText());
  return false;
}

void printMail(const std::string& html) {
  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("bench");
  kelvado::KvEmail email;
  compose(email, html);
  std::fputs(mailMan.RenderToMime(email), stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string html = body();
  if (argc != 3) {
    printMail(html);
    return 0;
  }
  const int port = std::atoi(argv[1]);
  const int count = std::atoi(argv[2]);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < count; ++i) {
    if (!sendOne(port, html)) return 1;
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%.6f\n", seconds.count());
  return 0;
}
