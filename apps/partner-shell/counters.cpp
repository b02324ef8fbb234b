#include "counters.h"

#include "command_error.h"

namespace jexapps {

void Counters::start(const TableFacts& table, size_t size) {
  if (started_.count(table.id) != 0) {
    throw CommandError(table.name + ": counters have been started; counters-stop ends them");
  }
  if (!segment_is_ours_ && partner_.agentKeepsCounters()) {
    throw CommandError(table.name +
                       ": the slice agent has the counter segment of another partner, "
                       "and can have one only in its life; start it anew");
  }
  segment_is_ours_ = true;
  PartnerCounterTableHandle handle = nullptr;
  try {
    handle = partner_.startCounters(table);
  } catch (const std::exception& error) {
    throw CommandError(table.name + ": the shared segment has no room for the counters of " +
                       std::to_string(size) + " entries: " + error.what());
  }
  started_.emplace(table.id, Started{handle, size});
}

Counters::Reading Counters::read(const TableFacts& table, uint32_t first,
                                 std::optional<uint32_t> count) {
  const Started& counters = find(table);
  if (first > counters.size || count.value_or(0) > counters.size - first) {
    const std::string last =
        count.value_or(0) > 0 ? " to " + std::to_string(uint64_t{first} + *count - 1) : "";
    throw CommandError(table.name + ": it has no entries " + std::to_string(first) + last +
                       ", but " + std::to_string(counters.size) + ", counted from 0");
  }
  Reading reading;
  const auto wanted = count ? *count : static_cast<uint32_t>(counters.size - first);
  reading.entries.resize(wanted);
  if (!partner_.readCounters(counters.handle, first, wanted, reading.entries.data(),
                             &reading.synced)) {
    throw CommandError(table.name + ": its counters hold no values");
  }
  return reading;
}

void Counters::stop(const TableFacts& table) {
  const PartnerCounterTableHandle counters = handle(table);
  started_.erase(table.id);
  partner_.stopCounters(counters);
}

void Counters::stopAll() {
  for (const auto& [id, counters] : started_) partner_.stopCounters(counters.handle);
  started_.clear();
}

const Counters::Started& Counters::find(const TableFacts& table) const {
  const auto it = started_.find(table.id);
  if (it != started_.end()) return it->second;
  throw CommandError(table.name + ": counters have not been started; counters-start does so");
}

}  // namespace jexapps
