// The directory: the way in, step by step, what is read there, and what it would let a pass write.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "base/format_text.h"
#include "check/checks.h"
#include "directory/domain_directory.h"
#include "directory/password_expiry.h"
#include "platform/network/certificate.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

namespace check {
namespace {

using platform::DirectoryStep;

// A pass reports a difference beyond this as a problem.
constexpr std::int64_t kClockTolerance = 5 * 60;
constexpr std::int64_t kFileTimePerDay = std::int64_t{86400} * 10'000'000;
constexpr std::int64_t kSoonDays = 30;

constexpr const char* kLoginData =
    "correct Directory\\bindUser, or the password in the file that "
    "Directory\\bindPasswordFile names";

// The first row that fits counts. `part` stands in the text of the failure.
constexpr struct {
  DirectoryStep step;
  const char* part;
  const char* cure;
} kCures[] = {
    {DirectoryStep::Settings, "", "correct the value; docs/settings.md says how it is written"},
    {DirectoryStep::Name, "no domain controller",
     "let this machine ask the domain's name server, or name a controller in Directory\\uri"},
    {DirectoryStep::Name, "",
     "correct the name in Directory\\uri, or let this machine ask the domain's name server"},
    {DirectoryStep::Connect, "refused",
     "correct the port in Directory\\uri (389; 636 for ldaps), or start the server"},
    {DirectoryStep::Connect, "", "correct the name in Directory\\uri, or open the way to the port"},
    {DirectoryStep::Tls, "expired", "renew the certificate of the domain controller"},
    {DirectoryStep::Tls, "not valid before", "set the clock of this machine"},
    {DirectoryStep::Tls, "not for", "name the server in Directory\\uri as its certificate does"},
    {DirectoryStep::Tls, "not trusted",
     "get the certificate of the domain's authority and name its file in Directory\\caFile"},
    {DirectoryStep::Tls, "among the trusted",
     "get the certificate and name its file in Directory\\caFile"},
    {DirectoryStep::Tls, "authorities ",
     "name a readable file of PEM certificates in "
     "Directory\\caFile"},
    {DirectoryStep::Tls, "StartTLS", "use ldaps://, or give the domain controller a certificate"},
    {DirectoryStep::Tls, "timed out", "is that port one of a directory server?"},
    {DirectoryStep::Tls, "",
     "ldaps:// takes port 636, ldap:// 389; is there a certificate at all?"},
    {DirectoryStep::Login, "(52e)", kLoginData},
    {DirectoryStep::Login, "(525)", kLoginData},
    {DirectoryStep::Login, "(530)", "allow the account to log on at all hours"},
    {DirectoryStep::Login, "(531)", "allow the account to log on from this machine"},
    {DirectoryStep::Login, "(532)", "set a new password, and let it never expire"},
    {DirectoryStep::Login, "(533)", "enable the account, or name another in Directory\\bindUser"},
    {DirectoryStep::Login, "(701)", "let the account never expire"},
    {DirectoryStep::Login, "(773)",
     "take \"must change password at next logon\" off the account, and let it never expire"},
    {DirectoryStep::Login, "(775)", "unlock the account, and see who tries its password"},
    {DirectoryStep::Login, "Kerberos",
     "make a keytab (docs/domain.md), or run kinit; or set Directory\\bindMethod to simple"},
    {DirectoryStep::Login, "first line", "write the password into the first line of the file"},
    {DirectoryStep::Login, "", kLoginData},
};

std::string cureOf(const platform::DirectoryError& error) {
  for (const auto& row : kCures) {
    if (row.step == error.step && error.text.find(row.part) != std::string::npos) return row.cure;
  }
  return "correct Directory\\uri, or its base; docs/domain.md says what is needed";
}

class DirectoryCheck {
 public:
  DirectoryCheck(const Site& site, Report& report)
      : site_(site),
        directory_(site.host.directory),
        report_(report),
        facts_(directory_.facts()),
        subject_(facts_.server.empty() ? "directory" : facts_.server) {}

  void run(const std::vector<std::string>& due) {
    config::DebugLog silent = config::DebugLog::nowhere();
    directory::DomainDirectory domain(directory_, silent, nullptr);
    const bool bound = domain.bindDomain() != 0;
    const platform::DirectoryError error = directory_.lastError();
    way(bound, error);
    if (!bound) {
      const std::string& text = domain.bindError();
      const std::string server = subject_ + ": ";
      report_.fault(subject_, text.starts_with(server) ? text.substr(server.size()) : text,
                    cureOf(error));
    } else {
      base();
      clock();
      users(domain);
      ages();
      rights(due);
    }
    domain.unbindDomain();
  }

 private:
  void way(bool bound, const platform::DirectoryError& error);
  void certificate();
  void base();
  void clock();
  void users(directory::DomainDirectory& domain);
  void ages();
  void rights(const std::vector<std::string>& due);

