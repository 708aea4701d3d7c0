// The base of the public objects: conversion of `const char*` arguments and results, and the text
// of the log. Each public class Kv<Name> owns one implementation class Cls<Name>. Results live in a
// ring of ten: one stays valid until ten further results of the same object have been asked for. An
// object is used by one thread at a time.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "mail/core/string_buffer.h"
#include "mail/core/validity.h"

namespace kelvado {

class ClsBase;

class KvObject {
 public:
  virtual ~KvObject();
  KvObject(const KvObject&) = delete;
  KvObject& operator=(const KvObject&) = delete;

  // Whether arguments and results are UTF-8 (true) or in the ANSI code page (false, the default).
  void put_Utf8(bool utf8);
  bool get_Utf8() const;

  // What the last call of a method did, as XML-like text or as HTML.
  const char* LastErrorText();
  const char* LastErrorHtml();
  // LastErrorText into a file, replacing it. False when it cannot be written.
  bool SaveLastError(const char* path);

 protected:
  KvObject() = default;

  // The object whose log LastErrorText shows; null when there is none.
  virtual ClsBase* base() const { return nullptr; }

  // An argument as UTF-8 without white space around it; a null pointer counts as empty.
  std::string textArgument(const char* text) const;
  // The same with its white space.
  std::string untrimmedArgument(const char* text) const;
  // A file name, for platform/system/files.h.
  std::string pathArgument(const char* path) const;

  // Gives `utf8` out through the next slot of the ring.
  const char* result(std::string_view utf8);
  // Null, without using a slot, when there is no text.
  const char* resultOrNull(const std::optional<std::string>& utf8);

  void checkValid() const { validity_.check(); }

 private:
  static constexpr std::size_t kResultSlots = 10;

  ValidityByte<0x99> validity_;
  bool utf8_ = false;
  std::size_t lastSlot_ = kResultSlots - 1;
  std::array<std::unique_ptr<StringBuffer>, kResultSlots> results_;  // made when first used
};

}  // namespace kelvado
