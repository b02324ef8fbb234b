// The reader of the segment against writers, against damage, and against a segment that shrinks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "JexHybridSlice/JexPartnerLibWire.h"
#include "endtoend/counter_segment.h"
#include "sample.h"
#include "segment.h"
#include "support/wait_until.h"

namespace {

using jextest::CounterSegment;
using slice_counters::Block;
using slice_counters::BlockSample;
using slice_counters::readBlocks;
using slice_counters::Segment;

static_assert(slice_counters::kBlockHeaderBytes == sizeof(PartnerLib::CounterBlockHeader_t));
static_assert(slice_counters::kLastSyncAt ==
              offsetof(PartnerLib::CounterBlockHeader_t, lastReadTime));

/// A thread that does something again and again until it goes out of scope.
template <typename Step>
class Meanwhile {
 public:
  explicit Meanwhile(Step step)
      : thread_([this, step]() mutable {
          while (!done_) step();
        }) {}
  ~Meanwhile() {
    done_ = true;
    thread_.join();
  }
  Meanwhile(const Meanwhile&) = delete;
  Meanwhile& operator=(const Meanwhile&) = delete;

 private:
  std::atomic<bool> done_{false};
  std::thread thread_;
};

class SegmentReader : public testing::Test {
 protected:
  explicit SegmentReader(std::chrono::milliseconds patience = std::chrono::milliseconds(100))
      : sut_(patience) {}

  void attach() {
    std::string why;
    ASSERT_TRUE(sut_.attach(&why)) << why;
  }

  CounterSegment segment_;
  Segment sut_;
};

TEST_F(SegmentReader, FindsEveryBlockAtItsPlace) {
  std::vector<Block> expected;
  std::mt19937 random(1);
  std::vector<uint32_t> ids;
  for (uint32_t id = 1; id <= 1000; ++id) ids.push_back(id * 4000037);
  std::shuffle(ids.begin(), ids.end(), random);
  for (const uint32_t id : ids) {
    const auto entries = static_cast<uint32_t>(random() % 200);
    segment_.construct(id, entries);
    expected.push_back({id, entries, segment_.offset(id)});
  }
  std::sort(expected.begin(), expected.end(),
            [](const Block& a, const Block& b) { return a.table_id < b.table_id; });
  attach();
  std::vector<Block> blocks;
  ASSERT_TRUE(sut_.blocks(&blocks));
  EXPECT_TRUE(blocks == expected);
}

TEST_F(SegmentReader, TellsWhetherTheNameStillLeadsToIt) {
  attach();
  EXPECT_TRUE(sut_.current());
  const CounterSegment another;
  EXPECT_FALSE(sut_.current());
  attach();
  EXPECT_TRUE(sut_.current());
  CounterSegment::remove();
  EXPECT_FALSE(sut_.current());
}

/// A reader that does not mind how long a writer pauses with the index half changed.
class PatientSegmentReader : public SegmentReader {
 protected:
  PatientSegmentReader() : SegmentReader(jextest::kPatience) {}
};

TEST_F(PatientSegmentReader, ListsOnlyWhatIsThereWhileBlocksComeAndGo) {
  constexpr uint32_t kSteady = 50;
  constexpr int kChanges = 20000;
  for (uint32_t id = 1; id <= kSteady; ++id) segment_.construct(id, id);
  std::map<uint32_t, uint64_t> places;
  for (uint32_t id = 1; id <= kSteady; ++id) places[id] = segment_.offset(id);
  attach();
  std::atomic<int> changes{0};
  int rounds = 0;
  int whole = 0;
  {
    const Meanwhile partner(
        [this, &changes, random = std::mt19937(7), started = std::set<uint32_t>()]() mutable {
          const auto id = static_cast<uint32_t>(1000 + random() % 200);
          if (started.erase(id) == 0) {
            segment_.construct(id, id);
            started.insert(id);
          } else {
            segment_.destroy(id);
          }
          ++changes;
        });
    for (; changes < kChanges; ++rounds) {
      std::vector<Block> blocks;
      if (!sut_.blocks(&blocks)) continue;
      uint32_t steady = 0;
      for (const Block& block : blocks) {
        ASSERT_EQ(block.entries, block.table_id);
        if (block.table_id > kSteady) continue;
        ASSERT_EQ(block.offset, places[block.table_id]);
        ++steady;
      }
      if (steady == kSteady) ++whole;
    }
  }
  // No Partner changes its tables without a pause. Even then most listings are whole.
  std::printf("%d of %d listings have all blocks that stay\n", whole, rounds);
  EXPECT_GT(whole, rounds / 2);
  std::vector<Block> blocks;
  ASSERT_TRUE(sut_.blocks(&blocks));
  EXPECT_TRUE(std::all_of(places.begin(), places.end(), [&](const auto& place) {
    const Block block{place.first, place.first, place.second};
    return std::find(blocks.begin(), blocks.end(), block) != blocks.end();
  }));
}

TEST_F(SegmentReader, AValueIsNeverHalfOldAndHalfNew) {
  constexpr uint32_t kEntries = 5000;
  segment_.construct(9, kEntries);
  attach();
  // Both halves of each value change at once.
  constexpr uint64_t kOne = 0x0000000100000001;
  const Meanwhile agent([this, round = uint64_t{1}]() mutable {
    for (uint32_t i = 0; i < kEntries; ++i) segment_.set(9, i, round * kOne, round * kOne);
    segment_.sync(9, round++);
  });
  const auto halved = [](uint64_t value) { return value >> 32 != (value & 0xFFFFFFFF); };
  for (int look = 0; look < 200; ++look) {
    std::vector<BlockSample> samples;
    ASSERT_TRUE(readBlocks(sut_, {}, &samples));
    ASSERT_EQ(samples.size(), 1u);
    for (const PartnerCounterEntry& entry : samples[0].counters) {
      ASSERT_FALSE(halved(entry.packets) || halved(entry.bytes)) << std::hex << entry.packets;
    }
  }
}

TEST_F(SegmentReader, ASegmentThatIsCutOffEndsTheRead) {
  segment_.construct(9, 1000000);
  attach();
  std::vector<BlockSample> samples;
  ASSERT_TRUE(readBlocks(sut_, {}, &samples));
  std::filesystem::resize_file(CounterSegment::path(), 1 << 20);
  EXPECT_FALSE(readBlocks(sut_, {}, &samples));
  std::filesystem::resize_file(CounterSegment::path(), 0);
  std::vector<Block> blocks;
  EXPECT_FALSE(sut_.blocks(&blocks));
}

/// Damage to the segment, done and undone. The reader has no patience: the damage does not go away.
class DamagedSegment : public SegmentReader {
 protected:
  DamagedSegment() : SegmentReader(std::chrono::milliseconds(0)) {}

