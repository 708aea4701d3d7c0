// Reads LDIF content records (RFC 2849) one after another: folded lines, base64 values, comments.
// A faulty record is reported and left out; the one after it is read. Used by LdifSource.
// Pure: the bytes come from a function, nothing throws. Memory is one record's wanted attributes; a
// wanted value of more than kMaxLineBytes, or a record of more than kMaxRecordBytes of them, is a
// fault; a value that nobody wants may have any length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/text/byte_lines.h"

namespace platform {

inline constexpr std::size_t kMaxRecordBytes = 4 * kMaxLineBytes;

struct LdifAttribute {
  std::string_view name;        // as written, without options
  std::string_view options;     // "lang-en;binary", or empty
  std::string_view value;       // decoded
  std::uint64_t line = 0;       // from 1
  std::uint64_t offset = 0;     // of the attribute's first byte in the stream
  std::uint64_t endOffset = 0;  // after its last, the line end not counted
};

// Its texts are valid until the next record is read.
struct LdifRecord {
  std::uint64_t line = 0;    // where it begins: its "dn:"
  std::uint64_t offset = 0;  // likewise
  std::string_view dn;
  std::vector<LdifAttribute> attributes;  // the wanted ones, in the order of the file
};

class LdifReader {
 public:
  using Wanted = std::function<bool(std::string_view attributeName)>;
  using Report = std::function<void(std::uint64_t line, std::string_view what)>;

  LdifReader(ByteLines::ReadBytes read, Wanted wanted, Report report)
      : lines_(std::move(read)), wanted_(std::move(wanted)), report_(std::move(report)) {}

  // The next record that is whole; false at the end.
  bool next(LdifRecord& record);

 private:
  // What a line that begins with a blank goes on with.
  enum class Tail { Nothing, Ignored, Attribute };
  // An attribute while text_ still moves: positions in it.
  struct Pending {
    std::size_t begin = 0;  // of the name
    std::size_t colon = std::string::npos;
    std::size_t value = 0, valueSize = 0;
    std::uint64_t line = 0, offset = 0, endOffset = 0;
  };

  void startRecord();
  bool collectLines();
  void beginAttribute(const ByteLine& line);
  void addToAttribute(const ByteLine& line);
  bool admitAttribute();
  bool admitFirst(std::string_view name);
  void finishAttribute();
  void fault(std::uint64_t line, std::string_view what);
  std::string_view nameOf(const Pending& attribute) const;
  void giveRecord(LdifRecord& record) const;

  ByteLines lines_;
  Wanted wanted_;
  Report report_;

  // The record being read.
  std::string text_;  // its wanted attributes, unfolded and decoded
  std::vector<Pending> attributes_;
  Pending current_;
  Tail tail_ = Tail::Nothing;
  bool begun_ = false;    // an attribute was seen
  bool dropped_ = false;  // nothing of it is wanted any more
};

}  // namespace platform
