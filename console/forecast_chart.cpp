#include "console/forecast_chart.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/format_text.h"
#include "console/calendar.h"

namespace console {
namespace {

using base::formatText;

constexpr int kLeft = 52;
constexpr int kRight = 12;
constexpr int kTop = 26;
constexpr int kBottom = 34;
constexpr int kTicks = 6;               // at most, on the axis of numbers
constexpr std::uint64_t kLeastTop = 4;  // of that axis: one password is no tower
constexpr double kLabelWidth = 7.5;     // of a character, generously

// The smallest of 1, 2, 5, 10, 20, ... that divides `most` into no more than kTicks steps.
std::uint64_t tickStep(std::uint64_t most) {
  std::uint64_t power = 1;
  for (;; power *= 10) {
    for (const std::uint64_t digit : {1, 2, 5}) {
      if (digit * power * kTicks >= most) return digit * power;
    }
  }
}

std::string shortDate(std::int64_t day) {
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::string date = dayText(day);
  return formatText("%d %s", std::stoi(date.substr(8)), kMonths[std::stoi(date.substr(5, 2)) - 1]);
}

class Chart {
 public:
  Chart(const ForecastPair& pair, const ChartSize& size) : pair_(pair), size_(size) {
    std::uint64_t most = kLeastTop;
    for (std::size_t day = 0; day < pair.now.days(); ++day) {
      most = std::max(most, pair.now.on(day));
      if (pair.then != nullptr) most = std::max(most, pair.then->on(day));
    }
    step_ = tickStep(most);
    top_ = (most + step_ - 1) / step_ * step_;
    slot_ = static_cast<double>(size.width - kLeft - kRight) / static_cast<double>(pair.now.days());
  }

  std::string text() {
    text_ = formatText(
        "<svg class=\"%s\" viewBox=\"0 0 %d %d\" role=\"img\" aria-label=\"Passwords "
        "that reach their maximum age, by day\">\n",
        size_.cssClass, size_.width, size_.height);
    addGrid();
    addDates();
    for (std::size_t day = 0; day < pair_.now.days(); ++day) addBar(day);
    if (pair_.then != nullptr) addCurve(*pair_.then);
    addWaveLabels();
    return text_ + "</svg>\n";
  }

 private:
  double x(std::size_t day) const { return kLeft + slot_ * static_cast<double>(day); }
  double y(std::uint64_t count) const {
    const double height = size_.height - kTop - kBottom;
    return size_.height - kBottom - height * static_cast<double>(count) / static_cast<double>(top_);
  }

  void addGrid() {
    for (std::uint64_t count = 0; count <= top_; count += step_) {
      text_ +=
          formatText("<line class=\"%s\" x1=\"%d\" x2=\"%d\" y1=\"%.1f\" y2=\"%.1f\"/>",
                     count == 0 ? "axis" : "grid", kLeft, size_.width - kRight, y(count), y(count));
      text_ +=
          formatText("<text class=\"label\" x=\"%d\" y=\"%.1f\" text-anchor=\"end\">%s</text>\n",
                     kLeft - 6, y(count) + 4, groupedText(count).c_str());
    }
  }

  void addDates() {
    const auto every = static_cast<std::size_t>(size_.daysBetweenLabels);
    for (std::size_t day = 0; day < pair_.now.days(); day += every) {
      const double middle = x(day) + slot_ / 2;
      const std::string date = shortDate(pair_.now.today() + static_cast<std::int64_t>(day));
      const double half = static_cast<double>(date.size()) * kLabelWidth / 2;
      if (middle + half > size_.width) break;
      text_ += formatText("<line class=\"axis\" x1=\"%.1f\" x2=\"%.1f\" y1=\"%d\" y2=\"%d\"/>",
                          middle, middle, size_.height - kBottom, size_.height - kBottom + 5);
      text_ +=
          formatText("<text class=\"label\" x=\"%.1f\" y=\"%d\" text-anchor=\"middle\">%s</text>\n",
                     middle, size_.height - kBottom + 19, date.c_str());
    }
  }

  // With a tooltip of what the day has.
  void addBar(std::size_t day) {
    if (pair_.now.on(day) == 0) return;
    const double gap = slot_ >= 5 ? 1 : slot_ / 8;
    std::uint64_t below = 0;
    const std::int64_t date = pair_.now.today() + static_cast<std::int64_t>(day);
    text_ += "<g><title>" + weekdayName(date) + ' ' + dayText(date) + ": " +
             groupedText(pair_.now.on(day)) + "</title>";
    for (std::size_t i = 0; i < pair_.now.policies().size(); ++i) {
      const std::uint64_t count = pair_.now.policies()[i].days[day];
      if (count == 0) continue;
      text_ +=
          formatText("<rect class=\"p%d\" x=\"%.2f\" y=\"%.2f\" width=\"%.2f\" height=\"%.2f\"/>",
                     static_cast<int>(std::min(i, kChartColours - 1)), x(day) + gap / 2,
                     y(below + count), slot_ - gap, y(below) - y(below + count));
      below += count;
    }
    text_ += "</g>\n";
  }

  // In steps, as the bars are.
  void addCurve(const Forecast& then) {
    std::string path = formatText("M%.1f %.1f", x(0), y(then.on(0)));
    for (std::size_t day = 0; day < then.days(); ++day) {
      path += formatText("V%.1fH%.1f", y(then.on(day)), x(day + 1));
    }
    text_ += "<path class=\"then\" d=\"" + path + "\"/>\n";
  }

  // The number above the highest day of each wave, the highest first, where there is room for it.
  void addWaveLabels() {
    struct Peak {
      std::uint64_t count;
      std::size_t day;
    };
    std::vector<Peak> peaks;
    for (const ForecastWave& wave : pair_.now.waves()) {
      Peak peak{0, wave.first};
      for (std::size_t day = wave.first; day <= wave.last; ++day) {
        if (pair_.now.on(day) > peak.count) peak = {pair_.now.on(day), day};
      }
      peaks.push_back(peak);
    }
    std::sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) {
      return std::pair(b.count, a.day) < std::pair(a.count, b.day);
    });
    std::vector<std::pair<double, double>> taken;
    for (const Peak& peak : peaks) {
      const std::string number = groupedText(peak.count);
      const double half = static_cast<double>(number.size()) * kLabelWidth / 2;
      const double middle = std::clamp(x(peak.day) + slot_ / 2, half, size_.width - half);
      const bool free = std::none_of(taken.begin(), taken.end(), [&](const auto& other) {
        return middle - half < other.second && other.first < middle + half;
      });
      if (!free) continue;
      taken.emplace_back(middle - half, middle + half);
      text_ += formatText(
          "<text class=\"wave\" x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>\n", middle,
          y(peak.count) - 6, number.c_str());
    }
  }

  const ForecastPair& pair_;
  const ChartSize& size_;
  std::uint64_t step_ = 1;  // between two lines of the grid
  std::uint64_t top_ = 1;   // of the axis of numbers
  double slot_ = 1;         // width of a day
  std::string text_;
};

}  // namespace

std::string forecastChart(const ForecastPair& forecast, const ChartSize& size) {
  return Chart(forecast, size).text();
}

}  // namespace console
