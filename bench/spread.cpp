#include "spread.h"

#include <algorithm>

namespace bench {

double percentile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<size_t>(place);
  const size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
}

nlohmann::ordered_json spread(const std::vector<double>& values) {
  return {{"median", percentile(values, 0.5)},
          {"p10", percentile(values, 0.1)},
          {"p90", percentile(values, 0.9)},
          {"rounds", values}};
}

}  // namespace bench
