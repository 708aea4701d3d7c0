#include "console/user_look_up.h"

#include "platform/text/code_page.h"

namespace console {

UserLookUp::UserLookUp(platform::DirectoryAccess& access, Details details)
    : domain_(access, log_, nullptr) {
  if (details == Details::Wanted) domain_.readDetails(true);
}

UserLookUp::~UserLookUp() {
  if (binding_ != Binding::None) domain_.unbindDomain();
}

bool UserLookUp::complete(const std::string& username, directory::UserDirectoryData& data) {
  if (data.email != directory::kNoEmail) return true;
  if (binding_ == Binding::None) {
    binding_ = domain_.bindDomain() != 0 ? Binding::Bound : Binding::Failed;
  }
  if (binding_ == Binding::Failed) return false;
  const platform::HResult looked = domain_.getEmailBound(platform::ansiToUtf16(username), data);
  // Without a surname a user has no address.
  return !platform::failed(looked) || looked == platform::kAdsPropertyNotFound;
}

}  // namespace console
