// Sends a mail in HTML that shows a picture, with a text for those who do not show HTML.
//   html_picture HOST PORT FROM TO PICTURE
#include <cstdio>
#include <cstdlib>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("usage: html_picture HOST PORT FROM TO PICTURE\n", stderr);
    return 2;
  }
  kelvado::KvEmail email;
  email.put_From(argv[3]);
  email.AddTo("", argv[4]);
  email.put_Subject("A picture");
  email.SetHtmlBody("<p>Look:</p><img src=\"picture\" alt=\"the picture\">");
  email.AddPlainTextAlternativeBody("There is a picture in this mail.\n");
  // The picture travels in the mail; the name is the one in the HTML.
  if (!email.AddRelatedFile2(argv[5], "picture")) {
    std::fputs(email.LastErrorText(), stderr);
    return 1;
  }

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
