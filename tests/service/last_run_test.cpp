// What a pass leaves for monitoring: its record and its figures.
#include "service/last_run.h"

#include <filesystem>
#include <regex>

#include <gtest/gtest.h>

#include "config/pass_files.h"
#include "tests/support/test_site.h"
#include "tests/support/text_file.h"

namespace {

constexpr const char* kExpected = SERVICE_TEST_DATA "/last_run.txt";

// Without the lines of the outcomes that nobody had.
std::string withoutNoughts(const std::string& text) {
  return std::regex_replace(text, std::regex("\\n[^\\n]*(\\} 0|\": 0,?)(?=\\n)"), "");
}

TEST(LastRun, IsReplacedByEachPassAndKeepsTheTimeOfTheLastGoodOne) {
  test_support::TestSite site;
  site.setting("metricsFile", "collected\\pwlapse.prom");
  site.policy("DefaultPolicy", 42);
  site.user({"walter", 1});
  std::filesystem::create_directory("collected");
  EXPECT_TRUE(site.pass().record.allWell());
  EXPECT_EQ(withoutNoughts(site.read("collected/pwlapse.prom")),
            test_support::sectionOf(kExpected, "figures of a good pass"));

  std::filesystem::remove_all("collected");
  site.setting("managerDays", 1);
  site.clock.now += test_support::kFileTimeDay;
  EXPECT_EQ(site.pass().problems().size(), 1U);
  EXPECT_EQ(withoutNoughts(site.read(config::kLastRunFile)),
            test_support::sectionOf(kExpected, "record of a pass with a problem"));
  std::string reason;
  const auto run = service::readLastRun(reason);
  ASSERT_TRUE(run) << reason;
  EXPECT_EQ(service::lastRunText(*run), site.read(config::kLastRunFile));
}

TEST(LastRun, IsNotTakenFromAFileThatIsNone) {
  test_support::TestSite site;
  std::filesystem::create_directory("logfiles");
  for (const char* text :
       {"", "{", "[]", R"({"version": 1})", R"({"version": 2})", R"({"version": "1"})", "null"}) {
    site.write("logfiles/norvyn-last-run.json", text);
    std::string reason;
    EXPECT_FALSE(service::readLastRun(reason)) << text;
    EXPECT_NE(reason.find("norvyn-last-run.json"), std::string::npos) << reason;
  }
}

}  // namespace
