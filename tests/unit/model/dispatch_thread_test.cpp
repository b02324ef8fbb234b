// The thread on which a device tells the application what happened.
#include "model/notify/dispatch_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace {

using jxmodel::DispatchThread;
using std::chrono::milliseconds;

/// Waits until all that was posted has come to its end.
void drain(DispatchThread& sut) {
  const auto reached = std::make_shared<std::promise<void>>();
  sut.post([reached] { reached->set_value(); });
  reached->get_future().wait();
}

TEST(DispatchThread, RunsWorkInOrderOnOneOtherThread) {
  DispatchThread sut;
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  for (int i = 0; i < 1000; ++i) {
    sut.post([&, i] {
      order.push_back(i);
      threads.push_back(std::this_thread::get_id());
    });
  }
  drain(sut);
  ASSERT_EQ(order.size(), 1000u);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(order[i], i);
    EXPECT_EQ(threads[i], threads[0]);
  }
  EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(DispatchThread, DelayedWorkHoldsBackWhatComesAfterIt) {
  DispatchThread sut;
  const auto posted = std::chrono::steady_clock::now();
  std::vector<int> order;
  std::chrono::steady_clock::time_point first;
  sut.post(
      [&] {
        first = std::chrono::steady_clock::now();
        order.push_back(1);
      },
      milliseconds(30));
  sut.post([&] { order.push_back(2); });
  drain(sut);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_GE(first - posted, milliseconds(30));
}

TEST(DispatchThread, HeldBeginsNothingUntilItIsLetGo) {
  std::promise<void> begun, go;
  std::atomic<int> runs = 0;
  DispatchThread sut;
  sut.post([&] {
    begun.set_value();
    go.get_future().wait();
    ++runs;
  });
  begun.get_future().wait();
  sut.hold(true);
  sut.post([&] { ++runs; });
  EXPECT_EQ(sut.pending(), 2u);
  go.set_value();
  while (sut.pending() != 1) std::this_thread::yield();
  EXPECT_EQ(runs, 1);  // what ran came to its end
  sut.hold(false);
  drain(sut);
  EXPECT_EQ(runs, 2);
}

TEST(DispatchThread, EndDropsWhatHasNotBegunAndWaitsForWhatRuns) {
  std::promise<void> begun, go;
  std::atomic<bool> first = false, second = false;
  DispatchThread sut;
  auto held_by_work = std::make_shared<int>(1);
  sut.post([&] {
    begun.set_value();
    go.get_future().wait();
    first = true;
  });
  sut.post([&second, held_by_work] { second = true; });
  begun.get_future().wait();
  std::thread ending([&] {
    sut.end();
    EXPECT_TRUE(first);
  });
  while (sut.pending() != 1) std::this_thread::yield();  // the second one has been dropped
  go.set_value();
  ending.join();
  EXPECT_FALSE(second);
  EXPECT_EQ(held_by_work.use_count(), 1);
  sut.post([&] { second = true; });
  EXPECT_EQ(sut.pending(), 0u);
  sut.end();
  EXPECT_FALSE(second);
}

TEST(DispatchThread, EndWaitsNeitherForDelaysNorForWhoeverHoldsIt) {
  bool ran = false;
  DispatchThread sut;
  sut.post([&] { ran = true; }, std::chrono::hours(24));
  sut.end();
  EXPECT_FALSE(ran);
  DispatchThread held;
  held.hold(true);
  held.post([&] { ran = true; });
  held.end();
  EXPECT_FALSE(ran);
}

TEST(DispatchThread, MayBeEndedAndDestroyedByItsOwnWork) {
  std::promise<void> go;
  const auto ended = std::make_shared<std::promise<void>>();
  auto sut = std::make_unique<DispatchThread>();
  std::atomic<bool> later = false;
  sut->post([&, ended] {
    go.get_future().wait();
    sut->end();
    sut.reset();
    ended->set_value();
  });
  sut->post([&] { later = true; });
  go.set_value();
  ended->get_future().wait();
  EXPECT_EQ(sut, nullptr);
  EXPECT_FALSE(later);
}

}  // namespace
