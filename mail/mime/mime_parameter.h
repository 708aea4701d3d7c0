// Parameters of Content-Type and Content-Disposition (RFC 2045 section 5.1; RFC 2231 for what is
// not ASCII). Pure; linear in the input.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvado {

struct MimeParameter {
  std::string name;  // lower case, without the marks of RFC 2231
  std::string value;
};

// A hostile value can't make more work than this.
inline constexpr std::size_t kMaxParameters = 200;

bool isTokenCharacter(char c);  // may be in a value without quotes

// Splits `value` at the first ';' into its main part (trimmed) and its parameters: quoted or not,
// without comments, pieces joined, encoded values and encoded words decoded. Of several forms of
// one parameter the encoded one counts, then the one in pieces, then the plain one.
std::string parseParameterised(std::string_view value, std::vector<MimeParameter>& parameters);

// The value of a parameter, or empty.
std::string parameterNamed(const std::vector<MimeParameter>& parameters, std::string_view name);

// Appends `name="value"` with quotes and backslashes escaped, and without line breaks and NULs, or,
// when the value is not ASCII, long or holds encoded words, `name*=utf-8''...` in as many pieces
// as lines need, each but the first after ";\r\n\t".
void appendParameter(std::string_view name, std::string_view value, std::string& out);

// The value anew with every parameter on a line of its own, as appendParameter writes it: for a
// value that is not ASCII or can't be folded. What is no token where only tokens are read is left
// out.
std::string formatParameterised(std::string_view value);

}  // namespace kelvado
