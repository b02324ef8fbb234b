// What people who watch a device see.
#include "model/notify/events.h"

#include <gmock/gmock.h>

#include "model/device/registry.h"
#include "model/switch/switch.h"
#include "unit/notify/notify_device.h"

namespace jxnotifytest {
namespace {

using jxmodel::Event;
using jxmodel::EventSource;
using jxmodel::EventWatch;

constexpr std::chrono::milliseconds kPatience(kPatienceMs);

class EventsTest : public NotifyTest {
 protected:
  static std::shared_ptr<jxmodel::Device> device() {
    return jxmodel::DeviceRegistry::instance().find(kDevice);
  }
  /// The next `count` events of the watch.
  static std::vector<Event> take(EventWatch& watch, size_t count) {
    std::vector<Event> events;
    while (events.size() < count) {
      EventWatch::Harvest harvest = watch.take(kPatience);
      if (harvest.events.empty()) break;
      for (Event& event : harvest.events) events.push_back(std::move(event));
    }
    EXPECT_EQ(events.size(), count);
    events.resize(count);
    return events;
  }
};

TEST_F(EventsTest, DigestsAreSeenWithOrWithoutAClient) {
  const auto watch = device()->events().open();
  inject(3, frame(0x020000000001));
  const std::vector<Event> events = take(*watch, 1);
  EXPECT_EQ(events[0].kind, Event::Kind::kLearned);
  EXPECT_EQ(events[0].time, kStart);
  EXPECT_EQ(events[0].program, "l2_switch");
  EXPECT_EQ(events[0].object, "mac_learn");
  EXPECT_EQ(events[0].values, digest(0x020000000001, 3));
}

TEST_F(EventsTest, PortsAreSeenToComeAndGo) {
  const auto watch = device()->events().open();
  attach(7, {});
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  ASSERT_EQ(jx_model_port_set_enabled(kDevice, 7, false), JX_SUCCESS);
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  ASSERT_EQ(jx_model_port_set_enabled(kDevice, 7, true), JX_SUCCESS);
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  ASSERT_EQ(jx_model_port_delete(kDevice, 7), JX_SUCCESS);
  const std::vector<Event> events = take(*watch, 4);
  const Event::Kind expected[] = {Event::Kind::kPortUp, Event::Kind::kPortDown,
                                  Event::Kind::kPortUp, Event::Kind::kPortDown};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(events[i].kind, expected[i]) << i;
    EXPECT_EQ(events[i].port, 7U);
  }
}

TEST_F(EventsTest, AWatchEndsWithItsDevice) {
  const auto watch = device()->events().open();
  EXPECT_FALSE(watch->take(std::chrono::milliseconds(0)).ended);
  ASSERT_EQ(jx_device_remove(kDevice), JX_SUCCESS);
  EXPECT_TRUE(watch->take(kPatience).ended);
}

TEST(EventSource, AFullQueueLosesAndCounts) {
  EventSource sut;
  EXPECT_FALSE(sut.watched());
  const auto watch = sut.open();
  EXPECT_TRUE(sut.watched());
  for (int i = 0; i < 65536 + 5; ++i) sut.raise({});
  const EventWatch::Harvest harvest = watch->take(kPatience);
  EXPECT_EQ(harvest.events.size(), 65536U);
  EXPECT_EQ(harvest.lost, 5U);
  sut.close(watch);
  EXPECT_FALSE(sut.watched());
}

}  // namespace
}  // namespace jxnotifytest
