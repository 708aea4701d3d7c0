#include "notify/run_logs.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

TEST(DebugHeader, ListsProductPolicyAndSettingsButNoSecret) {
  test_support::TempDir directory;
  platform::createDirectory("logfiles");
  test_support::ManualClock clock;
  config::ExpirationSettings settings;
  settings.smtpPassword = "s3cret";
  settings.testEmailAddress = "t@x.example";
  settings.warnings = {7, 3, -1};
  settings.lengthPolicies[3] = {15, 365};
  config::DebugLog log(true);
  notify::writeDebugHeader(log, settings, {1234.9, 42, 7200000, true}, clock.local);

  const std::string rule(80, '-');
  EXPECT_EQ(test_support::readText(config::kDebugLogFile),
            rule + "\n| Norvyn-expiration-debug.log\n" + rule +
                "\n"
                "Norvyn Password Filter -  Product Version 6.2.1\n"
                "Norvyn Password Expiration Service 6.2.0 Build 2015091901 \n"
                "timestamp:  3/05/2026  9:07:03\n"
                "uptime (in seconds): 1234\n" +
                rule +
                "\n"
                "----------------------\nDomain Policy Settings\n----------------------\n"
                "max pw age = 42\n"
                "---------------------------\nExpiration Service Settings\n"
                "---------------------------\n"
                "reportOnly = 0\ntestEmailOnly = 0\ntestEmailAddress=t@x.example\n"
                "htmllog = 0\nemailAdminReports = 0\nwarningThreshold = 14\n"
                "warning1 = 7\nwarning2 = 3\nwarning3 = -1\nlimitEmails = 0\n"
                "expirationLastRunDay = 0\nemailAgingUsers = 0\n"
                "minLength1 = 0\tmaxAge1 = 0\nminLength2 = 0\tmaxAge2 = 0\n"
                "minLength3 = 0\tmaxAge3 = 0\nminLength4 = 15\tmaxAge4 = 365\n"
                "serviceInterval (in min) = 120\n"
                "  ** Service has already sent emails today and will not email during this "
                "run.\n");
}

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
