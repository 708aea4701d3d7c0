// What a command that was asked a question answers, written to standard output as text, JSON or
// CSV. docs/console.md describes the shapes, which programs rely on.
#pragma once

#include <string>

#include "console/table.h"

namespace console {

enum class Format { Text, Json, Csv };

// The version of the shapes. New members and columns do not count; one that goes, or means
// something else, does.
inline constexpr int kAnswerVersion = 1;

struct Answer {
  const char* command = "";                 // as it is called: "list"
  JsonValue members = JsonValue::object();  // of the JSON object, between "version" and the rows
  const char* rowsKey = "rows";             // the member with the rows
  Table table;                              // all there is in CSV
  std::string above;                        // for people: texts around the table, ANSI
  std::string below;
  bool peopleSeeTable = true;
};

// How texts for people are made up on standard output: of the terminal's width, in colours unless
// the environment has NO_COLOR or TERM=dumb; plain when it is no terminal.
TextStyle outputStyle();

void printAnswer(const Answer& answer, Format format);

}  // namespace console
