#include "service/processed_users.h"

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

TEST(ProcessedUsers, RemovesByExactNameAndKeepsTheOrderOfTheRest) {
  test_support::TempDir directory;
  platform::createDirectory("logfiles");
  service::ProcessedUsers users;
  for (const char16_t* name : {u"anna", u"Ben", u"carla"}) EXPECT_TRUE(users.append(name));
  EXPECT_FALSE(users.append(u"Ben"));

  const config::DebugLog debug(true);
  EXPECT_FALSE(users.removeList(u"ben", debug));
  EXPECT_TRUE(users.removeList(u"Ben", debug));
  users.append(u"Ben");
  users.dumpList();

  EXPECT_EQ(test_support::readText("logfiles\\userList.txt"),
            " -in removeList() checking for  ben, found=0\n"
            " -in removeList() checking for  Ben, found=1\n");
  const std::string rule(44, '-');
  EXPECT_EQ(test_support::readText("logfiles//ExpirationList.txt"),
            rule + "\nglobalListCount=3\n" + rule + "\nanna\ncarla\nBen\n");
}

}  // namespace
