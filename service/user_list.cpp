#include "service/user_list.h"

#include "base/case_fold.h"
#include "base/format_text.h"
#include "base/unicode.h"
#include "config/pass_files.h"
#include "directory/domain_directory.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace service {

PolicyFiles policyFiles(int slot) {
  if (slot == 0) return {config::kDomainUsersFile, config::kDefaultExcludeFile};
  return {base::formatText(config::kIncludeFileFormat, slot),
          base::formatText(config::kExcludeFileFormat, slot)};
}

void cutLineEnd(std::string& line) {
  if (!line.empty()) line.pop_back();
}

void cutByteOrderMark(std::string& firstLine) {
  if (firstLine.starts_with("\xEF\xBB\xBF")) firstLine.erase(0, 3);
}

std::string nameKey(const std::string& ansi) {
  const std::string name = ansi.substr(0, ansi.find_last_not_of(" \t") + 1);
  return base::foldCase(base::utf16ToUtf8(platform::ansiToUtf16(name)));
}

std::optional<std::unordered_set<std::string>> readExcludeFile(const std::string& file) {
  std::unordered_set<std::string> names;
  platform::File list = platform::openFile(file, "r");
  if (!list && platform::fileExists(file)) return std::nullopt;
  if (!list) return names;
  std::string line;
  bool first = true;
  while (platform::readTextLine(list.get(), kListReadSize, line)) {
    const bool isUtf16 = line.starts_with("\xFF\xFE") || line.starts_with("\xFE\xFF");
    if (first && isUtf16) return std::nullopt;
    if (first) cutByteOrderMark(line);
    first = false;
    cutLineEnd(line);
    names.insert(nameKey(line));
  }
  if (std::ferror(list.get()) != 0) return std::nullopt;
  return names;
}

}  // namespace service
