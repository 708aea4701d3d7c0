#include "platform/network/dns.h"

#include <arpa/nameser.h>
#include <netinet/in.h>
#include <resolv.h>

namespace platform {
namespace {

// A resolver state of its own for each query: the process-wide one is not for several threads.
class Resolver {
 public:
  Resolver() : usable_(res_ninit(&state_) == 0) {}
  ~Resolver() {
    if (usable_) res_nclose(&state_);
  }
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  bool query(const std::string& domain, std::vector<unsigned char>& answer) {
    answer.resize(NS_MAXMSG);
    const int size = usable_ ? res_nquery(&state_, domain.c_str(), ns_c_in, ns_t_mx, answer.data(),
                                          static_cast<int>(answer.size()))
                             : -1;
    answer.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return !answer.empty();
  }

 private:
  struct __res_state state_ {};
  bool usable_;
};

bool readMx(ns_msg& message, int index, MxRecord& record) {
  ns_rr entry;
  if (ns_parserr(&message, ns_s_an, index, &entry) != 0) return false;
  if (ns_rr_type(entry) != ns_t_mx || ns_rr_rdlen(entry) <= NS_INT16SZ) return false;
  char host[NS_MAXDNAME];
  const unsigned char* data = ns_rr_rdata(entry);
  if (ns_name_uncompress(ns_msg_base(message), ns_msg_end(message), data + NS_INT16SZ, host,
                         sizeof host) < 0) {
    return false;
  }
  record = {static_cast<std::uint16_t>(ns_get16(data)), host};
  return true;
}

class PosixDns final : public Dns {
 public:
  bool queryMx(const std::string& domain, std::vector<MxRecord>& records) override {
    records.clear();
    std::vector<unsigned char> answer;
    ns_msg message;
    if (!Resolver().query(domain, answer) ||
        ns_initparse(answer.data(), static_cast<int>(answer.size()), &message) != 0) {
      return false;
    }
    for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
      MxRecord record;
      if (readMx(message, i, record)) records.push_back(std::move(record));
    }
    return !records.empty();
  }
};

}  // namespace

Dns& systemDns() {
  static PosixDns* const dns = new PosixDns;
  return *dns;
}

}  // namespace platform
