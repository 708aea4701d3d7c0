#include "platform/system/digest.h"

#include <cstddef>

#include <windows.h>
#include <wincrypt.h>

#include "platform/system/windows/sha1.h"

namespace platform {
namespace {

template <std::size_t kSize>
std::array<std::uint8_t, kSize> digestOf(std::string_view bytes, ALG_ID algorithm) {
  std::array<std::uint8_t, kSize> result{};
  HCRYPTPROV provider = 0;
  HCRYPTHASH hash = 0;
  // Without a key container of the user's, which a service account may not have.
  if (CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_FULL,
                           CRYPT_VERIFYCONTEXT | CRYPT_SILENT) != 0) {
    DWORD size = static_cast<DWORD>(result.size());
    if (CryptCreateHash(provider, algorithm, 0, 0, &hash) != 0) {
      CryptHashData(hash, reinterpret_cast<const BYTE*>(bytes.data()),
                    static_cast<DWORD>(bytes.size()), 0);
      CryptGetHashParam(hash, HP_HASHVAL, result.data(), &size, 0);
      CryptDestroyHash(hash);
    }
    CryptReleaseContext(provider, 0);
  }
  return result;
}

}  // namespace

std::array<std::uint8_t, 16> md5(std::string_view bytes) {
  return digestOf<16>(bytes, CALG_MD5);
}

std::array<std::uint8_t, 20> sha1(std::string_view bytes) {
  return digestOf<20>(bytes, CALG_SHA1);
}

}  // namespace platform
