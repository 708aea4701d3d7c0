// The fields of an entry, one function each; see the header.
#include "platform/directory/entry_attributes.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "base/ascii.h"
#include "base/unicode.h"
#include "platform/directory/security_descriptor.h"
#include "platform/text/code_page.h"

namespace platform {
namespace {

bool hasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// A control character would break the lines of the lists and logs that names stand in.
const char* setLogonName(DirectoryEntry& entry, std::string_view value) {
  if (hasControlCharacter(value)) return "sAMAccountName holds a control character";
  entry.logonName = textValue(value);
  return nullptr;
}

template <std::string DirectoryEntry::*field>
const char* setText(DirectoryEntry& entry, std::string_view value) {
  std::string& text = entry.*field;
  if (text.empty()) text = textValue(value);
  return nullptr;
}

const char* setPwdLastSet(DirectoryEntry& entry, std::string_view value) {
  const std::optional<std::int64_t> number = decimalValue(value);
  if (!number || *number < 0) return "pwdLastSet is not a time";
  entry.pwdLastSet = *number;
  return nullptr;
}

// The directory shows the number signed; other tools do not.
const char* setAccountControl(DirectoryEntry& entry, std::string_view value) {
  const std::optional<std::int64_t> number = decimalValue(value);
  if (!number || *number < std::numeric_limits<std::int32_t>::min() ||
      *number > std::numeric_limits<std::uint32_t>::max()) {
    return "userAccountControl is not a number of 32 bits";
  }
  entry.accountControl = static_cast<std::uint32_t>(*number);
  return nullptr;
}

const char* setSecurityDescriptor(DirectoryEntry& entry, std::string_view value) {
  entry.cantChangePassword = deniesPasswordChange(value);
  return nullptr;
}

// The category's distinguished name, or its first value alone.
const char* setCategory(DirectoryEntry& entry, std::string_view value) {
  if (base::equalsNoCase(value.substr(0, 3), "CN=")) value = value.substr(3, value.find(',') - 3);
  entry.isPerson = base::equalsNoCase(value, "person") || base::equalsNoCase(value, "user");
  return nullptr;
}

struct Attribute {
  std::string_view name;
  EntrySetter set;
};

constexpr Attribute kAttributes[] = {
    {"sAMAccountName", setLogonName},
    {"mail", setText<&DirectoryEntry::mail>},
    {"givenName", setText<&DirectoryEntry::givenName>},
    {"sn", setText<&DirectoryEntry::surname>},
    {"pwdLastSet", setPwdLastSet},
    {"userAccountControl", setAccountControl},
    {"nTSecurityDescriptor", setSecurityDescriptor},
    {"objectCategory", setCategory},
};

}  // namespace

EntrySetter entrySetter(std::string_view attribute) {
  for (const Attribute& known : kAttributes) {
    if (base::equalsNoCase(attribute, known.name)) return known.set;
  }
  return nullptr;
}

std::optional<std::int64_t> decimalValue(std::string_view value) {
  while (value.ends_with(' ')) value.remove_suffix(1);
  std::int64_t number = 0;
  const char* const end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::string textValue(std::string_view value) {
  return base::isValidUtf8(value) ? std::string(value) : base::utf16ToUtf8(ansiToUtf16(value));
}

std::string_view domainPart(std::string_view dn) {
  for (std::size_t start = 0; start < dn.size();) {
    if (base::equalsNoCase(dn.substr(start, 3), "DC=")) return dn.substr(start);
    const std::size_t comma = dn.find(',', start);
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  return {};
}

}  // namespace platform
