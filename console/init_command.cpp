// `pwlapse init`: from nothing to a settings file, by asking the administrator and the domain.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "base/ascii.h"
#include "base/format_text.h"
#include "check/checks.h"
#include "config/expiration_settings.h"
#include "console/commands.h"
#include "console/site_file.h"
#include "directory/domain_directory.h"
#include "directory/password_expiry.h"
#include "mail/mime/email_address.h"
#include "platform/host/system_host.h"
#include "platform/network/certificate.h"
#include "platform/system/files.h"
#include "platform/system/path_name.h"
#include "platform/system/stored_secret.h"
#include "platform/system/terminal.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"
#include "service/service_system.h"

namespace console {
namespace {

constexpr std::uint32_t kUsualMaxAge = 90;  // where the domain has none of its own

// What was found out of the domain.
struct Domain {
  bool bound = false;
  platform::DirectoryError error;
  platform::DirectoryFacts facts;
  std::optional<std::uint32_t> maxAge;  // days; nothing: passwords do not expire
  std::vector<std::uint32_t> ages;      // in days, of enabled users whose passwords may expire
  std::size_t users = 0;
};

// What is asked for. An empty answer is the usual one.
struct Question {
  const char* option;
  const char* words;
  std::string usual{};
  std::string (*problem)(const std::string& answer) = nullptr;  // why it cannot be used, or empty
  bool needed = false;
};

// A password that stands in a file.
struct LoginFile {
  const char* option;
  const char* usualName;
  const std::string& user;
  std::string& file;
  bool typed = false;  // the file was written by this run
};

class Init {
 public:
  explicit Init(const InitOptions& options)
      : options_(options), file_(options.file), asks_(platform::isTerminal(stdin)) {}

  int run();

 private:
  std::string typedLine(const Question& question);
  bool answer(std::string& value, const Question& question);
  bool answers();
  bool answerController();
  bool answerMailServer();
  bool password(LoginFile& login);
  bool reach(Domain& domain);
  bool look(Domain& domain);
  bool trust(const Domain& domain);
  bool confirms(const std::string& fingerprint);
  void showCertificates(const std::vector<std::string>& chain) const;
  void propose(const Domain& domain);
  void show(const Domain& domain) const;
  // The name of a file in the settings file's folder.
  std::string besideTheFile(const char* name) const {
    return platform::nameOf(platform::pathOf(platform::absolutePath(file_)).parent_path() / name);
  }

  const InitOptions& options_;
  std::string file_;
  bool asks_;
  SiteProposal site_;
  LoginFile directoryLogin_{"--bind-password-file", "bind-password", site_.bindUser,
                            site_.bindPasswordFile};
  std::string error_;
};

// Why the answer cannot be used, or empty.
std::string mailServerProblem(const std::string& text) {
  return check::looksLikeHost(text)
             ? ""
             : "\"" + text + "\" is not the name of a host; smtpPort in the file sets the port";
}

std::string addressProblem(const std::string& text) {
  const std::string address = kelvado::parseAddress(platform::ansiToUtf8(text)).address;
  return check::looksLikeAddress(address) ? "" : "\"" + text + "\" is no e-mail address";
}

// "14, 7,1"; empty when it is not up to three numbers above 0.
std::vector<std::uint32_t> daysOf(const std::string& text) {
  std::vector<std::uint32_t> days;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find(',', at), text.size());
    const std::string number(base::trimmed(text.substr(at, end - at)));
    std::uint32_t day = 0;
    const auto [rest, status] = std::from_chars(number.data(), number.data() + number.size(), day);
    const bool whole = status == std::errc() && rest == number.data() + number.size();
    if (!whole || day == 0 || days.size() == 3) return {};
    days.push_back(day);
    at = end + 1;
  }
  return days;
}

std::string daysProblem(const std::string& text) {
  return !daysOf(text).empty() ? "" : "\"" + text + "\" is not up to three days such as 14,7,1";
}

