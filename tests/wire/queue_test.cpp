// The queue functions by themselves: what is put in here is put in by the test.
#include <concurrentqueue/concurrentqueue.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "support/helper.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/malloc_fault.h"
#include "wire/new_hooks.h"
#include "wire/notify_frames.h"
#include "wire/queue_from_c.h"

namespace jextest {
namespace {

using Queue = moodycamel::ConcurrentQueue<void*>;

void* createQueue(const char* name, size_t size = 64) {
  void* handle = nullptr;
  EXPECT_TRUE(PartnerNotificationQueueCreate(name, size, &handle));
  EXPECT_NE(handle, nullptr);
  return handle;
}

/// A queue that is destroyed with its test.
class TestQueue {
 public:
  explicit TestQueue(const char* name, size_t size = 64) : handle_(createQueue(name, size)) {}
  ~TestQueue() { EXPECT_TRUE(PartnerNotificationQueueDestroy(handle_)); }
  TestQueue(const TestQueue&) = delete;
  TestQueue& operator=(const TestQueue&) = delete;
  void* handle() const { return handle_; }
  Queue& queue() const { return *static_cast<Queue*>(handle_); }

 private:
  void* handle_;
};

class Token {
 public:
  explicit Token(const TestQueue& queue)
      : queue_(queue), token_(PartnerNotificationQueueCreateToken(queue.handle())) {}
  ~Token() { PartnerNotificationQueueDeleteToken(token_); }
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;
  moodycamel::ProducerToken* get() const { return token_; }
  void put(void* value) const { ASSERT_TRUE(queue_.queue().enqueue(*token_, value)); }
  /// A buffer of `size` bytes, as the receive thread makes them.
  void putBuffer(size_t size, uint8_t first) const {
    auto* const buffer = new uint8_t[size]();
    buffer[0] = first;
    put(buffer);
  }

