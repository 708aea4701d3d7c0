// What an HTML template says as plain text.
#include "base/html_to_text.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/text_file.h"

namespace {

// Each case is HTML, a line "--", and the text.
TEST(HtmlToText, KeepsLinksListsAndTablesReadable) {
  const std::string file = NOTIFY_TEST_DATA "/html_to_text.txt";
  std::istringstream lines(test_support::readText(file));
  int cases = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("== ")) continue;
    const std::string section = test_support::sectionOf(file, line.substr(3));
    const std::size_t split = section.find("\n--\n");
    ASSERT_NE(split, std::string::npos) << line;
    EXPECT_EQ(base::htmlToText(section.substr(0, split)), section.substr(split + 4)) << line;
    ++cases;
  }
  EXPECT_GT(cases, 0);
}

TEST(HtmlToText, FindsTheTitle) {
  EXPECT_EQ(base::htmlTitle("<!-- <title>no</title> --><head>\n<TITLE\n>A\n &amp;  b</TITLE>"),
            "A & b");
  EXPECT_EQ(base::htmlTitle("<p>title"), std::nullopt);
  EXPECT_EQ(base::htmlTitle("<title>never ends"), "never ends");
}

}  // namespace
