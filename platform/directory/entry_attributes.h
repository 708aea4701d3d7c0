// The attributes of a directory that this system knows, in one table: how a value is read into an
// entry of a snapshot, how it is shown to a filter or a column, and which ones a server is asked
// for. Used by the LDIF and the LDAP source, the filter and the snapshot. Pure; takes any bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/directory/directory_snapshot.h"

namespace platform {

// Bits of ReadObject::seen, for the attributes whose mere presence counts.
enum AttributeMark : unsigned {
  kUnmarked = 0,
  kObjectClass = 1U << 0,
  kObjectCategory = 1U << 1,
  kLogonName = 1U << 2,
  kAccountControl = 1U << 3,
  kPwdLastSet = 1U << 4,
  kSecurityDescriptor = 1U << 5,
  kMaxPwdAge = 1U << 6,
};

// What the attributes of one object gave.
struct ReadObject {
  DirectoryEntry entry;
  std::int64_t maxPwdAge = 0;  // of a domain head
  unsigned seen = 0;           // the marks of the attributes that had a value
  bool isUser = false, isComputer = false, isDomain = false;  // objectClass
  const char* fault = nullptr;  // a value that cannot be: the object is not to be used
  const char* note = nullptr;   // a value that cannot be read, without which the object is used
};

enum class AttributeSyntax { Text, DistinguishedName, Number, LargeInteger, Class, Category };

// When a server is asked for an attribute with every user.
enum class AskedFor { Never, Always, WithExpiryTimes, WithDetails };

struct EntryAttribute {
  std::string_view name;  // as directories spell it; a NUL follows it
  unsigned mark = kUnmarked;
  AskedFor ofUsers = AskedFor::Never;
  // Puts one value into its field. Null: nothing is read. Of several values of a text, the first
  // that is not empty counts; of anything else, the last.
  void (*set)(ReadObject& object, std::string_view value) = nullptr;
  // The first value as text, empty when the entry has none. Null: filters and columns do not know
  // the attribute.
  std::string (*text)(const DirectoryEntry& entry) = nullptr;
  AttributeSyntax syntax = AttributeSyntax::Text;
};

std::span<const EntryAttribute> entryAttributes();
// False when the attribute is one of those that are read on demand, and is not demanded.
bool isWanted(const EntryAttribute& attribute, const OptionalAttributes& wanted);
// By its name in any letter case; null when it is not in the table.
const EntryAttribute* entryAttribute(std::string_view name);
// Reads one value and notes that there was one.
void takeValue(ReadObject& object, const EntryAttribute& attribute, std::string_view value);

// A decimal number with nothing around it but blanks behind it.
std::optional<std::int64_t> decimalValue(std::string_view value);

// A maximum password age as a directory keeps it, a negative number of 100 ns, in whole seconds;
// kPasswordNeverExpires for 0 and the lowest number.
std::uint32_t maxAgeSeconds(std::int64_t age);

// A GeneralizedTime in UTC ("20261121224744.0Z") as a FILETIME; fractions of a second are cut off.
std::optional<std::int64_t> timeValue(std::string_view value);

// UTF-8. A value that is not is what older tools wrote in their code page, as in the list files.
std::string textValue(std::string_view value);

// The domain's part of a distinguished name: from its first "DC=" on; empty when there is none.
std::string_view domainPart(std::string_view dn);

}  // namespace platform
