// Looks for mistakes in what an administrator wrote into the registry: values that a loader would
// silently take for their defaults. In words for the administrator, one line each.
#pragma once

#include <string>
#include <vector>

#include "platform/registry/registry.h"

namespace config {

// A value or a key that is not as the table of settings has it.
struct SettingMistake {
  enum class Kind { Unknown, WrongType, TooLarge, Unusable };
  Kind kind = Kind::Unknown;
  std::string key;
  std::string name;     // of the value; empty: the key itself
  std::string fault;    // "not a number (REG_DWORD)"
  std::string nearest;  // the known name that may be meant; may be empty

  std::string text() const;  // the whole of it in one line
};

// The values of either edition that a pass uses and that are of a wrong type. Where a number
// belongs, a loader takes anything else for 0.
std::vector<SettingMistake> findWrongTypes(platform::Registry& registry);

// Texts that are not what they should be, and are not used: a time of day that is none.
std::vector<SettingMistake> findUnusableValues(platform::Registry& registry);

// What may be a mistake though a pass can be made: names of keys and values that are not known,
// with the nearest one that is; numbers beyond the limit of their setting; values of a wrong type
// that matter to the password filter only.
std::vector<SettingMistake> findSettingNotes(platform::Registry& registry);

}  // namespace config
