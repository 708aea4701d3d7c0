#include "config/findings.h"

#include "platform/text/text_lines.h"

namespace config {

const char* findingLabel(FindingKind kind) {
  return kind == FindingKind::Problem ? "FAILED" : "note";
}

void Findings::problem(const std::string& text, Cause cause) {
  add(FindingKind::Problem, cause, problems_, text);
}

void Findings::note(const std::string& text) {
  add(FindingKind::Note, Cause::Other, notes_, text);
}

void Findings::add(FindingKind kind, Cause cause, FindingLines& lines, const std::string& text) {
  ++lines.count;
  if (lines.lines.size() >= kLinesKept) return;
  lines.lines.push_back(platform::loggableAnsiLine(text));
  if (listener_) listener_(kind, cause, lines.lines.back());
}

}  // namespace config
