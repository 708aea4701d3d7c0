#include "service/dry_run.h"

#include <memory>

#include "platform/registry/overlay_registry.h"
#include "platform/text/code_page.h"
#include "service/pass.h"

namespace service {
namespace {

// Takes every forced change, and makes none. An account is not read again before it: nothing is
// done that could be wrong.
class UntouchedAccounts final : public platform::AccountDatabase {
 public:
  explicit UntouchedAccounts(platform::AccountDatabase& accounts) : accounts_(accounts) {}

  bool readExpiryTimes(bool wanted) override { return accounts_.readExpiryTimes(wanted); }
  platform::AccountResult userInfo(const std::u16string& name, platform::UserInfo& info) override {
    return accounts_.userInfo(name, info);
  }
  platform::AccountResult setUserInfo(const std::u16string& /*name*/,
                                      const platform::UserInfo& /*info*/) override {
    return {};
  }
  platform::NetStatus domainModals(platform::DomainModals& modals) override {
    return accounts_.domainModals(modals);
  }
  bool ofThisMachineOnly() const override { return accounts_.ofThisMachineOnly(); }

 private:
  platform::AccountDatabase& accounts_;
};

// Does not wait.
class UnhurriedClock final : public platform::Clock {
 public:
  explicit UnhurriedClock(platform::Clock& clock) : clock_(clock) {}

  base::LocalTime localTime() override { return clock_.localTime(); }
  platform::TimeZone timeZone() override { return clock_.timeZone(); }
  base::LocalTime localTimeOf(std::int64_t moment) override { return clock_.localTimeOf(moment); }
  std::int64_t fileTime() override { return clock_.fileTime(); }
  double uptimeSeconds() override { return clock_.uptimeSeconds(); }
  std::uint32_t tickCount() override { return clock_.tickCount(); }
  void sleep(std::uint32_t /*ms*/) override {}

 private:
  platform::Clock& clock_;
};

class NoTransport final : public notify::MailTransport {
 public:
  bool send(kelvado::KvEmail& /*email*/) override { return true; }
  kelvado::SmtpFailure failure() override { return {}; }
  std::string errorXml() override { return {}; }
};

}  // namespace

PassRecord makeDryRun(const platform::Host& host, PassObserver* observer,
                      const DryRunOptions& options) {
  platform::OverlayRegistry registry(host.registry);
  UntouchedAccounts accounts(host.accounts);
  UnhurriedClock clock(host.clock);
  RunContext context{{registry, accounts, host.directory, clock},
                     readServiceValues(registry),
                     observer,
                     nullptr,
                     config::DebugLog::nowhere(),
                     findEditionKeys(registry)};
  context.uptimeSeconds = clock.uptimeSeconds();
  context.mode = notify::PassMode::Dry;
  context.reportFile = options.reportFile;
  context.onlyUser = options.onlyUser;
  context.mailsReport = static_cast<bool>(options.transport);
  context.makeTransport = options.transport;
  if (!context.makeTransport) {
    context.makeTransport = [](const config::ExpirationSettings&) {
      return std::make_unique<NoTransport>();
    };
  }
  host.directory.restrictTo(platform::ansiToUtf16(options.onlyUser));
  return Pass(context).make();
}

}  // namespace service
