// A directory of made-up users as LDIF text, for the sample site of `pwlapse demo` and for tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace console {

struct SampleUser {
  static constexpr int kChangeDue = -1;  // for `age`: to be changed at next logon

  std::string logonName;
  int age = 0;  // of the password, in days, and an hour more, clear of rounding
  std::string mail = "user@site.example";
  std::uint32_t accountControl = 0x200;  // 0x1000 makes a computer
  std::string givenName = "Given";
  std::string surname = "Surname";
  bool cannotChange = false;
  std::string manager{};  // logon name of another of them; empty: none
};

// `base`: the domain's name, "DC=site,DC=example"; `maxAge`: of its passwords, in days; `now`: the
// time that ages are counted from, in units of 100 ns since 1601. Values are written as they are:
// no line breaks in them.
std::string sampleDirectory(const std::string& base, int maxAge,
                            const std::vector<SampleUser>& users, std::int64_t now);

}  // namespace console
