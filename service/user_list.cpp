#include "service/user_list.h"

#include "config/format_text.h"
#include "directory/domain_directory.h"
#include "platform/case_fold.h"
#include "platform/code_page.h"
#include "platform/files.h"

namespace service {

PolicyFiles policyFiles(int slot) {
  if (slot == 0) return {directory::kDomainUsersFile, "pwsentry_pro_defaultpolicy_exclude.txt"};
  return {config::formatText("pwsentry_pro_policy%d_include.txt", slot),
          config::formatText("pwsentry_pro_policy%d_exclude.txt", slot)};
}

void cutLineEnd(std::string& line) {
  if (!line.empty()) line.pop_back();
}

std::string nameKey(const std::string& ansi) {
  return platform::foldCase(platform::utf16ToUtf8(platform::ansiToUtf16(ansi)));
}

std::unordered_set<std::string> readExcludeFile(const std::string& file) {
  std::unordered_set<std::string> names;
  platform::File list = platform::openFile(file, "r");
  if (!list) return names;
  std::string line;
  while (platform::readTextLine(list.get(), kListReadSize, line)) {
    cutLineEnd(line);
    names.insert(nameKey(line));
  }
  return names;
}

}  // namespace service
