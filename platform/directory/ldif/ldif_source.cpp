// Fills a directory snapshot from LDIF records and forces expiry in the file; see the header.
#include "platform/directory/ldif/ldif_source.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "platform/directory/entry_attributes.h"
#include "platform/directory/ldif/ldif_reader.h"
#include "platform/system/files.h"

namespace platform {
namespace {

// Past this many, only their number is told.
constexpr std::size_t kMaxWarnings = 1000;
// The part of a record up to its pwdLastSet that expirePassword reads again.
constexpr std::uint64_t kMaxMarkedBytes = std::uint64_t{64} << 20U;

constexpr HResult kFileNotFound = 0x80070002;
constexpr HResult kAccessDenied = 0x80070005;
constexpr HResult kReadFault = 0x8007001E;

constexpr const char* kProvider = "LDIF";

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// One record as this system sees it.
struct ParsedRecord {
  DirectoryEntry entry;
  bool hasClass = false, isUser = false, isComputer = false, isDomain = false;
  bool hasCategory = false, hasAccountControl = false;
  std::optional<std::int64_t> maxPwdAge;
  std::uint64_t faultLine = 0;  // of a value that cannot be; 0: none
  const char* fault = nullptr;
};

void setFault(ParsedRecord& record, const LdifAttribute& attribute, const char* what) {
  record.faultLine = attribute.line;
  record.fault = what;
}

void takeObjectClass(ParsedRecord& record, const LdifAttribute& attribute) {
  record.hasClass = true;
  record.isUser |= base::equalsNoCase(attribute.value, "user");
  record.isComputer |= base::equalsNoCase(attribute.value, "computer");
  record.isDomain |= base::equalsNoCase(attribute.value, "domainDNS");
}

void takeEntryValue(ParsedRecord& record, const LdifAttribute& attribute) {
  const char* fault = entrySetter(attribute.name)(record.entry, attribute.value);
  if (fault != nullptr) setFault(record, attribute, fault);
}

void takeObjectCategory(ParsedRecord& record, const LdifAttribute& attribute) {
  record.hasCategory = true;
  takeEntryValue(record, attribute);
}

void takePwdLastSet(ParsedRecord& record, const LdifAttribute& attribute) {
  takeEntryValue(record, attribute);
  // For now the attribute's end; parseRecord makes the record's mark of it.
  record.entry.sourceOffset = attribute.endOffset;
}

void takeAccountControl(ParsedRecord& record, const LdifAttribute& attribute) {
  record.hasAccountControl = true;
  takeEntryValue(record, attribute);
}

void takeMaxPwdAge(ParsedRecord& record, const LdifAttribute& attribute) {
  record.maxPwdAge = decimalValue(attribute.value);
  if (!record.maxPwdAge) setFault(record, attribute, "maxPwdAge is not a number");
}

struct Taker {
  std::string_view name;
  void (*take)(ParsedRecord& record, const LdifAttribute& attribute);
};

constexpr Taker kTakers[] = {
    {"objectClass", takeObjectClass},
    {"objectCategory", takeObjectCategory},
    {"sAMAccountName", takeEntryValue},
    {"mail", takeEntryValue},
    {"givenName", takeEntryValue},
    {"sn", takeEntryValue},
    {"pwdLastSet", takePwdLastSet},
    {"userAccountControl", takeAccountControl},
    {"nTSecurityDescriptor", takeEntryValue},
    {"maxPwdAge", takeMaxPwdAge},
};

const Taker* takerOf(std::string_view name) {
  for (const Taker& taker : kTakers) {
    if (base::equalsNoCase(name, taker.name)) return &taker;
  }
  return nullptr;
}

// The part of the record that expirePassword reads again: its beginning to the end of pwdLastSet.
void setMark(DirectoryEntry& entry, std::uint64_t begin) {
  const std::uint64_t end = entry.sourceOffset;
  const bool usable = end > begin && end - begin <= kMaxMarkedBytes;
  entry.sourceOffset = usable ? begin : 0;
  entry.sourceLength = usable ? static_cast<std::uint32_t>(end - begin) : 0;
}

ParsedRecord parseRecord(const LdifRecord& source) {
  ParsedRecord record;
  record.entry.dn = textValue(source.dn);
  for (const LdifAttribute& attribute : source.attributes) {
    if (const Taker* taker = takerOf(attribute.name)) taker->take(record, attribute);
  }
  if (!record.hasCategory) record.entry.isPerson = !record.isComputer;
  // An export without classes: of what has a logon name, only accounts have this one.
  if (!record.hasClass) {
    record.isUser = record.hasAccountControl && !record.entry.logonName.empty();
  }
  setMark(record.entry, source.offset);
  return record;
}

// Collects the records of one file into a snapshot.
class SnapshotFiller {
 public:
  SnapshotFiller(const std::string& file, DirectorySnapshot& snapshot)
      : file_(file), snapshot_(snapshot) {}

