// Builds a message and sends it, for the tests that show the mail library to other programs: those
// that read mail and those that take it.
//
//   mail_probe < CALLS > RESULTS
//
// A line a call of the one KvEmail or the one KvMailMan: the method's name and its arguments, all
// UTF-8, with tabs between; `\\`, `\t`, `\r` and `\n` stand for what would end them. A line a
// result, written alike: a text, or "1" or "0". Exit status 2 for a method that is none.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

namespace {

using kelvado::KvEmail;
using kelvado::KvMailMan;
using Call = std::vector<std::string>;  // the name, then the arguments

constexpr std::string_view kEscapes = "\\\\\tt\rr\nn";  // pairs: a character, and its letter

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const std::size_t at = kEscapes.find(c);
    const bool special = at != std::string_view::npos && at % 2 == 0;
    if (special) result += '\\';
    result += special ? kEscapes[at + 1] : c;
  }
  return result;
}

Call split(std::string_view line) {
  Call call(1);
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\t') {
      call.emplace_back();
    } else if (line[i] == '\\' && i + 1 < line.size()) {
      call.back() += kEscapes[kEscapes.rfind(line[++i]) - 1];
    } else {
      call.back() += line[i];
    }
  }
  return call;
}

std::string shown(const char* text) {
  return text == nullptr ? "" : text;
}

// The methods by the number and kind of their arguments.
const std::map<std::string, void (KvEmail::*)(const char*)> kEmailTexts = {
    {"Subject", &KvEmail::put_Subject}, {"From", &KvEmail::put_From}, {"Body", &KvEmail::put_Body}};
const std::map<std::string, bool (KvEmail::*)(const char*)> kEmailCalls = {
    {"SetHtmlBody", &KvEmail::SetHtmlBody},
    {"AddPlainTextAlternativeBody", &KvEmail::AddPlainTextAlternativeBody},
    {"AddFileAttachment", &KvEmail::AddFileAttachment},
    {"SaveEml", &KvEmail::SaveEml}};
const std::map<std::string, bool (KvEmail::*)(const char*, const char*)> kEmailPairs = {
    {"AddTo", &KvEmail::AddTo},
    {"AddCC", &KvEmail::AddCC},
    {"AddBcc", &KvEmail::AddBcc},
    {"AddRelatedFile2", &KvEmail::AddRelatedFile2},
    {"AddStringAttachment", &KvEmail::AddStringAttachment}};
const std::map<std::string, void (KvMailMan::*)(const char*)> kServerTexts = {
    {"SmtpHost", &KvMailMan::put_SmtpHost},
    {"SmtpUsername", &KvMailMan::put_SmtpUsername},
    {"SmtpPassword", &KvMailMan::put_SmtpPassword},
    {"SmtpDomain", &KvMailMan::put_SmtpDomain},
    {"SmtpAuthMethod", &KvMailMan::put_SmtpAuthMethod}};
const std::map<std::string, void (KvMailMan::*)(bool)> kServerSwitches = {
    {"SmtpSsl", &KvMailMan::put_SmtpSsl},
    {"StartTLS", &KvMailMan::put_StartTLS},
    {"RequireVerifiedCertificate", &KvMailMan::put_RequireVerifiedCertificate}};
const std::map<std::string, std::function<std::string(KvMailMan&, KvEmail&)>> kServerCalls = {
    {"SendEmail",
     [](KvMailMan& man, KvEmail& email) { return std::to_string(man.SendEmail(email)); }},
    {"RenderToMime", [](KvMailMan& man, KvEmail& email) { return shown(man.RenderToMime(email)); }},
    {"LastErrorText", [](KvMailMan& man, KvEmail&) { return shown(man.LastErrorText()); }}};

// Whether `methods` has the one that is called; then `invoke` gets it.
template <typename Methods, typename Invoke>
bool called(const Methods& methods, const std::string& name, Invoke invoke) {
  const auto found = methods.find(name);
  if (found == methods.end()) return false;
  invoke(found->second);
  return true;
}

bool run(KvEmail& email, KvMailMan& man, Call call, std::string& result) {
  call.resize(3);
  const std::string& name = call[0];
  const char* const first = call[1].c_str();
  const char* const second = call[2].c_str();
  if (name == "SmtpPort") {
    man.put_SmtpPort(std::atoi(first));
    return true;
  }
  return called(kEmailTexts, name, [&](auto method) { (email.*method)(first); }) ||
         called(kServerTexts, name, [&](auto method) { (man.*method)(first); }) ||
         called(kServerSwitches, name, [&](auto method) { (man.*method)(call[1] == "1"); }) ||
         called(kEmailCalls, name,
                [&](auto method) { result = std::to_string((email.*method)(first)); }) ||
         called(kEmailPairs, name,
                [&](auto method) { result = std::to_string((email.*method)(first, second)); }) ||
         called(kServerCalls, name, [&](const auto& function) { result = function(man, email); });
}

}  // namespace

int main() {
  KvEmail email;
  KvMailMan man;
  email.put_Utf8(true);
  man.put_Utf8(true);
  man.UnlockComponent("test");
  for (std::string line; std::getline(std::cin, line);) {
    std::string result;
    if (!run(email, man, split(line), result)) {
      std::cerr << "no method: " << line.substr(0, line.find('\t')) << '\n';
      return 2;
    }
    std::cout << escaped(result) << std::endl;
  }
  return 0;
}
