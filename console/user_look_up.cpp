#include "console/user_look_up.h"

#include "platform/text/code_page.h"

namespace console {

UserLookUp::UserLookUp(platform::DirectoryAccess& access, Details details)
    : domain_(access, log_, nullptr) {
  if (details == Details::Wanted) domain_.readDetails(true);
}

bool UserLookUp::complete(notify::UserRecord& user) {
  if (user.data.email != directory::kNoEmail) return true;
  if (binding_ == Binding::None) {
    binding_ = domain_.bindDomain() != 0 ? Binding::Bound : Binding::Failed;
  }
  if (binding_ == Binding::Failed) return false;
  const platform::HResult looked =
      domain_.getEmailBound(platform::ansiToUtf16(user.username), user.data);
  // Without a surname a user has no address.
  return !platform::failed(looked) || looked == platform::kAdsPropertyNotFound;
}

}  // namespace console
