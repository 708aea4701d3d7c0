#include "service/user_list.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "base/ascii.h"
#include "base/case_fold.h"
#include "base/format_text.h"
#include "base/unicode.h"
#include "config/pass_files.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

namespace service {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::size_t kSurveyReadSize = 65536;  // whole lines, so that no character is split
constexpr std::string_view kBlanks = " \t";

std::uint64_t fileSize(std::FILE* file) {
  std::fseek(file, 0, SEEK_END);
  const long size = std::ftell(file);
  std::rewind(file);
  return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

std::string systemText(int error) {
  return std::generic_category().message(error);
}

}  // namespace

PolicyFiles policyFiles(int slot) {
  if (slot == 0) return {config::kDomainUsersFile, config::kDefaultExcludeFile};
  return {base::formatText(config::kIncludeFileFormat, slot),
          base::formatText(config::kExcludeFileFormat, slot)};
}

UserList::UserList(const std::string& file, Writer writer)
    : file_(file), stream_(platform::openFile(file, "r")) {
  if (!stream_) {
    if (errno != ENOENT) fail("cannot be read: " + systemText(errno));
    return;
  }
  state_ = State::Open;
  size_ = fileSize(stream_.get());
  if (writer == Writer::Person) survey();
}

UserList UserList::inMemory(const std::string& file, std::string text) {
  UserList list(file);
  list.state_ = State::Open;
  list.size_ = text.size();
  list.text_ = std::move(text);
  return list;
}

void UserList::survey() {
  bool valid = true;
  bool beyondAscii = false;
  bool marked = false;
  std::string line;
  for (bool first = true; platform::readTextLine(stream_.get(), kSurveyReadSize, line);
       first = false) {
    const bool utf16 = first && (line.starts_with("\xFF\xFE") || line.starts_with("\xFE\xFF"));
    if (utf16 || line.find('\0') != std::string::npos) {
      return fail("is no list in UTF-8 or ANSI (UTF-16, say, is not read)");
    }
    if (first) marked = line.starts_with(kUtf8Mark);
    const bool plain = !base::contains8bit(line);
    beyondAscii = beyondAscii || !plain;
    valid = valid && (plain || base::isValidUtf8(line));
  }
  if (std::ferror(stream_.get()) != 0) return fail("cannot be read: " + systemText(errno));
  if (marked && !valid) return fail("begins as UTF-8 and is not");
  utf8_ = valid && beyondAscii;
  std::rewind(stream_.get());
}

void UserList::fail(const std::string& reason) {
  state_ = State::Unusable;
  problem_ = file_ + " " + reason;
  stream_.reset();
}

bool UserList::isLastLine() {
  if (text_) return at_ >= text_->size();
  const int next = std::getc(stream_.get());
  if (next == EOF) return true;
  std::ungetc(next, stream_.get());
  return false;
}

// As platform::readTextLine does.
bool UserList::readLine(std::string& line) {
  if (!text_) return platform::readTextLine(stream_.get(), kListReadSize, line);
  if (at_ >= text_->size()) return false;
  const std::size_t lineEnd = text_->find('\n', at_);
  const std::size_t length = lineEnd == std::string::npos ? lineEnd : lineEnd - at_ + 1;
  line.assign(*text_, at_, std::min(length, kListReadSize - 1));
  at_ += line.size();
  return true;
}

bool UserList::next(std::string& name) {
  if (!stream_ && !text_) return false;
  if (!readLine(name)) {
    if (stream_ && std::ferror(stream_.get()) != 0) {
      fail("cannot be read to its end: " + systemText(errno));
    }
    return false;
  }
  if (lineEnded_) ++line_;
  lineEnded_ = name.ends_with('\n');
  if (first_ && name.starts_with(kUtf8Mark)) name.erase(0, kUtf8Mark.size());
  first_ = false;
  const bool cut = !name.empty() && name.back() != '\n' &&
                   kBlanks.find(name.back()) == std::string_view::npos && isLastLine();
  if (!name.empty()) name.pop_back();
  name.erase(name.find_last_not_of(kBlanks) + 1);
  if (utf8_ && base::contains8bit(name)) name = platform::utf16ToAnsi(base::utf8ToUtf16(name));
  if (cut) cutName_ = name;
  return true;
}

std::string nameKey(std::string_view ansi) {
  return base::foldCase(platform::ansiToUtf8(ansi));
}

ExcludeList readExcludeList(const std::string& file, platform::AccountDatabase& accounts,
                            config::Findings& findings) {
  ExcludeList excluded;
  UserList list(file, UserList::Writer::Person);
  const bool knowsAccounts = !accounts.ofThisMachineOnly();
  for (std::string name; list.next(name);) {
    excluded.keys.insert(nameKey(name));
    if (name.empty() || !knowsAccounts) continue;
    platform::UserInfo info;
    const std::u16string wide = platform::ansiToUtf16(name);
    if (accounts.userInfo(wide, info).status == platform::kNetUserNotFound) {
      findings.note('"' + name.append("\" in ").append(file) + " is no account's logon name");
    }
  }
  noteCutName(list, file, findings);
  excluded.usable = list.state() != UserList::State::Unusable;
  if (!excluded.usable) findings.problem(list.problem() + ": its policy is left out");
  return excluded;
}

void noteCutName(const UserList& list, const std::string& file, config::Findings& findings) {
  if (list.cutName().empty()) return;
  findings.note("the last line of " + file + " has no line end and is read as \"" + list.cutName() +
                "\": its last character is taken for one");
}

}  // namespace service
