// The service's own calls on this system: a worker frozen wherever it is, the stop event, and
// services as units of systemd, with a systemctl that only takes notes.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files.h"
#include "platform/posix/systemd_units.h"
#include "platform/process.h"
#include "platform/worker_thread.h"
#include "tests/support/temp_dir.h"

namespace platform {
namespace {

using testing::HasSubstr;

// Time for a thread that is not frozen to move on.
void giveWay() {
  for (int i = 0; i < 1000; ++i) sched_yield();
}

TEST(PosixWorkerThread, FreezesAThreadThatComputes) {
  WorkerThreads& threads = systemThreads();
  std::atomic<std::uint64_t> count{0};
  std::atomic<bool> end{false};
  const EventHandle ended = threads.createEvent();
  const ThreadHandle worker = threads.createThread([&] {
    while (!end) ++count;
    threads.setEvent(ended);
  });
  ASSERT_NE(worker, kNullHandle);
  EXPECT_FALSE(threads.resume(worker));
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(threads.suspend(worker));
    EXPECT_FALSE(threads.suspend(worker));
    const std::uint64_t frozen = count;
    giveWay();
    ASSERT_EQ(count, frozen);
    ASSERT_TRUE(threads.resume(worker));
    while (count == frozen) sched_yield();
  }
  end = true;
  threads.wait(ended);
  threads.wait(ended);  // it stays set
  threads.closeThread(worker);
  threads.closeEvent(ended);
  EXPECT_FALSE(threads.setEvent(ended));
  EXPECT_FALSE(threads.setEvent(kNullHandle));
  EXPECT_EQ(systemProcess().lastError(), kErrorInvalidHandle);
}

// A system call that was begun before the pause ends after it, as if there had been none.
TEST(PosixWorkerThread, FreezesAThreadThatWaits) {
  WorkerThreads& threads = systemThreads();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::atomic<ssize_t> received{-1};
  const EventHandle done = threads.createEvent();
  const ThreadHandle worker = threads.createThread([&] {
    char byte = 0;
    received = read(ends[0], &byte, 1);
    threads.setEvent(done);
  });
  ASSERT_TRUE(threads.suspend(worker));
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  giveWay();
  EXPECT_EQ(received, -1);
  ASSERT_TRUE(threads.resume(worker));
  threads.wait(done);
  EXPECT_EQ(received, 1);
  threads.closeThread(worker);
  threads.closeEvent(done);
  close(ends[0]);
  close(ends[1]);
}

class SystemdUnitsTest : public testing::Test {
 protected:
  SystemdUnitsTest() {
    std::filesystem::create_directory("units");
    std::filesystem::create_directory("running");
    // Notes its arguments, and fails for the verb named in the file "fails".
    std::ofstream("systemctl") << "#!/bin/sh\necho \"$*\" >> " << directory_.path()
                               << "/calls\ncase \" $* \" in *\" $(cat " << directory_.path()
                               << "/fails) \"*) exit 1;; esac\n";
    chmod("systemctl", 0755);
    failing("nothing");
  }
  void failing(const std::string& verb) { std::ofstream("fails") << verb; }
  SystemdUnits units() const {
    const std::string path = directory_.path();
    return SystemdUnits({path + "/units", path + "/running", path + "/systemctl"});
  }
  static std::string read(const std::string& file) {
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
  // The arguments of each call of systemctl since the last time.
  static std::string calls() {
    std::string text = read("calls");
    removeFile("calls");
    return text;
  }

  const std::string unitFile = "units/NRVPasswordExpiration.service";

 private:
  test_support::TempDir directory_;
};

NewService newService() {
  NewService service;
  service.name = "NRVPasswordExpiration";
  service.displayName = "Shown 100%";
  service.imagePath = "/opt/a \"b\"\\c%d/pwLapseSvc";
  return service;
}

TEST_F(SystemdUnitsTest, WritesEnablesDescribesAndRemoves) {
  const SystemdUnits systemd = units();
  ASSERT_EQ(systemd.checkAccess(ManagerAccess::All), kErrorSuccess);
  ASSERT_EQ(systemd.create(newService()), kErrorSuccess);
  EXPECT_EQ(calls(), "--quiet daemon-reload\n--quiet enable NRVPasswordExpiration.service\n");
  const std::string text = read(unitFile);
  EXPECT_THAT(text, HasSubstr("\nDescription=Shown 100%%\n"));
  EXPECT_THAT(text, HasSubstr("\nExecStart=\"/opt/a \\\"b\\\"\\\\c%%d/pwLapseSvc\"\n"));
  EXPECT_EQ(text.find('@' + std::string("DESC")), std::string::npos);
  struct stat status {};
  ASSERT_EQ(stat(unitFile.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
  EXPECT_EQ(systemd.create(newService()), kErrorServiceExists);

  // The installer's registry values.
  std::unique_ptr<RegistryKey> key;
  const auto registry = systemd.registry();
  EXPECT_EQ(
      registry->openKey("SYSTEM\\CurrentControlSet\\Services\\Other", RegistryAccess::All, key),
      kErrorFileNotFound);
  ASSERT_EQ(registry->createKey("SYSTEM\\CurrentControlSet\\Services\\NRVPasswordExpiration", key),
            kErrorSuccess);
  EXPECT_EQ(key->setValue("Description", {RegistryType::String, std::string("New\ntext\0", 9)}),
            kErrorSuccess);
  EXPECT_EQ(key->setValue("Start", {RegistryType::Dword, std::string("\2\0\0\0", 4)}),
            kErrorSuccess);
  EXPECT_EQ(calls(), "--quiet daemon-reload\n--quiet enable NRVPasswordExpiration.service\n");
  std::string described = text;
  described.replace(described.find("Shown 100%%"), 11, "New text");
  EXPECT_EQ(read(unitFile), described);

  EXPECT_EQ(systemd.remove("NRVPasswordExpiration"), kErrorSuccess);
  EXPECT_EQ(calls(),
            "--quiet disable --now NRVPasswordExpiration.service\n--quiet daemon-reload\n");
  EXPECT_EQ(systemd.find("NRVPasswordExpiration"), kErrorServiceDoesNotExist);
}

TEST_F(SystemdUnitsTest, TellsWhatIsWrong) {
  const SystemdUnits systemd = units();
  const std::string name = "NRVPasswordExpiration";
  EXPECT_EQ(systemd.remove(name), kErrorFileNotFound);
  failing("enable");
  EXPECT_EQ(systemd.create(newService()), kErrorServiceRequestTimeout);
  EXPECT_EQ(systemd.start(name), kErrorSuccess);
  EXPECT_TRUE(systemd.isActive(name));
  failing("is-active");
  EXPECT_FALSE(systemd.isActive(name));
  failing("stop");
  EXPECT_EQ(systemd.stop(name), kErrorServiceRequestTimeout);
  failing("disable");  // removed all the same
  EXPECT_EQ(systemd.remove(name), kErrorSuccess);
  removeFile("systemctl");
  EXPECT_EQ(systemd.start(name), kErrorServiceRequestTimeout);
  std::filesystem::remove("units");
  EXPECT_EQ(systemd.checkAccess(ManagerAccess::Connect), kErrorSuccess);
  EXPECT_EQ(systemd.checkAccess(ManagerAccess::All), kErrorFileNotFound);
  std::filesystem::remove("running");
  EXPECT_EQ(systemd.checkAccess(ManagerAccess::Connect), kErrorDatabaseDoesNotExist);
}

}  // namespace
}  // namespace platform
