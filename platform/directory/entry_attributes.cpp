// The table of attributes and what its rows do; see the header.
#include "platform/directory/entry_attributes.h"

#include <algorithm>
#include <charconv>
#include <chrono>
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
void setLogonName(ReadObject& object, std::string_view value) {
  if (hasControlCharacter(value)) {
    object.fault = "sAMAccountName holds a control character";
  } else {
    object.entry.logonName = textValue(value);
  }
}

template <std::string DirectoryEntry::*field>
void setText(ReadObject& object, std::string_view value) {
  std::string& text = object.entry.*field;
  if (text.empty()) text = textValue(value);
}

template <std::string DirectoryEntry::*field>
std::string textOf(const DirectoryEntry& entry) {
  return entry.*field;
}

template <std::string PersonalDetails::*field>
void setDetail(ReadObject& object, std::string_view value) {
  std::shared_ptr<PersonalDetails>& details = object.entry.details;
  if (details == nullptr) details = std::make_shared<PersonalDetails>();
  std::string& text = (*details).*field;
  if (text.empty()) text = textValue(value);
}

template <std::string PersonalDetails::*field>
std::string detailOf(const DirectoryEntry& entry) {
  return entry.details == nullptr ? "" : (*entry.details).*field;
}

void setPwdLastSet(ReadObject& object, std::string_view value) {
  const std::optional<std::int64_t> number = decimalValue(value);
  if (!number || *number < 0) object.fault = "pwdLastSet is not a time";
  object.entry.pwdLastSet = number.value_or(0);
}

void setPasswordExpires(ReadObject& object, std::string_view value) {
  const std::optional<std::int64_t> number = decimalValue(value);
  if (!number || *number < 0) object.note = "msDS-UserPasswordExpiryTimeComputed is not a time";
  object.entry.passwordExpires = std::max<std::int64_t>(number.value_or(0), 0);
}

std::string passwordExpiresText(const DirectoryEntry& entry) {
  return entry.passwordExpires == 0 ? "" : std::to_string(entry.passwordExpires);
}

// The directory shows the number signed; other tools do not.
void setAccountControl(ReadObject& object, std::string_view value) {
  const std::optional<std::int64_t> number = decimalValue(value);
  if (!number || *number < std::numeric_limits<std::int32_t>::min() ||
      *number > std::numeric_limits<std::uint32_t>::max()) {
    object.fault = "userAccountControl is not a number of 32 bits";
  } else {
    object.entry.accountControl = static_cast<std::uint32_t>(*number);
  }
}

std::string accountControlText(const DirectoryEntry& entry) {
  return std::to_string(entry.accountControl);
}

void setSecurityDescriptor(ReadObject& object, std::string_view value) {
  const std::optional<bool> denies = deniesPasswordChange(value);
  object.entry.cantChangePassword = denies.value_or(false);
  if (!denies) {
    object.note =
        "nTSecurityDescriptor is damaged: the user counts as one who may change the password";
  }
}

// The category's distinguished name, or its first value alone.
void setCategory(ReadObject& object, std::string_view value) {
  if (base::equalsNoCase(value.substr(0, 3), "CN=")) value = value.substr(3, value.find(',') - 3);
  object.entry.isPerson = base::equalsNoCase(value, "person") || base::equalsNoCase(value, "user");
}

std::string categoryText(const DirectoryEntry& entry) {
  return entry.isPerson ? "Person" : "Computer";
}

void setClass(ReadObject& object, std::string_view value) {
  object.isUser |= base::equalsNoCase(value, "user");
  object.isComputer |= base::equalsNoCase(value, "computer");
  object.isDomain |= base::equalsNoCase(value, "domainDNS");
}

std::string classText(const DirectoryEntry&) {
  return "top";
}

void setMaxPwdAge(ReadObject& object, std::string_view value) {
  const std::optional<std::int64_t> number = decimalValue(value);
  if (!number) object.fault = "maxPwdAge is not a number";
  object.maxPwdAge = number.value_or(0);
}

using Syntax = AttributeSyntax;
using enum AskedFor;

