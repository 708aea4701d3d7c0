#include "platform/system/digest.h"

#include <windows.h>
#include <wincrypt.h>

namespace platform {

std::array<std::uint8_t, 16> md5(std::string_view bytes) {
  std::array<std::uint8_t, 16> result{};
  HCRYPTPROV provider = 0;
  HCRYPTHASH hash = 0;
  // Without a key container of the user's, which a service account may not have.
  if (CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_FULL,
                           CRYPT_VERIFYCONTEXT | CRYPT_SILENT) != 0) {
    DWORD size = static_cast<DWORD>(result.size());
    if (CryptCreateHash(provider, CALG_MD5, 0, 0, &hash) != 0) {
      CryptHashData(hash, reinterpret_cast<const BYTE*>(bytes.data()),
                    static_cast<DWORD>(bytes.size()), 0);
      CryptGetHashParam(hash, HP_HASHVAL, result.data(), &size, 0);
      CryptDestroyHash(hash);
    }
    CryptReleaseContext(provider, 0);
  }
  return result;
}

}  // namespace platform
