// The implementation behind KvMailMan: settings, log, and one SMTP session that may stay open
// between sends. Every operation runs inside its method bracket. Texts are UTF-8 here.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/log_base.h"
#include "mail/core/cls_base.h"
#include "mail/mime/cls_email.h"
#include "mail/smtp/smtp_conn_impl.h"
#include "platform/network/dns.h"

namespace kelvado {

struct MailManSettings {
  SmtpServer server;
  SendOptions send;
  std::uint32_t heartbeatMs = 0;
  KvProgress* progress = nullptr;  // not owned
};

class ClsMailMan : public ClsBase {
 public:
  explicit ClsMailMan(platform::SocketApi& sockets = platform::systemSockets(),
                      platform::Dns& dns = platform::systemDns())
      : session_(sockets), dns_(dns) {}
  ~ClsMailMan() override { session_.hangUp(); }

  MailManSettings& settings() { return settings_; }
  const SendCounters& lastSend() const { return counters_; }
  std::vector<std::string> badAddresses();
  void clearBadAddresses();
  // Why the last operation failed; its step is None when it did not.
  const SmtpSession& session() const { return session_.session(); }
  const SmtpFailure& failure() const { return session_.failure(); }

  bool unlockComponent(std::string_view code);

  bool sendEmail(ClsEmail* email);
  bool sendBundle(const std::vector<ClsEmail*>& bundle);
  bool sendToDistributionList(ClsEmail* email, const std::vector<std::string>& addresses);
  bool quickSend(const std::string& from, const std::string& to, const std::string& subject,
                 const std::string& body, const std::string& host);
  bool sendMime(const std::string& from, const std::string& to, std::string_view mime);
  bool sendMimeToList(const std::string& from, const std::vector<std::string>& addresses,
                      std::string_view mime);
  std::optional<std::string> renderToMime(ClsEmail* email);
  bool queueRefused(std::string_view method);

  bool verifySmtpConnection();
  bool verifySmtpLogin();
  bool verifyRecipients(ClsEmail* email);
  bool openSmtpConnection();
  bool closeSmtpConnection();
  bool smtpReset();
  bool smtpNoop();
  bool isSmtpDsnCapable();
  bool setSslClientCert(const std::string& pemFile);
  std::optional<std::string> smtpSslServerCert();  // PEM

  std::optional<std::string> mxLookup(const std::string& emailOrDomain);
  std::vector<std::string> mxLookupAll(const std::string& emailOrDomain);

 private:
  bool begin(base::LogBase& log);
  bool beginSend(base::LogBase& log);
  bool checkUnlocked(base::LogBase& log);
  void resolveTlsConflict();
  bool ensureMessage(ClsEmail* email, base::LogBase& log) const;
  std::unique_ptr<Email2> prepareForSending(const ClsEmail& email, base::LogBase& log) const;
  std::unique_ptr<Email2> openAndPrepare(ClsEmail* email, Call& call);
  bool deliver(ClsEmail* email, base::LogBase& log);
  bool sendText(const std::string& from, const std::vector<std::string>& addresses,
                std::string_view mime, base::LogBase& log);
  std::vector<platform::MxRecord> mailHosts(const std::string& emailOrDomain,
                                            base::LogBase& log) const;
  bool reportOutcome(bool sent, Call& call);

  MailManSettings settings_;
  bool unlocked_ = false;
  SendCounters counters_;
  SmtpConnImpl session_;
  platform::Dns& dns_;
};

}  // namespace kelvado
