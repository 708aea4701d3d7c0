#include <filesystem>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using test_support::readBytes;

namespace fs = std::filesystem;

class PosixFiles : public testing::Test {
 protected:
  test_support::TempDir directory_;
};

TEST_F(PosixFiles, ARelativeNameIsOneFileInAnyLetterCase) {
  ASSERT_TRUE(createDirectory("LogFiles"));
  EXPECT_TRUE(createDirectory("logfiles\\"));  // exists already
  ASSERT_TRUE(appendToFile("LogFiles\\Debug.LOG", "1"));
  ASSERT_TRUE(appendToFile(".\\logfiles\\debug.log", "2"));
  EXPECT_TRUE(fs::exists("logfiles/debug.log"));  // made in lower case
  EXPECT_EQ(readBytes("LOGFILES/Debug.log"), "12");

  fs::create_directory("Lists");
  fs::rename("logfiles/debug.log", "Lists/Users.TXT");
  EXPECT_EQ(readBytes("lists\\users.txt"), "12");  // found in the case it has
  EXPECT_TRUE(appendToFile("lists\\USERS.txt", "3"));
  EXPECT_TRUE(appendToFile("lists\\More.txt", "4"));
  EXPECT_EQ(readBytes("Lists/Users.TXT"), "123");
  EXPECT_TRUE(fs::exists("Lists/more.txt"));
}

TEST_F(PosixFiles, NamesThatAPersonGaveStandAsTheyAre) {
  ASSERT_TRUE(writeWholeFile(directory_.path() + "/Site.REG", "mixed"));
  ASSERT_TRUE(writeWholeFile("other.reg", "lower"));
  EXPECT_EQ(absolutePath("Site.REG"), directory_.path() + "/Site.REG");
  EXPECT_EQ(absolutePath("Other.REG"), directory_.path() + "/other.reg");
  fs::create_directory("Work");
  fs::create_directory("work");
  ASSERT_TRUE(setWorkingDirectory("Work"));
  EXPECT_EQ(absolutePath("logfiles\\x"), directory_.path() + "/Work/logfiles/x");
}

TEST_F(PosixFiles, ReplacingKeepsLinksAndTheModeButForOthers) {
  ASSERT_TRUE(replaceFileAtomically("real.reg", "new"));
  EXPECT_EQ(fs::status("real.reg").permissions(), fs::perms(0600));
  fs::permissions("real.reg", fs::perms(0664));
  fs::create_symlink("real.reg", "link.reg");
  EXPECT_TRUE(replaceFileAtomically("link.reg", "newer"));
  EXPECT_TRUE(fs::is_symlink("link.reg"));
  EXPECT_EQ(readBytes("real.reg"), "newer");
  EXPECT_EQ(fs::status("real.reg").permissions(), fs::perms(0660));
  for (const char* name : {"real.reg.aB3dE6.pwlapse-tmp", "real.reg.backup"}) {
    writeWholeFile(directory_.path() + '/' + name, "left over");
  }
  removeTemporaries("link.reg");
  EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 4);  // file, link, backup, lock
}

constexpr uid_t kSomebody = 12345;

// Reads and writes the name in each way; which of them went well, and what is said when none did.
std::string ways(const std::string& name) {
  std::string bytes;
  std::string done;
  if (readWholeFile(name, bytes)) done += "read ";
  if (openFile(name, "r") != nullptr) done += "open ";
  if (writeWholeFile(name, "x")) done += "write ";
  if (appendToFile(name, "x")) done += "append ";
  if (openFile(name, "a+") != nullptr) done += "open to append ";
  return done.empty() ? fileErrorText() : done;
}

