#include "counters.h"

#include <algorithm>

#include "command_error.h"

namespace jexapps {
namespace {

// What the segment and its bookkeeping take beside the counters, generously.
constexpr uint64_t kOverhead = 65536;

uint64_t counterBytes(size_t entries) { return entries * sizeof(PartnerCounterEntry); }

std::string kibibytes(uint64_t bytes) { return std::to_string((bytes + 1023) / 1024) + " KiB"; }

}  // namespace

void Counters::start(const TableFacts& table, size_t size) {
  if (started_.count(table.id) != 0) {
    throw CommandError(table.name + ": counters have been started; counters-stop ends them");
  }
  if (!segment_is_ours_ && partner_.agentKeepsCounters()) {
    throw CommandError(table.name +
                       ": the slice agent has the counter segment of another partner, "
                       "and can have one only in its life; start it anew");
  }
  checkRoom(table, counterBytes(size));
  segment_is_ours_ = true;
  PartnerCounterTableHandle handle = nullptr;
  try {
    handle = partner_.startCounters(table);
  } catch (const std::exception& error) {
    throw CommandError(table.name + ": the shared segment has no room for the counters of " +
                       std::to_string(size) + " entries: " + error.what());
  }
  started_.emplace(table.id, Started{handle, size});
  bytes_ += counterBytes(size);
  most_bytes_ = std::max(most_bytes_, bytes_);
}

// The segment takes memory where it is written for the first time, and where there is none the
// process ends. Its memory is filled from the front: without counters in it, what they had is used
// again; else nobody can say where the next ones come.
void Counters::checkRoom(const TableFacts& table, uint64_t bytes) const {
  const std::optional<uint64_t> free = partner_.freeSharedMemory();
  const uint64_t held = started_.empty() ? most_bytes_ : 0;
  const uint64_t needed = bytes + kOverhead - std::min(bytes + kOverhead, held);
  if (!free || needed <= *free) return;
  throw CommandError(table.name + ": its counters need " + kibibytes(needed) +
                     " of shared memory, and /dev/shm has " + kibibytes(*free) + " free");
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
  const Started counters = find(table);
  started_.erase(table.id);
  bytes_ -= counterBytes(counters.size);
  partner_.stopCounters(counters.handle);
}

void Counters::stopAll() {
  for (const auto& [id, counters] : started_) partner_.stopCounters(counters.handle);
  started_.clear();
  bytes_ = 0;
}

const Counters::Started& Counters::find(const TableFacts& table) const {
  const auto it = started_.find(table.id);
  if (it != started_.end()) return it->second;
  throw CommandError(table.name + ": counters have not been started; counters-start does so");
}

}  // namespace jexapps
