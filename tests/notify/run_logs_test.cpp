#include "notify/run_logs.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

TEST(ExpiringSoonLog, StartsAnewAndDropsLinesWithoutItsFolder) {
  test_support::TempDir directory;
  test_support::ManualClock clock;
  notify::recreateExpiringSoonLog();
  EXPECT_FALSE(platform::fileExists(notify::kExpiringSoonLog));

  platform::createDirectory("logfiles");
  notify::appendExpiringSoon(clock.local, "old", "none", 1);
  notify::recreateExpiringSoonLog();
  notify::appendExpiringSoon(clock.local, "walter", "none", -3);
  EXPECT_EQ(test_support::readText(notify::kExpiringSoonLog),
            "\"Date of Run\",\"Username\",\"Email\",\"Days before expiration\"\n"
            "\" 3/05/2026  9:07:03\",\"walter\",\"none\",\"-3\"\n");
}

}  // namespace
