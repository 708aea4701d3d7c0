// SRV look-ups by libresolv; see the header.
#include "platform/network/linux/srv_lookup.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <optional>
#include <utility>

#include <arpa/nameser.h>
#include <netinet/in.h>
#include <resolv.h>

#include "platform/system/random.h"

namespace platform {
namespace {

constexpr std::size_t kMaxReply = NS_MAXMSG;  // 65,535: what a reply over TCP can have
constexpr std::size_t kSrvHead = 6;           // priority, weight and port, two bytes each

// The name becomes part of a URI, where other characters would mean something.
bool isHostName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
  });
}

std::optional<SrvTarget> parseRecord(const ns_msg& message, const ns_rr& record) {
  if (ns_rr_type(record) != ns_t_srv || ns_rr_rdlen(record) <= kSrvHead) return std::nullopt;
  const unsigned char* data = ns_rr_rdata(record);
  std::array<char, NS_MAXDNAME> name = {};
  if (dn_expand(ns_msg_base(message), ns_msg_end(message), data + kSrvHead, name.data(),
                name.size()) < 0) {
    return std::nullopt;
  }
  SrvTarget target;
  target.priority = static_cast<std::uint16_t>(ns_get16(data));
  target.weight = static_cast<std::uint16_t>(ns_get16(data + 2));
  target.port = static_cast<std::uint16_t>(ns_get16(data + 4));
  target.host = name.data();
  if (!isHostName(target.host)) return std::nullopt;
  return target;
}

// RFC 2782's choice among targets of one priority: those of weight 0 are hardly ever first.
std::size_t chooseByWeight(const SrvTarget* targets, std::size_t count, std::uint32_t random) {
  const auto weightOf = [](std::uint32_t sum, const SrvTarget& t) { return sum + t.weight; };
  const std::uint32_t total = std::accumulate(targets, targets + count, 0U, weightOf);
  std::uint32_t left = random % (total + 1);
  for (std::size_t i = 0; i < count; ++i) {
    if (left <= targets[i].weight && (targets[i].weight > 0 || total == 0)) return i;
    left -= std::min<std::uint32_t>(left, targets[i].weight);
  }
  return 0;
}

}  // namespace

std::vector<SrvTarget> parseSrvReply(std::string_view bytes) {
  std::vector<SrvTarget> targets;
  ns_msg message = {};
  if (bytes.size() > kMaxReply || ns_initparse(reinterpret_cast<const unsigned char*>(bytes.data()),
                                               static_cast<int>(bytes.size()), &message) != 0) {
    return targets;
  }
  for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
    ns_rr record = {};
    if (ns_parserr(&message, ns_s_an, i, &record) != 0) break;
    if (std::optional<SrvTarget> target = parseRecord(message, record)) {
      targets.push_back(std::move(*target));
    }
  }
  return targets;
}

void orderTargets(std::vector<SrvTarget>& targets, const std::function<std::uint32_t()>& random) {
  std::stable_sort(targets.begin(), targets.end(),
                   [](const SrvTarget& a, const SrvTarget& b) { return a.priority < b.priority; });
  for (std::size_t i = 0; i < targets.size(); ++i) {
    std::size_t count = 1;
    while (i + count < targets.size() && targets[i + count].priority == targets[i].priority) {
      ++count;
    }
    std::swap(targets[i], targets[i + chooseByWeight(&targets[i], count, random())]);
  }
}

std::vector<SrvTarget> lookUpSrv(const std::string& name) {
  struct __res_state state = {};
  if (res_ninit(&state) != 0) return {};
  std::vector<unsigned char> reply(kMaxReply);
  const int size = res_nquery(&state, name.c_str(), ns_c_in, ns_t_srv, reply.data(),
                              static_cast<int>(reply.size()));
  res_nclose(&state);
  if (size <= 0) return {};
  const std::size_t length = std::min(static_cast<std::size_t>(size), reply.size());
  std::vector<SrvTarget> targets =
      parseSrvReply({reinterpret_cast<const char*>(reply.data()), length});
  orderTargets(targets, random32);
  return targets;
}

}  // namespace platform
