// Logs in with an OAuth 2.0 access token in the place of a password, and sends a mail.
//   oauth HOST PORT USER TO
// The token is in the environment, in ACCESS_TOKEN. USER is the mailbox that it is for.
#include <cstdio>
#include <cstdlib>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

int main(int argc, char** argv) {
  const char* token = std::getenv("ACCESS_TOKEN");
  if (argc != 5 || token == nullptr) {
    std::fputs("usage: ACCESS_TOKEN=... oauth HOST PORT USER TO\n", stderr);
    return 2;
  }
  kelvado::KvEmail email;
  email.put_From(argv[3]);
  email.AddTo("", argv[4]);
  email.put_Subject("Without a password");
  email.put_Body("An access token was enough.\n");

  kelvado::KvMailMan mailMan;
  mailMan.UnlockComponent("example");
  mailMan.put_SmtpHost(argv[1]);
  mailMan.put_SmtpPort(std::atoi(argv[2]));
  mailMan.put_StartTLS(true);  // a token is never sent without TLS
  mailMan.put_RequireVerifiedCertificate(true);
  mailMan.put_SmtpUsername(argv[3]);
  mailMan.put_OAuth2AccessToken(token);  // OAUTHBEARER or XOAUTH2, as the server offers
  if (mailMan.SendEmail(email)) return 0;
  const kelvado::SmtpFailure failure = mailMan.get_LastFailure();
  if (failure.step == kelvado::SmtpStep::Login && failure.replyCode == 535) {
    std::fputs("The server refuses the token: it has ended, or is for something else.\n", stderr);
  }
  std::fputs(mailMan.LastErrorText(), stderr);
  return 1;
}
