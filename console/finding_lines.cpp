#include "console/finding_lines.h"

#include <utility>

namespace console {
namespace {

void addLines(std::string& text, const config::FindingLines& found, config::FindingKind kind,
              Tone tone, const TextStyle& style) {
  const std::string label = config::findingLabel(kind);
  for (const std::string& line : found.lines) {
    text += style.paragraph(style.painted(tone, label + ":") + ' ', label.size() + 2, line);
  }
  if (found.count > found.lines.size()) {
    text += label + ": and " + std::to_string(found.count - found.lines.size()) + " more\n";
  }
}

}  // namespace

std::string findingsText(const config::FindingLines& problems, const config::FindingLines& notes,
                         const TextStyle& style) {
  std::string text;
  addLines(text, problems, config::FindingKind::Problem, Tone::Bad, style);
  addLines(text, notes, config::FindingKind::Note, Tone::Note, style);
  return text;
}

JsonValue findingsJson(const config::FindingLines& found) {
  JsonValue texts = JsonValue::array();
  for (const std::string& line : found.lines) texts.push_back(jsonText(line));
  return {{"count", found.count}, {"texts", std::move(texts)}};
}

}  // namespace console
