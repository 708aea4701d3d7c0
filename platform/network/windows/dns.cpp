#include "platform/network/dns.h"

#include <windows.h>
#include <windns.h>

namespace platform {
namespace {

class WindowsDns final : public Dns {
 public:
  bool queryMx(const std::string& domain, std::vector<MxRecord>& records) override {
    records.clear();
    PDNS_RECORDA list = nullptr;
    const DNS_STATUS status = DnsQuery_A(domain.c_str(), DNS_TYPE_MX, DNS_QUERY_STANDARD, nullptr,
                                         reinterpret_cast<PDNS_RECORD*>(&list), nullptr);
    if (status != 0) return false;
    for (const DNS_RECORDA* entry = list; entry != nullptr; entry = entry->pNext) {
      if (entry->wType != DNS_TYPE_MX || entry->Data.MX.pNameExchange == nullptr) continue;
      records.push_back({entry->Data.MX.wPreference, entry->Data.MX.pNameExchange});
    }
    DnsFree(list, DnsFreeRecordList);
    return !records.empty();
  }
};

}  // namespace

Dns& systemDns() {
  static WindowsDns* const dns = new WindowsDns;
  return *dns;
}

}  // namespace platform
