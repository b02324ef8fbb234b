#include "model/tables/slot_hash.h"

namespace jxmodel {
namespace {

constexpr uint32_t kFirstLog2Count = 3;

}  // namespace

SlotHash::Cells::Cells(uint32_t log2_count)
    : shift(32 - log2_count),
      mask((1u << log2_count) - 1),
      at(new std::atomic<uint64_t>[size_t{1} << log2_count]) {
  for (uint32_t i = 0; i <= mask; ++i) at[i].store(kEmpty, std::memory_order_relaxed);
}

SlotHash::SlotHash(Reclaimer* reclaimer)
    : reclaimer_(reclaimer), cells_(new Cells(kFirstLog2Count)) {}

SlotHash::~SlotHash() { delete cells_.load(std::memory_order_relaxed); }

void SlotHash::put(Cells& cells, uint64_t cell) {
  uint32_t at = cells.home(hashOf(cell));
  while (cells.at[at].load(std::memory_order_relaxed) != kEmpty) at = cells.next(at);
  cells.at[at].store(cell, std::memory_order_release);
}

uint32_t SlotHash::placeOf(const Cells& cells, uint64_t cell) {
  uint32_t at = cells.home(hashOf(cell));
  while (cells.at[at].load(std::memory_order_relaxed) != cell) at = cells.next(at);
  return at;
}

void SlotHash::grow() {
  const Cells& old = own();
  auto* const grown = new Cells(32 - old.shift + 1);
  for (uint32_t i = 0; i < old.count(); ++i) {
    const uint64_t cell = old.at[i].load(std::memory_order_relaxed);
    if (cell != kEmpty) put(*grown, cell);
  }
  cells_.store(grown, std::memory_order_release);
  retire(reclaimer_, &old);
}

void SlotHash::insert(uint32_t hash, uint32_t slot) {
  // At most five eighths are used: probes stay short.
  if (uint64_t{used_} * 8 >= uint64_t{own().count()} * 5) grow();
  put(own(), cellOf(hash, slot));
  ++used_;
}

void SlotHash::replace(uint32_t hash, uint32_t slot, uint32_t by) {
  Cells& cells = own();
  cells.at[placeOf(cells, cellOf(hash, slot))].store(cellOf(hash, by), std::memory_order_release);
}

void SlotHash::erase(uint32_t hash, uint32_t slot) {
  Cells& cells = own();
  uint32_t hole = placeOf(cells, cellOf(hash, slot));
  // What stands behind moves up where it may, so that no cell is left that only fills a gap.
  for (uint32_t at = cells.next(hole);; at = cells.next(at)) {
    const uint64_t cell = cells.at[at].load(std::memory_order_relaxed);
    if (cell == kEmpty) break;
    const uint32_t from_home = (at - cells.home(hashOf(cell))) & cells.mask;
    const uint32_t from_hole = (at - hole) & cells.mask;
    if (from_home < from_hole) continue;
    cells.at[hole].store(cell, std::memory_order_release);
    hole = at;
  }
  cells.at[hole].store(kEmpty, std::memory_order_release);
  --used_;
}

}  // namespace jxmodel
