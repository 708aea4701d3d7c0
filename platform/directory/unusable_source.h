// The directory of settings that cannot be used: every call fails with the reason. Stands in for a
// real one where a program is to go on, as a check is. Used by the system hosts.
#pragma once

#include <string>
#include <utility>

#include "platform/directory/directory_snapshot.h"

namespace platform {

class UnusableSource final : public DirectorySource {
 public:
  explicit UnusableSource(std::string reason) : reason_(std::move(reason)) {}

  HResult load(DirectorySnapshot&, DirectoryError& error) override {
    error = {kInvalidArgument & 0xFFFFU, reason_, "Settings", DirectoryStep::Settings};
    return kInvalidArgument;
  }
  AccountResult refresh(DirectoryEntry&) override { return {kNetNoDomainController, reason_}; }
  AccountResult expirePassword(const DirectoryEntry&) override {
    return {kNetNoDomainController, reason_};
  }
  DirectoryFacts facts() override { return {}; }

 private:
  std::string reason_;
};

}  // namespace platform
