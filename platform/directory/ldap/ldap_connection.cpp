// Connecting and binding; see the header.
#include "platform/directory/ldap/ldap_connection.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <krb5.h>
#include <lber.h>
#include <sasl/sasl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/directory/login_refusal.h"
#include "platform/network/linux/srv_lookup.h"
#include "platform/system/linux/secret_file.h"

namespace platform {
namespace {

constexpr const char* kProvider = "LDAP";
// One answer: an entry whose security descriptor has its full 64 KB is far below this, and a length
// that a broken server makes up does not take the memory.
constexpr ber_len_t kMaxAnswer = ber_len_t{16} << 20U;
constexpr std::size_t kMaxServerText = 300;
// Of the servers a domain has. Each that is down costs the time for connecting.
constexpr std::size_t kMaxServersTried = 4;
// Of the time for a step when a way that failed is gone again, to see where.
constexpr int kMostSecondsToSeeWhy = 5;
// SDFlagsRequestValue ::= SEQUENCE { Flags INTEGER }, with DACL_SECURITY_INFORMATION (4).
constexpr const char* kSdFlagsOid = "1.2.840.113556.1.4.801";
char kDaclFlag[] = {0x30, 0x03, 0x02, 0x01, 0x04};
constexpr const char* kSystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";

HResult hresultOf(int code) {
  switch (code) {
    case LDAP_SUCCESS:
      return kOk;
    case LDAP_SERVER_DOWN:
    case LDAP_CONNECT_ERROR:
    case LDAP_TIMEOUT:
    case LDAP_UNAVAILABLE:
    case LDAP_BUSY:
      return kServerDown;
    case LDAP_INVALID_CREDENTIALS:
    case LDAP_INAPPROPRIATE_AUTH:
    case LDAP_STRONG_AUTH_REQUIRED:
    case LDAP_CONFIDENTIALITY_REQUIRED:
    case LDAP_AUTH_METHOD_NOT_SUPPORTED:
    case LDAP_INSUFFICIENT_ACCESS:
    case LDAP_AUTH_UNKNOWN:
    case LDAP_LOCAL_ERROR:  // no Kerberos ticket
      return kLogonFailure;
    case LDAP_NO_SUCH_OBJECT:
    case LDAP_INVALID_DN_SYNTAX:
    case LDAP_REFERRAL:  // the base is another domain's
      return kNoSuchObject;
    default:
      return kFail;
  }
}

// A text that the server or a library gives, fit for one line of a log.
std::string oneLine(std::string_view text) {
  std::string line(text.substr(0, kMaxServerText));
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
  while (line.ends_with(' ')) line.pop_back();
  return line;
}

std::string diagnosticOf(LDAP* ldap) {
  char* text = nullptr;
  if (ldap_get_option(ldap, LDAP_OPT_DIAGNOSTIC_MESSAGE, &text) != LDAP_OPT_SUCCESS) return {};
  std::string line = text != nullptr ? oneLine(text) : std::string();
  ldap_memfree(text);
  // What libldap over GnuTLS has to say of any certificate that it refuses.
  if (line == "(unknown error code)") line = "the TLS library refuses the server's certificate";
  return line;
}

std::string defaultRealm() {
  krb5_context context = nullptr;
  if (krb5_init_context(&context) != 0) return {};
  char* name = nullptr;
  std::string realm;
  if (krb5_get_default_realm(context, &name) == 0) {
    realm = name;
    krb5_free_default_realm(context, name);
  }
  krb5_free_context(context);
  return realm;
}

// The URIs to try, in this order; none with `error` set when there is no telling.
std::vector<std::string> serversOf(const LdapSettings& settings, DirectoryError& error) {
  if (!settings.uri.empty()) return {settings.uri};
  const std::string realm = defaultRealm();
  if (realm.empty()) {
    error = {kServerDown & 0xFFFFU, "no directory URI is set and Kerberos has no default realm",
             kProvider, DirectoryStep::Settings};
    return {};
  }
  std::vector<SrvTarget> targets = lookUpSrv("_ldap._tcp.dc._msdcs." + realm);
  if (targets.empty()) targets = lookUpSrv("_ldap._tcp." + realm);
  if (targets.empty()) {
    error = {kServerDown & 0xFFFFU,
             "no directory URI is set and DNS names no domain controller of " + realm, kProvider,
             DirectoryStep::Name};
  }
  targets.resize(std::min(targets.size(), kMaxServersTried));
  std::vector<std::string> uris;
  for (const SrvTarget& target : targets) {
    uris.push_back("ldap://" + target.host + ":" + std::to_string(target.port));
  }
  return uris;
}

LDAPMod changeOf(int operation, const char* attribute, char** values) {
  LDAPMod change = {};
  change.mod_op = operation;
  change.mod_type = const_cast<char*>(attribute);
  change.mod_values = values;
  return change;
}

// Kerberos has what it needs in its credentials: every question is answered with its default.
int answerWithDefaults(LDAP*, unsigned, void*, void* questions) {
  auto* question = static_cast<sasl_interact_t*>(questions);
  for (; question->id != SASL_CB_LIST_END; ++question) {
    const char* answer = question->defresult != nullptr ? question->defresult : "";
    question->result = answer;
    question->len = static_cast<unsigned>(std::strlen(answer));
  }
  return LDAP_SUCCESS;
}

// libldap writes to its sockets with no regard to SIGPIPE, so a server that has dropped the
// connection would end this process. Left alone where the program has an own way with it.
void ignoreBrokenPipes() {
  struct sigaction current = {};
  if (::sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    std::signal(SIGPIPE, SIG_IGN);
  }
}

int noteConnected(LDAP*, Sockbuf* connection, LDAPURLDesc*, sockaddr*, ldap_conncb* callbacks) {
  int socket = -1;
  ber_sockbuf_ctrl(connection, LBER_SB_OPT_GET_FD, &socket);
  *static_cast<std::atomic<int>*>(callbacks->lc_arg) = socket;
  return LDAP_SUCCESS;
}

void noteDisconnected(LDAP*, Sockbuf*, ldap_conncb* callbacks) {
  *static_cast<std::atomic<int>*>(callbacks->lc_arg) = -1;
}

// While there is one, the connection's socket has so long to get through TLS; then it is shut down.
// libldap's own time-out is for connecting only: to a server that then says nothing it listens for
// ever, and does so in a loop, because it keeps the socket from blocking.
class TlsTimeLimit {
 public:
  TlsTimeLimit(const std::atomic<int>& socket, int seconds)
      : socket_(socket), left_(std::chrono::seconds(seconds)), thread_([this] { watch(); }) {}
  ~TlsTimeLimit() { stop(); }
  TlsTimeLimit(const TlsTimeLimit&) = delete;
  TlsTimeLimit& operator=(const TlsTimeLimit&) = delete;

