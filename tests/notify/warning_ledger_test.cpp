// What the record of mailed warnings keeps, whatever happens to its file.
#include "notify/warning_ledger.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace notify {
namespace {

const std::string kFile = "logfiles/norvyn-warnings-sent.log";
constexpr base::LocalTime kToday{.year = 2026, .month = 3, .day = 5};
const AccountPassword kAnna{"anna adler%", 13'400'000'000};

class WarningLedgerTest : public testing::Test {
 protected:
  WarningLedgerTest() { platform::createDirectory("logfiles"); }

  // Opens the file as the next pass does; answers how many lines were dropped.
  std::size_t reopen(WarningLedger& ledger) {
    std::size_t dropped = 0;
    EXPECT_TRUE(ledger.open(problem_, dropped)) << problem_;
    return dropped;
  }

  test_support::TempDir directory_;
  std::string problem_;
};

TEST_F(WarningLedgerTest, KeepsWhatWasMailedForEachPassword) {
  {
    WarningLedger killed;  // before its finish()
    reopen(killed);
    EXPECT_TRUE(killed.record(kAnna, {14, 7}, kToday, problem_));
  }
  WarningLedger second;
  EXPECT_EQ(reopen(second), 0U);
  for (const bool finished : {false, true}) {
    EXPECT_TRUE(second.isDone(kAnna, 14) && second.isDone(kAnna, 7)) << finished;
    EXPECT_FALSE(second.isDone(kAnna, 1));
    EXPECT_TRUE(second.wasMailedOn(kAnna, kToday));
    EXPECT_FALSE(second.wasMailedOn(kAnna, {.year = 2026, .month = 4, .day = 5}));
    // The time of the change may differ by what two clocks differ; another password is another.
    EXPECT_TRUE(second.isDone({kAnna.account, kAnna.changedSeconds + 300}, 7));
    EXPECT_FALSE(second.isDone({kAnna.account, kAnna.changedSeconds + 301}, 7));
    EXPECT_FALSE(second.isDone({"anna", kAnna.changedSeconds}, 7));
    EXPECT_TRUE(second.finish(kToday, problem_));
    EXPECT_EQ(reopen(second), 0U);
  }
  EXPECT_TRUE(
      second.record({kAnna.account, kAnna.changedSeconds + 90 * 86400}, {}, kToday, problem_));
  EXPECT_TRUE(second.finish(kToday, problem_));
  WarningLedger third;
  reopen(third);
  EXPECT_FALSE(third.isDone(kAnna, 7)) << "the old password's record is of no more use";
  EXPECT_TRUE(third.finish({.year = 2030, .month = 1, .day = 1}, problem_));
  reopen(third);
  EXPECT_EQ(third.accounts(), 0U) << "years later nothing is left";
}

// A crash may leave the file cut off at any byte: every whole record is read, nothing else is, and
// what is recorded afterwards is not lost.
TEST_F(WarningLedgerTest, LosesNoWholeRecordWhereverTheFileEnds) {
  {
    WarningLedger ledger;
    reopen(ledger);
    ledger.record(kAnna, {7}, kToday, problem_);
    ledger.record({"ben", 5}, {}, kToday, problem_);
  }
  const std::string whole = test_support::readBytes(kFile);
  const std::size_t afterAnna = whole.find('\n', whole.find("anna")) + 1;
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    platform::writeWholeFile(kFile, std::string_view(whole).substr(0, size));
    {
      WarningLedger ledger;
      EXPECT_LE(reopen(ledger), 1U) << size;
      EXPECT_EQ(ledger.isDone(kAnna, 7), size + 1 >= afterAnna) << size;
      EXPECT_EQ(ledger.wasMailedOn({"ben", 5}, kToday), size + 1 >= whole.size()) << size;
      EXPECT_TRUE(ledger.record({"carl", 6}, {1}, kToday, problem_));
    }
    WarningLedger next;
    reopen(next);
    EXPECT_TRUE(next.isDone({"carl", 6}, 1)) << size;
  }
}

TEST_F(WarningLedgerTest, RefusesWhatIsNoRecord) {
  platform::writeWholeFile(kFile, "something else\n");
  WarningLedger ledger;
  std::size_t dropped = 0;
  EXPECT_FALSE(ledger.open(problem_, dropped));
  EXPECT_EQ(problem_, "logfiles\\Norvyn-warnings-sent.log: is no record of warnings; move it away");
  EXPECT_EQ(test_support::readBytes(kFile), "something else\n");
}

}  // namespace
}  // namespace notify
