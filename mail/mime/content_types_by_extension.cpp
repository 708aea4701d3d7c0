#include "mail/mime/content_types_by_extension.h"

#include <string>

#include "base/ascii.h"

namespace kelvado {
namespace {

// Not here: "eml". A message as an attachment may not be encoded, and a file may need to be.
struct Row {
  std::string_view extension;
  std::string_view type;
};

constexpr Row kRows[] = {
    {"txt", "text/plain"},
    {"text", "text/plain"},
    {"log", "text/plain"},
    {"ini", "text/plain"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"xml", "text/xml"},
    {"rtf", "text/rtf"},
    {"ics", "text/calendar"},
    {"vcf", "text/vcard"},
    {"md", "text/markdown"},
    {"gif", "image/gif"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"jpe", "image/jpeg"},
    {"png", "image/png"},
    {"bmp", "image/bmp"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"ico", "image/x-icon"},
    {"svg", "image/svg+xml"},
    {"webp", "image/webp"},
    {"wav", "audio/x-wav"},
    {"mp3", "audio/mpeg"},
    {"mid", "audio/midi"},
    {"ogg", "audio/ogg"},
    {"mpg", "video/mpeg"},
    {"mpeg", "video/mpeg"},
    {"mp4", "video/mp4"},
    {"mov", "video/quicktime"},
    {"avi", "video/x-msvideo"},
    {"pdf", "application/pdf"},
    {"ps", "application/postscript"},
    {"eps", "application/postscript"},
    {"zip", "application/zip"},
    {"gz", "application/gzip"},
    {"tgz", "application/gzip"},
    {"tar", "application/x-tar"},
    {"7z", "application/x-7z-compressed"},
    {"json", "application/json"},
    {"js", "text/javascript"},
    {"doc", "application/msword"},
    {"dot", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"p7s", "application/pkcs7-signature"},
    {"p7m", "application/pkcs7-mime"},
    {"cer", "application/x-x509-ca-cert"},
    {"crt", "application/x-x509-ca-cert"},
};

}  // namespace

std::string_view contentTypeForFile(std::string_view fileName) {
  const std::size_t dot = fileName.rfind('.');
  if (dot != std::string_view::npos) {
    const std::string_view extension = fileName.substr(dot + 1);
    for (const Row& row : kRows) {
      if (base::equalsNoCase(row.extension, extension)) return row.type;
    }
  }
  return "application/octet-stream";
}

std::string_view baseName(std::string_view path) {
  const std::size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace kelvado
