#include "console/pass_watcher.h"

#include <algorithm>

#include "platform/system/terminal.h"
#include "service/policy_table.h"

namespace console {
namespace {

constexpr int kBarWidth = 30;
constexpr int kBesideTheBar = 10;  // brackets, percentage, blanks; and the last column stays free

}  // namespace

void PassWatcher::slotStarted(int slot, const std::string& includeFile, std::uint64_t listBytes) {
  listName_ = service::slotLabel(slot) + " (" + includeFile + ")";
  listBytes_ = listBytes;
  readBytes_ = 0;
  drawnPercent_ = -1;
  drawBar();
}

void PassWatcher::userExamined(const notify::UserRecord& user) {
  if (keep_ == Keep::Users) users_.push_back(user);
  readBytes_ += user.username.size() + 1;
  drawBar();
}

void PassWatcher::finish() {
  if (drawnPercent_ >= 0) std::fputs("\r\033[K", terminal_);
}

void PassWatcher::drawBar() {
  if (terminal_ == nullptr) return;
  const std::uint64_t read = std::min(readBytes_, listBytes_);
  const int percent = listBytes_ == 0 ? 100 : static_cast<int>(read * 100 / listBytes_);
  if (percent == drawnPercent_) return;
  drawnPercent_ = percent;
  const int filled = percent * kBarWidth / 100;
  // A line that the terminal breaks could not be drawn over.
  const int room = platform::terminalWidth(terminal_) - kBarWidth - kBesideTheBar;
  std::fprintf(terminal_, "\r\033[K[%s%s] %3d %% %.*s", std::string(filled, '#').c_str(),
               std::string(kBarWidth - filled, '.').c_str(), percent, std::max(room, 0),
               listName_.c_str());
  std::fflush(terminal_);
}

}  // namespace console
