// The public mail-sending object: settings, then SendEmail. It keeps its connection open between
// sends.
//
//   KvMailMan mailMan;
//   mailMan.UnlockComponent("any code");
//   mailMan.put_SmtpHost("mail.example.com");
//   if (!mailMan.SendEmail(email)) mailMan.SaveLastError("error.xml");
//
// Text arguments are taken in the encoding of the Utf8 flag; a null or empty one clears the
// setting. Operations return false (or null) on failure and leave their record in LastErrorText.
// They block within the time-outs below. One thread at a time; nothing here throws. RFC 5321
// (SMTP), 1870 (SIZE), 2920 (PIPELINING), 3207 (STARTTLS), 3461 (DSN), 4954 (AUTH), 6531
// (SMTPUTF8).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mail/mime/kv_email.h"
#include "mail/smtp/smtp_failure.h"
#include "mail/smtp/smtp_session.h"
#include "net/progress.h"

namespace kelvado {

class ClsMailMan;

class KvMailMan : public KvObject {
 public:
  KvMailMan();
  // Sends QUIT on an open connection, whose reply only CloseSmtpConnection waits for.
  ~KvMailMan() override;

  // To be called first: without it the operations that need the server fail. Any code that is not
  // empty unlocks.
  bool UnlockComponent(const char* code);

  // --- the server ---
  void put_SmtpHost(const char* host);  // name or dotted address
  const char* get_SmtpHost();
  void put_SmtpPort(int port);  // 25 when not set
  int get_SmtpPort() const;
  void put_SmtpSsl(bool ssl);  // TLS from the first byte
  bool get_SmtpSsl() const;
  // STARTTLS before credentials or mail go out; without TLS the connect fails. With both this and
  // SmtpSsl set, the next operation clears one of them: port 465 keeps SmtpSsl, any other StartTLS.
  void put_StartTLS(bool startTls);
  bool get_StartTLS() const;
  void put_RequireVerifiedCertificate(bool require);  // else a bad certificate is only logged
  bool get_RequireVerifiedCertificate() const;
  // A file with certificate and key in PEM, for servers that ask for one. False when unreadable.
  bool SetSslClientCert(const char* pemFile);
  // "issuer" or "subject", and the value that its CN in the server's certificate must have.
  void SetSslCertRequirement(const char* name, const char* value);
  void put_ConnectTimeout(std::uint32_t seconds);  // 30 when not set; 0: the socket's own
  std::uint32_t get_ConnectTimeout() const;
  // For each reply, and for each send that makes no progress. 30 when not set. 0: the most there
  // is, 5000 seconds, but 1 second under TLS.
  void put_ReadTimeout(std::uint32_t seconds);
  std::uint32_t get_ReadTimeout() const;
  // For EHLO. Empty: the machine's own name; to a server that refuses a short one (504, 550), its
  // full name, or else its address.
  void put_HeloHostname(const char* name);
  const char* get_HeloHostname();

  // The server is reached through this HTTP proxy (CONNECT), 8080 when no port is set; empty:
  // directly.
  void put_HttpProxyHostname(const char* name);
  const char* get_HttpProxyHostname();
  void put_HttpProxyPort(int port);
  int get_HttpProxyPort() const;

  // --- logging in: only when there are a user name and a password, or an access token ---
  void put_SmtpUsername(const char* username);
  const char* get_SmtpUsername();
  void put_SmtpPassword(const char* password);
  const char* get_SmtpPassword();
  void put_SmtpDomain(const char* domain);  // Windows domain, for NTLM and MSN
  const char* get_SmtpDomain();
  // An OAuth 2.0 access token, for OAUTHBEARER (RFC 7628) and XOAUTH2: sent under TLS only, in the
  // place of the password. Setting another leaves the open connection as it is.
  void put_OAuth2AccessToken(const char* token);
  const char* get_OAuth2AccessToken();
  // "LOGIN", "PLAIN", "CRAM-MD5", "NTLM", "MSN", "OAUTHBEARER", "XOAUTH2" or "NONE"; empty: chosen
  // from the server's list, the last two only when there is an access token.
  // CRAM-MD5, NTLM and MSN keep the password from the server: without TLS, LOGIN never replaces
  // them.
  void put_SmtpAuthMethod(const char* method);
  const char* get_SmtpAuthMethod();

