#include "latency.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <limits>

namespace jexapps {
namespace {

using Json = nlohmann::ordered_json;

constexpr uint32_t kFirstBound = 10;  // milliseconds: the first bin's
constexpr uint32_t kBinWidth = 5;     // of the others
constexpr size_t kMinBar = 10;        // columns: where there is less room, no bars

// Length of a bar that has `room` columns for `most`: at least one column for what is there.
size_t barLength(uint64_t count, uint64_t most, size_t room) {
  if (count == 0) return 0;
  const auto length = static_cast<size_t>(static_cast<double>(count) / static_cast<double>(most) *
                                          static_cast<double>(room));
  return std::clamp<size_t>(length, 1, room);
}

std::string binText(const RoundTrips& trips, size_t bin) {
  const BinRange range = rangeOfBin(bin);
  char text[64];
  if (range.below == 0) {
    std::snprintf(text, sizeof text, "%3u ms and more %12" PRIu64, range.from, trips.bins[bin]);
  } else {
    std::snprintf(text, sizeof text, "%3u to %3u ms    %11" PRIu64, range.from, range.below - 1,
                  trips.bins[bin]);
  }
  return text;
}

// By how many milliseconds a double barrier was answered too early.
uint64_t earlyBy(const RoundTrips& trips) { return uint64_t{0} - trips.max; }

}  // namespace

BinRange rangeOfBin(size_t bin) {
  if (bin == 0) return {0, kFirstBound};
  const auto from = static_cast<uint32_t>(kBinWidth * (bin + 1));
  return {from, bin + 1 < RoundTrips::kBins ? from + kBinWidth : 0};
}

bool maxIsRoundTrip(const RoundTrips& trips) {
  return trips.max <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
}

uint64_t countOf(const RoundTrips& trips) {
  uint64_t count = 0;
  for (const uint64_t bin : trips.bins) count += bin;
  return count;
}

std::string renderBins(const RoundTrips& trips, size_t columns) {
  const uint64_t most = *std::max_element(std::begin(trips.bins), std::end(trips.bins));
  std::string out;
  for (size_t bin = 0; bin < RoundTrips::kBins; ++bin) {
    std::string line = binText(trips, bin);
    const size_t margin = line.size() + 2;
    if (columns >= margin + kMinBar && trips.bins[bin] > 0) {
      line += "  " + std::string(barLength(trips.bins[bin], most, columns - margin), '#');
    }
    out += line + '\n';
  }
  return out;
}

std::string renderSummary(const RoundTrips& trips) {
  const uint64_t count = countOf(trips);
  std::string barriers = std::to_string(count) + (count == 1 ? " answer" : " answers");
  if (count == 0) return barriers;
  if (maxIsRoundTrip(trips)) return barriers + ", longest " + std::to_string(trips.max) + " ms";
  return barriers + ", longest unknown: a double barrier was answered " +
         std::to_string(earlyBy(trips)) +
         " ms before its second time stamp, which the library holds for " +
         std::to_string(trips.max) + " ms and counts in the last bin";
}

Json jsonOf(const RoundTrips& trips) {
  Json bins = Json::array();
  for (size_t bin = 0; bin < RoundTrips::kBins; ++bin) {
    const BinRange range = rangeOfBin(bin);
    Json row = {{"from", range.from}};
    if (range.below != 0) row["below"] = range.below;
    row["count"] = trips.bins[bin];
    bins.push_back(std::move(row));
  }
  return {{"answers", countOf(trips)},
          {"max", trips.max},
          {"max_is_round_trip", maxIsRoundTrip(trips)},
          {"bins", std::move(bins)}};
}

}  // namespace jexapps
