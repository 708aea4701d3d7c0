// What people and programs get to see of the rows that a command answers with.
#include "console/table.h"

#include <gtest/gtest.h>

#include "platform/text/text_lines.h"

namespace {

using console::Fit;
using console::Table;
using console::TextStyle;
using console::Tone;
using console::Value;

// A name of a directory must not become a formula of whoever opens the file, nor break its lines.
TEST(TableTest, FieldsOfCsvAreQuotedAndDefused) {
  const std::pair<Value, const char*> fields[] = {
      {"plain", "plain"},
      {"two words", "two words"},
      {"a,b", "\"a,b\""},
      {"say \"hi\"", "\"say \"\"hi\"\"\""},
      {"two\r\nlines", "\"two\r\nlines\""},
      {"=1+1", "'=1+1"},
      {"+49 30", "'+49 30"},
      {"-1", "'-1"},
      {"@SUM(A1)", "'@SUM(A1)"},
      {"\t=1", "'\t=1"},
      {"\r=1", "\"'\r=1\""},
      {"=\"a\",b", "\"'=\"\"a\"\",b\""},
      {-1, "-1"},
      {true, "1"},
      {Value(), ""},
      {platform::utf8ToAnsi("Zo\xC3\xAB"), "Zo\xC3\xAB"},
  };
  for (const auto& [value, expected] : fields) {
    std::string field;
    value.appendCsv(field);
    EXPECT_EQ(field, expected);
  }
}

Table sample() {
  return {
      {{"name", "USER", Fit::Cut},
       {"left", "LEFT"},
       {"mail", "ADDRESS", Fit::Drop},
       {"why", "WHY", Fit::Wrap},
       {"slot", "", Fit::Hidden}},
      {{"anna", 7, "anna@x.example", {"age 53 of 60 days, 7 left; would be mailed", Tone::Good}, 1},
       {platform::utf8ToAnsi("zo\xC3\xAB.m\xC3\xBCller.of.the.long.name"), -12, Value(),
        "\033[2Jage", 0}}};
}

// Wide enough, too narrow for every column, and for people on no terminal; colours only on one.
TEST(TableTest, ColumnsFitTheTerminal) {
  EXPECT_EQ(platform::ansiToUtf8(sample().text({})),
            "USER                         LEFT  ADDRESS         WHY\n"
            "anna                            7  anna@x.example  age 53 of 60 days, 7 left; would "
            "be mailed\n"
            "zo\xC3\xAB.m\xC3\xBCller.of.the.long.name   -12  -               \\x1B[2Jage\n");
  EXPECT_EQ(platform::ansiToUtf8(sample().text({54, false})),
            "USER              LEFT  WHY\n"
            "anna                 7  age 53 of 60 days, 7 left;\n"
            "                        would be mailed\n"
            "zo\xC3\xAB.m\xC3\xBCller.of...   -12  \\x1B[2Jage\n");
  EXPECT_NE(sample()
                .text({200, true})
                .find("\033[32mage 53 of 60 days, 7 left; would be mailed\033[0m\n"),
            std::string::npos);
}

TEST(TableTest, JsonKeepsTypesAndAllColumns) {
  std::string text;
  const auto append = [&text](const std::string& piece) { text += piece; };
  sample().json(append);
  const console::JsonValue rows = console::JsonValue::parse(text);
  EXPECT_EQ(rows[1]["left"], -12);
  EXPECT_EQ(rows[1]["name"], "zo\xC3\xAB.m\xC3\xBCller.of.the.long.name");
  EXPECT_TRUE(rows[1]["mail"].is_null());
  EXPECT_EQ(rows[0]["slot"], 1);
  text.clear();
  Table().json(append);
  EXPECT_EQ(text, "[]");
}

}  // namespace