std::string Init::typedLine(const Question& question) {
  const bool usual = !question.usual.empty();
  std::printf("%s%s: ", question.words, usual ? (" [" + question.usual + "]").c_str() : "");
  std::fflush(stdout);
  std::string line;
  int c = 0;
  while ((c = std::getchar()) != EOF && c != '\n') line += static_cast<char>(c);
  asks_ = c != EOF;
  return std::string(base::trimmed(line));
}

// Takes the option's value, or asks until there is one that can be used. False with error_ set when
// there is none.
bool Init::answer(std::string& value, const Question& question) {
  const bool given = !value.empty();
  for (;;) {
    if (!given && asks_) value = typedLine(question);
    if (value.empty()) value = question.usual;
    std::string problem;
    if (value.empty()) {
      problem = question.needed ? "is not given" : "";
    } else if (question.problem != nullptr) {
      problem = question.problem(value);
    }
    if (problem.empty()) return true;
    error_ = std::string(question.words) + ": " + problem + ": " + question.option;
    if (given || !asks_) return false;
    std::printf("  %s\n", value.empty() ? "An answer is needed." : problem.c_str());
  }
}

bool Init::answers() {
  site_.bindUser = options_.bindUser;
  site_.bindPasswordFile = options_.bindPasswordFile;
  site_.caFile = options_.caFile;
  site_.sender = options_.sender;
  site_.administrator = options_.administrator;
  site_.reportOnly = !options_.live;
  if (!answerController() ||
      (platform::servesLdap() &&
       !answer(site_.bindUser,
               {"--bind-user", "Account to read it with, or empty for Kerberos"}))) {
    return false;
  }
  std::string days;
  for (const std::uint32_t day : options_.warnings) {
    days += (days.empty() ? "" : ",") + std::to_string(day);
  }
  if (!site_.bindUser.empty() && !password(directoryLogin_)) return false;
  const bool complete =
      answerMailServer() &&
      answer(site_.sender, {"--sender", "Sender of the mails", "", addressProblem, true}) &&
      answer(site_.administrator,
             {"--administrator", "Administrator, who gets the report", "", addressProblem, true}) &&
      answer(days, {"--warning-days", "Days before the end on which users are mailed", "14,7,1",
                    daysProblem, true});
  site_.warnings = daysOf(days);
  return complete;
}

bool Init::answerController() {
  site_.directoryUri = options_.directoryUri;
  return !platform::servesLdap() ||
         answer(site_.directoryUri,
                {"--directory", "Domain controller, or empty for that of Kerberos"});
}

bool Init::answerMailServer() {
  site_.mailServer = options_.mailServer;
  site_.mailUser = options_.smtpUser;
  site_.mailPasswordFile = options_.smtpPasswordFile;
  LoginFile login{"--smtp-password-file", "smtp-password", site_.mailUser, site_.mailPasswordFile};
  return answer(site_.mailServer, {"--mail-server", "Mail server", "", mailServerProblem, true}) &&
         answer(site_.mailUser,
                {"--smtp-user", "User name for its login, or empty where it wants none"}) &&
         (site_.mailUser.empty() || password(login));
}

// The password itself is asked for only where there is no file of it yet, and stored in that.
bool Init::password(LoginFile& login) {
  if (!answer(login.file, {login.option, "File with the password", besideTheFile(login.usualName),
                           nullptr, true})) {
    return false;
  }
  login.file = platform::absolutePath(login.file);
  if (platform::fileExists(login.file)) return true;
  std::string typed;
  if (asks_) {
    std::printf("Password of %s (not shown, kept in that file): ", login.user.c_str());
    std::fflush(stdout);
    platform::readHiddenLine(typed);
    std::printf("\n");
  }
  std::string why = "is not there, and was not made";
  login.typed =
      !typed.empty() && platform::storeSecret(login.file, typed, service::kServiceName, why);
  std::fill(typed.begin(), typed.end(), '\0');
  if (!login.typed) error_ = login.file + ": " + why;
  return login.typed;
}

