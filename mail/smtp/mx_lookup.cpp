#include "mail/smtp/mx_lookup.h"

#include <algorithm>

#include "base/text.h"
#include "mail/mime/email_address.h"
#include "mail/smtp/wire_text.h"

namespace kelvado {

bool domainOf(const std::string& emailOrDomain, std::string& domain, base::LogBase& log) {
  domain = emailOrDomain;
  if (emailOrDomain.find('@') == std::string::npos) return true;
  const std::string address = parseAddress(emailOrDomain).address;
  const std::size_t at = address.rfind('@');
  if (at == std::string::npos) {
    log.LogError("Email address not formatted properly");
    log.LogData("emailAddress", base::loggable(emailOrDomain));
    return false;
  }
  domain = address.substr(at + 1);
  return true;
}

std::vector<platform::MxRecord> lookupMx(platform::Dns& dns, const std::string& domain,
                                         base::LogBase& log) {
  std::vector<platform::MxRecord> records;
  if (!domain.empty() && isSafeWord(domain)) dns.queryMx(domain, records);
  // The root as host: the domain takes no mail at all (RFC 7505).
  const auto isNowhere = [](const platform::MxRecord& one) {
    return one.host.empty() || one.host == ".";
  };
  records.erase(std::remove_if(records.begin(), records.end(), isNowhere), records.end());
  std::stable_sort(records.begin(), records.end(), [](const auto& left, const auto& right) {
    return left.preference < right.preference;
  });
  if (records.empty()) {
    log.LogError("Failed to lookup MX record");
    log.LogData("domain", base::loggable(domain));
  }
  return records;
}

}  // namespace kelvado
