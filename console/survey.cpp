#include "console/survey.h"

#include <unordered_set>
#include <utility>

#include "config/debug_log.h"
#include "directory/domain_directory.h"
#include "platform/text/code_page.h"
#include "service/user_list.h"

namespace console {
namespace {

using notify::UserRecord;

class Collector final : public service::PassObserver {
 public:
  Collector(platform::DirectoryAccess& directory, const SurveyOptions& options)
      : options_(options), log_(config::DebugLog::nowhere()), domain_(directory, log_, nullptr) {
    if (options.details) domain_.readDetails(true);
  }
  ~Collector() override {
    if (bound_) domain_.unbindDomain();
  }

  void userExamined(const UserRecord& user) override {
    if (options_.wanted && !options_.wanted(user)) return;
    users_.push_back(user);
    if (options_.addresses && user.accountFound && user.data.email == directory::kNoEmail) {
      lookUp(users_.back());
    }
  }

  std::vector<UserRecord> takeUsers() { return std::move(users_); }

 private:
  void lookUp(UserRecord& user) {
    if (!std::exchange(tried_, true)) bound_ = domain_.bindDomain() != 0;
    if (bound_) domain_.getEmailBound(platform::ansiToUtf16(user.username), user.data);
  }

  const SurveyOptions& options_;
  config::DebugLog log_;
  directory::DomainDirectory domain_;
  bool tried_ = false;
  bool bound_ = false;
  std::vector<UserRecord> users_;
};

}  // namespace

Survey makeSurvey(const platform::Host& host, const SurveyOptions& options) {
  Collector collector(host.directory, options);
  Survey survey;
  survey.pass = service::makeDryRun(host, &collector, options.run);
  survey.users = collector.takeUsers();
  return survey;
}

void keepOneOfEach(std::vector<UserRecord>& users) {
  std::erase_if(users, [](const UserRecord& user) {
    return (user.skipReasons & notify::kSkipProcessedEarlier) != 0;
  });
  // Whom one policy leaves out another one may have.
  const auto leftOut = [](const UserRecord& user) {
    return (user.skipReasons & notify::kSkipExcluded) != 0;
  };
  std::unordered_set<std::string> open;
  for (const UserRecord& user : users) {
    if (leftOut(user)) open.insert(service::nameKey(user.username));
  }
  if (open.empty()) return;
  for (const UserRecord& user : users) {
    if (!leftOut(user)) open.erase(service::nameKey(user.username));
  }
  std::erase_if(users, [&](const UserRecord& user) {
    return leftOut(user) && open.erase(service::nameKey(user.username)) == 0;
  });
}

}  // namespace console
