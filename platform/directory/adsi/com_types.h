// The COM types that adsi_directory.cpp needs, released on every path. Used in this folder only.
#pragma once

#include <string_view>
#include <utility>

#include <windows.h>
#include <oleauto.h>

namespace platform {

// One counted reference to an interface.
template <class Interface>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr& other) : pointer_(other.pointer_) {
    if (pointer_ != nullptr) pointer_->AddRef();
  }
  ComPtr(ComPtr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }
  ~ComPtr() {
    if (pointer_ != nullptr) pointer_->Release();
  }

  Interface* operator->() const { return pointer_; }
  // For a function that gives a reference. Only while this holds none.
  void** out() { return reinterpret_cast<void**>(&pointer_); }

 private:
  Interface* pointer_ = nullptr;
};

class Bstr {
 public:
  Bstr() = default;
  explicit Bstr(std::wstring_view text)
      : text_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
  ~Bstr() { SysFreeString(text_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;

  BSTR get() const { return text_; }  // may be null
  // For a function that gives a text. Only while this holds none.
  BSTR* out() { return &text_; }

 private:
  BSTR text_ = nullptr;
};

class Variant {
 public:
  Variant() { VariantInit(&value_); }
  ~Variant() { VariantClear(&value_); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;

  VARIANT* get() { return &value_; }

 private:
  VARIANT value_;
};

}  // namespace platform
