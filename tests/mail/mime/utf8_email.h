// An e-mail object that takes and gives UTF-8, so that tests say the same on every system.
#pragma once

#include "mail/mime/kv_email.h"

namespace kelvado {

class Utf8Email : public KvEmail {
 public:
  Utf8Email() { put_Utf8(true); }
};

}  // namespace kelvado
