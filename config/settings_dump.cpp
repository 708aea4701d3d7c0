#include "config/settings_dump.h"

#include <cstdio>
#include <variant>

#include "platform/system/files.h"

namespace config {
namespace {

constexpr std::size_t kRuleWidth = 80;

using S = ProductSettings;
using Field = std::variant<std::string S::*, bool S::*, std::uint32_t S::*>;

struct DumpedField {
  const char* name;
  Field field;
};

const DumpedField kFields[] = {
    {"regcode", &S::regcode},
    {"maintCode", &S::maintCode},
    {"version", &S::version},
    {"osType", &S::osType},
    {"keyPath", &S::keyPath},
    {"testOS", &S::testOS},
    {"evaluation", &S::evaluation},
    {"debug", &S::debug},
    {"vendorDebug", &S::vendorDebug},
    {"dictionarySkipLength", &S::dictionarySkipLength},
    {"policyMax", &S::policyMax},
    {"netlogonDictionary", &S::netlogonDictionary},
    {"resetBypass", &S::resetBypass},
    {"bypassFilter", &S::bypassFilter},
    {"logRejects", &S::logRejects},
    {"showFailedPasswords", &S::showFailedPasswords},
    {"logResets", &S::logResets},
    {"callResetScript", &S::callResetScript},
    {"noReportStatus", &S::noReportStatus},
    {"reportStatistics", &S::reportStatistics},
};

// Numbers are signed, as in every printout.
struct FieldText {
  const ProductSettings& settings;

  std::string operator()(std::string S::*field) const { return settings.*field; }
  std::string operator()(bool S::*field) const { return settings.*field ? "1" : "0"; }
  std::string operator()(std::uint32_t S::*field) const {
    return std::to_string(static_cast<std::int32_t>(settings.*field));
  }
};

}  // namespace

std::string settingsDump(const ProductSettings& pSettings) {
  const std::string rule = std::string(kRuleWidth, '-') + '\n';
  std::string text = rule + "| Norvyn settings.txt\n" + rule;
  for (const DumpedField& one : kFields) {
    text += std::string("   pSettings.") + one.name + "= " +
            std::visit(FieldText{pSettings}, one.field) + '\n';
  }
  return text;
}

int dumpSettings(const ProductSettings& pSettings, const std::string& file) {
  if (const platform::File out = platform::openFile(file, "w")) {
    std::fputs(settingsDump(pSettings).c_str(), out.get());
  }
  return 1;
}

}  // namespace config
