// Small operations on text and lines of text; untrusted text made fit for a log.
// Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace base {

// Every occurrence, left to right; what was put in is not searched again. An empty `from` changes
// nothing. Returns how many were replaced.
int replaceAll(std::string& text, std::string_view from, std::string_view to);

// Takes the first line off the text and returns it without its line end, LF or CR LF.
std::string_view takeLine(std::string_view& text);

// Without line feeds, carriage returns and NULs, so that it can't start a new line or end early.
std::string withoutLineBreaks(std::string_view text);

// The text with every line ended by CR LF, whatever ended it before: CR LF, LF or CR.
void appendWithCrLf(std::string_view text, std::string& out);

// The text between quotation marks, those in it doubled: a field of a line of comma-separated
// values (RFC 4180).
std::string quotedField(std::string_view text);
// Appends the text as such a field, quoted where it must be. One that a spreadsheet would take for
// a formula (it begins with '=', '+', '-', '@', a tab or a carriage return) gets a "'" in front.
void appendCsvField(std::string_view text, std::string& line);

// A byte below 0x20, or DEL.
inline bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// Untrusted text, fit for a log: at most 4,096 bytes of it, control characters and bytes that are
// not UTF-8 shown as \xNN, and no end of a CDATA section.
std::string loggable(std::string_view text);
// The same on one line: a line break becomes a blank.
std::string loggableLine(std::string_view text);

}  // namespace base
