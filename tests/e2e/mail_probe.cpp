// Builds a message and sends it, for the tests that show the mail library to other programs: those
// that read mail and those that take it.
//
//   mail_probe < CALLS > RESULTS
//
// A call of the one KvEmail or the one KvMailMan is three texts in UTF-8, each ended by a zero
// byte: the method's name and two arguments, empty where there is none. A result is a text that is
// ended alike: "1" or "0" of a method that succeeds or fails, empty of one that returns nothing.
// Exit status 2 for a method that is none.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

namespace {

using kelvado::KvEmail;
using kelvado::KvMailMan;
using Method = std::function<std::string(const char*, const char*)>;

// The methods of an object by the number and kind of their arguments.

template <class Object>
Method text(Object& object, void (Object::*put)(const char*)) {
  return [=, &object](const char* value, const char*) { return (object.*put)(value), ""; };
}

template <class Object, class Number>
Method number(Object& object, void (Object::*put)(Number)) {
  return [=, &object](const char* value, const char*) {
    (object.*put)(static_cast<Number>(std::atoi(value)));
    return "";
  };
}

template <class Object>
Method call(Object& object, bool (Object::*method)(const char*)) {
  return
      [=, &object](const char* one, const char*) { return std::to_string((object.*method)(one)); };
}

template <class Object, class Result>
Method pair(Object& object, Result (Object::*method)(const char*, const char*)) {
  return [=, &object](const char* one, const char* two) {
    if constexpr (std::is_void_v<Result>) {
      return (object.*method)(one, two), "";
    } else {
      return std::to_string((object.*method)(one, two));
    }
  };
}

std::map<std::string, Method> methodsOf(KvEmail& email, KvMailMan& man) {
  return {
      {"Subject", text(email, &KvEmail::put_Subject)},
      {"From", text(email, &KvEmail::put_From)},
      {"Body", text(email, &KvEmail::put_Body)},
      {"SetHtmlBody", call(email, &KvEmail::SetHtmlBody)},
      {"AddPlainTextAlternativeBody", call(email, &KvEmail::AddPlainTextAlternativeBody)},
      {"AddFileAttachment", call(email, &KvEmail::AddFileAttachment)},
      {"AddStringAttachment", pair(email, &KvEmail::AddStringAttachment)},
      {"AddRelatedFile2", pair(email, &KvEmail::AddRelatedFile2)},
      {"AddTo", pair(email, &KvEmail::AddTo)},
      {"AddCC", pair(email, &KvEmail::AddCC)},
      {"AddBcc", pair(email, &KvEmail::AddBcc)},
      {"SaveEml", call(email, &KvEmail::SaveEml)},
      {"SmtpHost", text(man, &KvMailMan::put_SmtpHost)},
      {"SmtpPort", number(man, &KvMailMan::put_SmtpPort)},
      {"SmtpSsl", number(man, &KvMailMan::put_SmtpSsl)},
      {"StartTLS", number(man, &KvMailMan::put_StartTLS)},
      {"RequireVerifiedCertificate", number(man, &KvMailMan::put_RequireVerifiedCertificate)},
      {"SetSslClientCert", call(man, &KvMailMan::SetSslClientCert)},
      {"SetSslCertRequirement", pair(man, &KvMailMan::SetSslCertRequirement)},
      {"SmtpUsername", text(man, &KvMailMan::put_SmtpUsername)},
      {"SmtpPassword", text(man, &KvMailMan::put_SmtpPassword)},
      {"SmtpAuthMethod", text(man, &KvMailMan::put_SmtpAuthMethod)},
      {"RenderToMime",
       [&](const char*, const char*) -> std::string { return man.RenderToMime(email); }},
      {"SendEmail", [&](const char*, const char*) { return std::to_string(man.SendEmail(email)); }},
      {"LastErrorText", [&](const char*, const char*) { return man.LastErrorText(); }},
  };
}

}  // namespace

int main() {
  KvEmail email;
  KvMailMan man;
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
    std::cout << found->second(one.c_str(), two.c_str()) << '\0' << std::flush;
  }
  return 0;
}
