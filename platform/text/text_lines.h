// The lines of a settings file in UTF-16LE or 8-bit text, as UTF-8, each with its place in the
// file's bytes. An 8-bit line is in UTF-8 or, when it is not valid UTF-8, in the ANSI code page
// (see code_page.h). Used by the readers of
// ".reg" and INI files. Pure; the work is linear in the file.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

class TextLines {
 public:
  // `bytes` must outlive this and starts behind a byte order mark, at `offset`.
  TextLines(std::string_view bytes, std::size_t offset, bool utf16)
      : bytes_(bytes), next_(offset), utf16_(utf16) {}

  // Moves to the next line; false at the end of the file.
  bool next();

  std::string_view text() const { return text_; }        // without its line end
  std::string_view lineEnd() const { return lineEnd_; }  // "\r\n", "\n" or, in the last line, ""
  std::size_t number() const { return number_; }         // from 1
  // Where in the file's bytes the character at `position` of the text is.
  std::size_t offsetOf(std::size_t position) const;
  std::size_t endOffset() const { return next_; }  // behind the line end

 private:
  void decode(std::string_view raw);

  std::string_view bytes_;
  std::size_t begin_ = 0;
  std::size_t next_;
  bool utf16_;
  std::size_t unit_ =
      0;  // bytes of a UTF-16 unit of the text in the file; 0: the text is the bytes
  std::string decoded_;
  std::string_view text_;
  std::string_view lineEnd_;
  std::size_t number_ = 0;
};

// UTF-8 text as the bytes of a file.
std::string encodeText(std::string_view utf8, bool utf16);
// Bytes of UTF-16LE as UTF-8; an odd last byte is dropped.
std::string utf16LeToUtf8(std::string_view bytes);
// ANSI text as valid UTF-8, and back; a character that the code page lacks becomes a question mark.
std::string ansiToUtf8(std::string_view ansi);
std::string utf8ToAnsi(std::string_view utf8);
// base::loggableLine for a text in the ANSI code page.
std::string loggableAnsiLine(std::string_view ansi);

}  // namespace platform