// Reads the domain with what is known by now. False with error_ when the settings cannot be used.
bool Init::look(Domain& domain) {
  std::string& uri = site_.directoryUri;
  if (!uri.empty() && uri.find(':') == std::string::npos) {
    uri.insert(0, site_.bindUser.empty() ? "ldap://" : "ldaps://");
  }
  const std::string draft = file_ + ".draft";
  if (!platform::replaceFileAtomically(draft, siteFileText(site_))) {
    error_ = draft + ": " + platform::fileErrorText();
    return false;
  }
  platform::HostOptions hostOptions;
  hostOptions.registryFile = platform::absolutePath(draft);
  hostOptions.registryIsKept = true;
  const std::unique_ptr<platform::SystemHost> system =
      platform::makeSystemHost(hostOptions, error_);
  platform::removeFile(draft);
  if (!system) return false;
  const platform::Host host = system->host();
  host.directory.beginPass();
  config::DebugLog silent = config::DebugLog::nowhere();
  directory::DomainDirectory directory(host.directory, silent, nullptr);
  domain.bound = directory.bindDomain() != 0;
  domain.error = host.directory.lastError();
  if (!domain.bound) error_ = "could not bind to the domain: " + directory.bindError();
  domain.facts = host.directory.facts();
  platform::DomainModals modals;
  if (domain.bound && host.accounts.domainModals(modals) == platform::kNetSuccess &&
      modals.maxPasswordAge != platform::kPasswordNeverExpires) {
    domain.maxAge = modals.maxPasswordAge / directory::kSecondsPerDay;
  }
  if (domain.bound) {
    directory.forEachDomainUser([&](const std::string& name) {
      constexpr std::uint32_t kSpared =
          platform::kPasswordDontExpire | platform::kPasswordCantChange;
      platform::UserInfo info;
      ++domain.users;
      if (!host.accounts.userInfo(platform::ansiToUtf16(name), info).ok() ||
          (info.flags & kSpared) != 0 || info.passwordExpired != 0) {
        return;
      }
      domain.ages.push_back(info.passwordAge / directory::kSecondsPerDay);
    });
  }
  directory.unbindDomain();
  host.directory.endPass();
  return true;
}

void Init::showCertificates(const std::vector<std::string>& chain) const {
  std::printf("\nThe controller shows these certificates, its own first:\n");
  for (const std::string& pem : chain) {
    const auto facts = platform::describeCertificate(pem);
    if (!facts) continue;
    std::printf("  %s\n    issued by %s, valid until %s\n    SHA-256 %s\n            %s\n",
                facts->subject.c_str(), facts->issuer.c_str(),
                platform::dateText(facts->validUntil).c_str(),
                facts->fingerprint.substr(0, 48).c_str(), facts->fingerprint.substr(48).c_str());
  }
}

bool Init::confirms(const std::string& fingerprint) {
  if (!options_.trust.empty()) return base::equalsNoCase(options_.trust, fingerprint);
  if (!asks_) return false;
  std::printf("Compare the last fingerprint with that of this certificate on the controller.\n");
  return typedLine({"--trust", "Type \"yes\" to trust it"}) == "yes";
}

// Stores the last certificate of the chain when it is confirmed. False with error_ when it is not.
bool Init::trust(const Domain& domain) {
  const std::vector<std::string>& chain = domain.facts.certificates;
  showCertificates(chain);
  const auto authority = platform::describeCertificate(chain.back());
  if (chain.size() == 1 && authority && authority->subject != authority->issuer) {
    std::printf(
        "It does not show its authority: what is stored is good only until this\n"
        "certificate is replaced.\n");
  }
  if (!authority || !confirms(authority->fingerprint)) {
    error_ = "the controller's authority was not confirmed (--trust FINGERPRINT, or --ca-file): " +
             error_;
    return false;
  }
  site_.caFile = besideTheFile("domain-ca.pem");
  if (platform::fileExists(site_.caFile)) {
    error_ = site_.caFile + " is there already and is not overwritten: name it by --ca-file";
    return false;
  }
  if (platform::replaceFileAtomically(site_.caFile, chain.back(), platform::FileReaders::AsUsual)) {
    std::printf("Stored in %s.\n", site_.caFile.c_str());
    return true;
  }
  error_ = site_.caFile + ": " + platform::fileErrorText();
  return false;
}