  // Whether it had to be shut down.
  bool stop() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      stopped_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
    return left_.count() <= 0;
  }

 private:
  static constexpr std::chrono::milliseconds kSlice{50};

  void watch() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!changed_.wait_for(lock, kSlice, [this] { return stopped_; })) {
      const int socket = socket_;
      if (socket < 0) continue;  // still connecting
      const int flags = ::fcntl(socket, F_GETFL);
      if ((flags & O_NONBLOCK) != 0) ::fcntl(socket, F_SETFL, flags & ~O_NONBLOCK);
      left_ -= kSlice;
      if (left_.count() > 0) continue;
      ::shutdown(socket, SHUT_RDWR);
      return;
    }
  }

  const std::atomic<int>& socket_;
  std::chrono::milliseconds left_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopped_ = false;
  std::thread thread_;
};

}  // namespace

LDAPControl daclOnly() {
  return {const_cast<char*>(kSdFlagsOid), {sizeof kDaclFlag, kDaclFlag}, 0};
}

bool isConnectionLost(int code) {
  return code == LDAP_SERVER_DOWN || code == LDAP_CONNECT_ERROR || code == LDAP_TIMEOUT ||
         code == LDAP_UNAVAILABLE;
}

std::unique_ptr<LdapConnection> LdapConnection::open(const LdapSettings& settings, HResult& status,
                                                     DirectoryError& error) {
  ignoreBrokenPipes();
  status = kServerDown;
  for (const std::string& uri : serversOf(settings, error)) {
    std::unique_ptr<LdapConnection> connection(new LdapConnection(uri));
    status = connection->connect(settings, error);
    if (status == kOk) return connection;
    if (status != kServerDown) break;  // the next one would say the same
  }
  return nullptr;
}

LdapConnection::~LdapConnection() {
  if (ldap_ != nullptr) ldap_unbind_ext(ldap_, nullptr, nullptr);
}

