#include "console/answer.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/system/terminal.h"

namespace console {
namespace {

void write(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// Whatever code page a program reads the answer in, it gets the characters that were meant.
constexpr bool kAscii = true;

// {"command": ..., "version": 1, MEMBERS, "ROWS": [...]}, two blanks a level and a row a line.
void writeJsonObject(const Answer& answer) {
  JsonValue head = {{"command", answer.command}, {"version", kAnswerVersion}};
  head.update(answer.members);
  std::string text = head.dump(2, ' ', kAscii);
  text.erase(text.rfind("\n}"));
  write(text);
  if (!answer.table.columns.empty()) {
    write(",\n  " + JsonValue(answer.rowsKey).dump() + ": ");
    answer.table.json(write);
  }
  write("\n}\n");
}

}  // namespace

TextStyle outputStyle() {
  if (!platform::isTerminal(stdout)) return {};
  const char* const noColour = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool dumb = terminal != nullptr && std::string_view(terminal) == "dumb";
  return {platform::terminalWidth(stdout), (noColour == nullptr || *noColour == '\0') && !dumb};
}

void printAnswer(const Answer& answer, Format format) {
  switch (format) {
    case Format::Text:
      write(answer.above);
      if (answer.peopleSeeTable) write(answer.table.text(outputStyle()));
      return write(answer.below);
    case Format::Json:
      platform::writeBytesAsTheyAre(stdout);
      return writeJsonObject(answer);
    case Format::Csv:
      platform::writeBytesAsTheyAre(stdout);
      return answer.table.csv(write);
  }
}

}  // namespace console
