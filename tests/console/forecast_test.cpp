// The figures of a forecast, and how people see them.
#include "console/forecast.h"

#include <gtest/gtest.h>

#include "tests/support/text_file.h"

namespace console {
namespace {

constexpr std::int64_t kToday = 20514;  // Monday, 2026-03-02

// Two passwords a day for four weeks, and 30 on two days that follow one another.
Forecast made() {
  Forecast forecast(kToday, 28);
  for (int day = 0; day < 28; ++day) {
    const int more = day == 9 || day == 10 ? 15 : 1;
    for (int i = 0; i < more; ++i) {
      forecast.add(1, "Policy1", kToday + day, false);
      forecast.add(0, "Default<b>", kToday + day, false);
    }
  }
  return forecast;
}

TEST(Forecast, CountsByDayAndNamesTheWaves) {
  Forecast forecast = made();
  EXPECT_EQ(forecast.usual(), 2);
  ASSERT_EQ(forecast.waves().size(), 1U);
  EXPECT_EQ(waveText(forecast, forecast.waves()[0]),
            "2026-03-11 to 2026-03-12, in 9 days: 60 passwords, 15 times the usual number");
  // The last day, the one behind it, a day that has passed, and what is overdue today.
  forecast.add(0, "Default<b>", kToday + 27, false);
  forecast.add(0, "Default<b>", kToday + 28, false);
  forecast.add(0, "Default<b>", kToday - 5, true);
  forecast.add(0, "Default<b>", kToday, true);
  EXPECT_EQ(forecast.on(27), 3U);
  EXPECT_EQ(forecast.later(), 1U);
  EXPECT_EQ(forecast.overdue(), 2U);
  EXPECT_EQ(forecast.total(), 113U);
  EXPECT_EQ(forecast.policies()[0].name, "Default<b>");  // by slot, whoever came first

  Forecast few(kToday, 90);  // too few for a wave, then enough
  for (int i = 0; i < 4; ++i) few.add(0, "Default", kToday, false);
  EXPECT_TRUE(few.waves().empty());
  few.add(0, "Default", kToday, false);
  ASSERT_EQ(few.waves().size(), 1U);
  EXPECT_EQ(waveText(few, few.waves()[0]), "2026-03-02 (Monday), today: 5 passwords");
}

TEST(Forecast, IsShownWithOtherSettingsBesideIt) {
  const Forecast now = made();
  Forecast then(kToday, 28);
  then.add(0, "Default<b>", kToday + 2, false);
  then.add(0, "Default<b>", kToday, true);
  then.addWithoutAddress("o'<i>mer");
  const std::string text =
      forecastText({now, &then, "Policy1.maxPasswordAge=60"}, {});  // no terminal
  EXPECT_EQ(text, test_support::sectionOf(FORECAST_DATA, "no terminal")) << text;

  const std::string page = forecastPage({then, &now, "Policy1.x=<"}, "2026-03-02 03:00");
  for (const char* part :
       {"<b>1 \u2192 112</b>due in 28 days", "Policy1.x=&lt;", "<path class=\"then\"",
        "<li>o'&lt;i&gt;mer</li>", "Wednesday 2026-03-04: 1</title>"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part << '\n' << page;
  }
  for (const char* part : {"<script", "http", "src=", "url(", "Default<b>"}) {
    EXPECT_EQ(page.find(part), std::string::npos) << part;
  }
}

}  // namespace
}  // namespace console
