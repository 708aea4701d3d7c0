// Calls the mail library as another program would, for the tests that show it to those that read
// mail and those that take it.
//
//   mail_probe < CALLS > RESULTS
//
// A call of the one KvEmail or the one KvMailMan is three texts in UTF-8, each ended by a zero
// byte: the method or property and two arguments, empty where there is none. A result is a text
// that is ended alike: "1" or "0" of a method that succeeds or fails, empty of a property that was
// set. Exit status 2 for a method that is none.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

namespace {

std::string result(bool succeeded) {
  return succeeded ? "1" : "0";
}
std::string result(const char* text) {
  return text;
}

}  // namespace

#define CALL(object, method, ...)                               \
  {                                                             \
#method, [&] { return result(object.method(__VA_ARGS__)); } \
  }
#define PUT(object, property, argument)                                    \
  {                                                                        \
#property, [&] { return object.put_##property(argument), result(""); } \
  }

int main() {
  kelvado::KvEmail email;
  kelvado::KvMailMan man;
  const char *one = "", *two = "";  // the arguments of the call
  const std::map<std::string, std::function<std::string()>> methods = {
      PUT(email, Subject, one),
      PUT(email, From, one),
      PUT(email, Body, one),
      CALL(email, SetHtmlBody, one),
      CALL(email, AddPlainTextAlternativeBody, one),
      CALL(email, AddFileAttachment, one),
      CALL(email, AddStringAttachment, one, two),
      CALL(email, AddRelatedFile2, one, two),
      CALL(email, AddTo, one, two),
      CALL(email, AddCC, one, two),
      CALL(email, AddBcc, one, two),
      CALL(email, SaveEml, one),
      PUT(man, SmtpHost, one),
      PUT(man, SmtpPort, std::atoi(one)),
      PUT(man, SmtpSsl, std::atoi(one) != 0),
      PUT(man, StartTLS, std::atoi(one) != 0),
      PUT(man, RequireVerifiedCertificate, std::atoi(one) != 0),
      CALL(man, SetSslClientCert, one),
      PUT(man, SmtpUsername, one),
      PUT(man, SmtpPassword, one),
      PUT(man, SmtpAuthMethod, one),
      CALL(man, RenderToMime, email),
      CALL(man, SendEmail, email),
      CALL(man, LastErrorText)};
  email.put_Utf8(true);
  man.put_Utf8(true);
  man.UnlockComponent("test");
  const auto read = [](std::string& part) { return !!std::getline(std::cin, part, '\0'); };
  for (std::string name, first, second; read(name) && read(first) && read(second);) {
    const auto found = methods.find(name);
    if (found == methods.end()) {
      std::cerr << "no method: " << name << '\n';
      return 2;
    }
    one = first.c_str();
    two = second.c_str();
    std::cout << found->second() << '\0' << std::flush;
  }
  return 0;
}
