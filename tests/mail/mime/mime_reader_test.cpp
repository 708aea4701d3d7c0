// Reading MIME text: the library's own, other programs', and hostile texts.
#include <string>

#include <gtest/gtest.h>

#include "base/text.h"
#include "mail/core/error_log.h"
#include "mail/mime/mime_message2.h"
#include "tests/support/rows.h"

namespace kelvado {
namespace {

std::unique_ptr<Email2> parsed(std::string_view text) {
  ErrorLog log;
  auto message = MimeMessage2::parse(text, log);
  EXPECT_NE(message, nullptr) << log.text();
  return message;
}

std::string written(const Email2& message) {
  std::string out;
  message.appendMime(out);
  return out;
}

TEST(MimeReader, ReadsHeadersAsOthersWriteThem) {
  const std::string latin = "Content-Type: text/plain; charset=windows-1251";
  const auto rows = test_support::rows<3>(ROWS "/mime_reader.txt", "headers");
  for (const auto& [header, name, value] : rows) {
    for (const std::string_view lineEnd : {"\r\n", "\n"}) {
      std::string text = header + "\r\n\r\nx";
      base::replaceAll(text, "\r\n", lineEnd);
      EXPECT_EQ(parsed(text)->headerField(name), value) << header;
      EXPECT_TRUE(parsed(text)->recipients(RecipientKind::Bcc).empty());
    }
  }
}

TEST(MimeReader, ReadsBodies) {
  const std::string utf16 =
      "Content-Transfer-Encoding: base64\r\nContent-Type: text/plain; charset=utf-16";
  const auto rows = test_support::rows<3>(ROWS "/mime_reader.txt", "bodies");
  for (const auto& [header, body, text] : rows) {
    const auto message = parsed(header + "\r\n\r\n" + body);
    EXPECT_EQ(message->textBody(), text) << header;
    // And it leaves so that it is read the same again.
    message->normaliseTransferEncodings();
    EXPECT_EQ(parsed(written(*message))->textBody(), text) << header;
    EXPECT_EQ(parsed(written(*message))->filename(), text == "Cat" ? "a" : "");
  }
}

TEST(MimeReader, WritesAgainWhatItRead) {
  using namespace std::string_view_literals;
  const auto rows = test_support::rows<2>(ROWS "/mime_reader.txt", "written again");
  for (const auto& [text, again] : rows) {
    const auto message = parsed(text);
    message->normaliseTransferEncodings();
    std::string mime = written(*message);
    base::replaceAll(mime, "\r\n", "\n");
    EXPECT_EQ(mime, again.empty() ? text : again);
  }
}

// The texts of the parts, in brackets where they nest.
std::string outline(const Email2& part) {
  if (part.children().empty()) return part.textBody();
  std::string text = "[";
  for (const auto& child : part.children()) text += outline(*child) + ",";
  return text + "]";
}

TEST(MimeReader, SplitsMultiparts) {
  const auto rows = test_support::rows<3>(ROWS "/mime_reader.txt", "multiparts");
  for (const auto& [boundary, body, parts] : rows) {
    const auto message =
        parsed("Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n" + body);
    EXPECT_EQ(outline(*message), parts) << body;
    EXPECT_EQ(outline(*parsed(written(*message))), parts) << body;
  }
}

TEST(MimeReader, NoBodyBecomesAPartWhenItIsWrittenAgain) {
  // Encoded or behind a bare CR, a boundary is none; written again, it would be.
  for (const std::string_view hidden : {"=2D-b\r\n\r\nevil", "x\r--b\r\n\r\nevil"}) {
    const auto message = parsed(
        "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
        "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
        std::string(hidden) + "\r\n--b--\r\n");
    ASSERT_EQ(message->children().size(), 1U);
    message->normaliseTransferEncodings();
    EXPECT_EQ(parsed(written(*message))->children().size(), 1U) << hidden;
  }
}

TEST(MimeReader, RefusesWhatGoesBeyondItsLimits) {
  const auto times = [](std::size_t count, std::string_view text) {
    std::string out;
    while (count-- > 0) out += text;
    return out;
  };
  std::string nested;
  for (int depth = 0; depth < 100; ++depth) {
    const std::string boundary = "b" + std::to_string(depth);
    nested +=
        "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary + "\r\n";
  }
  const std::pair<std::string, std::string_view> rows[] = {
      {nested, "nested too deeply"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\n" +
           times(kMaxParts + 1, "--b\r\n\r\nx\r\n"),
       "too many parts"},
      {times(kMaxHeaderFields + 1, "X: y\r\n") + "\r\nx", "header is too long"},
      {"X: " + std::string(kMaxHeaderBytes, 'y'), "header is too long"},
      {"To: " + times(kMaxRecipients + 1, "a@x,"), kTooManyRecipients},
  };
  for (const auto& [text, error] : rows) {
    ErrorLog log;
    EXPECT_EQ(MimeMessage2::parse(text, log), nullptr);
    EXPECT_NE(log.text().find(error), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace kelvado
