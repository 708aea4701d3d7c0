// The printouts line by line: of a record in which every line of both forms shows, and of what
// leaves lines out.
#include "config/policy_printout.h"

#include <gtest/gtest.h>

#include "config/policy_store.h"
#include "config/settings_table.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace config {
namespace {

// Sets the field of a setting as the record has it, whatever a loader would make of the value.
struct FieldSetter {
  PolicyRecord& policy;
  const std::string& value;

  void operator()(std::string PolicyRecord::*field) const { policy.*field = value; }
  void operator()(std::uint32_t PolicyRecord::*field) const { policy.*field = std::stoul(value); }
  void operator()(std::uint8_t PolicyRecord::*field) const { policy.*field = std::stoul(value); }
  template <typename Other>
  void operator()(const Other& /*field*/) const {}
};

PolicyRecord everything() {
  PolicyRecord policy;
  for (const auto& [name, value] : test_support::readRows(TEST_DATA "policy_everything.txt")) {
    for (const Setting& setting : settingsTable()) {
      if (setting.name == name) std::visit(FieldSetter{policy, value}, setting.field);
    }
  }
  policy.appliesToUser = 1;
  policy.passed = 0;
  policy.failureCode = 0xFFFFFFFF;
  return policy;
}

TEST(PolicyPrintout, PrintsEveryLineOfBothForms) {
  EXPECT_EQ(policyText(everything()), test_support::readText(TEST_DATA "policy_printout_full.txt"));
  EXPECT_EQ(policyTextShort(everything()),
            test_support::readText(TEST_DATA "policy_printout_short.txt"));
}

TEST(PolicyPrintout, LeavesOutWhatDoesNotApply) {
  PolicyRecord policy;
  initLivePolicy(policy);
  policy.emailWarnings = 1;
  policy.failureCode = 1;  // counts for an evaluated policy only
  std::string printed = policyTextShort(policy);
  policy.appliesToUser = 1;
  policy.failureCode = 0;
  printed += policyTextShort(policy) + policyText(policy);
  policy.passed = 0;
  printed += policyTextShort(policy);
  EXPECT_EQ(printed, test_support::readText(TEST_DATA "policy_printout_live.txt"));
}

TEST(PolicyPrintout, AppendsAndIgnoresAFileThatCannotBeOpened) {
  const test_support::TempDir directory;
  PolicyRecord policy;
  EXPECT_EQ(printPolicy(policy, "out.txt"), 1);
  EXPECT_FALSE(platform::fileExists("out.txt"));  // neither defined nor evaluated
  policy.appliesToUser = 1;                       // evaluated is enough
  policy.passed = 0;
  EXPECT_EQ(printPolicy(policy, "missing/out.txt"), 1);
  printPolicy(policy, "out.txt");
  printPolicyShort(policy, "out.txt");
  EXPECT_EQ(test_support::readText("out.txt"), policyText(policy) + policyTextShort(policy));
}

}  // namespace
}  // namespace config