  static constexpr size_t kBytes = 134217728;
  static constexpr size_t kUsed = 8192;  // of it by what SetUp makes

  void SetUp() override {
    for (uint32_t id = 1; id <= 20; ++id) segment_.construct(id, id % 5);
    segment_.constructOther("a longer name of something else", 3);
    const int fd = open(CounterSegment::path().c_str(), O_RDWR);
    memory_ = static_cast<char*>(mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
    ASSERT_NE(memory_, MAP_FAILED);
    sound_.assign(memory_, memory_ + kUsed);
    attach();
  }
  void TearDown() override {
    restore();  // the Partner's own view has to be sound when it lets go
    munmap(memory_, kBytes);
  }
  void restore() { std::memcpy(memory_, sound_.data(), kUsed); }

  /// Lists the blocks of what there is now. Whatever is listed has to lie in the segment.
  bool list() {
    std::vector<Block> blocks;
    const bool listed = sut_.blocks(&blocks);
    for (const Block& block : blocks) {
      EXPECT_LE(block.offset + 12 + 16 * uint64_t{block.entries}, kBytes);
    }
    std::vector<BlockSample> samples;
    if (listed) readBlocks(sut_, {}, &samples);
    return listed;
  }

  char* memory_ = nullptr;
  std::vector<char> sound_;
};

TEST_F(DamagedSegment, WordsOfEveryKindAtEveryPlace) {
  std::vector<Block> blocks;
  ASSERT_TRUE(sut_.blocks(&blocks));
  ASSERT_EQ(blocks.size(), 20u);
  const uint64_t words[] = {
      0, 1, 8, ~uint64_t{0}, ~uint64_t{15}, 0x8000000, uint64_t{1} << 63, 0x0101010101010101};
  int refused = 0;
  for (const uint64_t word : words) {
    for (size_t at = 16; at + 8 <= kUsed; at += 8) {
      std::memcpy(memory_ + at, &word, sizeof word);
      if (!list()) ++refused;
      restore();
    }
  }
  // Links of 21 nodes and of the head, sizes, names: most words are no part of the index.
  EXPECT_GT(refused, 100);
  EXPECT_TRUE(list());
}

TEST_F(DamagedSegment, BytesAtRandom) {
  std::mt19937_64 random(3);
  int refused = 0;
  for (int round = 0; round < 3000; ++round) {
    for (int i = 0; i < 8; ++i) memory_[16 + random() % (kUsed - 16)] = static_cast<char>(random());
    if (!list()) ++refused;
    restore();
  }
  EXPECT_GT(refused, 100);
  EXPECT_TRUE(list());
}

}  // namespace
