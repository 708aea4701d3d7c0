// The chart of a forecast as SVG: a bar for each day, coloured by policy, and the curve of the same
// days with other settings. Used by the forecast's page.
#pragma once

#include <cstddef>
#include <string>

#include "console/forecast.h"

namespace console {

// Policies beyond so many share the last colour.
inline constexpr std::size_t kChartColours = 8;

// Size in units of the page's text: a chart is drawn for the width that it is shown in.
struct ChartSize {
  const char* cssClass;
  int width;
  int height;
  int daysBetweenLabels;
};

// The classes "p0" to "p7" (policies), "then", "axis", "grid", "wave" and "label" give it its
// colours. UTF-8.
std::string forecastChart(const ForecastPair& forecast, const ChartSize& size);

}  // namespace console
