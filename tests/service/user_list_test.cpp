// The include and exclude lists of a policy: which names a pass takes from their bytes, and what it
// says of a list that is not as it should be.
#include "service/user_list.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/unicode.h"
#include "platform/text/code_page.h"
#include "tests/support/test_site.h"

namespace {

using namespace std::string_literals;
using Names = std::vector<std::string>;

constexpr const char* kInclude = "pwsentry_pro_policy1_include.txt";
constexpr const char* kExclude = "pwsentry_pro_policy1_exclude.txt";
const std::string kMissing = "-";
const std::string kFolder = "/";

void writeList(const char* file, const std::string& bytes) {
  if (bytes == kFolder) {
    std::filesystem::create_directory(file);
  } else if (bytes != kMissing) {
    platform::writeWholeFile(file, bytes);
  }
}

TEST(UserLists, AreReadAsTheTextThatTheyAreOrTheirPolicyIsLeftOut) {
  const std::string both = "walter\nJ\u00fcrgen\n";
  const std::string longLine(150, 'x');
  const struct {
    const char* what;
    std::string include, exclude;
    Names examined;  // and not excluded; UTF-8
    const char *problem, *note;
  } cases[] = {
      // A read takes 127 characters, and the last of each is taken for the line end.
      {"ANSI", longLine + "\nJ\xfcrgen\nJ\xf6rgen\r\n\nlast\xff\nwalter", kMissing,
       Names{std::string(126, 'x'), std::string(23, 'x'), "J\u00fcrgen", "J\u00f6rgen", "",
             "last\u00ff", "walte"},
       "", "the last line of pwsentry_pro_policy1_include.txt has no line end"},
      {"UTF-8", "\xEF\xBB\xBF" + both, kMissing, Names{"walter", "J\u00fcrgen"}, "", ""},
      {"blanks", "walter \t\r\nwalter2 ", kMissing, Names{"walter", "walter2"}, "", ""},
      {"no list", kMissing, kMissing, Names{}, "",
       "Policy1 has a maximum password age and no list"},
      {"a folder", kFolder, kMissing, Names{}, "policy1_include.txt cannot be read", ""},
      {"UTF-16", "\xFF\xFEw\0\n\0"s, kMissing, Names{}, "policy1_include.txt is no list", ""},
      {"NUL", "walter\nw\0\n"s, kMissing, Names{}, "policy1_include.txt is no list", ""},
      {"marked, not UTF-8", "\xEF\xBB\xBFJ\xfcrgen\n", kMissing, Names{}, "begins as UTF-8", ""},
      {"UTF-8 exclude", both, "J\u00dcRGEN \t\r\n", Names{"walter"}, "", ""},
      {"ANSI exclude", both, "J\xfcrgen\n", Names{"walter"}, "", ""},
      {"marked exclude", both, "\xEF\xBB\xBFwalter\n", Names{"J\u00fcrgen"}, "", ""},
      {"UTF-16 exclude", both, "\xFE\xFF\0w"s, Names{}, "policy1_exclude.txt is no list", ""},
      {"NUL exclude", both, "walter\n\0\n"s, Names{}, "policy1_exclude.txt is no list", ""},
      {"exclude folder", both, kFolder, Names{}, "policy1_exclude.txt cannot be read", ""},
      {"no account", both, "\nSITE\\walter\n", Names{"walter", "J\u00fcrgen"}, "",
       "\"SITE\\walter\" in pwsentry_pro_policy1_exclude.txt is no account's logon name"},
      {"no line end", both, "walter", Names{"walter", "J\u00fcrgen"}, "",
       "the last line of pwsentry_pro_policy1_exclude.txt has no line end"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test_support::TestSite site;
    site.policy("Policy1", 30, 0);
    site.user({"walter", 29});
    site.user({"J\u00fcrgen", 29});
    writeList(kInclude, c.include);
    writeList(kExclude, c.exclude);
    const test_support::WatchedPass pass = site.pass();

    Names examined;
    for (const notify::UserRecord& user : pass.users) {
      if (user.slot != 1 || (user.skipReasons & notify::kSkipExcluded) != 0) continue;
      examined.push_back(base::utf16ToUtf8(platform::ansiToUtf16(user.username)));
    }
    EXPECT_EQ(examined, c.examined);
    const std::size_t problems = *c.problem == '\0' ? 0 : 1;
    EXPECT_THAT(pass.problems(), testing::SizeIs(problems));
    EXPECT_THAT(pass.problems(), testing::Each(testing::HasSubstr(c.problem)));
    const auto ofList =
        testing::AnyOf(testing::HasSubstr("has no line end"), testing::HasSubstr("is no account's"),
                       testing::HasSubstr("no list of users"));
    if (*c.note != '\0') {
      EXPECT_THAT(pass.notes(), testing::Contains(testing::HasSubstr(c.note)));
    } else {
      EXPECT_THAT(pass.notes(), testing::Each(testing::Not(ofList)));
    }
  }
}

}  // namespace
