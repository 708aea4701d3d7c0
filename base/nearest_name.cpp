#include "base/nearest_name.h"

#include <algorithm>

#include "base/ascii.h"

namespace base {

std::size_t nameDistance(std::string_view left, std::string_view right, std::size_t most) {
  const std::size_t longer = std::max(left.size(), right.size());
  if (longer - std::min(left.size(), right.size()) > most) return most + 1;
  const std::string a = lowered(left);
  const std::string b = lowered(right);
  std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) steps[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) steps[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      steps[i][j] = std::min({replaced, steps[i - 1][j] + 1, steps[i][j - 1] + 1});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
    if (*std::min_element(steps[i].begin(), steps[i].end()) > most + 1) return most + 1;
  }
  return std::min(steps[a.size()][b.size()], most + 1);
}

std::string nearestName(std::string_view name, const std::vector<std::string>& known) {
  constexpr std::size_t kCharactersPerMistake = 4;
  constexpr std::size_t kMostMistakes = 2;
  constexpr std::size_t kLongestName = 64;  // a longer one is no misspelling
  std::string nearest;
  if (name.size() > kLongestName) return nearest;
  std::size_t best = std::min((name.size() + 1) / kCharactersPerMistake, kMostMistakes) + 1;
  for (const std::string& candidate : known) {
    const std::size_t steps = nameDistance(name, candidate, best);
    if (steps < best) nearest = candidate;
    best = std::min(best, steps);
  }
  return nearest;
}

}  // namespace base
