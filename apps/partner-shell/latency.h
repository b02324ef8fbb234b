// The library's histogram of barriers' round trips, for people and for scripts.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "partner.h"

namespace jexapps {

/// The round trips that bin `bin` counts: from `from` to below `below` milliseconds. The last bin
/// has no upper bound: `below` is 0.
struct BinRange {
  uint32_t from = 0;
  uint32_t below = 0;
};
BinRange rangeOfBin(size_t bin);

/// Whether the maximum is one of a round trip. A double barrier that is answered before its second
/// time stamp has come has a negative one, which the library takes for a huge positive one.
bool maxIsRoundTrip(const RoundTrips& trips);

uint64_t countOf(const RoundTrips& trips);

/// A line a bin. Bars are drawn if a line has `columns`; 0: none.
std::string renderBins(const RoundTrips& trips, size_t columns);

/// "13 barriers, longest 12 ms", and what is to be known about the maximum.
std::string renderSummary(const RoundTrips& trips);

nlohmann::ordered_json jsonOf(const RoundTrips& trips);

}  // namespace jexapps