  void warn(std::uint64_t line, std::string_view what) {
    if (++warnings_ > kMaxWarnings) return;
    snapshot_.warnings.push_back(file_ + ":" + std::to_string(line) + ": " + std::string(what));
  }

  void add(const LdifRecord& source) {
    ParsedRecord record = parseRecord(source);
    if (record.fault != nullptr) {
      warn(record.faultLine, record.fault);
    } else if (record.isDomain) {
      addDomain(record);
    } else if (record.isUser && record.entry.logonName.empty()) {
      warn(source.line, "a user without sAMAccountName");
    } else if (record.isUser) {
      snapshot_.entries.push_back(std::move(record.entry));
    }
  }

  void finish() {
    if (warnings_ > kMaxWarnings) {
      snapshot_.warnings.push_back(file_ + ": " + std::to_string(warnings_ - kMaxWarnings) +
                                   " further faults");
    }
    if (snapshot_.namingContext.empty() && !snapshot_.entries.empty()) {
      snapshot_.namingContext = domainPart(snapshot_.entries.front().dn);
    }
  }

 private:
  // The first head counts, but application partitions are of the same class: they have no
  // maxPwdAge.
  void addDomain(const ParsedRecord& record) {
    const bool better = record.maxPwdAge && !headHasMaxPwdAge_;
    if (!snapshot_.namingContext.empty() && !better) return;
    snapshot_.namingContext = record.entry.dn;
    snapshot_.maxPwdAge = record.maxPwdAge.value_or(0);
    headHasMaxPwdAge_ = record.maxPwdAge.has_value();
  }

  const std::string& file_;
  DirectorySnapshot& snapshot_;
  std::size_t warnings_ = 0;
  bool headHasMaxPwdAge_ = false;
};

// The number of bytes that a byte order mark takes, which are skipped. Nothing for UTF-16.
std::optional<std::uint64_t> skipByteOrderMark(std::FILE* file) {
  char start[3] = {};
  const std::string_view bytes(start, std::fread(start, 1, sizeof start, file));
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) return std::nullopt;
  if (bytes == kByteOrderMark) return bytes.size();
  std::rewind(file);
  return 0;
}

HResult refuse(HResult status, std::string text, DirectorySnapshot& snapshot,
               DirectoryError& error) {
  snapshot = DirectorySnapshot();
  error = {status & 0xFFFFU, std::move(text), kProvider};
  return status;
}

// fseek takes a long, which is of 32 bits on some systems.
bool seekTo(std::FILE* file, std::uint64_t offset) {
  constexpr std::uint64_t kStep = std::uint64_t{1} << 30U;
  std::rewind(file);
  for (; offset > 0; offset -= std::min(offset, kStep)) {
    if (std::fseek(file, static_cast<long>(std::min(offset, kStep)), SEEK_CUR) != 0) return false;
  }
  return true;
}

// At most `size` bytes from `offset` on.
std::string readPart(const std::string& name, std::uint64_t offset, std::size_t size) {
  const File file = openFile(name, "rb");
  if (file == nullptr || !seekTo(file.get(), offset)) return {};
  std::string bytes(size, '\0');
  bytes.resize(std::fread(bytes.data(), 1, size, file.get()));
  return bytes;
}

struct Place {
  std::size_t offset = 0;
  std::size_t size = 0;
  bool isZero = false;
};

// Where pwdLastSet stands in the marked part of the entry's record; nothing when that part is not
// what the entry was read from any more.
std::optional<Place> findPwdLastSet(std::string_view marked, const DirectoryEntry& entry) {
  std::size_t given = 0;
  LdifReader reader(
      [&](char* buffer, std::size_t capacity) {
        const std::size_t count = marked.substr(given).copy(buffer, capacity);
        given += count;
        return count;
      },
      [](std::string_view name) { return base::equalsNoCase(name, "pwdLastSet"); },
      [](std::uint64_t, std::string_view) {});
  LdifRecord record;
  if (!reader.next(record) || textValue(record.dn) != entry.dn || record.attributes.empty()) {
    return std::nullopt;
  }
  const LdifAttribute& attribute = record.attributes.back();
  const std::optional<std::int64_t> value = decimalValue(attribute.value);
  const Place place{static_cast<std::size_t>(attribute.offset),
                    static_cast<std::size_t>(attribute.endOffset - attribute.offset), value == 0};
  // A 0 that was written since stands before its comment; any other value ends the marked part.
  const bool unchanged = value == entry.pwdLastSet && attribute.endOffset == marked.size();
  if (!place.isZero && !unchanged) return std::nullopt;
  return place;
}

// The line end that `bytes` begin with, as long as no continuation of the line follows it; at the
// end of the file the one that is usual.
std::optional<std::string_view> lineEndAt(std::string_view bytes) {
  const std::string_view lineEnd = bytes.starts_with("\r\n") ? "\r\n" : "\n";
  if (bytes.empty()) return lineEnd;
  if (!bytes.starts_with(lineEnd) || bytes.substr(lineEnd.size()).starts_with(' ')) {
    return std::nullopt;
  }
  return lineEnd;
}

// "pwdLastSet: 0" in exactly `size` bytes, which is at least that of "pwdLastSet:0". What is left
// over becomes a comment, or blanks before the value when there is no room for one.
std::string expiredAttribute(std::size_t size, std::string_view lineEnd) {
  const std::string_view name = "pwdLastSet:";
  const std::string_view plain = "pwdLastSet: 0";
  if (size < plain.size() + lineEnd.size() + 1) {
    return std::string(name) + std::string(size - name.size() - 1, ' ') + "0";
  }
  std::string text = std::string(plain) + std::string(lineEnd);
  return text + std::string(size - text.size(), '#');
}

}  // namespace

