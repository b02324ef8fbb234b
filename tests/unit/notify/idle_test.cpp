// Entries that age: when they are told, to whom, and what keeps them awake.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "model/device/registry.h"
#include "model/placement/plcmt_info.h"
#include "model/runtime/rt_info.h"
#include "unit/notify/notify_device.h"

namespace jxnotifytest {
namespace {

using jxmodel::Device;
using jxmodel::DeviceRegistry;
using jxmodel::MatchTable;
using jxmodel::TableState;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr uint64_t kHost = 0x020000000000;

/// One report: the entry, and when by the model's clock.
struct Report {
  uint32_t handle;
  uint64_t source;
  uint64_t ms;  // since kStart
};
class IdleTest : public NotifyTest {
 protected:
  static constexpr uint16_t kPort = 3;

  std::shared_ptr<Device> device() const { return DeviceRegistry::instance().find(kDevice); }
  const jxrt::JxRtTable& smac() const {
    const jxrt::JxRtTable* table = nullptr;
    EXPECT_EQ(info()->tableFromNameGet("smac", &table), JX_SUCCESS);
    return *table;
  }
  TableState& state() const {
    pipe_tbl_hdl_t handle = 0;
    EXPECT_EQ(smac().tableHandleGet(&handle), JX_SUCCESS);
    return *device()->findTable(handle);
  }

  /// As a placement update from a partner: an entry of host kHost + handle.
  void write(jxmodel::PlcmtOp op, uint32_t handle, uint32_t ttl_ms) const {
    TableState& table = state();
    const Bytes key = digest(kHost + handle, kPort);
    pipe_plcmt_info update;
    update.op = op;
    update.handle = handle;
    update.placement.header.table_handle = table.table->handle;
    update.placement.header.action_id = table.program->actions[table.table->actions[0]].id;
    update.placement.header.key_bytes = static_cast<uint16_t>(key.size());
    update.placement.header.ttl_ms = ttl_ms;
    update.placement.key = key.data();
    const auto kept = device();
    const jxmodel::MutexLock lock(kept->mutex());
    ASSERT_EQ(jxmodel::processPlacement(table, update), JX_SUCCESS);
  }
  void add(uint32_t handle, uint32_t ttl_ms) const {
    write(jxmodel::PlcmtOp::kMatAdd, handle, ttl_ms);
  }
  static void hit(uint32_t handle) { inject(kPort, frame(kHost + handle)); }

  struct Setting {
    uint32_t interval = 10, max = 0, min = 0;
  };
  jx_status_t set(bool enable, const jxrt::JxRtIdleTmoCb& callback, Setting setting,
                  const void* cookie = nullptr) const {
    std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
    EXPECT_EQ(smac().idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes), JX_SUCCESS);
    const jx_status_t status = attributes->idleTableNotifyModeSet(
        enable, callback, setting.interval, setting.max, setting.min, cookie);
    if (status != JX_SUCCESS) return status;
    return smac().tableAttributesSet(*session_, target(), JX_RT_FLAG_IDLE_TIME, *attributes);
  }
  void watch(Setting setting) { ASSERT_EQ(set(true, recorder(), setting), JX_SUCCESS); }
  void watch() { watch(Setting{}); }
  jx_status_t disable() const { return set(false, nullptr, {0, 0, 0}); }

  jxrt::JxRtIdleTmoCb recorder() {
    return [this](const jx_rt_target_t& target, const jxrt::JxRtTableKey* key, const void*) {
      EXPECT_EQ(target.dev_id, kDevice);
      uint64_t source = 0;
      EXPECT_EQ(key->getValue(1, &source), JX_SUCCESS);
      const std::lock_guard lock(mutex_);
      const auto handle = static_cast<uint32_t>(source - kHost);
      reports_.push_back({handle, source, (jx_model_clock_now() - kStart) / kMs});
      return JX_SUCCESS;
    };
  }
  /// Handles reported since the last call.
  std::vector<uint32_t> reported() {
    settle();
    const std::lock_guard lock(mutex_);
    std::vector<uint32_t> handles;
    for (const Report& report : reports_) handles.push_back(report.handle);
    reports_.clear();
    return handles;
  }

