#include "wire/counter_segment.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/shared_memory_object.hpp>

namespace jextest {
namespace {

namespace bi = boost::interprocess;

constexpr char kName[] = "PARTNERLIB_SHM_COUNTERS";
constexpr size_t kSize = 134217728;

/// Other processes write while this one looks.
uint8_t byteAt(const unsigned char* at) { return __atomic_load_n(at, __ATOMIC_ACQUIRE); }

}  // namespace

struct CounterSegment::Mapping {
  bi::managed_shared_memory memory;
};

CounterSegment::CounterSegment(std::unique_ptr<Mapping> mapping) : mapping_(std::move(mapping)) {}
CounterSegment::CounterSegment(CounterSegment&&) noexcept = default;
CounterSegment::~CounterSegment() = default;

CounterSegment CounterSegment::create() {
  bi::shared_memory_object::remove(kName);
  auto mapping = std::make_unique<Mapping>();
  mapping->memory =
      bi::managed_shared_memory(bi::create_only, kName, kSize, nullptr, bi::permissions(0644));
  return CounterSegment(std::move(mapping));
}

CounterSegment CounterSegment::open() {
  auto mapping = std::make_unique<Mapping>();
  try {
    mapping->memory = bi::managed_shared_memory(bi::open_only, kName);
  } catch (const bi::interprocess_exception&) {
    mapping.reset();
  }
  return CounterSegment(std::move(mapping));
}

bool CounterSegment::none() const { return mapping_ == nullptr; }

void CounterSegment::makeBytes(const std::string& name, size_t bytes) {
  EXPECT_NO_THROW(mapping_->memory.construct<unsigned char>(name.c_str())[bytes](0));
}

void CounterSegment::destroyBlock(const std::string& name) {
  EXPECT_TRUE(mapping_->memory.destroy<unsigned char>(name.c_str())) << name;
}

size_t CounterSegment::blocks() const { return mapping_->memory.get_num_named_objects(); }

unsigned char* CounterSegment::find(const std::string& name, size_t* bytes) const {
  if (none()) return nullptr;
  const auto [block, size] = mapping_->memory.find<unsigned char>(name.c_str());
  *bytes = size;
  return block;
}

Bytes CounterSegment::block(const std::string& name) const {
  size_t size = 0;
  const unsigned char* const block = find(name, &size);
  Bytes bytes;
  if (block == nullptr) return bytes;
  bytes.reserve(size);
  for (size_t i = 0; i < size; ++i) bytes.push_back(byteAt(block + i));
  return bytes;
}

void CounterSegment::write(const std::string& name, const Bytes& bytes) {
  size_t size = 0;
  unsigned char* const block = find(name, &size);
  ASSERT_NE(block, nullptr) << name;
  ASSERT_LE(bytes.size(), size);
  for (size_t i = 0; i < bytes.size(); ++i) {
    __atomic_store_n(block + i, bytes[i], __ATOMIC_RELEASE);
  }
}

void CounterSegment::fill(const std::string& name, uint8_t byte) {
  size_t size = 0;
  unsigned char* const block = find(name, &size);
  ASSERT_NE(block, nullptr) << name;
  for (size_t i = 0; i < size; ++i) __atomic_store_n(block + i, byte, __ATOMIC_RELEASE);
}

void removeSegmentFile() { bi::shared_memory_object::remove(kName); }

SegmentFile segmentFile() {
  struct stat facts {};
  if (stat((std::string("/dev/shm/") + kName).c_str(), &facts) != 0) return {};
  return {static_cast<uint64_t>(facts.st_size), facts.st_mode & 07777u, facts.st_ino};
}

}  // namespace jextest
