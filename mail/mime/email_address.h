// Mail addresses as people write them (RFC 5322 section 3.4): display names, quoted strings,
// comments, angle brackets, groups. Pure functions over UTF-8 text; linear, without recursion.
// Used for the From, To, Cc and Bcc of a message.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvado {

struct EmailAddress {
  std::string name;     // display name, decoded, without quotes; may be empty
  std::string address;  // as it goes to the mail server; empty for "undisclosed recipients"

  bool operator==(const EmailAddress&) const = default;
};

// The first address of the text; both parts empty when there is none. Text that is no address at
// all is returned as `address`, so that the caller can report it; a line break or NUL stays in an
// address for the same reason, and is removed from a name.
EmailAddress parseAddress(std::string_view text);

// Every address of a list separated by commas; the members of groups are listed in their place, and
// empty entries are left out.
std::vector<EmailAddress> parseAddressList(std::string_view text);
// The same as a header field shows it: "undisclosed recipients" among them keep their place.
std::vector<EmailAddress> parseAddressField(std::string_view text);

// Whether mail can be sent to it as it stands: no control character, no angle bracket, nothing
// that would read as two addresses. An address without '@' passes only as an X.400 address. One
// beyond ASCII passes when it is UTF-8, though not every server takes it (RFC 6531).
bool isSendableAddress(std::string_view address);

// An X.400 address: a list of elements, with "C=", "O=", "CN=" or "P=" among them.
bool isX400Address(std::string_view address);

// A text that stands for recipients who are not named, without an address in it.
bool isUndisclosedRecipients(std::string_view text);

// `"name" <address>`, with quotes and backslashes in the name escaped, or the bare address when
// there is no name; `undisclosed-recipients:;`. Not encoded: the name stays UTF-8.
std::string formatAddress(const EmailAddress& address);

}  // namespace kelvado