void Init::propose(const Domain& domain) {
  site_.maxAge = options_.maxAge != 0 ? options_.maxAge : domain.maxAge.value_or(kUsualMaxAge);
  site_.usesDirectoryPolicy = options_.maxAge == 0 && !domain.facts.passwordSettings.empty();
}

void Init::show(const Domain& domain) const {
  std::printf("\nThe domain has %s enabled users; %s.\n", std::to_string(domain.users).c_str(),
              domain.maxAge
                  ? base::formatText("its own maximum age is %u days", *domain.maxAge).c_str()
                  : "its own passwords do not expire");
  for (const platform::PasswordSettings& settings : domain.facts.passwordSettings) {
    std::printf("Password settings object %s: maximum age %u days.\n", settings.name.c_str(),
                settings.maxAge / directory::kSecondsPerDay);
  }
  const std::uint32_t first = *std::max_element(site_.warnings.begin(), site_.warnings.end());
  const auto older = [&](std::uint32_t days) {
    return static_cast<std::size_t>(std::count_if(domain.ages.begin(), domain.ages.end(),
                                                  [days](auto age) { return age >= days; }));
  };
  const std::size_t forced = older(site_.maxAge);
  const std::size_t due = older(site_.maxAge - std::min(first, site_.maxAge));
  std::printf(
      "With a maximum age of %u days, %s of them would be in their last %u days\n"
      "when it is switched on, and %s past the age.%s\n",
      site_.maxAge, std::to_string(due - forced).c_str(), first, std::to_string(forced).c_str(),
      site_.usesDirectoryPolicy
          ? "\nThe directory's own policies decide about each: useDirectoryPolicy is set."
          : "");
}

// Looks at the domain until it answers: with its authority when that is confirmed, and with another
// controller or password after a wrong one was typed. False with error_ when it is not to be
// reached.
bool Init::reach(Domain& domain) {
  using Step = platform::DirectoryStep;
  while (look(domain)) {
    if (domain.bound) return true;
    const Step step = domain.error.step;
    if ((step == Step::Name || step == Step::Connect) && asks_ && options_.directoryUri.empty()) {
      std::printf("%s\n", error_.c_str());
      if (!answerController()) return false;
    } else if (step == Step::Tls && site_.caFile.empty() && !domain.facts.certificates.empty()) {
      if (!trust(domain)) return false;
    } else if (step == Step::Login && directoryLogin_.typed && asks_) {
      std::printf("%s\n", error_.c_str());
      platform::removeFile(site_.bindPasswordFile);
      if (!password(directoryLogin_)) return false;
    } else {
      return false;
    }
    domain = {};
  }
  return false;
}

int Init::run() {
  if (platform::fileExists(file_)) {
    return refuse(file_ + " is there already, and is never overwritten");
  }
  if (!answers()) return refuse(error_);
  Domain domain;
  if (!reach(domain)) return refuse(error_);
  propose(domain);
  show(domain);
  if (!platform::replaceFileAtomically(file_, siteFileText(site_))) {
    return refuse(file_ + ": " + platform::fileErrorText());
  }
  std::printf(
      "\n%s is written%s. Next:\n"
      "  pwlapse check --registry %s\n"
      "  pwlapse run --dry-run --registry %s\n",
      file_.c_str(),
      site_.reportOnly ? ", in report-only mode" : ": a pass mails and forces users from now on",
      file_.c_str(), file_.c_str());
  return kExitDone;
}

}  // namespace

int initCommand(const InitOptions& options) {
  return Init(options).run();
}

}  // namespace console
