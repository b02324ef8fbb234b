// The ports of a device through their C interface, and the switch behind it while the device goes
// away.
#include "jxmodel/ports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "model/device/registry.h"
#include "model/switch/switch.h"
#include "packets.h"

namespace jxmodel {
namespace {

using namespace test;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr jx_dev_id_t kPhysical = 3;
constexpr jx_dev_id_t kVirtual = 4;
constexpr uint32_t kPatienceMs = 240'000;
constexpr int64_t kTime = 1'600'000'000'000'001'000;

class PortsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    jx_drv_init();
    pipe_mgr_init();
  }
  void SetUp() override {
    const char* const file = JEX_PROGRAMS_DIR "/l2_switch.json";
    jx_device_profile_t profile{};
    profile.num_programs = 1;
    profile.program_files = &file;
    ASSERT_EQ(jx_device_add(kPhysical, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
    ASSERT_EQ(jx_virtual_device_add(kVirtual, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);
  }
  void TearDown() override {
    jx_device_remove(kPhysical);
    jx_device_remove(kVirtual);
  }

  jx_status_t add(const std::string& spec) {
    return jx_model_port_add(kPhysical, spec.c_str(), error_, sizeof error_);
  }
  /// Ports with their counters.
  static std::vector<jx_model_port_t> list() {
    std::vector<jx_model_port_t> ports(8);
    uint32_t count = 0;
    EXPECT_EQ(jx_model_port_list(kPhysical, ports.data(), 8, &count), JX_SUCCESS);
    ports.resize(count);
    return ports;
  }
  static jx_status_t inject(uint32_t port, const Bytes& frame) {
    return jx_model_inject(kPhysical, port, frame.data(), frame.size());
  }
  static std::shared_ptr<Device> device() { return DeviceRegistry::instance().find(kPhysical); }

  const Folder folder_;
  char error_[256] = "";
};

TEST_F(PortsTest, InjectedFramesHaveBeenWrittenWhenInjectReturns) {
  ASSERT_EQ(add("2=pcap:," + (folder_ / "out")), JX_SUCCESS) << error_;
  for (uint8_t i = 1; i <= 100; ++i) ASSERT_EQ(inject(1, frameOf(i)), JX_SUCCESS);
  const auto sent = readCapture(folder_ / "out");
  ASSERT_THAT(sent, SizeIs(100));
  for (uint8_t i = 1; i <= 100; ++i) EXPECT_EQ(bytesOf(sent[i - 1u]), frameOf(i));
}

TEST_F(PortsTest, AFloodLeavesThroughAllPortsButItsOwn) {
  for (const char* port : {"1", "2", "511"}) {
    ASSERT_EQ(add(std::string(port) + "=pcap:," + (folder_ / port)), JX_SUCCESS) << error_;
  }
  ASSERT_EQ(inject(2, frameOf(7)), JX_SUCCESS);
  EXPECT_THAT(readCapture(folder_ / "1"), SizeIs(1));
  EXPECT_THAT(readCapture(folder_ / "2"), IsEmpty());
  EXPECT_THAT(readCapture(folder_ / "511"), SizeIs(1));
  const auto ports = list();
  ASSERT_THAT(ports, SizeIs(3));
  EXPECT_EQ(ports[1].number, 2U);
  EXPECT_EQ(ports[1].counters.packets_in, 1U);
  EXPECT_EQ(ports[1].counters.bytes_in, frameOf(7).size());
  EXPECT_EQ(ports[1].counters.packets_out, 0U);
  EXPECT_EQ(ports[2].counters.packets_out, 1U);
  EXPECT_EQ(ports[2].spec, "511=pcap:," + (folder_ / "511"));
}

TEST_F(PortsTest, HeldCapturesWaitUntilTheyAreLetGo) {
  std::vector<PacketBuffer> packets;
  packets.push_back(packetOf(frameOf(1), kTime));
  packets.push_back(packetOf(frameOf(2), kTime + 5000));
  writeCapture(folder_ / "in", packets);
  ASSERT_EQ(jx_model_captures_hold(kPhysical, true), JX_SUCCESS);
  ASSERT_EQ(add("1=pcap:" + (folder_ / "in")), JX_SUCCESS) << error_;
  ASSERT_EQ(add("2=pcap:," + (folder_ / "out")), JX_SUCCESS) << error_;
  ASSERT_EQ(jx_model_ports_wait_idle(kPhysical, kPatienceMs), JX_SUCCESS);
  EXPECT_TRUE(list()[0].input_left);
  EXPECT_EQ(list()[0].counters.packets_in, 0U);

  ASSERT_EQ(jx_model_captures_hold(kPhysical, false), JX_SUCCESS);
  ASSERT_EQ(jx_model_ports_wait_idle(kPhysical, kPatienceMs), JX_SUCCESS);
  EXPECT_FALSE(list()[0].input_left);
  const auto sent = readCapture(folder_ / "out");
  ASSERT_THAT(sent, SizeIs(2));
  EXPECT_EQ(sent[1].timeNs(), kTime + 5000);
}

TEST_F(PortsTest, ErrorsSayWhatAndFitTheirBuffer) {
  EXPECT_EQ(add("nonsense"), JX_INVALID_ARGUMENTS);
  EXPECT_THAT(error_, HasSubstr("nonsense"));
  EXPECT_EQ(add("1=if:nowhere0"), JX_IO_ERROR);
  EXPECT_THAT(error_, HasSubstr("nowhere0"));
  ASSERT_EQ(add("1=pcap:," + (folder_ / "out")), JX_SUCCESS);
  EXPECT_EQ(add("1=if:lo"), JX_ALREADY_EXISTS);
  EXPECT_THAT(error_, HasSubstr("port 1"));
  char small[5] = {'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(jx_model_port_add(kPhysical, "nonsense", small, sizeof small), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(std::string(small).size(), 4U);
  EXPECT_EQ(jx_model_port_add(kPhysical, "nonsense", nullptr, 0), JX_INVALID_ARGUMENTS);
}

TEST_F(PortsTest, OnlyPhysicalDevicesHaveThem) {
  uint32_t count = 0;
  EXPECT_EQ(jx_model_port_add(kVirtual, "1=if:lo", error_, sizeof error_), JX_NOT_SUPPORTED);
  EXPECT_EQ(jx_model_port_list(kVirtual, nullptr, 0, &count), JX_NOT_SUPPORTED);
  EXPECT_EQ(jx_model_port_list(99, nullptr, 0, &count), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_port_delete(kPhysical, 1), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_port_set_enabled(kPhysical, 512, true), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_port_list(kPhysical, nullptr, 1, &count), JX_INVALID_ARGUMENTS);
}

TEST_F(PortsTest, ARemovedDeviceClosesItsFilesAndEndsItsCaptures) {
  ASSERT_EQ(add("2=pcap:," + (folder_ / "out")), JX_SUCCESS) << error_;
  const std::shared_ptr<Device> held = device();
  Switch* const packets = held->packetSwitch();
  const auto tap = packets->openTap(2, TapDirection::kBoth);
  ASSERT_EQ(inject(1, frameOf(1)), JX_SUCCESS);
  ASSERT_EQ(jx_device_remove(kPhysical), JX_SUCCESS);
  EXPECT_EQ(inject(1, frameOf(2)), JX_OBJECT_NOT_FOUND);
  const Tap::Harvest harvest = tap->take(std::chrono::milliseconds(kPatienceMs));
  EXPECT_TRUE(harvest.ended);
  EXPECT_THAT(harvest.packets, SizeIs(1));
  EXPECT_THAT(readCapture(folder_ / "out"), SizeIs(1));
  // Who still holds the device learns that nothing moves.
  std::vector<PacketBuffer> late;
  late.push_back(packetOf(frameOf(3)));
  EXPECT_FALSE(packets->inject(1, std::move(late)));
  EXPECT_EQ(held->packetSwitch(), nullptr);
  packets->closeTap(tap);
}

TEST_F(PortsTest, ADeviceCanBeRemovedUnderPacketsOfManyThreads) {
  ASSERT_EQ(add("2=pcap:," + (folder_ / "out")), JX_SUCCESS) << error_;
  std::atomic<uint64_t> injected{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&injected] {
      while (inject(1, frameOf(1)) == JX_SUCCESS) ++injected;
    });
  }
  while (injected < 50) std::this_thread::yield();
  EXPECT_EQ(jx_device_remove(kPhysical), JX_SUCCESS);
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(readCapture(folder_ / "out").size(), injected);
}

TEST_F(PortsTest, AFloodWithoutPortsIsNotSentNowhere) {
  Switch& packets = *device()->packetSwitch();
  EXPECT_EQ(inject(1, frameOf(1)), JX_SUCCESS);  // a flood to no port at all
  EXPECT_EQ(packets.pipeline().counts().flooded, 1U);
  EXPECT_EQ(packets.sentNowhere(), 0U);
}

}  // namespace
}  // namespace jxmodel
