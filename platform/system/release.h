// The deleter of a C library's object for std::unique_ptr: `std::unique_ptr<BIO,
// Release<BIO_free>>`.
#pragma once

namespace platform {

template <auto release>
struct Release {
  template <typename Object>
  void operator()(Object* object) const {
    release(object);
  }
};

}  // namespace platform
