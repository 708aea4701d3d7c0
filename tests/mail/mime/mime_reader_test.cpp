// Reading MIME text: the library's own, other programs', and what is meant to harm.
#include <array>
#include <string>

#include <gtest/gtest.h>

#include "base/text.h"
#include "mail/core/error_log.h"
#include "mail/mime/mime_message2.h"
#include "tests/mail/mime/text_checks.h"

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
  const std::string lines =
      "From someone Mon Jan  5 2008\r\n"
      "Subject:  =?iso-8859-1?Q?Gr=FC=DFz?=\r\n\t=?utf-8?B?IQ==?=  \r\n"
      "to: \"A, B\"\r\n <a@x.org>,=?utf-8?Q?C=2C_D?= <c@x.org>\r\n"
      "Cc: <u@\rx.org>\r\n"
      "X-Folded: one\r\n two\r\n"
      "Message-ID: =?utf-8?Q?=3C=C3=BC=40x=3E?=\r\n"
      "X-Empty:\r\n"
      "X-Raw: \xFF\r\n"
      "CONTENT-TYPE: text/plain; charset=windows-1251\r\n"
      "Content-Transfer-Encoding: Quoted-Printable\r\n"
      "\r\n"
      "=CF=F0 =\r\nx  \r\n";
  for (const bool lfOnly : {false, true}) {
    std::string text = lines;
    if (lfOnly) base::replaceAll(text, "\r\n", "\n");
    const auto message = parsed(text);
    EXPECT_EQ(message->headerField("subject"), "Gr\xC3\xBC\xC3\x9Fz!");
    EXPECT_EQ(message->recipients(RecipientKind::To),
              (std::vector<std::string>{"a@x.org", "c@x.org"}));
    EXPECT_EQ(message->recipientList(RecipientKind::To)[1].name, "C, D");
    EXPECT_EQ(message->recipients(RecipientKind::Cc), std::vector<std::string>{"u@ x.org"});
    EXPECT_EQ(message->headerField("X-Folded"), "one two");
    EXPECT_EQ(message->headerField("Message-ID"), "<\xC3\xBC@x>");
    EXPECT_EQ(message->headerField("X-Empty"), "");
    EXPECT_EQ(message->headerField("X-Raw"), "\xD1\x8F");
    EXPECT_EQ(message->textBody(), "\xD0\x9F\xD1\x80 x" + std::string(lfOnly ? "\n" : "\r\n"));
  }
}

TEST(MimeReader, ReadsBodies) {
  constexpr std::string_view utf16 =
      "Content-Type: text/plain; charset=utf-16\r\nContent-Transfer-Encoding: base64\r\n";
  const std::array<std::string_view, 3> rows[] = {
      // header, body, text
      {"", "no line end", "no line end"},
      {"", "", ""},
      {"Content-Transfer-Encoding: base64\r\n", "SGVs\r\nbG8=\r\n", "Hello"},
      {"Content-Type: text/plain; charset=koi8-r\r\n", "\xF0", "\xD0\x9F"},
      // Bytes that are not what their label says stay, as far as they can be read.
      {"Content-Type: text/plain; charset=us-ascii\r\n", "\xC3\xBC", "\xC3\xBC"},
      {"Content-Type: text/plain; charset=nonsense\r\n", "a\xFF", "a\xEF\xBF\xBD"},
      {"Content-Type: text/plain; charset=utf-16le\r\nContent-Transfer-Encoding: base64\r\n",
       "/AAKAA==", "\xC3\xBC\n"},
      // As the mark says; without one big-endian (RFC 2781 section 4.3).
      {utf16, "//78AAoA", "\xC3\xBC\n"},
      {utf16, "APwACg==", "\xC3\xBC\n"},
      {"Content-Transfer-Encoding: x-uuencode\r\n", "begin 644 a\r\n#0V%T\r\n`\r\nend\r\n", "Cat"},
      {"Content-Type: multipart/mixed\r\n", "--b\r\n\r\nx", "--b\r\n\r\nx"},  // no boundary
      {"Content-Type: multipart/mixed; boundary=b\r\n", "no part", "no part"},
  };
  for (const auto& [header, body, text] : rows) {
    const auto message = parsed(std::string(header) + "\r\n" + std::string(body));
    EXPECT_EQ(message->textBody(), text) << header;
    // And it leaves so that it is read the same again.
    message->normaliseTransferEncodings();
    EXPECT_EQ(parsed(written(*message))->textBody(), text) << header;
  }
  const auto file = parsed("Content-Transfer-Encoding: x-uue\r\n\r\nbegin 644 a\n#0V%T\n`\nend\n");
  EXPECT_EQ(parsed(written(*file))->filename(), "a");
  EXPECT_EQ(parsed("just text\r\nmore")->textBody(), "just text\r\nmore");
}

