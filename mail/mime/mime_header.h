// The header of a message or part: an ordered list of fields (RFC 5322 section 2.2). Values are
// held as UTF-8, decoded; they are folded and encoded when they are written. A value holds no line
// break other than the folds that the library makes itself.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvado {

struct MimeField {
  std::string name;
  std::string value;
  // It was read from a text: what is not ASCII in it is encoded when it is written, whatever the
  // message's charset.
  bool wasRead = false;
};

// Printable ASCII without a colon, not empty and not so long that a line couldn't hold it.
bool isValidFieldName(std::string_view name);

// "KVX-" and "KVZ-": fields that are private to the library. They are neither written nor read.
bool isPrivateFieldName(std::string_view name);

class MimeHeader {
 public:
  // Names are compared without regard to case. Null when there is no such field.
  const std::string* find(std::string_view name) const;
  bool has(std::string_view name) const { return find(name) != nullptr; }
  // The value, or empty.
  std::string get(std::string_view name) const;

  // The first field of the name, to be changed in its place; it is added at the end when there is
  // none. Further ones of the name are removed.
  MimeField& only(std::string_view name);
  // Gives that field a value that was not read.
  void set(std::string_view name, std::string value);
  // Another field at the end, whether there is one of the name or not.
  void add(MimeField field) { fields_.push_back(std::move(field)); }
  void add(std::string_view name, std::string value) { add({std::string(name), std::move(value)}); }
  void remove(std::string_view name);  // every one of the name

  const std::vector<MimeField>& fields() const { return fields_; }

 private:
  std::vector<MimeField> fields_;
};

}  // namespace kelvado