HResult LdapConnection::connect(const LdapSettings& settings, DirectoryError& error) {
  connectSeconds_ = settings.connectSeconds;
  answerSeconds_ = settings.answerSeconds;
  const int code = ldap_initialize(&ldap_, uri_.c_str());
  if (code != LDAP_SUCCESS) return fail(code, "not a server's address", error);
  std::string problem;
  if (!setOptions(settings) || !setTlsOptions(settings, problem)) {
    if (problem.empty()) problem = "an option of the LDAP library cannot be set";
    error = {kFail & 0xFFFFU, place() + ": " + problem, kProvider, DirectoryStep::Tls};
    return kFail;
  }
  if (hasScheme("ldaps")) {
    const int connected = withinConnectTime(ldap_connect);
    if (connected != LDAP_SUCCESS) return failToReach(connected, "", DirectoryStep::Tls, error);
  }
  return settings.bind == LdapSettings::Bind::Simple ? bindSimple(settings, error)
                                                     : bindGssapi(error);
}

// Everything that libldap's own configuration and environment could change is set here and below.
bool LdapConnection::setOptions(const LdapSettings& settings) {
  const int protocol = LDAP_VERSION3;
  const int none = 0;
  const int never = LDAP_DEREF_NEVER;
  callbacks_ = {noteConnected, noteDisconnected, &socket_};
  timeval connectTime = {settings.connectSeconds, 0};
  timeval answerTime = {settings.answerSeconds, 0};
  Sockbuf* socket = nullptr;
  ber_len_t limit = kMaxAnswer;
  return setAll({{LDAP_OPT_PROTOCOL_VERSION, &protocol},
                 {LDAP_OPT_REFERRALS, LDAP_OPT_OFF},
                 {LDAP_OPT_DEREF, &never},
                 {LDAP_OPT_SIZELIMIT, &none},
                 {LDAP_OPT_TIMELIMIT, &none},
                 {LDAP_OPT_RESTART, LDAP_OPT_ON},
                 {LDAP_OPT_TIMEOUT, &answerTime},
                 {LDAP_OPT_CONNECT_CB, &callbacks_},
                 {LDAP_OPT_NETWORK_TIMEOUT, &connectTime}}) &&
         ldap_get_option(ldap_, LDAP_OPT_SOCKBUF, &socket) == LDAP_OPT_SUCCESS &&
         socket != nullptr && ber_sockbuf_ctrl(socket, LBER_SB_OPT_SET_MAX_INCOMING, &limit) == 1;
}

bool LdapConnection::setTlsOptions(const LdapSettings& settings, std::string& problem) {
  const bool startsTls = hasScheme("ldap") && settings.bind == LdapSettings::Bind::Simple;
  if (!startsTls && !hasScheme("ldaps")) return true;
  const std::string file = settings.caFile.empty() ? trustedAuthorities() : settings.caFile;
  caFile_ = file;
  // Reported here with the file's name; libldap would only report a failed connection.
  if (::access(file.c_str(), R_OK) != 0) {
    problem = "certificates of authorities " + file + ": " + std::strerror(errno);
    return false;
  }
  const int hard = LDAP_OPT_X_TLS_HARD;
  const int minimum = LDAP_OPT_X_TLS_PROTOCOL_TLS1_2;
  const int client = 0;
  if (setAll({{LDAP_OPT_X_TLS_CACERTFILE, file.c_str()},
              {LDAP_OPT_X_TLS_CACERTDIR, ""},
              {LDAP_OPT_X_TLS_REQUIRE_CERT, &hard},
              {LDAP_OPT_X_TLS_PROTOCOL_MIN, &minimum},
              {LDAP_OPT_X_TLS_NEWCTX, &client}})) {
    return true;
  }
  problem = "certificates of authorities " + file + ": not understood";
  return false;
}

// The file that libldap's own configuration names, as on Debian, or the system's.
std::string LdapConnection::trustedAuthorities() const {
  char* configured = nullptr;
  ldap_get_option(ldap_, LDAP_OPT_X_TLS_CACERTFILE, &configured);
  std::string file = configured != nullptr ? configured : kSystemAuthorities;
  ldap_memfree(configured);
  return file;
}

bool LdapConnection::setAll(std::initializer_list<std::pair<int, const void*>> options) {
  return std::all_of(options.begin(), options.end(), [this](const auto& option) {
    return ldap_set_option(ldap_, option.first, option.second) == LDAP_OPT_SUCCESS;
  });
}

// The result of connecting as far as TLS, or LDAP_TIMEOUT.
int LdapConnection::withinConnectTime(int (*beginTls)(LDAP*)) {
  try {
    TlsTimeLimit limit(socket_, connectSeconds_);
    const int code = beginTls(ldap_);
    return limit.stop() ? LDAP_TIMEOUT : code;
  } catch (const std::system_error&) {
    return LDAP_NO_MEMORY;  // for a thread
  }
}

