#include "mail/smtp/command_pipeline.h"

#include <algorithm>
#include <span>

namespace kelvado {
namespace {

constexpr int kOk = 250;

}  // namespace

bool CommandPipeline::next() {
  ++taken_;
  const bool sent = taken_ <= sent_ || (!hasFailed_ && sendGroup());
  return sent && wire_.readReply(kOk, call_);
}

void CommandPipeline::skipAhead() {
  while (isAhead() && wire_.isOpen()) {
    next();
    if (wire_.outOfStep()) wire_.close();
  }
}

bool CommandPipeline::sendGroup() {
  const std::size_t end = std::min(sent_ + groupSize_, commands_.size());
  const std::span<const std::string> all(commands_);
  if (!wire_.sendCommands(all.subspan(sent_, end - sent_), call_)) return false;
  sent_ = end;
  return true;
}

}  // namespace kelvado