  const std::shared_ptr<jxrt::JxRtSession> session_ = jxrt::JxRtSession::sessionCreate();
  std::mutex mutex_;
  std::vector<Report> reports_;
};

TEST_F(IdleTest, AnEntryIsToldAtTheFirstLookAfterItsTtlAndOnce) {
  watch({40, 0, 0});
  add(1, 100);
  advance(119);
  EXPECT_THAT(reported(), IsEmpty()) << "its TTL is over, but nobody has looked";
  advance(1);
  EXPECT_THAT(reported(), ElementsAre(1));
  advance(1'000'000);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(IdleTest, ATtlThatEndsWithALookIsOver) {
  watch({50, 0, 0});
  add(1, 100);
  ASSERT_EQ(jx_model_clock_advance(100 * kMs - 1), JX_SUCCESS);
  EXPECT_THAT(reported(), IsEmpty());
  ASSERT_EQ(jx_model_clock_advance(1), JX_SUCCESS);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, WithoutAnIntervalEntriesAreToldToTheMillisecond) {
  watch({0, 0, 0});
  add(1, 137);
  advance(136);
  EXPECT_THAT(reported(), IsEmpty());
  advance(1);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, HitsKeepAnEntryAwake) {
  watch();
  add(1, 100);
  add(2, 100);
  for (int i = 0; i < 10; ++i) {
    advance(90);
    hit(1);
  }
  EXPECT_THAT(reported(), ElementsAre(2));
  advance(99);
  EXPECT_THAT(reported(), IsEmpty());
  advance(1);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, OnlyThisEntrysPacketsKeepItAwake) {
  watch();
  add(1, 100);
  advance(90);
  inject(kPort + 1, frame(kHost + 1));  // the host at another port
  advance(10);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, AHitWakesAnEntryThatHasAgedOut) {
  watch();
  add(1, 100);
  advance(100);
  EXPECT_THAT(reported(), ElementsAre(1));
  advance(5000);
  hit(1);
  advance(99);
  EXPECT_THAT(reported(), IsEmpty());
  advance(1);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, AModificationBeginsTheTimeAnew) {
  watch();
  add(1, 100);
  advance(60);
  write(jxmodel::PlcmtOp::kMatModify, 1, 100);
  advance(99);
  EXPECT_THAT(reported(), IsEmpty());
  advance(1);
  EXPECT_THAT(reported(), ElementsAre(1));
  write(jxmodel::PlcmtOp::kMatModify, 1, 30);  // wakes it, under a shorter TTL
  advance(30);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, AModifiedTtlCountsAtOnce) {
  watch();
  add(1, 1000);
  add(2, 100);
  write(jxmodel::PlcmtOp::kMatModify, 1, 50);
  write(jxmodel::PlcmtOp::kMatModify, 2, 0);
  advance(50);
  EXPECT_THAT(reported(), ElementsAre(1));
  advance(100'000);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(IdleTest, AnEntryWithoutATtlStays) {
  watch({10, 0, 50});  // a least TTL is one of entries that have one
  add(1, 0);
  advance(1'000'000);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(IdleTest, TtlsCountWithinTheirBounds) {
  watch({10, 200, 100});
  add(1, 1);
  add(2, 150);
  add(3, 100'000);
  advance(90);
  EXPECT_THAT(reported(), IsEmpty());
  advance(10);
  EXPECT_THAT(reported(), ElementsAre(1));
  advance(50);
  EXPECT_THAT(reported(), ElementsAre(2));
  advance(50);
  EXPECT_THAT(reported(), ElementsAre(3));
}

TEST_F(IdleTest, ADeletedEntryIsNotTold) {
  watch();
  add(1, 100);
  write(jxmodel::PlcmtOp::kMatDelete, 1, 0);
  advance(50);
  add(1, 100);  // the same handle and key anew, with a time of its own
  advance(99);
  EXPECT_THAT(reported(), IsEmpty());
  advance(1);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, AClockThatIsMovedFarTellsInOrderOfTime) {
  watch({100, 0, 0});
  for (uint32_t handle = 1; handle <= 30; ++handle) add(handle, (31 - handle) * 3'600'000);
  advance(20 * 3'600'000);
  std::vector<uint32_t> expected;
  for (uint32_t handle = 30; handle > 10; --handle) expected.push_back(handle);
  EXPECT_EQ(reported(), expected);
}

TEST_F(IdleTest, EntriesFromBeforeTheWatchCountFromTheirOwnTime) {
  add(1, 100);
  add(2, 10'000);
  advance(5000);
  hit(1);
  advance(70);
  watch();
  advance(20);
  EXPECT_THAT(reported(), IsEmpty());
  advance(10);
  EXPECT_THAT(reported(), ElementsAre(1));
  advance(4900);
  EXPECT_THAT(reported(), ElementsAre(2));
}

TEST_F(IdleTest, WhoWatchesAnewIsToldOfWhatHasAgedOutBefore) {
  watch();
  add(1, 100);
  advance(100);
  EXPECT_THAT(reported(), ElementsAre(1));
  ASSERT_EQ(disable(), JX_SUCCESS);
  watch({20, 0, 0});
  EXPECT_THAT(reported(), IsEmpty()) << "not before the first look";
  advance(20);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, NobodyIsToldOnceItIsDisabled) {
  watch();
  add(1, 100);
  ASSERT_EQ(disable(), JX_SUCCESS);
  advance(1000);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(IdleTest, NoCallbackRunsOnceDisablingHasReturned) {
  std::atomic<bool> running{false}, go{false};
  std::atomic<int> calls{0};
  const auto slow = [&](const jx_rt_target_t&, const jxrt::JxRtTableKey*, const void*) {
    ++calls;
    running = true;
    while (!go) std::this_thread::yield();
    running = false;
    return JX_SUCCESS;
  };
  ASSERT_EQ(set(true, slow, {}), JX_SUCCESS);
  for (uint32_t handle = 1; handle <= 1000; ++handle) add(handle, 100);
  advance(100);
  while (!running) std::this_thread::yield();
  std::thread releases([&] { go = true; });
  EXPECT_EQ(disable(), JX_SUCCESS);
  EXPECT_FALSE(running);
  const int so_far = calls;
  releases.join();
  settle();
  EXPECT_EQ(calls, so_far);
}

TEST_F(IdleTest, ACallbackMayDisable) {
  int calls = 0;
  const auto once = [&](const jx_rt_target_t&, const jxrt::JxRtTableKey*, const void*) {
    ++calls;
    EXPECT_EQ(disable(), JX_SUCCESS);
    return JX_SUCCESS;
  };
  ASSERT_EQ(set(true, once, {}), JX_SUCCESS);
  add(1, 100);
  add(2, 100);
  advance(100);
  settle();
  EXPECT_EQ(calls, 1);
}

TEST_F(IdleTest, ACallbackMayRemoveTheDevice) {
  std::atomic<int> calls{0}, removed{-1};
  const auto remover = [&](const jx_rt_target_t&, const jxrt::JxRtTableKey*, const void*) {
    ++calls;
    const jx_status_t status = jx_device_remove(kDevice);
    removed = status;
    return JX_SUCCESS;
  };
  ASSERT_EQ(set(true, remover, {}), JX_SUCCESS);
  add(1, 100);
  add(2, 100);
  advance(100);
  while (removed < 0) std::this_thread::yield();
  EXPECT_EQ(removed, JX_SUCCESS);
  EXPECT_EQ(calls, 1);
}

TEST_F(IdleTest, ACallbackMayUseTheTables) {
  std::vector<uint32_t> told;
  const auto deleter = [&](const jx_rt_target_t&, const jxrt::JxRtTableKey* key, const void*) {
    uint64_t source = 0;
    key->getValue(1, &source);
    told.push_back(static_cast<uint32_t>(source - kHost));
    write(jxmodel::PlcmtOp::kMatDelete, told.back(), 0);
    return JX_SUCCESS;
  };
  ASSERT_EQ(set(true, deleter, {}), JX_SUCCESS);
  for (uint32_t handle = 1; handle <= 600; ++handle) add(handle, 100);
  advance(100);
  settle();
  EXPECT_EQ(told.size(), 600U);
  EXPECT_EQ(state().match->count(), 0U);
}

// --- the C face

struct Seen {
  uint32_t dev_id = 0, first_word = 0;
  uint64_t source = 0;
  uint8_t port[2] = {};
};

jx_status_t record(jx_rt_target_t* target, const jx_rt_table_key_hdl* key, void* cookie) {
  auto* const seen = static_cast<Seen*>(cookie);
  seen->dev_id = static_cast<uint32_t>(target->dev_id);
  std::memcpy(&seen->first_word, key, sizeof seen->first_word);
  EXPECT_EQ(jx_rt_key_field_get_value(key, 1, &seen->source), JX_SUCCESS);
  EXPECT_EQ(jx_rt_key_field_get_value_ptr(key, 2, seen->port, sizeof seen->port), JX_SUCCESS);
  return JX_SUCCESS;
}

TEST_F(IdleTest, TheCFaceNamesTheEntryInItsFirstWord) {
  const jx_rt_info_hdl* program = nullptr;
  const jx_rt_table_hdl* table = nullptr;
  ASSERT_EQ(jx_rt_info_get(kDevice, "l2_switch", &program), JX_SUCCESS);
  ASSERT_EQ(jx_rt_table_from_name_get(program, "smac", &table), JX_SUCCESS);
  jx_rt_table_attributes_hdl* attributes = nullptr;
  EXPECT_EQ(jx_rt_table_idle_table_attributes_allocate(table, JX_RT_IDLE_MODE_POLL, &attributes),
            JX_NOT_SUPPORTED);
  ASSERT_EQ(jx_rt_table_idle_table_attributes_allocate(
                table, static_cast<jx_rt_idle_table_mode_t>(1), &attributes),
            JX_SUCCESS);
  Seen seen;
  const jx_rt_target_t to = target();
  EXPECT_EQ(jx_rt_table_attributes_set(table, session_->cHandle(), &to, 16, attributes),
            JX_INVALID_ARGUMENTS)
      << "not filled in";
  EXPECT_EQ(jx_rt_attributes_idle_table_notify_mode_set(attributes, true, nullptr, 10, 0, 0, &seen),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_rt_attributes_idle_table_notify_mode_set(attributes, true, record, 10, 5, 6, &seen),
            JX_INVALID_ARGUMENTS);
  ASSERT_EQ(jx_rt_attributes_idle_table_notify_mode_set(attributes, true, record, 10, 0, 0, &seen),
            JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_attributes_set(table, session_->cHandle(), &to, 2, attributes),
            JX_INVALID_ARGUMENTS);
  const jx_rt_target_t elsewhere{kDevice + 1, JX_PIPE_ALL, 0, 0};
  EXPECT_EQ(jx_rt_table_attributes_set(table, session_->cHandle(), &elsewhere, 16, attributes),
            JX_INVALID_ARGUMENTS);
  ASSERT_EQ(jx_rt_table_attributes_set(table, session_->cHandle(), &to, 16, attributes),
            JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_attributes_deallocate(attributes), JX_SUCCESS);
  add(0x12345678, 100);
  advance(100);
  settle();
  EXPECT_EQ(seen.dev_id, static_cast<uint32_t>(kDevice));
  EXPECT_EQ(seen.first_word, 0x12345678U);
  EXPECT_EQ(seen.source, kHost + 0x12345678);
  EXPECT_EQ(seen.port[0], 0);
  EXPECT_EQ(seen.port[1], kPort);
}

TEST_F(IdleTest, OnlyTablesThatAgeHaveAttributes) {
  const jxrt::JxRtTable* dmac = nullptr;
  ASSERT_EQ(info()->tableFromNameGet("dmac", &dmac), JX_SUCCESS);
  std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
  EXPECT_EQ(dmac->idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes),
            JX_NOT_SUPPORTED);
  EXPECT_EQ(attributes, nullptr);
  ASSERT_EQ(smac().idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes), JX_SUCCESS);
  ASSERT_EQ(attributes->idleTableNotifyModeSet(true, recorder(), 0, 0, 0, nullptr), JX_SUCCESS);
  EXPECT_EQ(dmac->tableAttributesSet(*session_, target(), 0, *attributes), JX_INVALID_ARGUMENTS)
      << "another table's";
}

// --- without packets, with captures, with many

TEST_F(IdleTest, WhoWatchesTheDeviceSeesIt) {
  watch();
  add(5, 100);
  const auto events = device()->events().open();
  advance(100);
  settle();
  const auto seen = events->take(std::chrono::milliseconds(kPatienceMs)).events;
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].kind, jxmodel::Event::Kind::kAged);
  EXPECT_EQ(seen[0].object, "smac");
  EXPECT_EQ(seen[0].entry_handle, 5U);
  EXPECT_EQ(seen[0].values, digest(kHost + 5, kPort));
}

TEST_F(IdleTest, AnEntryCanBeMadeToAgeOut) {
  EXPECT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "smac", 1), JX_OBJECT_NOT_FOUND);
  add(1, 0);
  EXPECT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "smac", 1), JX_NOT_READY);
  watch();
  ASSERT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "smac", 1), JX_SUCCESS);
  EXPECT_THAT(reported(), ElementsAre(1));
  ASSERT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "smac", 1), JX_SUCCESS);
  EXPECT_THAT(reported(), IsEmpty()) << "no packet has hit it since";
  hit(1);
  ASSERT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "smac", 1), JX_SUCCESS);
  EXPECT_THAT(reported(), ElementsAre(1));
  EXPECT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "dmac", 1), JX_NOT_SUPPORTED);
  EXPECT_EQ(jx_model_idle_expire(kDevice, "l2_switch", "nothing", 1), JX_OBJECT_NOT_FOUND);
}

