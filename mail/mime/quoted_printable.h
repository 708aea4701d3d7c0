// Quoted-printable (RFC 2045 section 6.7) for bodies. Lines have at most 76 characters.
// Pure functions; time and memory grow with the input.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kelvado {

enum class LineEnds {
  AsLines,  // CR LF, LF and CR each end a line
  Exact,    // only CR LF does; a CR or LF alone is encoded, so that a reader gets the same bytes
};

// `drain` is called after each few lines, and may empty `out`; false ends the work.
void quotedPrintableAppend(std::string_view bytes, LineEnds lineEnds, std::string& out,
                           const std::function<bool()>& drain = nullptr);

// Never fails: a '=' that starts nothing valid stays as it is; blanks at the end of a line are
// dropped (RFC 2045 section 6.7, rule 3).
std::string quotedPrintableDecode(std::string_view text);

}  // namespace kelvado
