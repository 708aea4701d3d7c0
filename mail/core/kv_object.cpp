#include "mail/core/kv_object.h"

#include "base/ascii.h"
#include "mail/core/cls_base.h"
#include "mail/core/xstring.h"
#include "platform/system/files.h"

namespace kelvado {

KvObject::~KvObject() = default;

void KvObject::put_Utf8(bool utf8) {
  checkValid();
  utf8_ = utf8;
}

bool KvObject::get_Utf8() const {
  checkValid();
  return utf8_;
}

const char* KvObject::LastErrorText() {
  return result(base() == nullptr ? std::string() : base()->log().text());
}

const char* KvObject::LastErrorHtml() {
  return result(base() == nullptr ? std::string() : base()->log().html());
}

bool KvObject::SaveLastError(const char* path) {
  const std::string text = base() == nullptr ? std::string() : base()->log().text();
  return platform::writeWholeFile(pathArgument(path), text);
}

std::string KvObject::untrimmedArgument(const char* text) const {
  checkValid();
  if (text == nullptr || !base::contains8bit(text)) return text == nullptr ? "" : text;
  XString argument;
  if (utf8_) {
    argument.setUtf8(text);
  } else {
    argument.setAnsi(text);
  }
  return argument.getUtf8();
}

std::string KvObject::textArgument(const char* text) const {
  std::string argument = untrimmedArgument(text);
  const std::string_view kept = base::trimmed(argument);
  if (kept.size() == argument.size()) return argument;
  return std::string(kept);
}

std::string KvObject::pathArgument(const char* path) const {
  checkValid();
  // Not converted to UTF-8 and back: that could name another file.
  if (!utf8_) return std::string(base::trimmed(path == nullptr ? "" : path));
  XString argument;
  argument.setUtf8(base::trimmed(path == nullptr ? "" : path));
  return argument.getAnsi();
}

const char* KvObject::result(std::string_view utf8) {
  checkValid();
  lastSlot_ = (lastSlot_ + 1) % kResultSlots;
  std::unique_ptr<StringBuffer>& slot = results_[lastSlot_];
  if (slot == nullptr) slot = std::make_unique<StringBuffer>();
  slot->clear();
  if (utf8_ || !base::contains8bit(utf8)) {
    slot->append(utf8);
  } else {
    XString text;
    text.setUtf8(utf8);
    slot->append(std::string_view(text.getAnsi()));
  }
  return slot->getString();
}

const char* KvObject::resultOrNull(const std::optional<std::string>& utf8) {
  return utf8.has_value() ? result(*utf8) : nullptr;
}

}  // namespace kelvado
