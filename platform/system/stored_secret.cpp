#include "platform/system/stored_secret.h"

#include <cstddef>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "platform/system/files.h"
#include "platform/system/secret_protection.h"

namespace platform {
namespace {

constexpr std::string_view kMark = "pwlapse-protected:";
constexpr std::size_t kMaxFileBytes = std::size_t{64} * 1024;

std::string hexOf(std::string_view bytes) {
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    digits += {base::kHexDigits[byte >> 4], base::kHexDigits[byte & 15]};
  }
  return digits;
}

// False when they are no digits of whole bytes.
bool bytesOf(std::string_view digits, std::string& bytes) {
  if (digits.empty() || digits.size() % 2 != 0) return false;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = base::hexValue(digits[i]);
    const int low = base::hexValue(digits[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes += static_cast<char>(high * 16 + low);
  }
  return true;
}

bool unprotect(std::string_view digits, std::string& secret, std::string& error) {
  std::string bytes;
  if (!protectsSecrets()) {
    error = "its secret is protected, which only the Windows machine that wrote it can undo";
  } else if (!bytesOf(digits, bytes)) {
    error = "its protected secret is not whole";
  } else if (unprotectBytes(bytes, secret, error)) {
    return true;
  } else {
    error.insert(0, "its protected secret is not of this machine: ");
  }
  return false;
}

}  // namespace

bool readStoredSecret(const std::string& file, std::string& secret, std::string& error) {
  std::string bytes;
  if (!readWholeFile(file, bytes, kMaxFileBytes)) {
    error = fileErrorText();
    return false;
  }
  const std::string_view line = base::trimmed(std::string_view(bytes).substr(0, bytes.find('\n')));
  if (line.empty()) {
    error = "its first line is empty";
    return false;
  }
  if (line.starts_with(kMark)) return unprotect(line.substr(kMark.size()), secret, error);
  secret = line;
  return true;
}

bool storeSecret(const std::string& file, std::string_view secret, const std::string& service,
                 std::string& error) {
  std::string line(secret);
  if (protectsSecrets()) {
    std::string bytes;
    if (!protectBytes(secret, bytes, error)) return false;
    line = std::string(kMark) + hexOf(bytes);
  }
  // The rights first: the file is for its readers only from the first byte on.
  if (!fileExists(file) && !replaceFileAtomically(file, "")) {
    error = fileErrorText();
    return false;
  }
  if (!restrictFile(file, service, error)) return false;
  if (replaceFileAtomically(file, line + "\n")) return true;
  error = fileErrorText();
  return false;
}

}  // namespace platform
