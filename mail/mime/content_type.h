// A Content-Type value and its parameters: how it is built and how it is read (RFC 2045
// section 5.1, RFC 2231). Pure. Used by Email2 and by the MIME reader.
#pragma once

#include <string>
#include <string_view>

namespace kelvado {

struct ContentType {
  std::string type;  // "text/html"; empty means text/plain
  std::string charset;
  std::string typeParameter;  // of multipart/related: the type of its first part
  std::string boundary;
  std::string name;
  std::string protocol;
  std::string micalg;
  std::string smimeType;
  bool flowed = false;

  static ContentType ofType(std::string_view type);

  bool isText() const;       // begins with "text"
  bool isMultipart() const;  // begins with "multipart"

  // The field's value, folded. Nothing in a parameter can end it early or start a new line.
  std::string format() const;
};

// Reads any Content-Type value, also a malformed one; what is missing stays empty. Type and charset
// are returned in lower case.
ContentType parseContentType(std::string_view value);

}  // namespace kelvado