/// What a table told by the book would have said: looks each `interval` from `start`, before
/// packets of the same time.
struct Hit {
  uint64_t ms;
  uint32_t handle;
};
std::vector<Report> byTheBook(const std::vector<Hit>& hits, uint32_t handles, uint64_t ttl_ms,
                              uint64_t interval_ms, uint64_t end_ms) {
  std::vector<Report> reports;
  std::vector<uint64_t> last(handles + 1, 0);
  std::vector<bool> aged(handles + 1, false);
  size_t next = 0;
  for (uint64_t look = interval_ms; look <= end_ms; look += interval_ms) {
    for (; next < hits.size() && hits[next].ms < look; ++next) {
      last[hits[next].handle] = hits[next].ms;
      aged[hits[next].handle] = false;
    }
    for (uint32_t handle = 1; handle <= handles; ++handle) {
      if (aged[handle] || last[handle] + ttl_ms > look) continue;
      aged[handle] = true;
      reports.push_back({handle, kHost + handle, look});
    }
  }
  return reports;
}

TEST_F(IdleTest, HoursOfTrafficInACaptureAgeWhatHoursWould) {
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_CAPTURE, kStart), JX_SUCCESS);
  constexpr uint32_t kHandles = 20;
  constexpr uint64_t kHours = 20, kEnd = kHours * 3'600'000;
  std::vector<Hit> hits;
  std::vector<jxmodel::PacketBuffer> packets;
  uint64_t random = 1;
  for (uint64_t ms = 0; ms < kEnd;) {
    random = random * 6364136223846793005 + 1442695040888963407;
    // Mostly a few seconds apart, now and then a quarter of an hour.
    ms += (random >> 33) % 5000 + ((random >> 56) == 0 ? 900'000 : 0);
    const uint32_t handle = 1 + static_cast<uint32_t>(random >> 40) % kHandles;
    hits.push_back({ms, handle});
    packets.push_back(jxmodel::test::packetOf(frame(kHost + handle),
                                              static_cast<int64_t>(kStart + ms * kMs),
                                              jxmodel::TimeResolution::kNanosecond));
  }
  watch({1000, 0, 0});
  for (uint32_t handle = 1; handle <= kHandles; ++handle) add(handle, 60'000);
  attach(kPort, packets);
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  settle();
  const std::vector<Report> expected = byTheBook(hits, kHandles, 60'000, 1000, hits.back().ms);
  ASSERT_GT(expected.size(), 1000U);
  // A report comes when the clock stands at the packet that the look came before.
  const std::lock_guard lock(mutex_);
  ASSERT_EQ(reports_.size(), expected.size());
  size_t packet = 0;
  for (size_t begin = 0; begin < expected.size();) {
    while (hits[packet].ms < expected[begin].ms) ++packet;
    size_t end = begin;
    while (end < expected.size() && expected[end].ms == expected[begin].ms) ++end;
    std::vector<uint32_t> wanted, got;  // of one look, whose order is open
    for (size_t i = begin; i < end; ++i) {
      wanted.push_back(expected[i].handle);
      got.push_back(reports_[i].handle);
      EXPECT_EQ(reports_[i].ms, hits[packet].ms);
    }
    std::sort(got.begin(), got.end());
    ASSERT_EQ(got, wanted) << "look at " << expected[begin].ms << " ms";
    begin = end;
  }
}

TEST_F(IdleTest, EntriesFromBeforeTheFirstPacketOfACaptureCountFromItsTime) {
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_CAPTURE, 0), JX_SUCCESS);
  watch();
  add(1, 1000);
  const auto at = [](uint64_t ms, uint32_t handle) {
    return jxmodel::test::packetOf(frame(kHost + handle), static_cast<int64_t>(kStart + ms * kMs));
  };
  std::vector<jxmodel::PacketBuffer> packets;
  packets.push_back(at(0, 9));
  packets.push_back(at(999, 9));
  attach(kPort, packets);
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  EXPECT_THAT(reported(), IsEmpty());
  packets.clear();
  packets.push_back(at(1010, 9));
  attach(kPort + 1, packets);
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  EXPECT_THAT(reported(), ElementsAre(1));
}