 private:
  const TestQueue& queue_;
  moodycamel::ProducerToken* token_;
};

std::vector<void*> take(void* queue, size_t count) {
  std::vector<void*> values(count);
  values.resize(PartnerNotificationQueueTryDequeue(queue, values.data(), count));
  return values;
}

/// Something to put into a queue that is not looked at.
void* number(uintptr_t value) { return reinterpret_cast<void*>(value); }

TEST(Queue, OfTheSameNameIsTheSame) {
  const TestQueue first("q", 8);
  void* second = nullptr;
  EXPECT_TRUE(PartnerNotificationQueueCreate("q", 100000, &second));
  EXPECT_EQ(second, first.handle());
}

TEST(Queue, OfAnotherNameIsAnother) {
  const TestQueue first("q1");
  const TestQueue second("q2");
  const TestQueue nameless("");
  EXPECT_NE(first.handle(), second.handle());
  EXPECT_NE(first.handle(), nameless.handle());
  EXPECT_EQ(createQueue("q1"), first.handle());
  EXPECT_EQ(createQueue("q2"), second.handle());
  EXPECT_EQ(createQueue(""), nameless.handle());
}

TEST(Queue, NameIsCopied) {
  std::string name = "copied";
  const TestQueue first(name.c_str());
  name = "others";
  EXPECT_EQ(createQueue("copied"), first.handle());
}

TEST(Queue, NameIsFreeAgainAfterDestruction) {
  void* const first = createQueue("again");
  const TestQueue other("other");
  {
    const std::unique_ptr<moodycamel::ProducerToken, void (*)(moodycamel::ProducerToken*)> token(
        PartnerNotificationQueueCreateToken(first), &PartnerNotificationQueueDeleteToken);
    ASSERT_TRUE(static_cast<Queue*>(first)->enqueue(*token, number(5)));
  }
  EXPECT_TRUE(PartnerNotificationQueueDestroy(first));
  const TestQueue second("again");
  EXPECT_TRUE(take(second.handle(), 10).empty()) << "nothing of the first is left";
  EXPECT_EQ(createQueue("again"), second.handle());
  EXPECT_EQ(createQueue("other"), other.handle());
}

// The new queue gets memory that was taken while the old one lived.
TEST(Queue, NewQueueOfAnOldNameHasANewHandle) {
  void* const first = createQueue("renewed");
  void* const fresh = std::malloc(sizeof(Queue));
  EXPECT_TRUE(PartnerNotificationQueueDestroy(first));
  reuseInNewOf(sizeof(Queue), fresh);
  const TestQueue second("renewed");
  EXPECT_EQ(second.handle(), fresh) << "not made anew";
  EXPECT_NE(second.handle(), first);
  EXPECT_EQ(createQueue("renewed"), fresh);
}

TEST(Queue, DestroyingNoneIsDoneAndChangesNothing) {
  const TestQueue queue("stays");
  EXPECT_TRUE(PartnerNotificationQueueDestroy(nullptr));
  EXPECT_EQ(createQueue("stays"), queue.handle());
}

TEST(Queue, IsNotLeftWithoutANameWhenAnotherIsDestroyed) {
  const TestQueue first("a");
  void* const second = createQueue("b");
  const TestQueue third("c");
  EXPECT_TRUE(PartnerNotificationQueueDestroy(second));
  EXPECT_EQ(createQueue("a"), first.handle());
  EXPECT_EQ(createQueue("c"), third.handle());
}

TEST(Queue, WithoutANameIsALogicError) {
  void* handle = number(7);
  try {
    PartnerNotificationQueueCreate(nullptr, 8, &handle);
    FAIL() << "no exception";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    EXPECT_EQ(typeid(error), typeid(std::logic_error));
  }
}

TEST(Queue, HasRoomForItsSizeInWholeBlocks) {
  for (const size_t size : {1u, 32u, 33u, 64u, 65u}) {
    SCOPED_TRACE(size);
    const TestQueue queue("sized", size);
    const Token token(queue);
    const size_t room = (size + 31) / 32 * 32;
    for (size_t i = 0; i < room; ++i) {
      EXPECT_TRUE(queue.queue().try_enqueue(*token.get(), number(i + 1))) << i;
    }
    EXPECT_FALSE(queue.queue().try_enqueue(*token.get(), number(1)));
    EXPECT_EQ(take(queue.handle(), room + 10).size(), room);
  }
}

TEST(Queue, GrowsBeyondItsSize) {
  const TestQueue queue("grows", 0);
  const Token token(queue);
  for (uintptr_t i = 1; i <= 1000; ++i) token.put(number(i));
  EXPECT_EQ(take(queue.handle(), 2000).size(), 1000u);
}

TEST(Dequeue, OfAnEmptyQueueTakesNothing) {
  const TestQueue queue("empty");
  void* value = number(9);
  EXPECT_EQ(PartnerNotificationQueueTryDequeue(queue.handle(), &value, 1), 0u) << "no producer";
  const Token token(queue);
  EXPECT_EQ(PartnerNotificationQueueTryDequeue(queue.handle(), &value, 1), 0u) << "a producer";
  EXPECT_EQ(value, number(9));
}

TEST(Dequeue, OfNoneTakesNone) {
  const TestQueue queue("none");
  const Token token(queue);
  token.put(number(1));
  void* value = number(9);
  EXPECT_EQ(PartnerNotificationQueueTryDequeue(queue.handle(), &value, 0), 0u);
  EXPECT_EQ(PartnerNotificationQueueTryDequeue(queue.handle(), nullptr, 0), 0u);
  EXPECT_EQ(value, number(9));
  EXPECT_EQ(take(queue.handle(), 1), std::vector<void*>{number(1)});
}

TEST(Dequeue, TakesNoMoreThanAskedForInOrder) {
  const TestQueue queue("bounded");
  const Token token(queue);
  for (uintptr_t i = 1; i <= 5; ++i) token.put(number(i));
  void* values[4] = {nullptr, nullptr, nullptr, number(99)};
  EXPECT_EQ(PartnerNotificationQueueTryDequeue(queue.handle(), values, 3), 3u);
  EXPECT_EQ(values[0], number(1));
  EXPECT_EQ(values[1], number(2));
  EXPECT_EQ(values[2], number(3));
  EXPECT_EQ(values[3], number(99)) << "not to be written";
  EXPECT_EQ(take(queue.handle(), 10), (std::vector<void*>{number(4), number(5)}));
}

TEST(Dequeue, BeginsWithTheProducerThatCameLast) {
  const TestQueue queue("producers");
  const Token first(queue);
  const Token second(queue);
  for (uintptr_t i = 1; i <= 3; ++i) {
    first.put(number(i));
    second.put(number(10 + i));
  }
  EXPECT_EQ(take(queue.handle(), 4),
            (std::vector<void*>{number(11), number(12), number(13), number(1)}));
  EXPECT_EQ(take(queue.handle(), 4), (std::vector<void*>{number(2), number(3)}));
}

TEST(Token, LeavesWhatItPutIn) {
  const TestQueue queue("left");
  {
    const Token token(queue);
    token.put(number(1));
    token.put(number(2));
  }
  EXPECT_EQ(take(queue.handle(), 10), (std::vector<void*>{number(1), number(2)}));
}

TEST(Token, TakesThePlaceOfOneThatWasGivenBack) {
  const TestQueue queue("reused");
  { const Token token(queue); }
  const Token second(queue);
  second.put(number(1));
  const Token third(queue);
  third.put(number(2));
  // Two places in all: the third came last, so it is asked first.
  EXPECT_EQ(take(queue.handle(), 10), (std::vector<void*>{number(2), number(1)}));
}

TEST(Token, OfNoneIsDeletedWithoutEffect) { PartnerNotificationQueueDeleteToken(nullptr); }

TEST(Token, IsNullWithoutMemory) {
  const TestQueue queue("no_memory");
  failNothrowNewOf(sizeof(moodycamel::ProducerToken));
  EXPECT_EQ(PartnerNotificationQueueCreateToken(queue.handle()), nullptr);
  const Token token(queue);
  EXPECT_NE(token.get(), nullptr);
}

JEX_HELPER(token_without_a_producer) {
  void* queue = nullptr;
  PartnerNotificationQueueCreate("no_producer", 8, &queue);
  failMallocs();
  const bool is_null = PartnerNotificationQueueCreateToken(queue) == nullptr;
  PartnerNotificationQueueDestroy(queue);
  return is_null ? 42 : 1;
}

TEST(Token, IsNullWithoutMemoryForItsProducer) {
  Child child = Child::helper("token_without_a_producer");
  EXPECT_EQ(child.waitForExit().code, 42) << child.standardError();
}

TEST(ValuesFree, FreesEachBufferOnce) {
  const TestQueue queue("freed");
  const Token token(queue);
  const long before = livingArrays();
  for (size_t i = 0; i < 40; ++i) token.putBuffer(20 + i, 0);
  EXPECT_EQ(livingArrays(), before + 40);
  std::vector<void*> values = take(queue.handle(), 100);
  ASSERT_EQ(values.size(), 40u);
  const std::vector<void*> copy = values;
  PartnerNotificationQueueValuesFree(values.data(), values.size());
  EXPECT_EQ(livingArrays(), before);
  EXPECT_EQ(values, copy) << "the entries stay as they are";
}

TEST(ValuesFree, LeavesOutNullsAndWhatIsBeyondTheCount) {
  const long before = livingArrays();
  std::vector<void*> values = {nullptr,           new uint8_t[1], nullptr,
                               new uint8_t[2000], nullptr,        new uint8_t[3]};
  PartnerNotificationQueueValuesFree(values.data(), 5);
  EXPECT_EQ(livingArrays(), before + 1);
  PartnerNotificationQueueValuesFree(values.data() + 5, 1);
  EXPECT_EQ(livingArrays(), before);
}

TEST(ValuesFree, OfNoneDoesNothing) {
  PartnerNotificationQueueValuesFree(nullptr, 0);
  void* value = number(1);
  PartnerNotificationQueueValuesFree(&value, 0);
}

TEST(QueueFromC, IsCreatedDrainedAndDestroyed) {
  void* queue = nullptr;
  ASSERT_TRUE(createQueueInC("from_c", 16, &queue));
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(createQueue("from_c"), queue) << "one registry for both languages";
  const long before = livingArrays();
  moodycamel::ProducerToken* const token = PartnerNotificationQueueCreateToken(queue);
  ASSERT_NE(token, nullptr);
  for (uint32_t i = 0; i < 30; ++i) {
    Bytes record = i % 3 == 0 ? idleRecord(1000 + i, i, i) : digestRecord(1000 + i, i, {1, 2, 3});
    if (i % 3 != 0) putU32(record, 16, 3);
    auto* const copy = new uint8_t[record.size()];
    std::copy(record.begin(), record.end(), copy);
    ASSERT_TRUE(static_cast<Queue*>(queue)->enqueue(*token, copy));
  }
  PartnerNotificationQueueDeleteToken(token);
  const QueueContents found = drainQueueInC(queue);
  EXPECT_EQ(found.idle, 10u);
  EXPECT_EQ(found.digests, 20u);
  EXPECT_EQ(found.values, 60u);
  EXPECT_EQ(found.ids, 30u * 1000 + 29 * 30 / 2);
  EXPECT_EQ(livingArrays(), before);
  EXPECT_EQ(drainQueueInC(queue).digests, 0u);
  EXPECT_TRUE(destroyQueueInC(queue));
  EXPECT_TRUE(destroyQueueInC(nullptr));
}

// Two queues at one address: what no allocator does, so the test's has to.
JEX_HELPER(queue_that_cannot_be_saved) {
  void* first = nullptr;
  void* second = nullptr;
  PartnerNotificationQueueCreate("one", 8, &first);
  reuseInNewOf(sizeof(Queue), first);
  PartnerNotificationQueueCreate("the other", 8, &second);
  return 0;
}

TEST(Queue, ThatCannotBeSavedStopsTheProcess) {
  Child child = Child::helper("queue_that_cannot_be_saved");
  expectStop(child, {"Error: Cannot save queue: the other", "JexPartnerLib",
                     "PartnerNotificationQueueCreate(", "res.second == true"});
}

/// What a producer puts in, so that a consumer can tell producers and positions apart.
constexpr uintptr_t kPerProducer = kSanitized ? 20000 : 200000;
void* numbered(uintptr_t producer, uintptr_t position) {
  return number(producer << 32 | (position + 1));
}

/// Takes until `total` have been taken by all; keeps each producer's order.
void consume(void* queue, uintptr_t total, std::atomic<uintptr_t>* taken,
             std::vector<uintptr_t>* own) {
  void* values[37];
  uintptr_t last[4] = {};
  while (*taken < total) {
    const size_t count = PartnerNotificationQueueTryDequeue(queue, values, 37);
    *taken += count;
    for (size_t i = 0; i < count; ++i) {
      const auto value = reinterpret_cast<uintptr_t>(values[i]);
      const uintptr_t position = value & 0xFFFFFFFF;
      EXPECT_GT(position, last[value >> 32]) << "out of order";
      last[value >> 32] = position;
      own->push_back(value);
    }
    if (count == 0) sched_yield();
  }
}

TEST(Dequeue, FromSeveralThreadsTakesEachOnceAndInOrder) {
  constexpr uintptr_t kProducers = 2;
  const TestQueue queue("threads", 1);
  std::atomic<uintptr_t> taken{0};
  std::vector<std::vector<uintptr_t>> found(3);
  std::vector<std::thread> threads;
  for (auto& own : found) {
    threads.emplace_back(consume, queue.handle(), kProducers * kPerProducer, &taken, &own);
  }
  for (uintptr_t producer = 0; producer < kProducers; ++producer) {
    threads.emplace_back([&queue, producer] {
      const Token token(queue);
      for (uintptr_t i = 0; i < kPerProducer; ++i) token.put(numbered(producer, i));
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<uintptr_t> all;
  for (const auto& own : found) all.insert(all.end(), own.begin(), own.end());
  ASSERT_EQ(all.size(), kProducers * kPerProducer);
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "taken twice";
}

// Creation and destruction by name from several threads: each finds its own queue again.
TEST(Queue, MayBeCreatedAndDestroyedByManyThreads) {
  constexpr int kRounds = kSanitized ? 300 : 3000;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string name = "own" + std::to_string(t);
      for (int round = 0; round < kRounds; ++round) {
        void* const queue = createQueue(name.c_str(), 8);
        EXPECT_EQ(createQueue(name.c_str(), 8), queue);
        EXPECT_TRUE(PartnerNotificationQueueDestroy(queue));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace jextest
