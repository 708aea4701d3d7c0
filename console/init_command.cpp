// `pwlapse init`: from nothing to a settings file, by asking the administrator and the domain.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "base/ascii.h"
#include "base/format_text.h"
#include "config/expiration_settings.h"
#include "console/commands.h"
#include "console/site_file.h"
#include "directory/domain_directory.h"
#include "directory/password_expiry.h"
#include "platform/host/system_host.h"
#include "platform/network/certificate.h"
#include "platform/system/files.h"
#include "platform/system/path_name.h"
#include "platform/system/terminal.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

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

class Init {
 public:
  explicit Init(const InitOptions& options)
      : options_(options), file_(options.file), asks_(platform::isTerminal(stdin)) {}

  int run();

 private:
  bool answer(std::string& value, const char* option, const char* question, bool needed = true);
  bool answers();
  bool password();
  bool look(Domain& domain);
  bool trust(const Domain& domain);
  bool confirms(const std::string& fingerprint);
  void showCertificates(const std::vector<std::string>& chain) const;
  void propose(const Domain& domain);
  void show(const Domain& domain) const;

  const InitOptions& options_;
  std::string file_;
  bool asks_;
  SiteProposal site_;
  std::string error_;
};

// Takes the option's value, or asks for it. False with error_ set when it is needed and not had.
bool Init::answer(std::string& value, const char* option, const char* question, bool needed) {
  if (!value.empty()) return true;
  if (asks_) {
    std::printf("%s: ", question);
    std::fflush(stdout);
    int c = 0;
    while ((c = std::getchar()) != EOF && c != '\n') value += static_cast<char>(c);
    value = base::trimmed(value);
  }
  if (!value.empty() || !needed) return true;
  error_ = std::string(question) + " is not given: " + option;
  return false;
}

bool Init::answers() {
  std::string directory = options_.directoryUri;
  site_.bindUser = options_.bindUser;
  site_.bindPasswordFile = options_.bindPasswordFile;
  site_.caFile = options_.caFile;
  site_.mailServer = options_.mailServer;
  site_.sender = options_.sender;
  site_.administrator = options_.administrator;
  if (platform::servesLdap()) {
    if (!answer(directory, "--directory", "Domain controller, or empty for that of Kerberos",
                false) ||
        !answer(site_.bindUser, "--bind-user", "Account to read it with, or empty for Kerberos",
                false)) {
      return false;
    }
  }
  if (!directory.empty() && directory.find(':') == std::string::npos) {
    directory = (site_.bindUser.empty() ? "ldap://" : "ldaps://") + directory;
  }
  site_.directoryUri = directory;
  site_.warnings = options_.warnings;
  if (site_.warnings.empty()) site_.warnings = {14, 7, 1};
  return (site_.bindUser.empty() || password()) &&
         answer(site_.mailServer, "--mail-server", "Mail server") &&
         answer(site_.sender, "--sender", "Sender of the mails") &&
         answer(site_.administrator, "--administrator", "Administrator, who gets the report");
}

// The password itself is asked for only where there is no file of it yet, and written into that.
bool Init::password() {
  if (!answer(site_.bindPasswordFile, "--bind-password-file", "File with its password")) {
    return false;
  }
  site_.bindPasswordFile = platform::absolutePath(site_.bindPasswordFile);
  if (platform::fileExists(site_.bindPasswordFile)) return true;
  std::string typed;
  if (asks_) {
    std::printf("Password of %s (is not shown, and written to %s): ", site_.bindUser.c_str(),
                site_.bindPasswordFile.c_str());
    std::fflush(stdout);
    platform::readHiddenLine(typed);
    std::printf("\n");
  }
  const bool written =
      !typed.empty() && platform::replaceFileAtomically(site_.bindPasswordFile, typed + "\n");
  std::fill(typed.begin(), typed.end(), '\0');
  if (!written) error_ = site_.bindPasswordFile + " is not there, and was not made";
  return written;
}

// Reads the domain with what is known by now. False with error_ when the settings cannot be used.
bool Init::look(Domain& domain) {
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
  config::DebugLog silent(false);
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
  std::printf("Compare the last fingerprint with that of your domain's authority.\n");
  std::string typed;
  answer(typed, "--trust", "Type \"yes\" to trust it", false);
  return typed == "yes";
}

// Stores the last certificate of the chain when it is confirmed. False with error_ when it is not.
bool Init::trust(const Domain& domain) {
  const std::vector<std::string>& chain = domain.facts.certificates;
  showCertificates(chain);
  const auto authority = platform::describeCertificate(chain.back());
  if (chain.size() == 1 && authority && authority->subject != authority->issuer) {
    std::printf("It does not show its authority: what is stored ends with this certificate.\n");
  }
  if (!authority || !confirms(authority->fingerprint)) {
    error_ = "the controller's authority was not confirmed (--trust FINGERPRINT, or --ca-file): " +
             error_;
    return false;
  }
  const std::filesystem::path folder =
      platform::pathOf(platform::absolutePath(file_)).parent_path();
  site_.caFile = platform::nameOf(folder / "domain-ca.pem");
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
      "With a maximum age of %u days, %s of them would be in their last %u days when it is "
      "switched\n"
      "on, and %s past the age.%s\n",
      site_.maxAge, std::to_string(due - forced).c_str(), first, std::to_string(forced).c_str(),
      site_.usesDirectoryPolicy
          ? "\nThe directory's own policies decide about each: useDirectoryPolicy is set."
          : "");
}

int Init::run() {
  if (platform::fileExists(file_)) {
    return refuse(file_ + " is there already, and is never overwritten");
  }
  for (const std::uint32_t day : options_.warnings) {
    if (day == 0) return refuse("--warning-days: a day is a number above 0");
  }
  if (!answers()) return refuse(error_);
  Domain domain;
  if (!look(domain)) return refuse(error_);
  const bool untrusted = !domain.bound && domain.error.step == platform::DirectoryStep::Tls &&
                         site_.caFile.empty() && !domain.facts.certificates.empty();
  if (untrusted) {
    if (!trust(domain)) return refuse(error_);
    domain = {};
    if (!look(domain)) return refuse(error_);
  }
  if (!domain.bound) return refuse(error_);
  propose(domain);
  show(domain);
  if (!platform::replaceFileAtomically(file_, siteFileText(site_))) {
    return refuse(file_ + ": " + platform::fileErrorText());
  }
  std::printf(
      "\n%s is written, in report-only mode. Next:\n"
      "  pwlapse check --registry %s --work-dir DIR\n"
      "  pwlapse run --dry-run --registry %s --work-dir DIR\n",
      file_.c_str(), file_.c_str(), file_.c_str());
  return kExitDone;
}

}  // namespace

int initCommand(const InitOptions& options) {
  return Init(options).run();
}

}  // namespace console
