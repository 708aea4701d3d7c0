// What a server's certificate says of itself, and why it is not trusted, in words for an
// administrator. Used where a refused certificate is reported, and to show one before it is
// trusted. Pure; takes any bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct CertificateFacts {  // UTF-8, each text on one line
  std::string subject;     // distinguished names
  std::string issuer;
  std::vector<std::string> names;  // hosts that it is for: DNS names and addresses
  std::int64_t validFrom = 0;      // FILETIME
  std::int64_t validUntil = 0;
  std::string fingerprint;  // SHA-256: "AB:CD:..."
};

// Of the first certificate in the PEM text; nothing when there is none.
std::optional<CertificateFacts> describeCertificate(const std::string& pem);

// Why a certificate that did not verify did not, of the reasons that it shows itself: its dates,
// its names, else its issuer. `host` is the name that it was to be for; `now` a FILETIME. Behind
// "the certificate ", such as "expired on 2026-10-31".
std::string certificateFault(const CertificateFacts& certificate, std::string_view host,
                             std::int64_t now);

// "2026-11-22" of a FILETIME, in UTC.
std::string dateText(std::int64_t fileTime);

}  // namespace platform
