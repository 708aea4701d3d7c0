#include "console/sample_directory.h"

#include <utility>

namespace console {
namespace {

constexpr std::uint32_t kWorkstation = 0x1000;
constexpr std::int64_t kHour = 36000000000;  // of 100 ns

// A security descriptor whose one entry denies SELF the change-password right.
constexpr const char* kDenyChange =
    "AQAEgAAAAAAAAAAAAAAAABQAAAAEADAAAQAAAAYAKAAAAQAAAQAAAFMacqsvHtARmBkAqgBAUpsBAQAAAAAABQoAAAA=";

std::string record(const SampleUser& user, const std::string& base, std::int64_t now) {
  const bool computer = user.accountControl == kWorkstation;
  std::string text = "dn: CN=" + user.logonName + (computer ? ",CN=Computers," : ",CN=Users,") +
                     base + "\nobjectClass: top\nobjectClass: person\nobjectClass: user\n";
  if (computer) text += "objectClass: computer\n";
  text += std::string("objectCategory: CN=") + (computer ? "Computer" : "Person") +
          ",CN=Schema,CN=Configuration," + base + "\n";
  const bool due = user.age == SampleUser::kChangeDue;
  const std::int64_t changed = due ? 0 : now - (user.age * std::int64_t{24} + 1) * kHour;
  const std::pair<const char*, std::string> values[] = {
      {"sAMAccountName", user.logonName},
      {"givenName", user.givenName},
      {"sn", user.surname},
      {"mail", user.mail},
      {"manager", user.manager.empty() ? "" : "CN=" + user.manager + ",CN=Users," + base},
      {"userAccountControl", std::to_string(user.accountControl)},
      {"pwdLastSet", std::to_string(changed)},
      {"nTSecurityDescriptor:", user.cannotChange ? kDenyChange : ""}};
  for (const auto& [name, value] : values) {
    if (!value.empty()) text += std::string(name) + ": " + value + "\n";
  }
  return text + "\n";
}

}  // namespace

std::string sampleDirectory(const std::string& base, int maxAge,
                            const std::vector<SampleUser>& users, std::int64_t now) {
  std::string text = "version: 1\n\ndn: " + base +
                     "\nobjectClass: top\nobjectClass: domainDNS\nmaxPwdAge: " +
                     std::to_string(-maxAge * 24 * kHour) + "\n\n";
  for (const SampleUser& user : users) text += record(user, base, now);
  return text;
}

}  // namespace console
