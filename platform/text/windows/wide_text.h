// UTF-16 between the texts of the seam and those of Windows' own functions, whose characters are of
// another type of the same size. Used in this folder only.
#pragma once

#include <string>
#include <string_view>

namespace platform {

inline std::wstring toWide(std::u16string_view text) {
  return std::wstring(text.begin(), text.end());
}

// Null counts as empty: functions that give a text may give none.
inline std::u16string fromWide(const wchar_t* text) {
  if (text == nullptr) return {};
  const std::wstring_view view(text);
  return std::u16string(view.begin(), view.end());
}

}  // namespace platform
