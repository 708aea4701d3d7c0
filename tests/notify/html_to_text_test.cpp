// What an HTML template says as plain text.
#include "base/html_to_text.h"

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/text_file.h"

namespace {

// Each case is HTML, a line "--", and the text.
TEST(HtmlToText, KeepsLinksListsAndTablesReadable) {
  const std::string text =
      '\n' + test_support::readBytes(NOTIFY_TEST_DATA "/html_to_text.txt") + "\n==";
  int cases = 0;
  std::size_t at = text.find("\n== ");
  for (std::size_t end = 0; (end = text.find("\n==", at + 1)) != std::string::npos; at = end) {
    const std::size_t html = text.find('\n', at + 1) + 1;
    const std::size_t split = text.find("\n--\n", html);
    ASSERT_LT(split, end) << text.substr(at, end - at);
    EXPECT_EQ(base::htmlToText(text.substr(html, split - html)),
              text.substr(split + 4, end - split - 4))
        << text.substr(at, html - at);
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
