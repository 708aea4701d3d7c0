// SRV replies as a name server, or somebody in its place, may send them, and the order of targets.
#include "platform/network/linux/srv_lookup.h"

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace platform {
namespace {

using namespace std::string_literals;

// A reply to a question for "_x.y"; the name stands at offset 12.
std::string reply(const std::vector<std::string>& records) {
  std::string bytes = "\x12\x34\x81\x80\0\1\0"s;
  bytes += static_cast<char>(records.size());
  bytes += "\0\0\0\0\2_x\1y\0\0\x21\0\1"s;
  for (const std::string& record : records) bytes += record;
  return bytes;
}

// A record of the question's name with this type and data.
std::string record(char type, const std::string& data) {
  return "\xC0\x0C\0"s + type + "\0\1\0\0\0\x3C\0"s + static_cast<char>(data.size()) + data;
}

std::string srv(const std::string& target) {
  return record('\x21', "\0\1\0\2\1\x85"s + target);
}

TEST(SrvReply, KeepsWhatCanBeAServer) {
  const std::string host = "\3dc1\1y\0"s;
  const struct {
    const char* what;
    std::string message;
    std::vector<std::string> hosts;
  } cases[] = {
      {"two servers", reply({srv(host), srv("\3dc2\xC0\x0F")}), {"dc1.y", "dc2.y"}},
      {"an alias before it", reply({record('\5', host), srv(host)}), {"dc1.y"}},
      {"the root: no such service", reply({srv("\0"s)}), {}},
      {"a name that would change a URI", reply({srv("\6a/b?c@\1y\0"s), srv(host)}), {"dc1.y"}},
      {"no target", reply({record('\x21', "\0\1\0\2\1\x85"s), srv(host)}), {"dc1.y"}},
      {"a name that points to itself", reply({srv("\xC0\x28")}), {}},
      {"cut short", reply({srv(host), srv(host)}).substr(0, 62), {}},
      {"no message", "\x12"s, {}},
      {"nothing", "", {}},
  };
  for (const auto& [what, message, hosts] : cases) {
    std::vector<std::string> found;
    for (const SrvTarget& target : parseSrvReply(message)) {
      found.push_back(target.host);
      EXPECT_EQ(target.port, 389) << what;
      EXPECT_EQ(target.priority, 1) << what;
      EXPECT_EQ(target.weight, 2) << what;
    }
    EXPECT_EQ(found, hosts) << what;
  }
}

TEST(SrvOrder, IsByPriorityThenByChanceInProportionToTheWeights) {
  int firsts[3] = {};
  std::uint32_t random = 0;
  for (int round = 0; round < 1000; ++round) {
    std::vector<SrvTarget> targets = {
        {"9", 389, 9, 65535}, {"0", 389, 1, 0}, {"1", 389, 1, 10}, {"2", 389, 1, 30}};
    orderTargets(targets, [&random] { return random++; });
    ASSERT_EQ(targets[3].host, "9");
    ++firsts[targets[0].host[0] - '0'];
  }
  EXPECT_EQ(firsts[0], 0);
  EXPECT_GT(firsts[1], 200);
  EXPECT_GT(firsts[2], 2 * firsts[1]);
}

}  // namespace
}  // namespace platform
