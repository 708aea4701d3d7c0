// What a pass does about what it finds.
#pragma once

namespace notify {

enum class PassMode {
  Live,  // mails, forces, writes
  // Nothing of it: records, counts and report are made as if every mail had been accepted and every
  // forced change taken. Where it is said what became of a user, "would be" is.
  Dry,
};

}  // namespace notify
