#include "mail/core/cls_base.h"

namespace kelvado {
namespace {

constexpr std::string_view kBuildDate = "May 31 2008";  // a fixed text, not the date of this build

}  // namespace

MethodBracket::MethodBracket(ClsBase& object, std::string_view method) : log_(object.log()) {
  log_.Clear();
  log_.EnterContext(method, true);
  log_.LogData("DllDate", kBuildDate);
}

}  // namespace kelvado
