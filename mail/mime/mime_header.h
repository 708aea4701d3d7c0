// The header of a message or part: an ordered list of fields (RFC 5322 section 2.2). Values are
// held as UTF-8, decoded; on the wire they leave folded and in encoded words. A value never holds a
// line break other than the folds that the library makes itself.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvado {

struct MimeField {
  std::string name;
  std::string value;
};

// Printable ASCII without a colon, not empty and not so long that a line couldn't hold it.
bool isValidFieldName(std::string_view name);

// "KVX-" and "KVZ-": fields that are private to the library and never leave it.
bool isPrivateFieldName(std::string_view name);

class MimeHeader {
 public:
  // Names are compared without regard to case. Null when there is no such field.
  const std::string* find(std::string_view name) const;
  bool has(std::string_view name) const { return find(name) != nullptr; }
  // The value, or empty.
  std::string get(std::string_view name) const;

  // An existing field keeps its place and takes the value; further ones of the name are removed.
  void set(std::string_view name, std::string value);
  // Another field at the end, whether there is one of the name or not.
  void add(std::string_view name, std::string value);
  void remove(std::string_view name);  // every one of the name

  const std::vector<MimeField>& fields() const { return fields_; }

 private:
  std::vector<MimeField> fields_;
};

}  // namespace kelvado
