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
#include "platform/directory/ldif/fine_grained_policies.h"
#include "platform/directory/ldif/ldif_reader.h"
#include "platform/system/files.h"

namespace platform {
namespace {

// Past this many, only their number is given.
constexpr std::size_t kMaxWarnings = 1000;
// The part of a record up to its pwdLastSet that is read again before an expiry.
constexpr std::uint64_t kMaxMarkedBytes = std::uint64_t{64} << 20U;

constexpr HResult kFileNotFound = 0x80070002;
constexpr HResult kAccessDenied = 0x80070005;
constexpr HResult kReadFault = 0x8007001E;

constexpr const char* kProvider = "LDIF";
constexpr std::size_t kLineEndBytes = 3;  // a line end, and the first byte of the next line

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// One record as this system sees it.
struct ParsedRecord {
  ReadObject object;
  std::uint64_t faultLine = 0;  // of object.fault
  std::uint64_t noteLine = 0;   // of object.note
};

// The part of the record that is read again later: its beginning to the end of pwdLastSet.
void setMark(DirectoryEntry& entry, std::uint64_t begin, std::uint64_t end) {
  const bool usable = end > begin && end - begin <= kMaxMarkedBytes;
  entry.sourceOffset = usable ? begin : 0;
  entry.sourceLength = usable ? static_cast<std::uint32_t>(end - begin) : 0;
}

ParsedRecord parseRecord(const LdifRecord& source) {
  ParsedRecord record;
  ReadObject& object = record.object;
  object.entry.dn = textValue(source.dn);
  std::uint64_t passwordEnd = 0;
  for (const LdifAttribute& attribute : source.attributes) {
    const EntryAttribute* known = entryAttribute(attribute.name);
    if (known == nullptr) continue;
    takeValue(object, *known, attribute.value);
    if (known->mark == kPwdLastSet) passwordEnd = attribute.endOffset;
    if (object.fault != nullptr && record.faultLine == 0) record.faultLine = attribute.line;
    if (object.note != nullptr && record.noteLine == 0) record.noteLine = attribute.line;
  }
  if ((object.seen & kObjectCategory) == 0) object.entry.isPerson = !object.isComputer;
  // An export without classes: of what has a logon name, only accounts have this one.
  if ((object.seen & kObjectClass) == 0) {
    object.isUser = (object.seen & kAccountControl) != 0 && !object.entry.logonName.empty();
  }
  setMark(object.entry, source.offset, passwordEnd);
  return record;
}

// Collects the records of one file into a snapshot.
class SnapshotFiller {
 public:
  // `settings`: null when the times of expiry are not wanted.
  SnapshotFiller(const std::string& file, DirectorySnapshot& snapshot,
                 FineGrainedPolicies* settings)
      : file_(file), snapshot_(snapshot), settings_(settings) {}

  void warn(std::uint64_t line, std::string_view what) {
    if (++warnings_ > kMaxWarnings) return;
    snapshot_.warnings.push_back(file_ + ":" + std::to_string(line) + ": " + std::string(what));
  }

