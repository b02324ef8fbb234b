// Counter syncs: who is told, when, on which thread, and what happens to them when the device goes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <numeric>

#include "jxmodel/faults.h"
#include "jxmodel/ports.h"
#include "jxmodel/service.h"
#include "jxsdk/drv.h"
#include "model/tables/counter_table.h"
#include "unit/model/counter_user.h"

namespace jxmodeltest {
namespace {

constexpr jx_dev_id_t kOther = 21;
using Kind = ModelDevice::Kind;

uint64_t pending(jx_dev_id_t dev_id) {
  uint64_t count = 0;
  EXPECT_EQ(jx_model_service_pending(dev_id, &count), JX_SUCCESS);
  return count;
}

class CounterSync : public testing::Test {
 protected:
  void TearDown() override { jx_model_fault_clear(); }

  jx_status_t sync(int number) { return sync(sut_, number); }
  jx_status_t sync(const CounterUser& table, int number) {
    return table.sync(Completions::completed, completions_.cookie(number));
  }
  void hold(bool held) { ASSERT_EQ(jx_model_service_hold(kCounted, held), JX_SUCCESS); }
  jxmodel::CounterTable& hardware() { return *device_.state("counters_8").counters; }

  Completions completions_;
  ModelDevice device_{kCounted, Kind::kPhysical, {countersOf({0, 8, 9})}};
  const CounterUser sut_{device_, "counters_8"};
};

TEST_F(CounterSync, CompletesInOrderOnOneThreadOfTheDevice) {
  const CounterUser other(device_, "counters_9");
  std::vector<int> expected(1000);
  std::iota(expected.begin(), expected.end(), 0);
  for (const int i : expected) ASSERT_EQ(sync(i % 3 == 0 ? other : sut_, i), JX_SUCCESS);
  completions_.wait(expected.size());
  EXPECT_EQ(completions_.order(), expected);
  for (const std::thread::id thread : completions_.threads()) {
    ASSERT_EQ(thread, completions_.threads()[0]);
    ASSERT_NE(thread, std::this_thread::get_id());
  }
  for (const jx_dev_id_t dev_id : completions_.devices()) ASSERT_EQ(dev_id, kCounted);
}

TEST_F(CounterSync, HasNeitherHappenedNorBeenToldWhileTheThreadIsHeld) {
  hold(true);
  ASSERT_EQ(sync(1), JX_SUCCESS);
  ASSERT_EQ(sync(2), JX_SUCCESS);
  EXPECT_EQ(pending(kCounted), 2U);
  hardware().count(0, 64);
  EXPECT_TRUE(completions_.order().empty());
  EXPECT_EQ(sut_.at(0), Pair(0, 0));
  hold(false);
  completions_.wait(2);
  EXPECT_EQ(sut_.at(0), Pair(1, 64));  // counted before it began
}

TEST_F(CounterSync, WithoutCallbackTellsNobody) {
  hardware().count(0, 64);
  ASSERT_EQ(sut_.sync(nullptr, completions_.cookie(1)), JX_SUCCESS);
  ASSERT_EQ(sync(2), JX_SUCCESS);
  completions_.wait(1);
  EXPECT_EQ(completions_.order(), std::vector<int>{2});
  EXPECT_EQ(sut_.at(0), Pair(1, 64));
}

TEST_F(CounterSync, OfAnEmptyTableCompletes) {
  const CounterUser empty(device_, "counters_0");
  ASSERT_EQ(sync(empty, 1), JX_SUCCESS);
  completions_.wait(1);
}

TEST_F(CounterSync, IsForCounterTablesOfPhysicalDevices) {
  const ModelDevice virt(kOther, Kind::kVirtual, {countersOf({8})});
  const ModelDevice other(kOther + 1, Kind::kPhysical, {everyKind()});
  jx_rt_table_operations_hdl* operations = nullptr;
  const auto allocate = [&](const jxrt::JxRtTable& table, int mode) {
    return jx_rt_table_operations_allocate(reinterpret_cast<const jx_rt_table_hdl*>(&table),
                                           static_cast<jx_rt_table_operations_mode_t>(mode),
                                           &operations);
  };
  EXPECT_EQ(allocate(virt.table("counters_8"), 0), JX_NOT_SUPPORTED);
  EXPECT_EQ(allocate(other.table("exact"), 0), JX_NOT_SUPPORTED);
  EXPECT_EQ(allocate(other.table("counters"), 1), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(operations, nullptr);
}

TEST_F(CounterSync, IsRefusedUnlessSetForThisTableAndDevice) {
  const CounterUser other(device_, "counters_9");
  jx_rt_table_operations_hdl* operations = nullptr;
  ASSERT_EQ(
      jx_rt_table_operations_allocate(sut_.table(), JX_RT_OPERATION_COUNTER_SYNC, &operations),
      JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_operations_execute(sut_.table(), operations), JX_INVALID_ARGUMENTS);
  jx_rt_target_t target = sut_.target();
  target.dev_id = kOther;
  EXPECT_EQ(
      jx_rt_operations_counter_sync_set(operations, sut_.session(), &target, nullptr, nullptr),
      JX_INVALID_ARGUMENTS);
  target.dev_id = kCounted;
  EXPECT_EQ(
      jx_rt_operations_counter_sync_set(operations, sut_.session(), &target, nullptr, nullptr),
      JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_operations_execute(other.table(), operations), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_rt_table_operations_execute(sut_.table(), operations), JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_operations_execute(sut_.table(), operations), JX_SUCCESS);  // once more
  EXPECT_EQ(jx_rt_table_operations_deallocate(operations), JX_SUCCESS);
}

/// What the callback of a sync does with the SDK.
struct FromCallback {
  const CounterUser* user;
  Completions* completions;
  Pair read;
};

TEST_F(CounterSync, MayBeFollowedByReadsAndSyncsFromItsCallback) {
  hardware().count(2, 70);
  FromCallback from{&sut_, &completions_, {}};
  const auto callback = [](jx_rt_target_t*, void* cookie) {
    auto* const mine = static_cast<FromCallback*>(cookie);
    mine->read = mine->user->at(2);
    EXPECT_EQ(mine->user->sync(Completions::completed, mine->completions->cookie(5)), JX_SUCCESS);
  };
  ASSERT_EQ(sut_.sync(callback, &from), JX_SUCCESS);
  completions_.wait(1);
  EXPECT_EQ(from.read, Pair(1, 70));
  EXPECT_EQ(completions_.order(), std::vector<int>{5});
}

/// Devices that come by jx_device_add, so that they can go by jx_device_remove.
class RemovedDevice : public testing::Test {
 protected:
  void SetUp() override {
    bringSdkUp();
    const char* const file = JEX_PROGRAMS_DIR "/l2_switch.json";
    jx_device_profile_t profile{};
    profile.num_programs = 1;
    profile.program_files = &file;
    for (const jx_dev_id_t dev_id : {kCounted, kOther}) {
      ASSERT_EQ(jx_device_add(dev_id, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
    }
    ASSERT_EQ(jx_rt_session_create(&session_), JX_SUCCESS);
  }
  void TearDown() override {
    jx_device_remove(kCounted);
    jx_device_remove(kOther);
    EXPECT_EQ(jx_rt_session_destroy(session_), JX_SUCCESS);
  }

  void sync(jx_dev_id_t dev_id, jx_rt_counter_sync_cb callback, void* cookie) {
    const jx_rt_info_hdl* info = nullptr;
    const jx_rt_table_hdl* table = nullptr;
    jx_rt_table_operations_hdl* operations = nullptr;
    const jx_rt_target_t target{dev_id, JX_PIPE_ALL, 0, 0};
    ASSERT_EQ(jx_rt_info_get(dev_id, "l2_switch", &info), JX_SUCCESS);
    ASSERT_EQ(jx_rt_table_from_name_get(info, "port_counters", &table), JX_SUCCESS);
    ASSERT_EQ(jx_rt_table_operations_allocate(table, JX_RT_OPERATION_COUNTER_SYNC, &operations),
              JX_SUCCESS);
    ASSERT_EQ(jx_rt_operations_counter_sync_set(operations, session_, &target, callback, cookie),
              JX_SUCCESS);
    ASSERT_EQ(jx_rt_table_operations_execute(table, operations), JX_SUCCESS);
    ASSERT_EQ(jx_rt_table_operations_deallocate(operations), JX_SUCCESS);
  }

  Completions completions_;
  jx_rt_session_hdl* session_ = nullptr;
};

TEST_F(RemovedDevice, DropsSyncsThatHaveNotBegun) {
  ASSERT_EQ(jx_model_service_hold(kCounted, true), JX_SUCCESS);
  for (int i = 0; i < 100; ++i) sync(kCounted, Completions::completed, completions_.cookie(i));
  EXPECT_EQ(jx_device_remove(kCounted), JX_SUCCESS);
  EXPECT_TRUE(completions_.order().empty());
  EXPECT_EQ(jx_model_service_hold(kCounted, false), JX_OBJECT_NOT_FOUND);
}

TEST_F(RemovedDevice, WaitsForTheCallbackThatRuns) {
  struct Slow {
    std::promise<void> begun, go;
    std::atomic<bool> done = false;
  } slow;
  const auto callback = [](jx_rt_target_t*, void* cookie) {
    auto* const mine = static_cast<Slow*>(cookie);
    mine->begun.set_value();
    mine->go.get_future().wait();
    mine->done = true;
  };
  sync(kCounted, callback, &slow);
  sync(kCounted, Completions::completed, completions_.cookie(1));
  slow.begun.get_future().wait();
  std::thread removing([&] {
    EXPECT_EQ(jx_device_remove(kCounted), JX_SUCCESS);
    EXPECT_TRUE(slow.done);
  });
  // While the removal waits, the callback's process may do with other devices what it likes.
  const auto& manager = jxrt::JxRtDevMgr::getInstance();
  const jxrt::JxRtInfo* info = nullptr;
  while (manager.jxRtInfoGet(kCounted, "l2_switch", &info) == JX_SUCCESS) std::this_thread::yield();
  EXPECT_EQ(jx_device_remove(kOther), JX_SUCCESS);
  slow.go.set_value();
  removing.join();
  EXPECT_TRUE(completions_.order().empty());
}

TEST_F(RemovedDevice, MayBeRemovedByACallbackOfItsOwn) {
  std::promise<jx_status_t> removed;
  const auto callback = [](jx_rt_target_t* target, void* cookie) {
    static_cast<std::promise<jx_status_t>*>(cookie)->set_value(jx_device_remove(target->dev_id));
  };
  ASSERT_EQ(jx_model_service_hold(kCounted, true), JX_SUCCESS);
  sync(kCounted, callback, &removed);
  sync(kCounted, Completions::completed, completions_.cookie(1));
  ASSERT_EQ(jx_model_service_hold(kCounted, false), JX_SUCCESS);
  EXPECT_EQ(removed.get_future().get(), JX_SUCCESS);
  EXPECT_TRUE(completions_.order().empty());
}

TEST_F(RemovedDevice, LetsTheCallbackThatItWaitsForRemoveAnother) {
  struct Removal {
    std::promise<void> begun;
    std::atomic<int> status = -1;
  } removal;
  const auto callback = [](jx_rt_target_t*, void* cookie) {
    auto* const mine = static_cast<Removal*>(cookie);
    mine->begun.set_value();
    const auto& manager = jxrt::JxRtDevMgr::getInstance();
    const jxrt::JxRtInfo* info = nullptr;
    while (manager.jxRtInfoGet(kCounted, "l2_switch", &info) == JX_SUCCESS) {
      std::this_thread::yield();
    }
    mine->status = jx_device_remove(kOther);
  };
  sync(kCounted, callback, &removal);
  removal.begun.get_future().wait();
  EXPECT_EQ(jx_device_remove(kCounted), JX_SUCCESS);
  EXPECT_EQ(removal.status, JX_SUCCESS);
}

TEST_F(RemovedDevice, IsLeftAloneBySyncsOfMany) {
  std::atomic<bool> stop = false;
  std::atomic<uint64_t> told = 0;
  const auto callback = [](jx_rt_target_t*, void* cookie) {
    ++*static_cast<std::atomic<uint64_t>*>(cookie);
  };
  // The other device is removed while this one's thread is kept busy.
  std::thread syncing([&] {
    while (!stop) sync(kCounted, callback, &told);
  });
  while (told < 100) std::this_thread::yield();
  EXPECT_EQ(jx_device_remove(kOther), JX_SUCCESS);
  stop = true;
  syncing.join();
  EXPECT_EQ(jx_device_remove(kCounted), JX_SUCCESS);
  const uint64_t then = told;
  for (int i = 0; i < 1000; ++i) std::this_thread::yield();
  EXPECT_EQ(told, then);
}

TEST_F(RemovedDevice, CountedOnTheFastPathUntilTheLastSync) {
  constexpr int kPackets = 2000;
  constexpr size_t kBytes = 64;
  const uint8_t frame[kBytes] = {2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2, 0x88, 0xB5};
  std::atomic<bool> stop = false;
  std::atomic<uint64_t> told = 0;
  const auto callback = [](jx_rt_target_t*, void* cookie) {
    ++*static_cast<std::atomic<uint64_t>*>(cookie);
  };
  std::thread syncing([&] {
    while (!stop) {
      const uint64_t before = told;
      sync(kCounted, callback, &told);
      while (told == before) std::this_thread::yield();
    }
  });
  std::vector<std::thread> senders;
  for (uint32_t port = 1; port <= 2; ++port) {
    senders.emplace_back([&, port] {
      for (int i = 0; i < kPackets; ++i) {
        EXPECT_EQ(jx_model_inject(kCounted, port, frame, kBytes), JX_SUCCESS);
      }
    });
  }
  for (std::thread& sender : senders) sender.join();
  stop = true;
  syncing.join();
  sync(kCounted, Completions::completed, completions_.cookie(0));
  completions_.wait(1);

  const jxrt::JxRtInfo* info = nullptr;
  const jxrt::JxRtTable* table = nullptr;
  ASSERT_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(kCounted, "l2_switch", &info), JX_SUCCESS);
  ASSERT_EQ(info->tableFromNameGet("port_counters", &table), JX_SUCCESS);
  std::unique_ptr<jxrt::JxRtTableKey> key;
  std::unique_ptr<jxrt::JxRtTableData> data;
  ASSERT_EQ(table->keyAllocate(&key), JX_SUCCESS);
  ASSERT_EQ(table->dataAllocate(&data), JX_SUCCESS);
  for (const uint64_t port : {1U, 2U}) {
    ASSERT_EQ(key->setValue(1, port), JX_SUCCESS);
    ASSERT_EQ(table->tableEntryGet(*jxrt::JxRtSession::fromHandle(session_),
                                   {kCounted, JX_PIPE_ALL, 0, 0}, 0, *key, data.get()),
              JX_SUCCESS);
    uint64_t packets = 0, bytes = 0;
    ASSERT_EQ(data->getValue(jxmodel::kFieldCounterPkts, &packets), JX_SUCCESS);
    ASSERT_EQ(data->getValue(jxmodel::kFieldCounterBytes, &bytes), JX_SUCCESS);
    EXPECT_EQ(packets, uint64_t{kPackets});
    EXPECT_EQ(bytes, uint64_t{kPackets} * kBytes);
  }
}

TEST_F(CounterSync, LosesNothingThatThreadsCountMeanwhile) {
  constexpr uint64_t kEach = 20'000;
  std::vector<std::thread> counting;
  for (int thread = 0; thread < 3; ++thread) {
    counting.emplace_back([this] {
      for (uint64_t i = 0; i < kEach; ++i) hardware().count(i % 8, 100);
    });
  }
  const CounterUser reader(device_, "counters_8");
  Pair before;
  for (int i = 0; i < 200; ++i) {
    sut_.syncAndWait();
    const Pair now = reader.at(0);
    EXPECT_GE(now.first, before.first);
    EXPECT_GE(now.second, before.second);
    before = now;
  }
  for (std::thread& thread : counting) thread.join();
  sut_.syncAndWait();
  Pair sum;
  for (uint32_t i = 0; i < 8; ++i) {
    const Pair pair = sut_.at(i);
    sum.first += pair.first;
    sum.second += pair.second;
  }
  EXPECT_EQ(sum, Pair(3 * kEach, 300 * kEach));
}

TEST_F(CounterSync, MayBeMadeByManyThreadsAtOnce) {
  constexpr int kEach = 500;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([this, thread] {
      for (int i = 0; i < kEach; ++i) ASSERT_EQ(sync(kEach * thread + i), JX_SUCCESS);
    });
  }
  for (std::thread& thread : threads) thread.join();
  completions_.wait(3 * kEach);
  int last[3] = {-1, -1, -1};
  for (const int number : completions_.order()) {
    int& before = last[number / kEach];
    EXPECT_LT(before, number % kEach);  // each thread's in its order
    before = number % kEach;
  }
}

TEST_F(CounterSync, DelayedByAFaultCompletesLateWhileTheCallReturns) {
  constexpr std::chrono::milliseconds kDelay(50);
  for (const char* entry :
       {"jx_rt_table_operations_execute", "JxRtTable::tableOperationsExecute"}) {
    ASSERT_EQ(jx_model_fault_arm(entry, 1, JX_MODEL_FAULT_DELAY, kDelay.count()), JX_SUCCESS);
  }
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(sync(1), JX_SUCCESS);
  ASSERT_EQ(sync(2), JX_SUCCESS);
  completions_.wait(2);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 2 * kDelay);
  EXPECT_EQ(completions_.order(), (std::vector<int>{1, 2}));
}

TEST_F(CounterSync, DelayedByADayReturnsAtOnceAndIsDroppedWithTheDevice) {
  constexpr uint32_t kDay = 24 * 3600 * 1000;
  ASSERT_EQ(jx_model_fault_arm("jx_rt_table_operations_execute", 0, JX_MODEL_FAULT_DELAY, kDay),
            JX_SUCCESS);
  ASSERT_EQ(sync(1), JX_SUCCESS);
  EXPECT_EQ(pending(kCounted), 1U);
  device_.device().endReports();
  EXPECT_TRUE(completions_.order().empty());
}

TEST_F(CounterSync, IsNotBegunByAnExecuteThatFails) {
  for (const char* entry :
       {"jx_rt_table_operations_allocate", "jx_rt_operations_counter_sync_set",
        "jx_rt_table_operations_execute", "JxRtTable::operationsAllocate",
        "JxRtTableOperations::counterSyncSet", "JxRtTable::tableOperationsExecute"}) {
    ASSERT_EQ(jx_model_fault_arm(entry, 1, JX_MODEL_FAULT_STATUS, JX_HW_ACCESS_FAILS), JX_SUCCESS);
    EXPECT_EQ(sync(1), JX_HW_ACCESS_FAILS) << entry;
    jx_model_fault_clear();
  }
  ASSERT_EQ(sync(2), JX_SUCCESS);
  completions_.wait(1);
  EXPECT_EQ(completions_.order(), std::vector<int>{2});
}

TEST_F(CounterSync, EveryCallOnTheWayToItsValuesCanFail) {
  const jx_rt_target_t target = sut_.target();
  jx_rt_table_key_hdl* key = sut_.key();
  jx_rt_table_data_hdl* data = sut_.data();
  jx_rt_table_key_hdl* new_key = nullptr;
  jx_rt_table_data_hdl* new_data = nullptr;
  jx_rt_table_operations_hdl* operations = nullptr;
  ASSERT_EQ(
      jx_rt_table_operations_allocate(sut_.table(), JX_RT_OPERATION_COUNTER_SYNC, &operations),
      JX_SUCCESS);
  const jx_rt_info_hdl* info = nullptr;
  ASSERT_EQ(jx_rt_info_get(kCounted, "counting", &info), JX_SUCCESS);
  const jx_rt_table_hdl* table = nullptr;
  size_t size = 0;
  uint32_t id = 0;
  uint64_t value = 0;
  const jxrt::JxRtTable& object = device_.table("counters_8");
  const std::vector<std::pair<const char*, std::function<jx_status_t()>>> calls = {
      {"jx_rt_info_get", [&] { return jx_rt_info_get(kCounted, "counting", &info); }},
      {"jx_rt_table_from_id_get", [&] { return jx_rt_table_from_id_get(info, 1, &table); }},
      {"jx_rt_table_size_get",
       [&] { return jx_rt_table_size_get(sut_.table(), sut_.session(), &target, 0, &size); }},
      {"jx_rt_key_field_id_get",
       [&] { return jx_rt_key_field_id_get(sut_.table(), "$COUNTER_INDEX", &id); }},
      {"jx_rt_data_field_id_get",
       [&] { return jx_rt_data_field_id_get(sut_.table(), "$COUNTER_SPEC_PKTS", &id); }},
      {"jx_rt_table_key_allocate",
       [&] { return jx_rt_table_key_allocate(sut_.table(), &new_key); }},
      {"jx_rt_table_data_allocate",
       [&] { return jx_rt_table_data_allocate(sut_.table(), &new_data); }},
      {"jx_rt_table_key_reset", [&] { return jx_rt_table_key_reset(sut_.table(), &key); }},
      {"jx_rt_table_data_reset", [&] { return jx_rt_table_data_reset(sut_.table(), &data); }},
      {"jx_rt_key_field_set_value", [&] { return sut_.setIndex(1); }},
      {"jx_rt_table_entry_get", [&] { return sut_.read(1); }},
      {"jx_rt_data_field_get_value",
       [&] { return jx_rt_data_field_get_value(data, jxmodel::kFieldCounterPkts, &value); }},
      {"jx_rt_table_key_deallocate", [&] { return jx_rt_table_key_deallocate(key); }},
      {"jx_rt_table_data_deallocate", [&] { return jx_rt_table_data_deallocate(data); }},
      {"jx_rt_table_operations_deallocate",
       [&] { return jx_rt_table_operations_deallocate(operations); }},
      {"JxRtTable::tableIdGet", [&] { return object.tableIdGet(&id); }},
      {"JxRtTable::tableSizeGet",
       [&] { return object.tableSizeGet(device_.session(), target, 0, &size); }},
  };
  for (const auto& [entry, call] : calls) {
    ASSERT_EQ(jx_model_fault_arm(entry, 1, JX_MODEL_FAULT_STATUS, JX_HW_ACCESS_FAILS), JX_SUCCESS);
    EXPECT_EQ(call(), JX_HW_ACCESS_FAILS) << entry;
    jx_model_fault_clear();
  }
  EXPECT_EQ(new_key, nullptr);
  EXPECT_EQ(new_data, nullptr);
  EXPECT_EQ(jx_rt_table_operations_deallocate(operations), JX_SUCCESS);
}

TEST(ServiceHold, IsForPhysicalDevicesThatAreThere) {
  const ModelDevice virt(kCounted, Kind::kVirtual, {countersOf({8})});
  uint64_t count = 0;
  EXPECT_EQ(jx_model_service_hold(kCounted, true), JX_NOT_SUPPORTED);
  EXPECT_EQ(jx_model_service_hold(kOther, true), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_service_pending(kCounted, &count), JX_NOT_SUPPORTED);
  EXPECT_EQ(jx_model_service_pending(kOther, &count), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_service_pending(kOther, nullptr), JX_INVALID_ARGUMENTS);
}

}  // namespace
}  // namespace jxmodeltest
