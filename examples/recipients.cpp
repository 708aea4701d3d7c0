// Sends one mail to many over one connection: each gets a copy of his own and sees nobody else.
//   recipients HOST PORT FROM ADDRESS...
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fputs("usage: recipients HOST PORT FROM ADDRESS...\n", stderr);
    return 2;
  }
  const std::vector<std::string> addresses(argv + 4, argv + argc);
  kelvado::KvEmail email;
  email.put_From(argv[3]);
  email.put_Subject("News");
  email.put_Body("The same for everybody.\n");

  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("example");
  mailMan.put_SmtpHost(argv[1]);
  mailMan.put_SmtpPort(std::atoi(argv[2]));
  mailMan.put_StartTLS(true);
  mailMan.put_RequireVerifiedCertificate(true);
  const bool sent = mailMan.SendToDistributionList(email, addresses);
  std::printf("%u of %u recipients\n", mailMan.get_NumAccepted(), mailMan.get_NumRecipients());
  for (const std::string& refused : mailMan.GetBadEmailAddresses()) {
    std::printf("refused: %s\n", refused.c_str());
  }
  if (sent) return 0;
  std::fputs(mailMan.LastErrorText(), stderr);
  return 1;
}
