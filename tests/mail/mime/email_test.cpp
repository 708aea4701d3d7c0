// Messages as programs build them, from the public methods to the bytes that leave.
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/text.h"
#include "mail/mime/cls_email.h"
#include "mail/mime/kv_email.h"
#include "platform/system/files.h"
#include "tests/support/rows.h"
#include "tests/support/temp_dir.h"

namespace kelvado {
namespace {

// An e-mail object that takes and gives UTF-8, so that tests say the same on every system.
struct Utf8Email : KvEmail {
  Utf8Email() { put_Utf8(true); }
};

bool lastErrorHas(KvEmail& email, std::string_view text) {
  return std::string_view(email.LastErrorText()).find(text) != std::string_view::npos;
}

// With what differs from mail to mail replaced.
std::string masked(const char* mime) {
  std::string text(mime);
  text = std::regex_replace(text, std::regex("(^|\n)Date: [^\r]*"), "$1Date: D");
  text = std::regex_replace(text, std::regex("<KELVADO-MID-[0-9a-f-]{36}@[^>]+>"), "<MID>");
  return std::regex_replace(text, std::regex("-----_kelvado_[0-9a-f_.]{26}_\\."), "B.");
}

// A file of messages/, with the line ends of mail.
std::string message(const std::string& name) {
  std::string text;
  base::appendWithCrLf(test_support::readBytes(MESSAGES "/" + name + ".eml"), text);
  EXPECT_FALSE(text.empty()) << name;
  return text;
}

TEST(KvEmail, WarningMail) {
  Utf8Email email;
  email.AddHeaderField("X-Priority", "1");
  email.put_From("Help Desk <help@example.org>");
  email.AddTo("joe@example.org", "joe@example.org");
  email.AddMultipleTo("k@x.org, \"L, M\" <l@x.org>");
  email.AddBcc("", "blind@example.org");
  email.put_Subject("Ihr Kennwort l\xC3\xA4uft ab");
  email.put_Body("Joe,\n.\r\nyour password expires in 5 days.\r\n");
  EXPECT_EQ(masked(email.GetMime()), message("warning"));
}

TEST(KvEmail, ReportMail) {
  const test_support::TempDir folder;
  ASSERT_TRUE(platform::writeWholeFile("norvyn-report-logo.gif", "GIF89a\r\n\n\x01"));
  Utf8Email email;
  ASSERT_TRUE(email.AddRelatedFile2("Norvyn-Report-Logo.gif", "images/logo.gif"));
  email.AddHeaderField("X-Priority", "1");
  email.put_From("help@example.org");
  email.AddTo("admin@example.org", "admin@example.org");
  email.put_Subject("Norvyn Password Expiration Report");
  email.SetHtmlBody("<html><img src=images/logo.gif>\n<td>J\xC3\xB6rg</td></html>");
  EXPECT_EQ(masked(email.GetMime()), message("report"));
}

TEST(KvEmail, BouncesGoToTheFirstSenderUnlessTold) {
  Utf8Email email;
  email.put_From("no address");
  EXPECT_EQ(email.GetHeaderField("From"), nullptr);
  EXPECT_EQ(email.GetHeaderField("Return-Path"), nullptr);
  email.put_From("first@x.org");
  email.AddHeaderField("From", "Second <second@x.org>");
  EXPECT_STREQ(email.GetHeaderField("Return-Path"), "first@x.org");
  EXPECT_EQ(email.implementation().message()->reversePath(), "second@x.org");
  // An explicit bounce address stays, although the field is removed before the mail is sent.
  email.AddHeaderField("Return-Path", "<bounce@x.org>");
  const auto copy = email.implementation().message()->clone();
  copy->removeHeaderField("Return-Path");
  EXPECT_EQ(copy->reversePath(), "bounce@x.org");
}

TEST(KvEmail, TakesRecipientsThatHaveAnAddress) {
  Utf8Email email;
  EXPECT_FALSE(email.AddTo("", ""));
  EXPECT_TRUE(lastErrorHas(email, "<error>No Email Address was provided</error>"));
  EXPECT_FALSE(email.AddTo("name only", nullptr));
  EXPECT_TRUE(email.AddTo("Doe, \"J\"", "j@x.org"));
  EXPECT_TRUE(email.AddMultipleTo("k@x.org, \"L, M\" <l@x.org>"));
  EXPECT_FALSE(email.AddMultipleCC("c@x.org, none"));
  EXPECT_STREQ(email.GetTo(), "\"Doe, \\\"J\\\"\" <j@x.org>, k@x.org, \"L, M\" <l@x.org>");
  EXPECT_STREQ(email.GetCC(), "c@x.org");
  std::string many = "a@x";
  for (std::size_t i = 0; i < kMaxRecipients; ++i) many += ",b@x";
  EXPECT_FALSE(email.AddHeaderField("To", many.c_str()));
  EXPECT_FALSE(email.AddMultipleBcc(many.c_str()));
  EXPECT_TRUE(lastErrorHas(email, kTooManyRecipients));
  EXPECT_STREQ(email.GetBcc(), "");
  // Those who are not named stay beside others, whose names need encoding.
  EXPECT_TRUE(email.AddCC("", "Undisclosed recipients"));
  EXPECT_TRUE(email.AddCC("J\xC3\xB6rg", "j@x.org"));
  Utf8Email read;
  ASSERT_TRUE(read.SetFromMimeText(email.GetMime()));
  EXPECT_STREQ(read.GetHeaderField("Cc"),
               "c@x.org, undisclosed-recipients:;, \"J\xC3\xB6rg\" <j@x.org>");
}

TEST(KvEmail, NoValueStartsANewLine) {
  Utf8Email email;
  const std::string evil = "x\"\r\nBcc: evil@x.org\r\n\r\nbody\\";
  email.put_Subject(evil.c_str());
  email.put_From((evil + " <f@x.org>").c_str());
  EXPECT_FALSE(email.AddTo("", "u@x>\r\nRCPT TO:<evil@x"));
  EXPECT_TRUE(email.AddTo(evil.c_str(), "t@x.org"));
  EXPECT_TRUE(email.AddHeaderField("X-Value", evil.c_str()));
  EXPECT_FALSE(email.AddHeaderField("X-Name: y\r\nBcc", "evil@x.org"));
  EXPECT_FALSE(email.AddHeaderField(std::string(999, 'x').c_str(), "v"));
  EXPECT_TRUE(email.AddHeaderField("", "ignored"));
  EXPECT_FALSE(email.AddHeaderField("Content-Type", "multipart/mixed; boundary=b"));
  EXPECT_FALSE(email.AddHeaderField("Content-Transfer-Encoding", "7bit\r\nBcc: evil@x.org"));
  EXPECT_TRUE(email.AddHeaderField("Content-ID", evil.c_str()));
  EXPECT_TRUE(email.AddHeaderField("Date", evil.c_str()));
  EXPECT_TRUE(email.AddStringAttachment(evil.c_str(), "data"));
  EXPECT_NE(email.AddRelatedString(evil.c_str(), "data"), nullptr);
  email.put_Body("the body");
  const std::string mime = email.GetMime();
  EXPECT_EQ(mime.find("\nBcc"), std::string::npos);
  EXPECT_EQ(mime.find("\nbody"), std::string::npos);
  Utf8Email read;
  ASSERT_TRUE(read.SetFromMimeText(mime.c_str()));
  EXPECT_STREQ(read.GetPlainTextBody(), "the body");
  EXPECT_STREQ(read.GetHeaderField("Subject"), "x\"Bcc: evil@x.orgbody\\");
}

TEST(KvEmail, NoLineBreakChangesAnAddress) {
  Utf8Email email;
  const std::pair<const char*, const char*> rows[] = {{"To", "<u@\r\nx.org>"},
                                                      {"KVX-Bcc", "A <a@x.org>, u@x\n.org"},
                                                      {"Return-Path", "boun\r\nce@x.org"}};
  for (const auto& [name, value] : rows) {
    EXPECT_FALSE(email.AddHeaderField(name, value)) << name;
    EXPECT_TRUE(lastErrorHas(email, value)) << name;
  }
  // Names may lose one, and lists are folded.
  EXPECT_TRUE(email.AddHeaderField("To", "\"A\r\nB\" <a@x.org>,\r\n C\r\n D <c@x.org>"));
  EXPECT_STREQ(email.GetTo(), "\"AB\" <a@x.org>, \"C D\" <c@x.org>");
  // No mail is sent from such an address.
  email.put_From("<m\r\ne@x.org>");
  EXPECT_EQ(email.implementation().message()->reversePath(), "m\r\ne@x.org");
}

TEST(KvEmail, FieldsKeepTheirPlaceAndTheMessageItsCharset) {
  Utf8Email email;
  EXPECT_STREQ(email.GetHeaderField("X-Priority"), "3 (Normal)");
  email.AddHeaderField("x-priority", "1");
  EXPECT_STREQ(email.GetHeaderFieldName(5), "X-Priority");
  EXPECT_STREQ(email.GetHeaderFieldValue(5), "1");
  EXPECT_EQ(email.GetHeaderFieldName(6), nullptr);
  EXPECT_EQ(email.GetHeaderFieldValue(-1), nullptr);
  EXPECT_STREQ(email.GetHeaderField("content-type"), "text/plain");
  email.AddTo("J\xC3\xB6rg", "j@x.org");
  EXPECT_STREQ(email.GetHeaderField("content-type"), "text/plain; charset=\"utf-8\"");
}

TEST(KvEmail, NoTextIsLostToItsCharset) {
  // Charset, text, and its bytes in the charset. Without them the text leaves as UTF-8: it is not
  // in the charset, or not in what readers know by the charset's name. "?": as the system converts.
  const auto rows = test_support::rows<3>(ROWS "/email.txt", "charsets");
  for (const auto& [charset, text, bytes] : rows) {
    Utf8Email email, read;
    email.AddHeaderField("Content-Type", ("text/plain; x=y; charset=" + charset).c_str());
    email.AddTo("J\xC3\xB6rg", "j@x.org");  // does not change it
    email.put_Body(text.c_str());
    const std::string mime = email.GetMime();
    ASSERT_TRUE(read.SetFromMimeText(mime.c_str()));
    EXPECT_EQ(read.GetPlainTextBody(), text) << charset;
    if (bytes == "?") continue;
    const std::string label = bytes.empty() ? "\"utf-8\"" : charset;
    EXPECT_NE(mime.find("; charset=" + label + "\r\n"), std::string::npos) << mime;
    EXPECT_TRUE(bytes.empty() || mime.ends_with("\r\n\r\n" + bytes)) << mime;
  }
}

// The tree's types, and what each text is: "mixed(related(html image) plain)".
std::string shape(const Email2& part) {
  const std::string& type = part.contentType().type;
  std::string text = type.substr(type.find('/') + 1);
  for (const auto& child : part.children()) {
    text += (&child == &part.children().front() ? "(" : " ") + shape(*child);
  }
  return part.children().empty() ? text : text + ")";
}

TEST(KvEmail, PartsFindTheirPlaces) {
  const test_support::TempDir folder;
  ASSERT_TRUE(platform::writeWholeFile("a.gif", "GIF89a"));
  using Step = void (*)(KvEmail&);
  const std::map<std::string, Step> steps = {
      {"plain", [](KvEmail& e) { e.put_Body("P"); }},
      {"html", [](KvEmail& e) { e.SetHtmlBody("H"); }},
      {"plainToo", [](KvEmail& e) { e.AddPlainTextAlternativeBody("P"); }},
      {"htmlToo", [](KvEmail& e) { e.AddHtmlAlternativeBody("H"); }},
      {"related", [](KvEmail& e) { e.AddRelatedFile2("a.gif", "a.gif"); }},
      {"attached", [](KvEmail& e) { e.AddFileAttachment("a.gif"); }},
  };
  const auto orNull = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
  const auto rows = test_support::rows<4>(ROWS "/email.txt", "places of parts");
  for (const auto& [words, outline, plainText, htmlText] : rows) {
    Utf8Email email;
    std::istringstream list(words);
    for (std::string word; list >> word;) steps.at(word)(email);
    EXPECT_EQ(shape(*email.implementation().message()), outline);
    EXPECT_STREQ(email.GetPlainTextBody(), orNull(plainText)) << outline;
    EXPECT_STREQ(email.GetHtmlBody(), orNull(htmlText)) << outline;
  }
}

TEST(KvEmail, FailuresLeaveTheMessageAsItWas) {
  const test_support::TempDir folder;
  Utf8Email email;
  email.SetHtmlBody("<p>");
  const std::string before = email.GetMime();
  EXPECT_FALSE(email.SetHtmlBody(nullptr));
  EXPECT_TRUE(lastErrorHas(email, "<error>HTML string is NULL</error>"));
  EXPECT_FALSE(email.AddRelatedFile2("missing.gif", "x.gif"));
  EXPECT_STREQ(email.LastErrorText(),
               "<KelvadoLog>\r\n<AddRelatedFile2>\r\n<DllDate>May 31 2008</DllDate>\r\n"
               "<filename>missing.gif</filename>\r\n"
               "<error>File does not exist, or cannot open file.</error>\r\n"
               "<error>Failed to add related file</error>\r\n"
               "</AddRelatedFile2>\r\n</KelvadoLog>\r\n");
  EXPECT_EQ(email.AddRelatedFile("missing.gif"), nullptr);
  EXPECT_FALSE(email.AddFileAttachment("missing.gif"));
  EXPECT_FALSE(email.LoadEml("missing.eml"));
  EXPECT_FALSE(email.SetTextBody("x", "image/gif"));
  EXPECT_FALSE(email.SaveEml("no/such/folder.eml"));
  EXPECT_EQ(email.GetMime(), before);

  ClsEmail empty(nullptr);
  EXPECT_FALSE(empty.addRecipient("AddTo", RecipientKind::To, "", "j@x.org"));
  EXPECT_NE(empty.log().text().find("<error>No internal email object</error>"), std::string::npos);
}

TEST(Email2, NormalisesTransferEncodings) {
  const std::string longLine(999, 'x'), qp = "quoted-printable";
  // Type, charset, encoding and body; the encoding that it leaves with.
  const auto rows = test_support::rows<5>(ROWS "/email.txt", "transfer encodings");
  for (const auto& [type, charset, encoding, body, normalised] : rows) {
    const auto part = Email2::createPart(type, encoding);
    if (!charset.empty()) part->setCharset(charset);
    part->setBody(body);
    part->normaliseTransferEncodings();
    EXPECT_EQ(part->transferEncoding(), normalised) << type << " " << charset;
    EXPECT_EQ(part->headerField("Content-Transfer-Encoding"), normalised);
  }
}

TEST(KvEmail, ReplacesPatternsInTheTextsOfTheCopyOnly) {
  const std::string attached("NAME\n2\r\n\r3 \xC3\xBC \0\n", 15);
  Utf8Email email, read;
  email.put_Subject("Dear NAME");
  email.SetHtmlBody("<b>NAME, NAME</b>");
  email.AddDataAttachment("a.txt", attached.data(), attached.size());
  email.AddDataAttachment("a.bin", attached.data(), attached.size());
  EXPECT_FALSE(email.SetReplacePattern("", "x"));
  EXPECT_TRUE(email.SetReplacePattern("NAME", "J\xC3\xB6rg\r\nBcc: x"));
  ErrorLog log;
  const auto copy = email.implementation().cloneForSending(log);
  EXPECT_EQ(copy->headerField("Subject"), "Dear J\xC3\xB6rgBcc: x");
  EXPECT_EQ(copy->findText("text/html")->textBody(),
            "<b>J\xC3\xB6rg\r\nBcc: x, J\xC3\xB6rg\r\nBcc: x</b>");
  EXPECT_NE(log.text().find("Replacing [NAME] with [J"), std::string::npos);
  EXPECT_STREQ(email.GetHeaderField("Subject"), "Dear NAME");
  EXPECT_STREQ(email.GetHtmlBody(), "<b>NAME, NAME</b>");
  // Attachments leave byte for byte, text or not.
  copy->normaliseTransferEncodings();
  std::string mime;
  copy->appendMime(mime);
  ASSERT_TRUE(read.SetFromMimeText(mime.c_str()));
  const auto& parts = read.implementation().message()->children();
  EXPECT_EQ(parts.at(1)->body(), attached);
  EXPECT_EQ(parts.at(2)->body(), attached);
  // Texts that came encoded, with line ends of any kind.
  const std::string encoding = "Content-Transfer-Encoding: ";
  for (const std::string& text :
       {encoding + "base64\r\n\r\nTkFNRQo=", encoding + "quoted-printable\r\n\r\nNA=4DE\n",
        "Content-Type: text/plain; charset=utf-16le\r\n" + encoding +
            "base64\r\n\r\nTgBBAE0ARQAKAA=="}) {
    ASSERT_TRUE(read.SetFromMimeText(text.c_str()));
    read.SetReplacePattern("NAME", "N");
    EXPECT_EQ(read.implementation().cloneForSending(log)->textBody(), "N\n") << text;
  }
}

// The blocks of each encoding end in other places than the pieces; no byte may change by that.
TEST(Email2, GoesOutInPieces) {
  constexpr std::size_t kSize = 300'001;
  const auto repeated = [](std::string_view text) {
    std::string all;
    while (all.size() < kSize) all += text;
    return all;
  };
  Utf8Email email;
  email.put_Body(repeated("a plain line\nand \xC3\xBC\r\n.\r\n\r").c_str());
  for (const char* name : {"a.bin", "b.txt"}) {
    for (const char* text : {"0123456789", "line \r\n", "\r\r\n=\n", "\n\t\n"}) {
      email.AddStringAttachment(name, repeated(text).c_str());
    }
  }
  const auto copy = email.implementation().message()->clone();
  copy->normaliseTransferEncodings();
  std::string whole, pieces;
  copy->appendMime(whole);
  EXPECT_TRUE(copy->writeMime([&](std::string_view piece) {
    pieces += piece;
    return true;
  }));
  EXPECT_EQ(whole, pieces);
  Utf8Email read;
  ASSERT_TRUE(read.SetFromMimeText(whole.c_str()));
  const auto& parts = read.implementation().message()->children();
  ASSERT_EQ(parts.size(), 9U);
  for (std::size_t i = 1; i < 9; ++i) EXPECT_EQ(parts[i]->body(), copy->children()[i]->body()) << i;
  int taken = 0;
  EXPECT_FALSE(copy->writeMime([&](std::string_view) { return ++taken < 2; }));
  EXPECT_EQ(taken, 2);
}

TEST(KvEmail, RepliesAndForwards) {
  Utf8Email original;
  original.SetFromMimeText(message("original").c_str());
  const auto reply = original.CreateReply();
  EXPECT_STREQ(reply->GetTo(), "\"Ann\" <ann@x.org>");
  EXPECT_STREQ(reply->GetHeaderField("From"), "\"Bob\" <bob@x.org>");
  EXPECT_STREQ(reply->GetHeaderField("Subject"), "Re: Plan");
  EXPECT_STREQ(reply->GetHeaderField("In-Reply-To"), "<1@x>");
  EXPECT_STREQ(reply->GetHeaderField("References"), "<0@x> <1@x>");
  EXPECT_STREQ(reply->GetPlainTextBody(),
               "\r\nOn D, \"Ann\" <ann@x.org> wrote:\r\n> line 1\r\n>> old");
  EXPECT_STREQ(reply->CreateReply()->GetHeaderField("Subject"), "Re: Plan");

  const auto forward = original.CreateForward();
  EXPECT_STREQ(forward->GetTo(), "");
  EXPECT_EQ(forward->GetHeaderField("From"), nullptr);
  EXPECT_STREQ(forward->GetHeaderField("Subject"), "Fwd: Plan");
  EXPECT_EQ(shape(*forward->implementation().message()), "mixed( plain)");
  EXPECT_STREQ(forward->GetPlainTextBody(),
               "\r\n-----Original Message-----\r\nFrom: \"Ann\" <ann@x.org>\r\nDate: D\r\n"
               "To: \"Bob\" <bob@x.org>, c@x.org\r\nSubject: Plan\r\n\r\nline 1\r\n> old");
}

TEST(KvEmail, ChangesTheTextsOfOthersInTheirPlaces) {
  Utf8Email email;
  email.SetFromMimeText(message("signed").c_str());
  const auto forward = email.CreateForward();
  EXPECT_TRUE(std::string(forward->GetPlainTextBody()).ends_with("\r\nP"));
  EXPECT_TRUE(std::string(forward->GetHtmlBody()).ends_with("\r\nH"));
  EXPECT_TRUE(email.SetTextBody("NEW", ""));
  EXPECT_STREQ(email.GetPlainTextBody(), "NEW");
  EXPECT_NE(std::string(email.GetMime()).find("\r\n\r\nNEW\r\n--c"), std::string::npos);
  EXPECT_STREQ(email.GetHtmlBody(), "H");
  email.SetFromMimeText("Content-Type: text/calendar\r\n\r\nC");
  EXPECT_EQ(shape(*email.CreateForward()->implementation().message()), "mixed(plain calendar)");
}

}  // namespace
}  // namespace kelvado
