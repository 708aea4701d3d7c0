// The forecast as one page of HTML.
#include <algorithm>
#include <numeric>
#include <utility>

#include "base/format_text.h"
#include "base/html.h"
#include "console/calendar.h"
#include "console/forecast.h"
#include "console/forecast_chart.h"
#include "platform/text/text_lines.h"

namespace console {
namespace {

constexpr std::size_t kNamesShown = 500;

// The colours of the policies have a contrast of at least 3 to 1 on either background.
constexpr const char* kStyle = R"(
:root{--back:#fff;--ink:#1d2129;--faint:#5a6270;--line:#d9dde3;--card:#f4f6f8;--wave:#b3261e;--then:#111}
@media (prefers-color-scheme:dark){:root{--back:#15181d;--ink:#e8eaed;--faint:#a3abb7;--line:#333943;
--card:#1f242b;--wave:#ff8a80;--then:#fff}}
@media print{:root{--back:#fff;--ink:#000;--faint:#444;--line:#bbb;--card:#fff;--wave:#b3261e;--then:#000}
*{print-color-adjust:exact;-webkit-print-color-adjust:exact}
section{break-inside:avoid}.days{break-inside:auto}.card{border:1px solid var(--line)}
details:not([open]){display:none}}
*{box-sizing:border-box}
body{margin:0 auto;max-width:1100px;padding:16px;background:var(--back);color:var(--ink);
font:15px/1.45 system-ui,"Segoe UI",Roboto,"DejaVu Sans",Arial,sans-serif;overflow-wrap:break-word}
h1{font-size:1.5em;margin:.2em 0}h2{font-size:1.15em;margin:1.6em 0 .5em}
p{margin:.4em 0}.faint,th{color:var(--faint)}
.cards{display:grid;grid-template-columns:repeat(auto-fit,minmax(150px,1fr));gap:10px;margin:16px 0}
.card{background:var(--card);border-radius:6px;padding:10px 12px}
.card b{display:block;font-size:1.5em;font-variant-numeric:tabular-nums}
svg{width:100%;height:auto;display:block}.narrow{display:none}
@media screen and (max-width:640px){.wide{display:none}.narrow{display:block}}
svg text{font-size:12px;fill:var(--faint)}svg .wave{fill:var(--wave);font-weight:bold}
.axis{stroke:var(--faint)}.grid{stroke:var(--line)}.then{fill:none;stroke:var(--then);stroke-width:1.8}
.p0{fill:#2f74d0;background:#2f74d0}.p1{fill:#cf6318;background:#cf6318}.p2{fill:#1b8e69;background:#1b8e69}
.p3{fill:#a552a8;background:#a552a8}.p4{fill:#8a7a1c;background:#8a7a1c}.p5{fill:#cb4163;background:#cb4163}
.p6{fill:#3f8aa3;background:#3f8aa3}.p7{fill:#7a808a;background:#7a808a}
.key{display:flex;flex-wrap:wrap;gap:4px 18px;list-style:none;padding:0;margin:8px 0}
.key i{display:inline-block;width:12px;height:12px;border-radius:2px;margin-right:6px}
.key .line{height:0;border-top:2px solid var(--then);vertical-align:middle}
.waves{padding-left:1.2em}.waves b{color:var(--wave)}
table{border-collapse:collapse;font-variant-numeric:tabular-nums}
th,td{padding:3px 14px 3px 0;text-align:left;border-bottom:1px solid var(--line);font-weight:normal}
th.n,td.n{text-align:right}td.n{white-space:nowrap}
th:last-child,td:last-child{padding-right:0}.names{columns:10em;padding:0;list-style:none}summary{cursor:pointer}
)";

std::string escaped(const std::string& ansi) {
  return base::escapeHtml(platform::ansiToUtf8(ansi));
}

std::uint64_t sumOf(const std::vector<std::uint64_t>& days) {
  return std::accumulate(days.begin(), days.end(), std::uint64_t{0});
}

class Page {
 public:
  Page(const ForecastPair& pair, const std::string& madeAt) : pair_(pair) {
    const std::int64_t last = pair.now.today() + static_cast<std::int64_t>(pair.now.days()) - 1;
    text_ = std::string("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">") +
            "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">" +
            "<meta name=\"color-scheme\" content=\"light dark\">" +
            "<title>Password expiry forecast</title><style>" + kStyle + "</style></head><body>\n" +
            "<h1>Password expiry forecast</h1>\n<p class=\"faint\">Passwords that reach their " +
            "maximum age from " + dayText(pair.now.today()) + " to " + dayText(last) + "; as of " +
            madeAt + ".</p>\n";
    if (pair.then != nullptr) text_ += "<p>What if: <b>" + escaped(pair.settings) + "</b></p>\n";
  }

  std::string text() {
    addCards();
    addChart();
    addWaves(pair_.now, "Waves");
    if (pair_.then != nullptr) addWaves(*pair_.then, "Waves with these settings");
    addPolicies();
    addNames();
    addDays();
    return text_ + "</body></html>\n";
  }

 private:
  // A number, and what it would be with other settings.
  static std::string number(std::uint64_t now, std::uint64_t then) {
    return groupedText(now) + (then != now ? " \u2192 " + groupedText(then) : "");
  }

  void addCards() {
    const Forecast& now = pair_.now;
    const Forecast* const then = pair_.then;
    const auto card = [&](std::uint64_t (Forecast::*figure)() const, const std::string& words) {
      const std::uint64_t count = (now.*figure)();
      const std::uint64_t other = then != nullptr ? (then->*figure)() : count;
      text_ += "<div class=\"card\"><b>" + number(count, other) + "</b>" + words + "</div>\n";
    };
    text_ += "<div class=\"cards\">\n";
    card(&Forecast::total, base::formatText("due in %d days", static_cast<int>(now.days())));
    card(&Forecast::overdue, "at their age already");
    card(&Forecast::later, "later");
    text_ += "<div class=\"card\"><b>" + groupedText(now.withoutAddress().size()) +
             "</b>due, without an e-mail address</div>\n</div>\n";
  }

  void addChart() {
    const std::size_t days = pair_.now.days();
    const auto week = [days](std::size_t labels) {  // whole weeks between so many labels
      return static_cast<int>((days / labels + 6) / 7 * 7);
    };
    text_ += "<section><h2>By day</h2>\n";
    text_ += forecastChart(pair_, {"wide", 1060, 340, std::max(7, week(14))});
    text_ += forecastChart(pair_, {"narrow", 340, 260, std::max(7, week(5))});
    text_ += "<ul class=\"key\">";
    const std::vector<ForecastPolicy>& policies = pair_.now.policies();
    for (std::size_t i = 0; i < std::min(policies.size(), kChartColours); ++i) {
      const bool rest = i + 1 == kChartColours && policies.size() > kChartColours;
      text_ += base::formatText("<li><i class=\"p%d\"></i>", static_cast<int>(i)) +
               (rest ? "other policies" : escaped(policies[i].name)) + "</li>";
    }
    if (pair_.then != nullptr) {
      text_ += "<li><i class=\"line\"></i>with " + escaped(pair_.settings) + "</li>";
    }
    text_ += "</ul></section>\n";
  }

  void addWaves(const Forecast& forecast, const char* heading) {
    const std::vector<ForecastWave> waves = forecast.waves();
    text_ += std::string("<section><h2>") + heading + "</h2>\n";
    if (waves.empty()) {
      text_ += "<p>None: no day has many times the usual number.</p></section>\n";
      return;
    }
    text_ += "<ul class=\"waves\">";
    for (const ForecastWave& wave : waves) {
      const std::string words = waveText(forecast, wave);
      const std::size_t colon = words.find(':');
      text_ += "<li><b>" + words.substr(0, colon) + "</b>" + words.substr(colon) + "</li>\n";
    }
    text_ += "</ul></section>\n";
  }

  void addPolicies() {
    text_ +=
        "<section><h2>By policy</h2>\n<table><tr><th>Policy</th><th class=\"n\">Due</th>"
        "<th class=\"n\">At their age already</th></tr>\n";
    for (const ForecastPolicy& policy : pair_.now.policies()) {
      const ForecastPolicy* const other =
          pair_.then != nullptr ? pair_.then->policyNamed(policy.name) : nullptr;
      const auto figure = [&](std::uint64_t now, std::uint64_t with) {
        text_ += "<td class=\"n\">" + number(now, with) + "</td>";
      };
      text_ += "<tr><td>" + escaped(policy.name) + "</td>";
      const std::uint64_t due = sumOf(policy.days);
      figure(due, other != nullptr ? sumOf(other->days) : due);
      figure(policy.overdue, other != nullptr ? other->overdue : policy.overdue);
      text_ += "</tr>\n";
    }
    text_ += "</table></section>\n";
  }

  void addNames() {
    std::vector<std::string> names = pair_.now.withoutAddress();
    if (names.empty()) return;
    std::sort(names.begin(), names.end());  // those of all policies in one list
    text_ +=
        "<section><h2>Due, without an e-mail address</h2>\n<p>No warning can reach these users.</p>"
        "<ul class=\"names\">";
    for (std::size_t i = 0; i < std::min(names.size(), kNamesShown); ++i) {
      text_ += "<li>" + escaped(names[i]) + "</li>";
    }
    text_ += "</ul>";
    if (names.size() > kNamesShown) {
      text_ += "<p>and " + groupedText(names.size() - kNamesShown) + " more</p>";
    }
    text_ += "</section>\n";
  }

  void addDays() {
    text_ +=
        "<section class=\"days\"><details><summary>All days as a table</summary><table><tr><th>Date"
        "</th><th>Day</th><th class=\"n\">Due</th></tr>\n";
    for (std::size_t day = 0; day < pair_.now.days(); ++day) {
      const std::int64_t date = pair_.now.today() + static_cast<std::int64_t>(day);
      const std::uint64_t due = pair_.now.on(day);
      const std::uint64_t other = pair_.then != nullptr ? pair_.then->on(day) : due;
      if (due == 0 && other == 0) continue;
      text_ += "<tr><td>" + dayText(date) + "</td><td>" + weekdayName(date) +
               "</td><td class=\"n\">" + number(due, other) + "</td></tr>\n";
    }
    text_ += "</table></details></section>\n";
  }

  const ForecastPair& pair_;
  std::string text_;
};

}  // namespace

std::string forecastPage(const ForecastPair& forecast, const std::string& madeAt) {
  return Page(forecast, madeAt).text();
}

}  // namespace console