TEST_F(PosixFiles, NobodyLeadsOrHoldsUpAProgramByWhatHePutsInTheFolder) {
  if (::geteuid() != 0) GTEST_SKIP() << "takes files of two users";
  ASSERT_TRUE(writeWholeFile("secret", "s"));
  fs::create_directory("own");
  const auto link = [](const char* to, const char* name, uid_t owner) {
    fs::create_symlink(to, name);
    EXPECT_EQ(::lchown(name, owner, owner), 0);
  };
  link("secret", "own-link", 0);
  link("own-link", "link-to-own-link", 0);
  link("secret", "planted", kSomebody);
  link("planted", "link-to-planted", 0);
  link("nowhere", "dangling", 0);
  link("own", "own-folder", 0);
  link("own", "planted-folder", kSomebody);
  ASSERT_EQ(::mkfifo("pipe", 0600), 0);
  const std::string refused = "a symbolic link that leads nowhere or must not be followed here";
  const std::pair<const char*, std::string> cases[] = {
      {"own-link", "read open "},
      {"link-to-own-link", "read open "},
      {"planted", refused},
      {"link-to-planted", refused},
      {"dangling", refused},
      {"own-folder/new.log", "write append open to append "},
      {"planted-folder/new.log", "read open "},
      {"pipe", "not a regular file"},
      {"own", "Is a directory"},
  };
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(ways(name), expected) << name;
    EXPECT_TRUE(fileExists(name)) << name;
  }
  EXPECT_EQ(readBytes("secret"), "s");
  EXPECT_FALSE(fileExists("missing"));
  EXPECT_TRUE(replaceFileAtomically("planted", "new"));  // the link's place, not its target
  EXPECT_EQ(readBytes("secret") + readBytes("planted"), "snew");
}

TEST_F(PosixFiles, ANameThatCannotBeLookedForIsNotMissing) {
  ASSERT_TRUE(writeWholeFile(directory_.path() + "/Exclude.TXT", "ann\n"));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const bool opened = openFile("exclude.txt", "r") != nullptr;
  const std::string reason = fileErrorText();
  const bool exists = fileExists("exclude.txt");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_FALSE(opened);
  EXPECT_EQ(reason, "this process has too many files open");
  EXPECT_TRUE(exists);
}

TEST_F(PosixFiles, WhatRootMakesIsTheFoldersOwners) {
  if (::geteuid() != 0) GTEST_SKIP() << "takes files of two users";
  fs::create_directory("work");
  ASSERT_EQ(::chown("work", kSomebody, kSomebody), 0);
  EXPECT_TRUE(createDirectory("work/logfiles"));
  EXPECT_TRUE(appendToFile("work/logfiles/a.log", "1"));
  EXPECT_TRUE(replaceFileAtomically("work/state.reg", "1"));
  EXPECT_TRUE(FileLock("work/list").held());
  for (const char* name :
       {"work/logfiles", "work/logfiles/a.log", "work/state.reg", "work/list.lock"}) {
    struct stat status {};
    ASSERT_EQ(::stat(name, &status), 0) << name;
    EXPECT_EQ(status.st_uid, kSomebody) << name;
  }
}

TEST_F(PosixFiles, AFolderThatOthersCanWriteToIsShared) {
  if (::geteuid() != 0) GTEST_SKIP() << "takes groups of two users";
  fs::create_directory("work");
  const std::tuple<gid_t, unsigned, bool> cases[] = {
      {0, 0755, false},         {0, 0775, false}, {kSomebody, 0770, true},
      {kSomebody, 0755, false}, {0, 01777, true}, {0, 0702, true},
  };
  for (const auto& [group, mode, shared] : cases) {
    ASSERT_EQ(::chown("work", 0, group), 0);
    fs::permissions("work", fs::perms(mode));
    EXPECT_EQ(folderIsShared("work"), shared) << group << ' ' << std::oct << mode;
  }
  platform::writeWholeFile("secret", "x");
  ASSERT_EQ(::chown("secret", 0, kSomebody), 0);
  for (const auto& [mode, asRoot, asOther] :
       {std::tuple(0600U, false, false), {0640U, false, true}, {0604U, true, true}}) {
    fs::permissions("secret", fs::perms(mode));
    EXPECT_EQ(fileIsShared("secret"), asRoot) << std::oct << mode;
    ASSERT_EQ(::seteuid(kSomebody), 0);
    const bool shared = fileIsShared("secret");
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(shared, asOther) << std::oct << mode;
  }
}

}  // namespace
}  // namespace platform
