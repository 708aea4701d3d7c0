// Sends a file by mail, over a connection that STARTTLS has secured.
//   send_mail HOST PORT FROM TO FILE
// Logs in when the environment holds a password in SMTP_PASSWORD: as SMTP_USERNAME, or else as
// FROM.
#include <cstdio>
#include <cstdlib>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("usage: send_mail HOST PORT FROM TO FILE\n", stderr);
    return 2;
  }
  kelvado::KvEmail email;
  email.put_Subject("A file for you");
  email.put_From(argv[3]);
  email.put_Body("It is attached.\n");
  if (!email.AddMultipleTo(argv[4]) || !email.AddFileAttachment(argv[5])) {
    std::fputs(email.LastErrorText(), stderr);
    return 1;
  }

  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("example");
  mailMan.put_SmtpHost(argv[1]);
  mailMan.put_SmtpPort(std::atoi(argv[2]));
  mailMan.put_StartTLS(true);
  mailMan.put_RequireVerifiedCertificate(true);
  if (const char* password = std::getenv("SMTP_PASSWORD")) {
    const char* username = std::getenv("SMTP_USERNAME");
    mailMan.put_SmtpUsername(username != nullptr ? username : argv[3]);
    mailMan.put_SmtpPassword(password);
  }
  if (mailMan.SendEmail(email)) return 0;
  std::fputs(mailMan.LastErrorText(), stderr);
  return 1;
}
