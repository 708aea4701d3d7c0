// Sends a mail to a server whose certificate an authority of the site's own has signed.
//   SSL_CERT_FILE=ca.pem own_ca HOST PORT FROM TO ISSUER
// The library trusts the authorities that the system trusts. Elsewhere than on Windows
// SSL_CERT_FILE names others, in PEM; on Windows the authority belongs in the machine's store.
// ISSUER is the common name of the authority: a certificate that another one has signed is refused
// as well.
#include <cstdio>
#include <cstdlib>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("usage: SSL_CERT_FILE=ca.pem own_ca HOST PORT FROM TO ISSUER\n", stderr);
    return 2;
  }
  kelvado::KvEmail email;
  email.put_From(argv[3]);
  email.AddTo("", argv[4]);
  email.put_Subject("From inside");
  email.put_Body("The server is the one that it says it is.\n");

  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("example");
  mailMan.put_SmtpHost(argv[1]);
  mailMan.put_SmtpPort(std::atoi(argv[2]));
  mailMan.put_StartTLS(true);
  mailMan.put_RequireVerifiedCertificate(true);
  mailMan.SetSslCertRequirement("issuer", argv[5]);
  if (mailMan.SendEmail(email)) return 0;
  std::fputs(mailMan.LastErrorText(), stderr);
  return 1;
}
