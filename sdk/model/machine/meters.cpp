#include "model/machine/meters.h"

#include <algorithm>

namespace jxmodel {
namespace {

double filledUp(double tokens, const MachineSettings::Rate& rate, double seconds) {
  return std::min(tokens + rate.per_second * seconds, static_cast<double>(rate.burst));
}

}  // namespace

Colour MeterArray::Cell::take(double tokens, uint64_t now) {
  if (!rates) return Colour::kGreen;
  if (!filled) {
    committed = static_cast<double>(rates->committed.burst);
    peak = static_cast<double>(rates->peak.burst);
    filled = now;
  }
  if (now > *filled) {
    const double seconds = static_cast<double>(now - *filled) / 1e9;
    committed = filledUp(committed, rates->committed, seconds);
    peak = filledUp(peak, rates->peak, seconds);
  }
  filled = now;  // also where the clock was set back
  if (peak < tokens) return Colour::kRed;
  peak -= tokens;
  if (committed < tokens) return Colour::kYellow;
  committed -= tokens;
  return Colour::kGreen;
}

MeterArray::Cell MeterArray::cellOf(uint32_t index) const {
  const auto found = cells_.find(index);
  if (found != cells_.end()) return found->second;
  Cell cell;
  cell.rates = all_;
  return cell;
}

std::optional<MeterArray::Rates> MeterArray::rates(uint32_t index) const {
  const MutexLock lock(mutex_);
  return cellOf(index).rates;
}

void MeterArray::setRates(uint32_t index, const std::optional<Rates>& rates) {
  const MutexLock lock(mutex_);
  Cell& cell = cells_[index];
  cell = Cell{};
  cell.rates = rates;
  if (rates) limits_.store(true, std::memory_order_release);
}

void MeterArray::setAllRates(const std::optional<Rates>& rates) {
  const MutexLock lock(mutex_);
  cells_.clear();
  all_ = rates;
  limits_.store(rates.has_value(), std::memory_order_release);
}

Colour MeterArray::execute(uint32_t index, uint32_t bytes, uint64_t now) {
  if (!limits()) return Colour::kGreen;
  const MutexLock lock(mutex_);
  const auto found = cells_.find(index);
  if (found == cells_.end() && !all_) return Colour::kGreen;
  Cell& cell =
      found == cells_.end() ? cells_.emplace(index, cellOf(index)).first->second : found->second;
  return cell.take(counts_bytes_ ? bytes : 1, now);
}

Colour MeterArray::ask(uint32_t index, uint32_t bytes, uint64_t now) const {
  if (!limits()) return Colour::kGreen;
  const MutexLock lock(mutex_);
  return cellOf(index).take(counts_bytes_ ? bytes : 1, now);
}

}  // namespace jxmodel
