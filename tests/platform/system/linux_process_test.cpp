#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "platform/system/process.h"
#include "tests/support/temp_dir.h"

namespace platform {
namespace {

TEST(PosixProcess, LeavesNoCoreWhenItCrashes) {
  const test_support::TempDir directory;
  const auto crash = [] {
    rlimit limit{};
    ::getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_CORE, &limit);
    hardenProcess();
    std::abort();
  };
  const auto leftNoCore = [](int status) { return WIFSIGNALED(status) && !WCOREDUMP(status); };
  EXPECT_EXIT(crash(), leftNoCore, "");
}

}  // namespace
}  // namespace platform
