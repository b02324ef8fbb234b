// How figures of several rounds lie.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

namespace bench {

/// The value below which `part` of them lie. There is at least one.
double percentile(std::vector<double> values, double part);

/// {"median", "p10", "p90", "rounds": all of them}
nlohmann::ordered_json spread(const std::vector<double>& values);

}  // namespace bench
