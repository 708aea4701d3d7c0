// Sends a plain text mail, over a connection that STARTTLS has secured.
//   plain HOST PORT FROM TO
#include <cstdio>
#include <cstdlib>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: plain HOST PORT FROM TO\n", stderr);
    return 2;
  }
  kelvado::KvEmail email;
  email.put_From(argv[3]);
  email.AddTo("", argv[4]);
  email.put_Subject("Hello");
  email.put_Body("Nothing but text.\n");

  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("example");
  mailMan.put_SmtpHost(argv[1]);
  mailMan.put_SmtpPort(std::atoi(argv[2]));
  mailMan.put_StartTLS(true);
  mailMan.put_RequireVerifiedCertificate(true);
  if (mailMan.SendEmail(email)) return 0;
  std::fputs(mailMan.LastErrorText(), stderr);
  return 1;
}
