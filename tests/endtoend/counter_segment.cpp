#include "endtoend/counter_segment.h"

#include <gtest/gtest.h>

#include <cstring>

namespace jextest {
namespace {

namespace bip = boost::interprocess;

constexpr const char* kName = "PARTNERLIB_SHM_COUNTERS";
constexpr size_t kBytes = 134217728;

bip::managed_shared_memory makeSegment() {
  bip::shared_memory_object::remove(kName);
  return {bip::open_or_create, kName, kBytes, nullptr, bip::permissions(0644)};
}

}  // namespace

CounterSegment::CounterSegment() : segment_(makeSegment()) {}

CounterSegment::~CounterSegment() { bip::shared_memory_object::remove(kName); }

void CounterSegment::remove() { EXPECT_TRUE(bip::shared_memory_object::remove(kName)); }

std::string CounterSegment::path() { return std::string("/dev/shm/") + kName; }

void CounterSegment::construct(uint32_t table_id, uint32_t entries) {
  const std::string name = std::to_string(table_id);
  segment_.construct<unsigned char>(name.c_str())[12 + 16 * size_t{entries}](0);
}

void CounterSegment::destroy(uint32_t table_id) {
  EXPECT_TRUE(segment_.destroy<unsigned char>(std::to_string(table_id).c_str()));
}

void CounterSegment::constructOther(const std::string& name, size_t bytes) {
  segment_.construct<unsigned char>(name.c_str())[bytes](0);
}

char* CounterSegment::block(uint32_t table_id) {
  const std::string name = std::to_string(table_id);
  return reinterpret_cast<char*>(segment_.find<unsigned char>(name.c_str()).first);
}

uint64_t CounterSegment::offset(uint32_t table_id) {
  return static_cast<uint64_t>(block(table_id) - static_cast<char*>(segment_.get_address()));
}

void CounterSegment::set(uint32_t table_id, uint32_t index, uint64_t packets, uint64_t bytes) {
  char* const entry = block(table_id) + 12 + 16 * size_t{index};
  std::memcpy(entry, &packets, sizeof packets);
  std::memcpy(entry + 8, &bytes, sizeof bytes);
}

void CounterSegment::sync(uint32_t table_id, uint64_t time_ms) {
  std::memcpy(block(table_id) + 4, &time_ms, sizeof time_ms);
}

}  // namespace jextest