// The texts of the parts, in brackets where they nest.
std::string outline(const Email2& part) {
  if (part.children().empty()) return part.textBody();
  std::string text = "[";
  for (const auto& child : part.children()) text += outline(*child) + "|";
  return text + "]";
}

TEST(MimeReader, SplitsMultiparts) {
  const std::array<std::string, 3> rows[] = {
      // boundary, body, outline
      {"b", "preamble\r\n--b\r\n\r\none\r\n--b\r\n\r\ntwo\r\n\r\n--b--\r\nepilogue",
       "[one|two\r\n|]"},
      {"b", "--b\n\none\n--b  \n\ntwo\n--b--", "[one|two|]"},
      {"b", "--b\r\n\r\none\r\n--b\r\n\r\ntwo", "[one|two|]"},  // the last boundary is missing
      {"b", "--b\r\n\r\none --b\r\n--bb\r\n--b-\r\n --b\r\n--b--",
       "[one --b\r\n--bb\r\n--b-\r\n --b|]"},
      {"b", "--b\r\n\r\n--b\r\n\r\n--b--", "[||]"},
      {"b", "--b--\r\n\r\none\r\n--b\r\n", ""},
      {"b",
       "--b\r\nContent-Type: multipart/x; "
       "boundary=c\r\n\r\n--c\r\n\r\nin\r\n--b\r\n\r\nout\r\n--b--",
       "[[in|]|out|]"},  // the inner last boundary is missing
      {" b", "-- b\r\n\r\none\r\n-- b--", "[one|]"},
      // The blank that some programs add to this kind of boundary.
      {"=_alternative 00", "--=_alternative  00\r\n\r\none\r\n--=_alternative  00--", "[one|]"},
      {"=_alternative 00", "--=_alternative 00\r\n\r\none\r\n--=_alternative 00--", "[one|]"},
  };
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
  std::string nested = "x";
  for (int depth = 0; depth < 100; ++depth) {
    const std::string boundary = "b" + std::to_string(depth);
    nested = "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary +
             "\r\n" + nested + "\r\n--" + boundary + "--\r\n";
  }
  std::string parts = "Content-Type: multipart/mixed; boundary=b\r\n\r\n";
  for (std::size_t i = 0; i <= kMaxParts; ++i) parts += "--b\r\n\r\nx\r\n";
  std::string fields;
  for (std::size_t i = 0; i <= kMaxHeaderFields; ++i) fields += "X: y\r\n";
  const std::pair<std::string, std::string_view> rows[] = {
      {nested, "nested too deeply"},
      {parts, "too many parts"},
      {fields + "\r\nx", "header is too long"},
      {"X: " + std::string(kMaxHeaderBytes, 'y'), "header is too long"},
  };
  for (const auto& [text, error] : rows) {
    ErrorLog log;
    EXPECT_EQ(MimeMessage2::parse(text, log), nullptr);
    EXPECT_NE(log.text().find(error), std::string::npos) << error;
  }
}

TEST(MimeReader, SurvivesDamagedText) {
  Utf8Email email;
  email.put_From("J\xC3\xB6rg <f@x.org>");
  email.AddTo("\"a\" (b)", "a@x.org");
  email.SetHtmlBody("<p>\xC3\xBC");
  email.AddPlainTextAlternativeBody("p");
  email.put_Subject(std::string(100, 'x').c_str());
  email.AddStringAttachment("\xC3\xBC.txt", "t");
  const std::string mime = email.GetMime();
  EXPECT_EQ(written(*parsed(mime)), mime);
  // Each cut and each changed byte gives some message, and what is written of it can be read.
  constexpr std::string_view kBytes("\0\r\n\"<(:;=?-\xFF", 12);
  for (std::size_t at = 0; at < mime.size(); ++at) {
    parsed(std::string_view(mime).substr(0, at));
    std::string damaged = mime;
    damaged[at] = kBytes[at % kBytes.size()];
    const auto message = parsed(damaged);
    message->normaliseTransferEncodings();
    std::string before, after;
    base::appendWithCrLf(outline(*message), before);
    base::appendWithCrLf(outline(*parsed(written(*message))), after);
    EXPECT_EQ(after, before) << at;
  }
}

}  // namespace
}  // namespace kelvado
