#include "mail/smtp/envelope.h"

#include <algorithm>
#include <string_view>

#include "base/ascii.h"
#include "base/text.h"
#include "mail/smtp/wire_text.h"
#include "platform/system/files.h"

namespace kelvado {
namespace {

bool isSafeValue(bool safe, const char* what, const std::string& value, base::LogBase& log) {
  if (safe) return true;
  log.LogError("A value for the SMTP session holds characters that are not allowed.");
  log.LogData(what, base::loggable(value));
  return false;
}

}  // namespace

const std::string* Envelope::firstBeyondAscii() const {
  if (base::contains8bit(reversePath)) return &reversePath;
  for (const auto* list : {&to, &cc, &bcc}) {
    const auto found = std::find_if(list->begin(), list->end(), base::contains8bit);
    if (found != list->end()) return &*found;
  }
  return nullptr;
}

bool isSafeEnvelope(const Envelope& envelope, const DsnOptions& dsn, base::LogBase& log) {
  const std::string& path = envelope.reversePath;
  bool safe = isSafeValue(path.empty() || isSafeAddress(path), "reversePath", path, log);
  for (const auto* list : {&envelope.to, &envelope.cc, &envelope.bcc}) {
    for (const std::string& address : *list) {
      safe = isSafeValue(isSafeAddress(address), "address", address, log) && safe;
    }
  }
  safe = isSafeValue(isSafeWord(dsn.ret), "dsnRet", dsn.ret, log) && safe;
  safe = isSafeValue(isSafeWord(dsn.envid), "dsnEnvid", dsn.envid, log) && safe;
  return isSafeValue(isSafeWord(dsn.notify), "dsnNotify", dsn.notify, log) && safe;
}

std::vector<Envelope> individualEnvelopes(const Envelope& envelope) {
  std::vector<Envelope> parts;
  for (const std::string& address : envelope.to) {
    parts.push_back({envelope.reversePath, {address}, {}, {}});
  }
  for (const std::string& address : envelope.cc) {
    parts.push_back({envelope.reversePath, {}, {address}, {}});
  }
  if (!envelope.bcc.empty()) parts.push_back({envelope.reversePath, {}, {}, envelope.bcc});
  return parts;
}

std::vector<Envelope> listEnvelopes(const std::string& reversePath,
                                    const std::vector<std::string>& addresses, std::size_t size) {
  std::vector<Envelope> parts;
  for (std::size_t i = 0; i < addresses.size(); i += size) {
    const auto first = addresses.begin() + static_cast<std::ptrdiff_t>(i);
    const auto count = static_cast<std::ptrdiff_t>(std::min(size, addresses.size() - i));
    parts.push_back({reversePath, {first, first + count}, {}, {}});
  }
  return parts;
}

std::vector<std::string> readAddressFile(const std::string& path, base::LogBase& log) {
  std::string text;
  if (!platform::readWholeFile(path, text)) {
    log.LogError("The distribution list cannot be read.");
    log.LogData("filename", base::loggable(path));
  }
  std::vector<std::string> addresses;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view address = base::trimmed(rest.substr(0, end));
    if (!address.empty()) addresses.emplace_back(address);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return addresses;
}

}  // namespace kelvado