  void add(const LdifRecord& source) {
    ParsedRecord record = parseRecord(source);
    ReadObject& object = record.object;
    const bool counts = object.fault == nullptr && !object.isDomain && object.isUser &&
                        !object.entry.logonName.empty();
    const char* const wrong = settings_ == nullptr
                                  ? nullptr
                                  : settings_->add(source, counts ? snapshot_.entries.size()
                                                                  : FineGrainedPolicies::kNoUser);
    if (wrong != nullptr) warn(source.line, wrong);
    if (object.fault != nullptr) {
      warn(record.faultLine, object.fault);
    } else if (object.isDomain) {
      addDomain(object);
    } else if (object.isUser && object.entry.logonName.empty()) {
      warn(source.line, "a user without sAMAccountName");
    } else if (object.isUser) {
      if (object.note != nullptr) warn(record.noteLine, object.note);
      snapshot_.entries.push_back(std::move(object.entry));
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
    if (settings_ != nullptr) settings_->resolve(snapshot_);
  }

 private:
  // The first head counts, but application partitions are of the same class: they have no
  // maxPwdAge.
  void addDomain(const ReadObject& head) {
    const bool hasAge = (head.seen & kMaxPwdAge) != 0;
    if (!snapshot_.namingContext.empty() && !(hasAge && !headHasMaxPwdAge_)) return;
    snapshot_.namingContext = head.entry.dn;
    snapshot_.maxPwdAge = head.maxPwdAge;
    headHasMaxPwdAge_ = hasAge;
  }

  const std::string& file_;
  DirectorySnapshot& snapshot_;
  FineGrainedPolicies* settings_;
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

// At most `size` bytes from `offset` on. False, with errno set, when they cannot be read.
bool readPart(const std::string& name, std::uint64_t offset, std::size_t size, std::string& bytes) {
  const File file = openFile(name, "rb");
  if (file == nullptr || !seekTo(file.get(), offset)) return false;
  bytes.resize(size);
  bytes.resize(std::fread(bytes.data(), 1, size, file.get()));
  return std::ferror(file.get()) == 0;
}

// pwdLastSet in the marked part of a record, as it is now.
struct FoundTime {
  std::int64_t value = 0;
  std::size_t offset = 0;  // of the attribute in the marked part
  std::size_t size = 0;
  std::string_view lineEnd;  // behind it
};

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

// Nothing when the record is not in its place any more. `bytes` are the marked part and the three
// behind it, which show how its last line ends.
std::optional<FoundTime> findPwdLastSet(std::string_view bytes, const DirectoryEntry& entry) {
  if (bytes.size() < entry.sourceLength) return std::nullopt;
  const std::string_view marked = bytes.substr(0, entry.sourceLength);
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
  const auto lineEnd = lineEndAt(bytes.substr(marked.size()));
  // A 0 that was written since stands before its comment; any other value ends the marked part.
  if (!value || !lineEnd || (*value != 0 && attribute.endOffset != marked.size())) {
    return std::nullopt;
  }
  return FoundTime{*value, static_cast<std::size_t>(attribute.offset),
                   static_cast<std::size_t>(attribute.endOffset - attribute.offset), *lineEnd};
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
  FineGrainedPolicies settings;
  SnapshotFiller filler(file_, snapshot, wanted_.expiryTimes ? &settings : nullptr);
  LdifReader reader(
      [&](char* buffer, std::size_t capacity) {
        return std::fread(buffer, 1, capacity, file.get());
      },
      [this](std::string_view name) {
        const EntryAttribute* known = entryAttribute(name);
        if (known == nullptr) return wanted_.expiryTimes && FineGrainedPolicies::reads(name);
        return isWanted(*known, wanted_);
      },
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

AccountResult LdifSource::writeFault(const std::string& what) const {
  return {kNetWriteFault, file_ + ": " + what};
}

AccountResult LdifSource::refresh(DirectoryEntry& entry) {
  if (entry.sourceLength == 0) return {};  // no pwdLastSet, so none that could have changed
  std::string bytes;
  if (!readPart(file_, entry.sourceOffset, entry.sourceLength + kLineEndBytes, bytes)) {
    return writeFault("cannot be read: " + fileErrorText());
  }
  const std::optional<FoundTime> found = findPwdLastSet(bytes, entry);
  if (!found) return writeFault("changed since it was read");
  // A new password has the maximum age of the one before it.
  if (entry.passwordExpires != 0 && entry.passwordExpires != kNoExpiryTime) {
    entry.passwordExpires += found->value - entry.pwdLastSet;
  }
  entry.pwdLastSet = found->value;
  return {};
}

DirectoryFacts LdifSource::facts() {
  DirectoryFacts facts;
  facts.server = file_;
  return facts;
}

AccountResult LdifSource::expirePassword(const DirectoryEntry& entry) {
  if (entry.sourceLength == 0) return writeFault("no pwdLastSet to set for " + entry.logonName);
  std::string bytes;
  if (!readPart(file_, entry.sourceOffset, entry.sourceLength + kLineEndBytes, bytes)) {
    return writeFault("cannot be read: " + fileErrorText());
  }
  const std::optional<FoundTime> found = findPwdLastSet(bytes, entry);
  if (!found) return writeFault("changed since it was read; not touched");
  if (found->value == 0) return {};
  if (found->value != entry.pwdLastSet) {
    return {kNetPasswordChanged, file_ + ": the password of " + entry.logonName + " was changed"};
  }
  const std::string text = expiredAttribute(found->size, found->lineEnd);
  if (!overwriteInFile(file_, entry.sourceOffset + found->offset, text)) {
    return writeFault("cannot be written: " + fileErrorText());
  }
  return {};
}

}  // namespace platform
