// The reasons against a certificate; see the header. What it holds is read by the system's library.
#include "platform/network/certificate.h"

#include <algorithm>
#include <chrono>

#include "base/ascii.h"
#include "base/format_text.h"

namespace platform {
namespace {

constexpr std::int64_t kFileTimePerDay = std::int64_t{86400} * 10'000'000;

// RFC 6125 section 6.4.3: '*' stands for the whole leftmost label.
bool isFor(std::string_view name, std::string_view host) {
  if (!name.starts_with("*.")) return base::equalsNoCase(name, host);
  const std::size_t dot = host.find('.');
  return dot != std::string_view::npos && base::equalsNoCase(name.substr(1), host.substr(dot));
}

std::string listed(const std::vector<std::string>& names) {
  constexpr std::size_t kMostNames = 5;
  std::string text;
  for (std::size_t i = 0; i < std::min(names.size(), kMostNames); ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  return names.size() > kMostNames ? text + " and others" : text;
}

}  // namespace

std::string dateText(std::int64_t fileTime) {
  using namespace std::chrono;
  const sys_days epoch = year(1601) / January / 1;
  const year_month_day date(epoch + days(fileTime / kFileTimePerDay));
  return base::formatText("%04d-%02u-%02u", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::string certificateFault(const CertificateFacts& certificate, std::string_view host,
                             std::int64_t now) {
  if (now > certificate.validUntil) return "expired on " + dateText(certificate.validUntil);
  if (now < certificate.validFrom) return "is not valid before " + dateText(certificate.validFrom);
  const auto& names = certificate.names;
  if (std::none_of(names.begin(), names.end(),
                   [&](const auto& name) { return isFor(name, host); })) {
    return "is for " + (names.empty() ? "no host" : listed(names)) + ", not for " +
           std::string(host);
  }
  if (certificate.subject == certificate.issuer) {
    return "was signed by itself, and is not among the trusted ones";
  }
  return "was issued by \"" + certificate.issuer + "\", which is not trusted here";
}

}  // namespace platform
