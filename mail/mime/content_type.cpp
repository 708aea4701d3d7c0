#include "mail/mime/content_type.h"

#include <vector>

#include "base/ascii.h"
#include "mail/mime/mime_parameter.h"

namespace kelvado {
namespace {

void appendOnOwnLine(std::string_view name, std::string_view value, std::string& out) {
  if (value.empty()) return;
  if (!out.ends_with(';')) out.push_back(';');
  out.append("\r\n\t");
  appendParameter(name, value, out);
  out.push_back(';');
}

// For values that are written without quotes: nothing that could end one.
std::string asToken(std::string_view value) {
  std::string out;
  for (const char c : value) {
    if (isTokenCharacter(c)) out.push_back(c);
  }
  return out;
}

void appendToken(std::string_view name, std::string_view value, std::string& out) {
  const std::string token = asToken(value);
  if (token.empty()) return;
  if (!out.ends_with(';')) out.push_back(';');
  out.append("\r\n\t").append(name).append("=").append(token).append(";");
}

// "text/html": a token, a slash, a token.
std::string asType(std::string_view type) {
  std::string out;
  for (const char c : type) {
    if (c == '/' || isTokenCharacter(c)) out.push_back(c);
  }
  return out;
}

}  // namespace

ContentType ContentType::ofType(std::string_view type) {
  ContentType result;
  result.type = type;
  return result;
}

bool ContentType::isText() const {
  return type.empty() || base::beginsWithNoCase(type, "text");
}

bool ContentType::isMultipart() const {
  return base::beginsWithNoCase(type, "multipart");
}

std::string ContentType::format() const {
  std::string out = type.empty() ? "text/plain" : asType(type);
  const bool carriesCharset = isText() || base::equalsNoCase(type, "multipart/signed") ||
                              base::beginsWithNoCase(type, "message");
  if (carriesCharset && !charset.empty()) {
    out.append("; ");
    appendParameter("charset", charset, out);
  }
  out.push_back(';');
  if (!typeParameter.empty()) {
    out.push_back(' ');
    appendParameter("type", typeParameter, out);
    out.push_back(';');
  }
  appendOnOwnLine("boundary", boundary, out);
  appendOnOwnLine("name", name, out);
  appendOnOwnLine("protocol", protocol, out);
  appendToken("micalg", micalg, out);
  appendToken("smime-type", smimeType, out);
  if (flowed && base::equalsNoCase(type, "text/plain")) appendToken("format", "flowed", out);
  out.pop_back();  // the last ';'
  return out;
}

ContentType parseContentType(std::string_view value) {
  std::vector<MimeParameter> parameters;
  ContentType result;
  result.type = asType(base::lowered(parseParameterised(value, parameters)));
  result.charset = base::lowered(base::trimmed(parameterNamed(parameters, "charset")));
  result.typeParameter = parameterNamed(parameters, "type");
  result.boundary = parameterNamed(parameters, "boundary");
  result.name = parameterNamed(parameters, "name");
  result.protocol = parameterNamed(parameters, "protocol");
  result.micalg = parameterNamed(parameters, "micalg");
  result.smimeType = parameterNamed(parameters, "smime-type");
  result.flowed = base::equalsNoCase(parameterNamed(parameters, "format"), "flowed");
  return result;
}

}  // namespace kelvado