HResult LdapConnection::startTls(DirectoryError& error) {
  constexpr const char* kConsequence = ": the password was not sent";
  int code = withinConnectTime([](LDAP* ldap) { return ldap_start_tls_s(ldap, nullptr, nullptr); });
  if (code == LDAP_SUCCESS && ldap_tls_inplace(ldap_) == 0) code = LDAP_CONNECT_ERROR;
  if (code == LDAP_SUCCESS) return kOk;
  return failToReach(code, kConsequence, DirectoryStep::Tls, error);
}

// The server was not reached: says at which step that ended, `step` when the way can be gone now.
// All such failures are kServerDown.
HResult LdapConnection::failToReach(int code, const char* consequence, DirectoryStep step,
                                    DirectoryError& error) const {
  std::string problem;
  if (code == LDAP_TIMEOUT) {
    problem = "timed out: no answer in " + std::to_string(connectSeconds_) + " s";
  } else if (isConnectionLost(code) && !server_.host.empty()) {
    const LdapPath path = walkAgain();
    problem = path.problem;
    if (!problem.empty()) step = path.failedAt;
  } else if (step == DirectoryStep::Tls) {
    problem = std::string("StartTLS refused: ") + ldap_err2string(code);
  }
  if (problem.empty()) {
    fail(code, "", error);
  } else {
    error.text = place() + ": " + problem;
  }
  error = {kServerDown & 0xFFFFU, error.text + consequence, kProvider, step};
  return kServerDown;
}

LdapPath LdapConnection::walkAgain() const {
  if (server_.host.empty()) return {};
  return walkLdapPath(server_,
                      {!caFile_.empty(), caFile_, std::min(connectSeconds_, kMostSecondsToSeeWhy)});
}

std::string LdapConnection::identity() {
  berval* name = nullptr;
  if (ldap_whoami_s(ldap_, &name, nullptr, nullptr) != LDAP_SUCCESS || name == nullptr) return {};
  std::string text = oneLine({name->bv_val, name->bv_len});
  ber_bvfree(name);
  return text;
}

HResult LdapConnection::failToBind(int code, const std::string& action,
                                   DirectoryError& error) const {
  if (isConnectionLost(code)) return failToReach(code, "", DirectoryStep::Login, error);
  const HResult status = fail(code, action, error);
  if (code == LDAP_SUCCESS) return status;
  const std::string reason = loginRefusal(diagnosticOf(ldap_));
  if (!reason.empty()) error.text = place() + ": " + action + " refused: " + reason;
  error.step = DirectoryStep::Login;
  return status;
}

HResult LdapConnection::bindSimple(const LdapSettings& settings, DirectoryError& error) {
  if (!hasScheme("ldaps") && !hasScheme("ldapi")) {
    const HResult status = startTls(error);
    if (failed(status)) return status;
  }
  SecretFile password;
  if (!password.read(settings.bindPasswordFile, error.text)) {
    error = {kLogonFailure & 0xFFFFU, error.text, kProvider, DirectoryStep::Login};
    return kLogonFailure;
  }
  berval credential = {password.text().size(), const_cast<char*>(password.text().data())};
  const int code = ldap_sasl_bind_s(ldap_, settings.bindUser.c_str(), LDAP_SASL_SIMPLE, &credential,
                                    nullptr, nullptr, nullptr);
  return failToBind(code, "bind as " + settings.bindUser, error);
}

HResult LdapConnection::bindGssapi(DirectoryError& error) {
  // The name in the URI is the one Kerberos knows: what reverse DNS says of an address is no proof.
  ldap_set_option(ldap_, LDAP_OPT_X_SASL_NOCANON, LDAP_OPT_ON);
  // Without TLS, at least tampering has to be noticed; within TLS, Active Directory wants no second
  // layer.
  const ber_len_t minimum = hasScheme("ldap") ? 1 : 0;
  const ber_len_t none = 0;
  ldap_set_option(ldap_, LDAP_OPT_X_SASL_SSF_MIN, &minimum);
  if (hasScheme("ldaps")) ldap_set_option(ldap_, LDAP_OPT_X_SASL_SSF_MAX, &none);
  const int binding = LDAP_OPT_X_SASL_CBINDING_TLS_ENDPOINT;
  ldap_set_option(ldap_, LDAP_OPT_X_SASL_CBINDING, &binding);
  const int code = ldap_sasl_interactive_bind_s(ldap_, nullptr, "GSSAPI", nullptr, nullptr,
                                                LDAP_SASL_QUIET, answerWithDefaults, nullptr);
  return failToBind(code, "Kerberos bind", error);
}

void LdapConnection::setAnswerSeconds(int seconds) {
  const timeval time = {seconds, 0};
  answerSeconds_ = seconds;
  ldap_set_option(ldap_, LDAP_OPT_TIMEOUT, &time);
}