  const Site& site_;
  platform::DirectoryAccess& directory_;
  Report& report_;
  platform::DirectoryFacts facts_;
  std::string subject_;
};

void DirectoryCheck::way(bool bound, const platform::DirectoryError& error) {
  if (!facts_.addresses.empty()) {
    std::string addresses;
    for (const std::string& one : facts_.addresses) {
      addresses += (addresses.empty() ? "" : ", ") + one;
    }
    report_.ok(subject_, "has the address " + addresses);
    if (bound || error.step > DirectoryStep::Connect) report_.ok(subject_, "accepts connections");
  }
  certificate();
  if (!facts_.identity.empty()) {
    report_.ok(subject_, "takes this program for " + platform::utf8ToAnsi(facts_.identity));
  }
}

void DirectoryCheck::certificate() {
  if (facts_.certificates.empty() || !facts_.certificatesTrusted) return;
  const auto shown = platform::describeCertificate(facts_.certificates.front());
  if (!shown) return;
  const std::string until = platform::dateText(shown->validUntil);
  const std::int64_t left = (shown->validUntil - site_.host.clock.fileTime()) / kFileTimePerDay;
  report_.ok(subject_, "TLS: the certificate of " + shown->subject + ", issued by " +
                           shown->issuer + ", is valid until " + until);
  if (left < kSoonDays) {
    report_.note(subject_, "its certificate ends on " + until, "renew it before that day");
  }
}

void DirectoryCheck::base() {
  std::unique_ptr<platform::DirectoryObject> rootDse;
  std::u16string context;
  if (platform::failed(
          directory_.openObject(u"LDAP://rootDSE", platform::kAdsSecureAuthentication, rootDse)) ||
      platform::failed(rootDse->get(u"defaultNamingContext", context))) {
    return;
  }
  report_.ok(subject_, "the domain is " + platform::utf16ToAnsi(context));
}

void DirectoryCheck::clock() {
  const std::optional<std::int64_t> offset = directory_.clockOffset();
  if (!offset) return;
  const std::int64_t seconds = std::abs(*offset);
  const std::string text =
      base::formatText("its clock is %lli s %s this machine's", static_cast<long long>(seconds),
                       *offset > 0 ? "ahead of" : "behind");
  if (seconds > kClockTolerance) {
    report_.fault(subject_, text + ": ages are wrong by as much", "set both clocks by one server");
  } else {
    report_.ok(subject_, seconds == 0 ? "its clock and this machine's agree" : text);
  }
}

void DirectoryCheck::users(directory::DomainDirectory& domain) {
  std::size_t count = 0;
  const std::string problem = domain.forEachDomainUser([&count](const std::string&) { ++count; });
  if (!problem.empty()) {
    report_.fault(subject_, problem, "correct the base in Directory\\uri, or the account's rights");
  } else if (count == 0) {
    report_.fault(subject_, "holds no enabled user", "correct the base in Directory\\uri");
  } else {
    report_.ok(subject_, std::to_string(count) + " enabled users are read");
  }
  constexpr std::size_t kMostWarnings = 10;
  const std::vector<std::string> warnings = directory_.warnings();
  for (std::size_t i = 0; i < std::min(warnings.size(), kMostWarnings); ++i) {
    const bool rights = warnings[i].find("users without") != std::string::npos;
    const std::string line = platform::loggableAnsiLine(warnings[i]);
    if (rights) {
      report_.fault(subject_, line, "give the account the right to read them (docs/domain.md)");
    } else {
      report_.note(subject_, line);
    }
  }
  if (warnings.size() > kMostWarnings) {
    report_.note(subject_, std::to_string(warnings.size() - kMostWarnings) + " more like these");
  }
}

// The directory expires passwords itself, whatever a policy here says.
void DirectoryCheck::ages() {
  platform::DomainModals modals;
  if (site_.host.accounts.domainModals(modals) != platform::kNetSuccess) return;
  const bool never = modals.maxPasswordAge == platform::kPasswordNeverExpires;
  const std::uint32_t days = modals.maxPasswordAge / directory::kSecondsPerDay;
  report_.ok(subject_, never ? "the domain itself lets no password expire"
                             : "the domain's own maximum age is " + std::to_string(days) + " days");
  bool usesDirectory = false;
  for (int slot = 0; slot < service::kPolicySlots; ++slot) {
    const auto age = static_cast<std::uint32_t>(service::effectiveMaxAge(site_.slots, slot));
    if (age == 0) continue;
    if (site_.slots[static_cast<std::size_t>(slot)].useDirectoryPolicy != 0) {
      usesDirectory = true;
    } else if (!never && age > days) {
      report_.note(service::slotLabel(slot),
                   "its maximum age of " + std::to_string(age) +
                       " days is beyond the domain's own: passwords expire before the mails say",
                   "lower it, or set useDirectoryPolicy");
    }
  }
  if (facts_.passwordSettings.empty() || usesDirectory) return;
  std::string names;
  for (const auto& settings : facts_.passwordSettings) {
    names += (names.empty() ? "" : ", ") + platform::utf8ToAnsi(settings.name);
  }
  report_.note(subject_,
               "has password settings objects (" + names + "), which no policy here regards",
               "set useDirectoryPolicy, or mails may tell their users wrong days");
}

void DirectoryCheck::rights(const std::vector<std::string>& due) {
  std::size_t asked = 0;
  std::vector<std::string> denied;
  for (const std::string& name : due) {
    const std::optional<bool> may = directory_.mayWrite(platform::ansiToUtf16(name), "pwdLastSet");
    asked += may ? 1 : 0;
    if (may && !*may) denied.push_back(name);
  }
  if (asked == 0) return;
  const std::string all = std::to_string(asked) + " accounts that will be due";
  if (denied.empty()) {
    return report_.ok(subject_, "lets this program write pwdLastSet of " + all);
  }
  const std::string text = "does not let this program write pwdLastSet of " +
                           std::to_string(denied.size()) + " of " + all + ", such as " +
                           platform::loggableAnsiLine(denied.front());
  const std::string cure =
      "give the account that right (docs/domain.md), or their passwords are "
      "never forced to be changed";
  if (site_.settings.reportOnly) {
    report_.note(subject_, text, cure);
  } else {
    report_.fault(subject_, text, cure);
  }
}

}  // namespace

void checkDirectory(const Site& site, const std::vector<std::string>& due, Report& report) {
  report.begin(Part::Directory);
  DirectoryCheck(site, report).run(due);
}

}  // namespace check