TEST_F(IdleTest, ManyEntriesAreEachToldOnceWhilePacketsAndWritesGoOn) {
  constexpr uint32_t kMany = 60'000;
  for (uint32_t handle = 1; handle <= kMany; ++handle) add(handle, 1000 + handle % 100);
  std::vector<std::atomic<uint8_t>> told(kMany + 1);
  std::atomic<uint32_t> count{0};
  const auto mark = [&](const jx_rt_target_t&, const jxrt::JxRtTableKey* key, const void*) {
    uint64_t source = 0;
    key->getValue(1, &source);
    ++told[source - kHost];
    ++count;
    return JX_SUCCESS;
  };
  ASSERT_EQ(set(true, mark, {10, 0, 0}), JX_SUCCESS);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (uint32_t i = 0; !done; ++i) {
      add(kMany + 1 + i % 100, 0);
      write(jxmodel::PlcmtOp::kMatDelete, kMany + 1 + i % 100, 0);
    }
  });
  for (int i = 0; i < 12; ++i) {
    advance(100);
    hit(7);
  }
  settle();
  done = true;
  writer.join();
  EXPECT_EQ(count, kMany - 1);
  for (uint32_t handle = 1; handle <= kMany; ++handle) {
    ASSERT_EQ(told[handle], handle == 7 ? 0 : 1) << handle;
  }
}

