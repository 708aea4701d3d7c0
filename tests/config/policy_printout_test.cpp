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

constexpr const char* kRule = "------------------------------------------------------------\n";

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
  const std::string settings =
      "minCharacters = 6\nmaxCharacters = 16\ncheckSpaces = 1\n  minSpaces = 0\n"
      "  maxSpaces = 0\ncheckUsername = 1\n\n";
  const std::string applies = settings + "This policy applies to the user.\n";
  PolicyRecord policy;
  initLivePolicy(policy);
  policy.emailWarnings = 1;
  policy.failureCode = 1;  // counts for an evaluated policy only
  EXPECT_EQ(policyTextShort(policy),
            settings + "THIS POLICY DOES NOT APPLY TO THE USER.\n" + kRule);
  policy.appliesToUser = 1;
  policy.failureCode = 0;
  EXPECT_EQ(policyTextShort(policy),
            applies + "The password meets the policy requirements.\n" + kRule);
  EXPECT_TRUE(policyText(policy).starts_with("POLICY NAME: \n\nminCharacters = 6\n"));
  EXPECT_EQ(policyText(policy).find("special character within"), std::string::npos);
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
  EXPECT_TRUE(policyTextShort(policy).ends_with(
      "\n\nThis policy applies to the user.\nTHE PASSWORD DOES NOT MEET THE POLICY REQUIREMENTS.\n"
      "THE FAILURE CODE IS 0\n" +
      std::string(kRule)));
}

}  // namespace
}  // namespace config
