// Reading MIME text: the library's own, other programs', and hostile texts.
#include <array>
#include <string>

#include <gtest/gtest.h>

#include "base/text.h"
#include "mail/core/error_log.h"
#include "mail/mime/mime_message2.h"

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
  const std::array<std::string, 3> rows[] = {
      // header, a field, what it reads
      {"From someone Mon Jan  5 2008\r\nSubject:  "
       "=?iso-8859-1?Q?Gr=FC=DFz?=\r\n\t=?utf-8?B?IQ==?= ",
       "subject", "Gr\xC3\xBC\xC3\x9Fz!"},
      {"to: \"A, B\"\r\n <a@x.org>,=?utf-8?Q?C=2C_D?= <c@x.org>", "To",
       "\"A, B\" <a@x.org>, \"C, D\" <c@x.org>"},
      {"Cc: <u@\rx.org>", "Cc", "<u@ x.org>"},
      {"X-Folded: one\r\n two", "X-Folded", "one two"},
      {"From: \"one\r\n two\" <a@x.org>", "From", "\"one two\" <a@x.org>"},
      {"Message-ID: =?utf-8?Q?=3C=C3=BC=40x=3E?=", "Message-ID", "<\xC3\xBC@x>"},
      {"X-Empty:", "X-Empty", ""},
      // Bytes are in the part's charset, in Windows-1252 where they cannot be, in a word in its
      // own.
      {"X: \xFF\r\n" + latin, "X", "\xD1\x8F"},
      {"X: \xC3\xBC\r\n" + latin, "X", "\xC3\xBC"},
      {"X: \xFC\x80\r\nContent-Type: text/plain; charset=utf-8", "X", "\xC3\xBC\xE2\x82\xAC"},
      {"From: M\xFCller <m@x.org>", "From", "\"M\xC3\xBCller\" <m@x.org>"},
      {"Subject: \xFC =? =?windows-1251?Q?\xFF=FF?= \xFC", "Subject",
       "\xC3\xBC =? \xD1\x8F\xD1\x8F \xC3\xBC"},
      // What gives orders to the library is no one else's to write.
      {"KVX-Bcc: h@x.org\r\nkvx-filedistlist : /etc/passwd\r\nKVZ-A: b", "KVX-FileDistList", ""},
      {"KVX-Bcc: h@x.org", "KVX-Bcc", ""},
  };
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
  const std::array<std::string, 3> rows[] = {
      // header, body, text
      {"X: y", "no line end", "no line end"},
      {"X: y", "", ""},
      {"no header", "more", "no header\r\n\r\nmore"},
      {"Content-Transfer-Encoding: base64", "SGVs\r\nbG8=\r\n", "Hello"},
      {"CONTENT-TYPE: text/plain; charset=koi8-r\r\n"
       "Content-Transfer-Encoding: Quoted-Printable",
       "=F0 =\r\nx  \r\n", "\xD0\x9F x\r\n"},
      // Bytes that are not what their label says stay, as far as they can be read.
      {"Content-Type: text/plain; charset=us-ascii", "\xC3\xBC", "\xC3\xBC"},
      {"Content-Type: text/plain; charset=nonsense", "a\xFF", "a\xEF\xBF\xBD"},
      {utf16 + "le", "/AAKAA==", "\xC3\xBC\n"},
      // As the mark says; without one big-endian (RFC 2781 section 4.3).
      {utf16, "//78AAoA", "\xC3\xBC\n"},
      {utf16, "APwACg==", "\xC3\xBC\n"},
      {"Content-Transfer-Encoding: x-uuencode", "begin 644 a\r\n#0V%T\r\n`\r\nend\r\n", "Cat"},
      {"Content-Type: multipart/mixed", "--b\r\n\r\nx", "--b\r\n\r\nx"},  // no boundary
      {"Content-Type: multipart/mixed; boundary=b", "no part", "no part"},
  };
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
  const std::pair<std::string_view, std::string_view> rows[] = {
      // text, and what is written of it where that is something else
      {"From: =?utf-8?Q?J=C3=B6rg?= <j@x>\nContent-Type: text/plain; charset=us-ascii\n\nx", ""},
      {"Content-Transfer-Encoding: quoted-printable\nContent-Type: text/plain; charset=utf-8\n\n"
       "=C3=BC\nb\n",
       ""},
      {"Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: \xC3\xBC\n\ntext\n--b--\n",
       ""},
      // Neither folds nor blanks nor the encoding of a signed part, nor what is nested in it.
      {"Content-Type: multipart/signed; boundary=b\n\n"
       "--b\nContent-type:  multipart/mixed;\n   boundary=c\n\npreamble\n--c\nX:   y\n"
       "Content-Type: multipart/signed; boundary=d\n\n--d\nX:  y\n\n=\xC3\xBC \n--d--\n--c--\n"
       "--b\nContent-Type:  a/signature\n\ns\n--b--\n",
       ""},
      {"\na\0b"sv, "Content-Transfer-Encoding: quoted-printable\n\na=00b"},
      {"Content-Type: multipart/mixed\n\nHello\n-- \nJoe",
       "Content-Type: text/plain\n\nHello\n-- \nJoe"},
      {"Content-Type: multipart/mixed; boundary=\"a\0\n\n--a\n\nx"sv,
       "Content-Type: multipart/mixed; boundary=\"a\n\n--a\n\nx\n--a--\n"},
  };
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