TEST_F(IdleTest, WithTheMachinesTimeEntriesAgeByThemselves) {
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_REAL, 0), JX_SUCCESS);
  std::atomic<uint64_t> at{0};
  const auto note = [&](const jx_rt_target_t&, const jxrt::JxRtTableKey*, const void*) {
    at = jx_model_clock_now();
    return JX_SUCCESS;
  };
  ASSERT_EQ(set(true, note, {5, 0, 0}), JX_SUCCESS);
  const uint64_t before = jx_model_clock_now();
  add(1, 50);
  while (at == 0) std::this_thread::yield();
  EXPECT_GE(at - before, 50 * kMs);
}

TEST_F(IdleTest, AVirtualDeviceTakesAttributesAndTellsNobody) {
  constexpr jx_dev_id_t kVirtual = 6;
  const char* const file = JEX_PROGRAMS_DIR "/l2_switch.json";
  const jx_device_profile_t profile{1, &file, 0};
  ASSERT_EQ(jx_virtual_device_add(kVirtual, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
  const jxrt::JxRtInfo* program = nullptr;
  ASSERT_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(kVirtual, "l2_switch", &program),
            JX_SUCCESS);
  const jxrt::JxRtTable* table = nullptr;
  ASSERT_EQ(program->tableFromNameGet("smac", &table), JX_SUCCESS);
  std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
  ASSERT_EQ(table->idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes), JX_SUCCESS);
  ASSERT_EQ(attributes->idleTableNotifyModeSet(true, recorder(), 1, 0, 0, nullptr), JX_SUCCESS);
  EXPECT_EQ(table->tableAttributesSet(*session_, {kVirtual, JX_PIPE_ALL, 0, 0}, 16, *attributes),
            JX_SUCCESS);
  jxrt::JxRtLearn* learn = nullptr;
  ASSERT_EQ(program->learnFromNameGet("mac_learn", &learn), JX_SUCCESS);
  const auto ignore = [](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession>,
                         std::vector<std::unique_ptr<jxrt::JxRtTableData>>,
                         jx_rt_learn_msg_hdl* const, const void*) { return JX_SUCCESS; };
  EXPECT_EQ(learn->callbackRegister(session_, {kVirtual, JX_PIPE_ALL, 0, 0}, ignore, nullptr),
            JX_NOT_SUPPORTED);
  EXPECT_EQ(learn->callbackDeregister(session_, {kVirtual, JX_PIPE_ALL, 0, 0}), JX_NOT_SUPPORTED);
  EXPECT_EQ(jx_model_notify_wait_idle(kVirtual, 0), JX_NOT_SUPPORTED);
  ASSERT_EQ(jx_device_remove(kVirtual), JX_SUCCESS);
}

}  // namespace
}  // namespace jxnotifytest