// clang-format off
constexpr EntryAttribute kAttributes[] = {
    // name, mark, when a server is asked for it, how it is read, how it is shown
    {"objectClass", kObjectClass, Never, setClass, classText, Syntax::Class},
    {"objectCategory", kObjectCategory, Always, setCategory, categoryText, Syntax::Category},
    {"sAMAccountName", kLogonName, Always, setLogonName, textOf<&DirectoryEntry::logonName>},
    {"mail", kUnmarked, Always, setText<&DirectoryEntry::mail>, textOf<&DirectoryEntry::mail>},
    {"givenName", kUnmarked, Always, setText<&DirectoryEntry::givenName>, textOf<&DirectoryEntry::givenName>},
    {"sn", kUnmarked, Always, setText<&DirectoryEntry::surname>, textOf<&DirectoryEntry::surname>},
    {"pwdLastSet", kPwdLastSet, Always, setPwdLastSet},
    {"userAccountControl", kAccountControl, Always, setAccountControl, accountControlText, Syntax::Number},
    {"nTSecurityDescriptor", kSecurityDescriptor, Always, setSecurityDescriptor},
    {"msDS-UserPasswordExpiryTimeComputed", kUnmarked, WithExpiryTimes, setPasswordExpires, passwordExpiresText, Syntax::LargeInteger},
    {"displayName", kUnmarked, WithDetails, setDetail<&PersonalDetails::displayName>, detailOf<&PersonalDetails::displayName>},
    {"preferredLanguage", kUnmarked, WithDetails, setDetail<&PersonalDetails::preferredLanguage>, detailOf<&PersonalDetails::preferredLanguage>},
    {"manager", kUnmarked, WithDetails, setDetail<&PersonalDetails::manager>, detailOf<&PersonalDetails::manager>, Syntax::DistinguishedName},
    {"maxPwdAge", kMaxPwdAge, Never, setMaxPwdAge},
    {"distinguishedName", kUnmarked, Never, nullptr, textOf<&DirectoryEntry::dn>, Syntax::DistinguishedName},
};
// clang-format on

constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr std::size_t kSecondsEnd = 14;  // of "YYYYMMDDHHMMSS"

}  // namespace

std::span<const EntryAttribute> entryAttributes() {
  return kAttributes;
}

bool isWanted(const EntryAttribute& attribute, const OptionalAttributes& wanted) {
  if (attribute.ofUsers == WithExpiryTimes) return wanted.expiryTimes;
  return attribute.ofUsers != WithDetails || wanted.personalDetails;
}

const EntryAttribute* entryAttribute(std::string_view name) {
  for (const EntryAttribute& known : kAttributes) {
    if (base::equalsNoCase(name, known.name)) return &known;
  }
  return nullptr;
}

void takeValue(ReadObject& object, const EntryAttribute& attribute, std::string_view value) {
  if (attribute.set == nullptr) return;
  object.seen |= attribute.mark;
  attribute.set(object, value);
}

std::optional<std::int64_t> decimalValue(std::string_view value) {
  while (value.ends_with(' ')) value.remove_suffix(1);
  std::int64_t number = 0;
  const char* const end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::uint32_t maxAgeSeconds(std::int64_t age) {
  if (age >= 0 || age == std::numeric_limits<std::int64_t>::min()) return kPasswordNeverExpires;
  return static_cast<std::uint32_t>(
      std::min<std::int64_t>(-age / kFileTimePerSecond, kPasswordNeverExpires));
}

std::optional<std::int64_t> timeValue(std::string_view value) {
  using namespace std::chrono;
  const std::string_view rest = value.substr(std::min(value.size(), kSecondsEnd));
  const bool fraction = rest.size() > 2 && (rest.front() == '.' || rest.front() == ',');
  if (value.find_first_not_of("0123456789") < kSecondsEnd || !rest.ends_with('Z') ||
      (!fraction && rest.size() != 1)) {
    return std::nullopt;
  }
  const auto number = [value](std::size_t at, std::size_t digits) {
    return static_cast<int>(decimalValue(value.substr(at, digits)).value_or(0));
  };
  const year_month_day date(year(number(0, 4)), month(static_cast<unsigned>(number(4, 2))),
                            day(static_cast<unsigned>(number(6, 2))));
  const hours hour(number(8, 2));
  const minutes minute(number(10, 2));
  const seconds second(number(12, 2));
  if (!date.ok() || hour >= 24h || minute >= 60min || second > 60s) return std::nullopt;
  const seconds since1601 =
      sys_days(date) - sys_days(year(1601) / January / 1) + hour + minute + second;
  return since1601.count() * kFileTimePerSecond;
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
