#include "mail/mime/mime_header.h"

#include <algorithm>

#include "base/ascii.h"

namespace kelvado {
namespace {

// A longer one would leave no room for a value in its line.
constexpr std::size_t kMaxFieldName = 500;

}  // namespace

bool isValidFieldName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxFieldName &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return c > 0x20 && c < 0x7F && c != ':'; });
}

bool isPrivateFieldName(std::string_view name) {
  return base::beginsWithNoCase(name, "KVX-") || base::beginsWithNoCase(name, "KVZ-");
}

const std::string* MimeHeader::find(std::string_view name) const {
  for (const MimeField& field : fields_) {
    if (base::equalsNoCase(field.name, name)) return &field.value;
  }
  return nullptr;
}

std::string MimeHeader::get(std::string_view name) const {
  const std::string* value = find(name);
  return value == nullptr ? std::string() : *value;
}

MimeField& MimeHeader::only(std::string_view name) {
  const auto named = [name](const MimeField& field) {
    return base::equalsNoCase(field.name, name);
  };
  const auto first = std::find_if(fields_.begin(), fields_.end(), named);
  if (first == fields_.end()) return fields_.emplace_back(MimeField{std::string(name), {}});
  fields_.erase(std::remove_if(first + 1, fields_.end(), named), fields_.end());
  return *first;
}

void MimeHeader::set(std::string_view name, std::string value) {
  MimeField& field = only(name);
  field.value = std::move(value);
  field.wasRead = false;
}

void MimeHeader::remove(std::string_view name) {
  std::erase_if(fields_,
                [name](const MimeField& field) { return base::equalsNoCase(field.name, name); });
}

}  // namespace kelvado
