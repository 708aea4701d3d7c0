// Address lists: any text can be read; a sendable address is one word of one command, and is read
// with its name from the form in which the library writes it.
#include "fuzz/fuzz.h"
#include "mail/mime/email_address.h"

using namespace kelvado;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = textOf(data, size);
  parseAddress(input);
  for (const EmailAddress& entry : parseAddressList(input)) {
    require(entry.name.find_first_of("\r\n") == std::string::npos);
    if (!isSendableAddress(entry.address)) continue;
    require(entry.address.find_first_of("<>\0\t\r\n", 0, 6) == std::string::npos);
    if (entry.name.find("=?") != std::string::npos) continue;  // would be decoded once more
    if (isX400Address(entry.address)) continue;                // several forms of one address
    const std::vector<EmailAddress> again = parseAddressList(formatAddress(entry));
    require(again.size() == 1 && again.front() == entry);
  }
  return 0;
}
