// Certificates by CryptoAPI, for the secure channel: the description of a server's, and a client's
// from the user's store. Used in this folder only.
#pragma once

#include <memory>
#include <string>

#include <windows.h>
#include <wincrypt.h>

#include "platform/network/security_package.h"

namespace platform {

struct CertificateDeleter {
  void operator()(const CERT_CONTEXT* context) const { CertFreeCertificateContext(context); }
};
using Certificate = std::unique_ptr<const CERT_CONTEXT, CertificateDeleter>;

// The distinguished name of its subject.
std::string subjectName(const CERT_CONTEXT& certificate);

// Names and PEM text of a server's certificate, and whether the machine trusts it for this host
// (UTF-8). Neither a revocation list nor a missing certificate of the chain is fetched: a pass must
// not wait for a server outside the site.
PeerCertificate describeServerCertificate(const CERT_CONTEXT& certificate, const std::string& host);

// The certificate of the PEM file as the "MY" store has it, with its private key, which never
// leaves the store. Null, with `error` in words, when there is none.
Certificate findClientCertificate(const std::string& pemFile, std::string& error);

}  // namespace platform
