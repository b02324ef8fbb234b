#include "model/tuple_space.h"

#include <algorithm>

namespace jxmodel {
namespace {

uint8_t* bytesIn(std::string* text) { return reinterpret_cast<uint8_t*>(text->data()); }

}  // namespace

TupleSpace::TupleSpace(const KeyCodec& codec) : codec_(codec) {}

void TupleSpace::split(const uint8_t* key, std::string* mask, std::string* values) const {
  mask->resize(codec_.valueBytes());
  values->resize(codec_.valueBytes());
  codec_.compared(key, bytesIn(mask), bytesIn(values));
}

void TupleSpace::add(const Item& item) {
  std::string mask, values;
  split(item.key, &mask, &values);
  Tuple& tuple = tuples_[mask];
  tuple.max_priority = std::max(tuple.max_priority, item.priority);
  Bucket& bucket = tuple.buckets[values];
  const auto behind = std::partition_point(bucket.begin(), bucket.end(),
                                           [&item](const Item& other) { return other.wins(item); });
  bucket.insert(behind, item);
}

void TupleSpace::remove(const Item& item) {
  std::string mask, values;
  split(item.key, &mask, &values);
  const auto tuple = tuples_.find(mask);
  if (tuple == tuples_.end()) return;
  const auto bucket = tuple->second.buckets.find(values);
  if (bucket == tuple->second.buckets.end()) return;
  Bucket& items = bucket->second;
  const auto found = std::partition_point(items.begin(), items.end(),
                                          [&item](const Item& other) { return other.wins(item); });
  if (found == items.end() || found->slot != item.slot) return;
  items.erase(found);
  if (!items.empty()) return;
  tuple->second.buckets.erase(bucket);
  if (tuple->second.buckets.empty()) tuples_.erase(tuple);
}

uint32_t TupleSpace::lookup(const uint8_t* values) const {
  const Item* best = nullptr;
  std::string masked(codec_.valueBytes(), '\0');
  for (const auto& [mask, tuple] : tuples_) {
    if (best != nullptr && tuple.max_priority < best->priority) continue;
    for (size_t i = 0; i < masked.size(); ++i) {
      masked[i] = static_cast<char>(static_cast<uint8_t>(mask[i]) & values[i]);
    }
    const auto bucket = tuple.buckets.find(masked);
    if (bucket == tuple.buckets.end()) continue;
    for (const Item& item : bucket->second) {
      if (best != nullptr && !item.wins(*best)) break;
      if (!codec_.inRanges(item.key, values)) continue;
      best = &item;
      break;
    }
  }
  return best == nullptr ? kNoSlot : best->slot;
}

}  // namespace jxmodel