  // --- sending ---
  void put_SendIndividual(bool individual);  // a transaction for each To and Cc recipient
  bool get_SendIndividual() const;
  void put_AutoGenMessageId(bool autoGenerate);  // a fresh Message-ID for each send
  bool get_AutoGenMessageId() const;
  void put_AllOrNone(bool allOrNone);  // a rejected recipient fails the whole message
  bool get_AllOrNone() const;
  // Delivery status (RFC 3461), sent to servers that offer DSN.
  void put_DsnRet(const char* ret);
  void put_DsnEnvid(const char* envid);
  void put_DsnNotify(const char* notify);
  void put_SentMailLog(const char* path);  // a file that the sent texts are appended to
  void put_HeartbeatMs(std::uint32_t ms);  // between two abort checks; 0, as when not set: none
  std::uint32_t get_HeartbeatMs() const;
  void put_Progress(KvProgress* progress);  // not owned; null: none

  // True when the server took the mail for at least one recipient; false when the session broke
  // off, even if some have it by then. Refused without connecting when the mail has no sender:
  // neither a From address nor a Return-Path field (of "<>" for the null sender). Addresses beyond
  // ASCII need a server with SMTPUTF8 (RFC 6531). Rejected recipients are in GetBadEmailAddresses.
  bool SendEmail(KvEmail& email) { return SendEmail(&email); }
  bool SendEmail(KvEmail* email);
  // One after another over one connection. A failure does not stop the others; the result is false.
  bool SendBundle(const std::vector<KvEmail*>& bundle);
  // To the addresses of the list instead of those in the message.
  bool SendToDistributionList(KvEmail& email, const std::vector<std::string>& addresses);
  // A plain text mail; sets SmtpHost.
  bool QuickSend(const char* from, const char* to, const char* subject, const char* body,
                 const char* smtpHost);
  // Text that is MIME already, sent as it is except for line ends; `to`: addresses with commas. An
  // empty `from` is the null sender; one with control characters is refused.
  bool SendMime(const char* from, const char* to, const char* mime);
  bool SendMimeToList(const char* from, const std::vector<std::string>& addresses,
                      const char* mime);
  // What SendEmail would transmit.
  const char* RenderToMime(KvEmail& email);
  // Whether the server takes the recipients; nothing is sent.
  bool VerifyRecipients(KvEmail& email);

  // Recipients that the server rejected; until cleared or the next send.
  std::vector<std::string> GetBadEmailAddresses() const;
  void ClearBadEmailAddresses();
  unsigned get_NumAccepted() const;  // recipients, by the last send
  unsigned get_NumRecipients() const;

  // Why the last operation that needs the server failed: the step, the server's reply or the
  // network's reason. Its step is None after one that succeeded. After a mail that went to some of
  // its recipients only, GetBadEmailAddresses says more.
  SmtpFailure get_LastFailure() const;
  // What the last connection came to, as far as it got: greeting, names, certificate, login.
  SmtpSession get_LastSession() const;

  // --- the connection ---
  bool OpenSmtpConnection();  // connects and logs in, unless a connection is open and answers
  bool CloseSmtpConnection();
  bool SmtpReset();
  bool SmtpNoop();
  bool VerifySmtpConnection();  // without logging in
  bool VerifySmtpLogin();       // true only when the server accepted a login
  bool IsSmtpDsnCapable();
  const char* GetSmtpSslServerCert();  // in PEM, of the open connection

  // --- the mail exchangers of a domain, or of the domain of an address; needs no unlocking ---
  const char* MxLookup(const char* emailOrDomain);                  // the first to try
  std::vector<std::string> MxLookupAll(const char* emailOrDomain);  // in the order to try them

  // --- the queue service, which is not installed with this library: these fail and say so ---
  bool SendQ(KvEmail& email);
  bool SendQ2(KvEmail& email, const char* queueDirectory);
  bool SendMimeQ(const char* from, const char* to, const char* mime);

 protected:
  ClsBase* base() const override;

 private:
  std::unique_ptr<ClsMailMan> impl_;
};

}  // namespace kelvado
