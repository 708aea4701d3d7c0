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

struct Arguments {
  std::string texts[2];
  const char* one = texts[0].c_str();
  const char* two = texts[1].c_str();
  int number = std::atoi(one);
};
using Method = std::function<std::string(const Arguments&)>;

std::string result(bool succeeded) {
  return succeeded ? "1" : "0";
}
std::string result(const char* text) {
  return text;
}

#define CALL(object, method, ...)                                                               \
  {                                                                                             \
#method,                                                                                    \
        [&]([[maybe_unused]] const Arguments& a) { return result(object.method(__VA_ARGS__)); } \
  }
#define PUT(object, property, argument)                                                        \
  {                                                                                            \
#property, [&](const Arguments& a) { return object.put_##property(argument), result(""); } \
  }

std::map<std::string, Method> methodsOf(kelvado::KvEmail& email, kelvado::KvMailMan& man) {
  return {PUT(email, Subject, a.one),
          PUT(email, From, a.one),
          PUT(email, Body, a.one),
          CALL(email, SetHtmlBody, a.one),
          CALL(email, AddPlainTextAlternativeBody, a.one),
          CALL(email, AddFileAttachment, a.one),
          CALL(email, AddStringAttachment, a.one, a.two),
          CALL(email, AddRelatedFile2, a.one, a.two),
          CALL(email, AddTo, a.one, a.two),
          CALL(email, AddCC, a.one, a.two),
          CALL(email, AddBcc, a.one, a.two),
          CALL(email, SaveEml, a.one),
          PUT(man, SmtpHost, a.one),
          PUT(man, SmtpPort, a.number),
          PUT(man, SmtpSsl, a.number != 0),
          PUT(man, StartTLS, a.number != 0),
          PUT(man, RequireVerifiedCertificate, a.number != 0),
          CALL(man, SetSslClientCert, a.one),
          PUT(man, SmtpUsername, a.one),
          PUT(man, SmtpPassword, a.one),
          PUT(man, SmtpAuthMethod, a.one),
          CALL(man, RenderToMime, email),
          CALL(man, SendEmail, email),
          CALL(man, LastErrorText),
          {"SetSslCertRequirement", [&](const Arguments& a) {
             return man.SetSslCertRequirement(a.one, a.two), result("");
           }}};
}

}  // namespace

int main() {
  kelvado::KvEmail email;
  kelvado::KvMailMan man;
  email.put_Utf8(true);
  man.put_Utf8(true);
  man.UnlockComponent("test");
  const auto methods = methodsOf(email, man);
  const auto read = [](std::string& part) { return !!std::getline(std::cin, part, '\0'); };
  for (std::string name, one, two; read(name) && read(one) && read(two);) {
    const auto found = methods.find(name);
    if (found == methods.end()) {
      std::cerr << "no method: " << name << '\n';
      return 2;
    }
    std::cout << found->second({{one, two}}) << '\0' << std::flush;
  }
  return 0;
}
