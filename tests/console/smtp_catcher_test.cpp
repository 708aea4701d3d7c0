// The catcher with clients that behave and that do not: what is saved, byte by byte, and that it
// goes on afterwards.
#include "console/smtp_catcher.h"

#include <gtest/gtest.h>

#include "base/log_null.h"
#include "net/kelvado_socket.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"

namespace console {
namespace {

using std::string_literals::operator""s;

class SmtpCatcherTest : public testing::Test {
 protected:
  void SetUp() override {
    CatcherOptions options;
    options.directory = "mails";
    options.refusedRecipients = {"Refused@site.example"};
    std::string error;
    ASSERT_TRUE(catcher.start(options, error)) << error;
  }

  // Says all of it at once, and gives back the codes of the replies up to the end of the
  // connection.
  std::string codes(const std::string& bytes) {
    kelvado::KelvadoSocket socket;
    if (!socket.connect("127.0.0.1", catcher.port(), 5000, call)) return "no connection";
    socket.sendBytes(bytes, 5000, call);
    std::string heard;
    std::string line;
    const auto patience = [this] { return kelvado::Countdown(5000, progress.clock()); };
    while (socket.readUntilMatch("\r\n", line, {patience(), 1000}, call)) {
      heard += line.substr(0, 4);
    }
    return heard;
  }

  test_support::TempDir directory;
  SmtpCatcher catcher;
  base::LogNull log;
  kelvado::ProgressMonitor progress;
  kelvado::Call call{log, progress};
};

constexpr const char* kEnvelope =
    "MAIL FROM:<me@site.example>\r\nRCPT TO:<you@site.example>\r\nDATA\r\n";
constexpr const char* kSavedEnvelope =
    "X-Envelope-From: <me@site.example>\r\nX-Envelope-To: <you@site.example>\r\n";

TEST_F(SmtpCatcherTest, SavesWhatWasSent) {
  const std::pair<std::string, std::string> mails[] = {
      {"A: b\r\n\r\n..dot\r\nnot.\r\n", "A: b\r\n\r\n.dot\r\nnot.\r\n"},
      {"", ""},
      {"\r\n", "\r\n"},
      {"no end\n.\n\r.\r\0\xFF\r\n"s, "no end\n.\n\r.\r\0\xFF\r\n"s},  // only CR LF ends a line
  };
  for (const auto& [sent, saved] : mails) {
    EXPECT_EQ(codes("HELO me\r\n"s + kEnvelope + sent + ".\r\nQUIT\r\n"),
              "220 250 250 250 354 250 221 ");
    std::string file;
    ASSERT_TRUE(platform::readWholeFile(catcher.savedFiles().back(), file));
    EXPECT_EQ(file, kSavedEnvelope + saved);
  }
  EXPECT_EQ(catcher.savedFiles().front(), "mails/0001.eml");
  EXPECT_EQ(catcher.savedFiles().size(), std::size(mails));
}

TEST_F(SmtpCatcherTest, AnswersWhatItDoesNotTake) {
  const std::pair<std::string, const char*> conversations[] = {
      {"EHLO me\r\nAUTH LOGIN\r\nSTARTTLS\r\nrset\r\nNoop\r\nQUIT\r\n",
       "220 250-250-250 502 502 250 250 221 "},
      {"RCPT TO:<a@b>\r\nDATA\r\nMAIL FROM:a@b\r\nMAIL FROM:<>\r\nMAIL FROM:<>\r\nQUIT\r\n",
       "220 503 503 501 250 503 221 "},
      {"MAIL FROM:<a@b>\r\nRCPT TO:<rEFUSED@site.example>\r\nRCPT TO:<>\r\nDATA\r\nQUIT\r\n",
       "220 250 550 501 503 221 "},
      {std::string(5000, 'x') + "\r\n", "220 500 "},
      {"\r\n\0\r\n\xFF\xFE\r\nQUIT\r\n"s, "220 502 502 502 221 "},
  };
  for (const auto& [said, expected] : conversations) EXPECT_EQ(codes(said), expected) << said;
  EXPECT_EQ(catcher.savedFiles().size(), 0U);
}

// A mail that is not complete when its client leaves, or the catcher stops, is not there at all.
TEST_F(SmtpCatcherTest, SavesNoHalfMail) {
  kelvado::KelvadoSocket halfWay;
  kelvado::KelvadoSocket leaving;
  for (kelvado::KelvadoSocket* socket : {&halfWay, &leaving}) {
    ASSERT_TRUE(socket->connect("127.0.0.1", catcher.port(), 5000, call));
    ASSERT_TRUE(socket->sendBytes(kEnvelope + "half a mail\r\n.\r"s, 5000, call));
  }
  leaving.close();
  EXPECT_EQ(codes(std::string(kEnvelope) + ".\r\nQUIT\r\n"), "220 250 250 354 250 221 ");
  catcher.stop();
  EXPECT_EQ(catcher.savedFiles().size(), 1U);
  EXPECT_FALSE(platform::fileExists("mails/0002.eml"));
}

// Mails of an earlier run are not written over; a port in use is named.
TEST_F(SmtpCatcherTest, StartsBesideWhatIsThere) {
  ASSERT_TRUE(platform::writeWholeFile("mails/0001.eml", "old"));
  EXPECT_EQ(codes(std::string(kEnvelope) + ".\r\nQUIT\r\n"), "220 250 250 354 250 221 ");
  EXPECT_EQ(catcher.savedFiles(), std::vector<std::string>{"mails/0002.eml"});
  SmtpCatcher second;
  CatcherOptions options;
  options.port = catcher.port();
  std::string error;
  EXPECT_FALSE(second.start(options, error));
  EXPECT_NE(error.find(std::to_string(catcher.port())), std::string::npos) << error;
}

}  // namespace
}  // namespace console