std::chrono::steady_clock::time_point LdapConnection::answerDeadline() const {
  return std::chrono::steady_clock::now() + std::chrono::seconds(answerSeconds_);
}

LdapMessage LdapConnection::receive(int request, std::chrono::steady_clock::time_point deadline,
                                    int& code) {
  using std::chrono::microseconds;
  const auto left =
      std::chrono::duration_cast<microseconds>(deadline - std::chrono::steady_clock::now());
  const std::int64_t wait = std::max<std::int64_t>(left.count(), 0);
  timeval time = {wait / 1'000'000, wait % 1'000'000};
  LDAPMessage* received = nullptr;
  const int kind = ldap_result(ldap_, request, LDAP_MSG_RECEIVED, &time, &received);
  LdapMessage message(received);
  code = LDAP_SUCCESS;
  if (kind == 0) code = LDAP_TIMEOUT;
  if (kind == -1) ldap_get_option(ldap_, LDAP_OPT_RESULT_CODE, &code);
  if (kind == -1 && code == LDAP_SUCCESS) code = LDAP_SERVER_DOWN;
  return message;
}

int LdapConnection::readObject(const std::string& dn, const char* const* attributes,
                               LdapMessage& object) {
  LDAPControl descriptors = daclOnly();
  LDAPControl* controls[] = {&descriptors, nullptr};
  LDAPMessage* received = nullptr;
  const int code = ldap_search_ext_s(ldap_, dn.c_str(), LDAP_SCOPE_BASE, "(objectClass=*)",
                                     const_cast<char**>(attributes), 0, controls, nullptr, nullptr,
                                     1, &received);
  object.reset(received);
  return code;
}

int LdapConnection::readValue(const std::string& dn, const char* attribute, std::string& value) {
  std::vector<std::string> values;
  const int code = readValues(dn, attribute, values);
  value = values.empty() ? "" : std::move(values.front());
  return code;
}

int LdapConnection::readValues(const std::string& dn, const char* attribute,
                               std::vector<std::string>& values) {
  values.clear();
  const char* const attributes[] = {attribute, nullptr};
  LdapMessage message;
  const int code = readObject(dn, attributes, message);
  if (code != LDAP_SUCCESS) return code;
  LDAPMessage* entry = ldap_first_entry(ldap_, message.get());
  if (entry != nullptr) values = valuesOf(entry, attribute);
  return LDAP_SUCCESS;
}

std::vector<std::string> LdapConnection::valuesOf(LDAPMessage* entry, const char* attribute) const {
  std::vector<std::string> values;
  berval** const found = ldap_get_values_len(ldap_, entry, attribute);
  for (berval** value = found; value != nullptr && *value != nullptr; ++value) {
    values.emplace_back((*value)->bv_val, (*value)->bv_len);
  }
  ldap_value_free_len(found);
  return values;
}

int LdapConnection::replaceValue(const std::string& dn, const char* attribute,
                                 const std::string& value) {
  char* values[] = {const_cast<char*>(value.c_str()), nullptr};
  LDAPMod change = changeOf(LDAP_MOD_REPLACE, attribute, values);
  LDAPMod* changes[] = {&change, nullptr};
  return ldap_modify_ext_s(ldap_, dn.c_str(), changes, nullptr, nullptr);
}

int LdapConnection::exchangeValue(const std::string& dn, const char* attribute,
                                  const std::string& from, const std::string& to) {
  char* before[] = {const_cast<char*>(from.c_str()), nullptr};
  char* after[] = {const_cast<char*>(to.c_str()), nullptr};
  LDAPMod removal = changeOf(LDAP_MOD_DELETE, attribute, before);
  LDAPMod addition = changeOf(LDAP_MOD_ADD, attribute, after);
  LDAPMod* changes[] = {&removal, &addition, nullptr};
  return ldap_modify_ext_s(ldap_, dn.c_str(), changes, nullptr, nullptr);
}

HResult LdapConnection::fail(int code, const std::string& action, DirectoryError& error) const {
  const HResult status = hresultOf(code);
  if (code == LDAP_SUCCESS) return status;
  std::string text = place() + ": " + action + (action.empty() ? "" : ": ") + ldap_err2string(code);
  const std::string details = ldap_ != nullptr ? diagnosticOf(ldap_) : std::string();
  if (!details.empty()) text += " (" + details + ")";
  error = {status & 0xFFFFU, std::move(text), kProvider};
  return status;
}

bool LdapConnection::hasScheme(const char* scheme) const {
  return uri_.starts_with(std::string(scheme) + "://");
}

}  // namespace platform