HResult LdifSource::load(DirectorySnapshot& snapshot, DirectoryError& error) {
  errno = 0;
  const File file = openFile(file_, "rb");
  if (file == nullptr) {
    const int code = errno;
    const char* reason = code != 0 ? std::strerror(code) : "cannot be opened";
    return refuse(code == EACCES ? kAccessDenied : kFileNotFound, file_ + ": " + reason, snapshot,
                  error);
  }
  const std::optional<std::uint64_t> mark = skipByteOrderMark(file.get());
  if (!mark) {
    return refuse(kReadFault, file_ + ":1: UTF-16; LDIF is ASCII or UTF-8", snapshot, error);
  }
  SnapshotFiller filler(file_, snapshot);
  LdifReader reader(
      [&](char* buffer, std::size_t capacity) {
        return std::fread(buffer, 1, capacity, file.get());
      },
      [](std::string_view name) { return takerOf(name) != nullptr; },
      [&](std::uint64_t line, std::string_view what) { filler.warn(line, what); });
  LdifRecord record;
  while (reader.next(record)) filler.add(record);
  if (std::ferror(file.get()) != 0) {
    return refuse(kReadFault, file_ + ": cannot be read", snapshot, error);
  }
  filler.finish();
  if (snapshot.namingContext.empty()) {
    const std::string first = snapshot.warnings.empty() ? "" : "; " + snapshot.warnings.front();
    return refuse(kNoSuchObject, file_ + ": no domain in it" + first, snapshot, error);
  }
  for (DirectoryEntry& entry : snapshot.entries) entry.sourceOffset += *mark;
  return kOk;
}

NetStatus LdifSource::expirePassword(const DirectoryEntry& entry, DirectoryError& error) {
  auto refuseWrite = [&](const std::string& what) {
    error = {kNetWriteFault, file_ + ": " + what, kProvider};
    return kNetWriteFault;
  };
  if (entry.sourceLength == 0) return refuseWrite("no pwdLastSet to set for " + entry.logonName);
  // Three more bytes show how the line ends.
  const std::string bytes = readPart(file_, entry.sourceOffset, entry.sourceLength + 3);
  const std::string_view marked = std::string_view(bytes).substr(0, entry.sourceLength);
  const std::optional<Place> place = findPwdLastSet(marked, entry);
  const auto lineEnd = lineEndAt(std::string_view(bytes).substr(marked.size()));
  if (!place || !lineEnd) return refuseWrite("changed since it was read; not touched");
  if (place->isZero) return kNetSuccess;
  const std::string text = expiredAttribute(place->size, *lineEnd);
  if (!overwriteInFile(file_, entry.sourceOffset + place->offset, text)) {
    return refuseWrite("cannot be written");
  }
  return kNetSuccess;
}

}  // namespace platform
