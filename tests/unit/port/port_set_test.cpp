// Sets of capture ports: order, idleness, attaching and detaching at run time.
#include "model/port/port_set.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>

#include "packets.h"
#include "support/wait_until.h"

namespace jxmodel {
namespace {

using namespace test;
using jextest::kPatience;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr int64_t kSecond = 1'000'000'000;

PortSpec spec(const std::string& text) {
  PortSpec parsed;
  std::string error;
  EXPECT_TRUE(parsePortSpec(text, &parsed, &error)) << error;
  return parsed;
}

void attach(PortSet* set, const std::string& text) {
  std::string error;
  ASSERT_TRUE(set->attach(spec(text), &error)) << error;
}

std::string refusal(PortSet* set, const std::string& text) {
  std::string error;
  EXPECT_FALSE(set->attach(spec(text), &error));
  return error;
}

class PortSetTest : public testing::Test {
 protected:
  struct Seen {
    uint32_t port;
    uint8_t mark;  // the last byte of the packet
    bool operator==(const Seen& other) const { return port == other.port && mark == other.mark; }
  };

  /// A capture of packets with these marks at these seconds.
  std::string capture(const std::string& name,
                      const std::vector<std::pair<int64_t, int>>& packets) {
    std::vector<PacketBuffer> made;
    for (const auto& [second, mark] : packets) {
      made.push_back(packetOf(frameOf(static_cast<uint8_t>(mark)), second * kSecond));
    }
    writeCapture(folder_ / name, made);
    return folder_ / name;
  }

  PacketReceiver note() {
    return [this](uint32_t port, PacketBuffer&& packet) {
      seen_.push_back({port, packet.data()[packet.size() - 1]});
    };
  }

  Folder folder_;
  std::vector<Seen> seen_;  // the I/O thread's until the set is idle or stopped
  PortSet sut_;
};

TEST_F(PortSetTest, ReplaysSeveralCapturesInOrderOfTime) {
  attach(&sut_, "4=pcap:" + capture("a", {{1, 10}, {4, 11}, {5, 12}}));
  attach(&sut_, "2=pcap:" + capture("b", {{2, 20}, {3, 21}, {6, 22}}));
  attach(&sut_, "9=pcap:" + capture("c", {{0, 30}, {7, 31}}));
  sut_.start(note());
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_THAT(seen_, ElementsAre(Seen{9, 30}, Seen{4, 10}, Seen{2, 20}, Seen{2, 21}, Seen{4, 11},
                                 Seen{4, 12}, Seen{2, 22}, Seen{9, 31}));
}

TEST_F(PortSetTest, EqualTimesGoByPortNumber) {
  attach(&sut_, "2=pcap:" + capture("a", {{1, 20}, {2, 21}}));
  attach(&sut_, "1=pcap:" + capture("b", {{1, 10}, {2, 11}}));
  sut_.start(note());
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_THAT(seen_, ElementsAre(Seen{1, 10}, Seen{2, 20}, Seen{1, 11}, Seen{2, 21}));
}

TEST_F(PortSetTest, HeldCapturesWaitAndAreThenMergedAlthoughAttachedOneByOne) {
  sut_.holdCaptures(true);
  sut_.start(note());
  attach(&sut_, "1=pcap:" + capture("a", {{2, 10}}));
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_EQ(sut_.status(1)->input, InputState::kReading);
  attach(&sut_, "2=pcap:" + capture("b", {{1, 20}}));
  sut_.holdCaptures(false);
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_THAT(seen_, ElementsAre(Seen{2, 20}, Seen{1, 10}));
  EXPECT_EQ(sut_.status(1)->input, InputState::kExhausted);
}

TEST_F(PortSetTest, WhatIsSentIsInTheFileWithItsTimeWhenTheSetIsIdle) {
  attach(&sut_, "1=pcap:" + capture("a", {{5, 10}, {6, 11}}));
  attach(&sut_, "2=pcap:," + folder_ / "out");
  sut_.start([this](uint32_t, PacketBuffer&& packet) { sut_.send(2, std::move(packet)); });
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  const auto written = readCapture(folder_ / "out");
  ASSERT_EQ(written.size(), 2U);
  EXPECT_EQ(written[0].timeNs(), 5 * kSecond);
  EXPECT_EQ(bytesOf(written[1]), frameOf(11));
  const PortCounters in = sut_.status(1)->counters;
  const PortCounters out = sut_.status(2)->counters;
  EXPECT_EQ(in.packets_in, 2U);
  EXPECT_EQ(in.bytes_in, 120U);
  EXPECT_EQ(out.packets_out, 2U);
  EXPECT_EQ(out.bytes_out, 120U);
  EXPECT_EQ(out.packets_in + in.packets_out, 0U);
}

TEST_F(PortSetTest, APortSetDownDropsBothWaysAndCounts) {
  attach(&sut_, "1=pcap:" + capture("a", {{1, 10}, {2, 11}}) + "," + folder_ / "out");
  ASSERT_TRUE(sut_.setEnabled(1, false));
  sut_.start(note());
  EXPECT_TRUE(sut_.send(1, packetOf(frameOf(1))));
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  const PortStatus status = *sut_.status(1);
  EXPECT_TRUE(seen_.empty());
  EXPECT_FALSE(status.linkUp());
  EXPECT_EQ(status.counters.dropped_in, 2U);
  EXPECT_EQ(status.counters.dropped_out, 1U);
  EXPECT_EQ(status.counters.packets_in + status.counters.packets_out, 0U);
  EXPECT_TRUE(readCapture(folder_ / "out").empty());
  sut_.setEnabled(1, true);
  EXPECT_TRUE(sut_.send(1, packetOf(frameOf(1))));
  EXPECT_EQ(sut_.status(1)->counters.packets_out, 1U);
}

TEST_F(PortSetTest, ABrokenCaptureIsReadUpToItsFaultAndReported) {
  const std::string path = capture("a", {{1, 10}, {2, 11}});
  std::filesystem::resize_file(path, std::filesystem::file_size(path) - 10);
  attach(&sut_, "1=pcap:" + path);
  sut_.start(note());
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_THAT(seen_, ElementsAre(Seen{1, 10}));
  EXPECT_EQ(sut_.status(1)->input, InputState::kFailed);
  EXPECT_THAT(sut_.status(1)->error, HasSubstr(path));
  EXPECT_EQ(sut_.status(1)->counters.receive_errors, 1U);
}

TEST_F(PortSetTest, RefusesCollisionsAndSaysWithWhat) {
  const std::string in = capture("a", {});
  attach(&sut_, "1=pcap:" + in + "," + folder_ / "out");
  EXPECT_EQ(refusal(&sut_, "1=pcap:" + in),
            "port 1: already attached (1=pcap:" + in + "," + folder_ / "out" + ")");
  EXPECT_EQ(refusal(&sut_, "2=pcap:," + folder_ / "out"),
            "port 2: capture file `" + folder_ / "out" + "` is in use by port 1");
  const std::string other = capture("b", {});
  EXPECT_EQ(refusal(&sut_, "3=pcap:" + other + "," + other),
            "port 3: capture file `" + other + "` cannot be both read and written");
  EXPECT_EQ(refusal(&sut_, "4=pcap:" + folder_ / "none"),
            "port 4: cannot read capture file `" + folder_ / "none" + "`: it does not exist");
  EXPECT_EQ(sut_.list().size(), 1U);
}

TEST_F(PortSetTest, RefusesToWriteAFileOfAnotherPortByWhateverName) {
  const std::string in = capture("in", {{1, 10}});
  attach(&sut_, "1=pcap:" + in + "," + folder_ / "out");
  std::filesystem::create_symlink(folder_ / "out", folder_ / "link");
  EXPECT_EQ(refusal(&sut_, "2=pcap:," + folder_ / "link"),
            "port 2: capture file `" + folder_ / "link" + "` is in use by port 1");
  EXPECT_EQ(refusal(&sut_, "2=pcap:," + folder_ / "./out"),
            "port 2: capture file `" + folder_ / "./out" + "` is in use by port 1");
  EXPECT_EQ(refusal(&sut_, "2=pcap:," + in),
            "port 2: capture file `" + in + "` is in use by port 1");
  EXPECT_EQ(readCapture(in).size(), 1U);
  attach(&sut_, "2=pcap:" + in);
  attach(&sut_, "3=pcap:" + folder_ / "out");
}

TEST_F(PortSetTest, AFileIsInUseUntilItsPortIsClosed) {
  std::promise<void> busy, go_on;
  sut_.start([](uint32_t, PacketBuffer&&) {});
  attach(&sut_, "1=pcap:," + folder_ / "out");
  sut_.post([&] {
    busy.set_value();
    go_on.get_future().wait();
  });
  busy.get_future().wait();
  std::thread detaching([this] { EXPECT_TRUE(sut_.detach(1)); });
  const bool going = jextest::waitUntil([this] { return !sut_.status(1).has_value(); });
  EXPECT_TRUE(going);
  EXPECT_EQ(refusal(&sut_, "2=pcap:," + folder_ / "out"),
            "port 2: capture file `" + folder_ / "out" + "` is in use by port 1");
  go_on.set_value();
  detaching.join();
  attach(&sut_, "2=pcap:," + folder_ / "out");
}

TEST_F(PortSetTest, UnknownPortsAreToldApart) {
  EXPECT_FALSE(sut_.send(5, packetOf(frameOf(1))));
  EXPECT_FALSE(sut_.send(kMaxPorts, packetOf(frameOf(1))));
  EXPECT_FALSE(sut_.detach(5));
  EXPECT_FALSE(sut_.detach(kMaxPorts));
  EXPECT_FALSE(sut_.setEnabled(5, true));
  EXPECT_FALSE(sut_.status(5).has_value());
}

TEST_F(PortSetTest, APortCanBeDetachedByTheReceiverItself) {
  attach(&sut_, "1=pcap:" + capture("a", {{1, 10}, {2, 11}, {3, 12}}));
  attach(&sut_, "2=pcap:" + capture("b", {{4, 20}}));
  sut_.start([this](uint32_t port, PacketBuffer&& packet) {
    seen_.push_back({port, packet.data()[20]});
    if (port == 1) sut_.detach(1);
  });
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_THAT(seen_, ElementsAre(Seen{1, 10}, Seen{2, 20}));
  EXPECT_EQ(sut_.list().size(), 1U);
}

TEST_F(PortSetTest, DetachClosesTheFilesBeforeItReturns) {
  sut_.start([](uint32_t, PacketBuffer&&) {});
  attach(&sut_, "1=pcap:," + folder_ / "out");
  ASSERT_TRUE(sut_.send(1, packetOf(frameOf(1))));
  ASSERT_TRUE(sut_.detach(1));
  EXPECT_EQ(readCapture(folder_ / "out").size(), 1U);
  attach(&sut_, "1=pcap:," + folder_ / "out");
  EXPECT_EQ(sut_.status(1)->counters.packets_out, 0U) << "a new port counts from 0";
}

TEST_F(PortSetTest, TasksRunOnTheThreadOfTheReceiver) {
  std::thread::id receiver;
  std::thread::id task;
  attach(&sut_, "1=pcap:" + capture("a", {{1, 10}}));
  sut_.start([&](uint32_t, PacketBuffer&&) { receiver = std::this_thread::get_id(); });
  sut_.post([&] { task = std::this_thread::get_id(); });
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_EQ(receiver, task);
  EXPECT_NE(task, std::this_thread::get_id());
}

TEST_F(PortSetTest, AfterStopAllIsClosedAndListedAndNothingIsIdleAnyMore) {
  attach(&sut_, "1=pcap:," + folder_ / "out");
  sut_.start([](uint32_t, PacketBuffer&&) {});
  ASSERT_TRUE(sut_.send(1, packetOf(frameOf(1))));
  sut_.stop();
  EXPECT_EQ(readCapture(folder_ / "out").size(), 1U);
  EXPECT_FALSE(sut_.waitUntilIdle(std::chrono::milliseconds(0)));
  EXPECT_TRUE(sut_.send(1, packetOf(frameOf(2))));
  EXPECT_EQ(sut_.status(1)->counters.packets_out, 1U);
  EXPECT_EQ(sut_.status(1)->counters.dropped_out, 1U);
  EXPECT_EQ(refusal(&sut_, "2=pcap:," + folder_ / "b"),
            "port 2: the ports of the device are stopped");
}

TEST_F(PortSetTest, PortsComeAndGoFromManyThreadsWhilePacketsFlow) {
  constexpr int kRounds = 40;
  std::vector<std::pair<int64_t, int>> many;
  for (int i = 0; i < 200; ++i) many.push_back({i, i % 200});
  const std::string in = capture("in", many);
  std::atomic<uint64_t> received{0};
  std::array<std::atomic<bool>, 4> attached{};
  std::atomic<bool> strayed{false};
  sut_.start([&](uint32_t port, PacketBuffer&& packet) {
    if (!attached[port].load()) strayed = true;
    received.fetch_add(1);
    sut_.send((port + 1) % 4, std::move(packet));
  });
  std::vector<std::thread> threads;
  for (uint32_t port = 0; port < 4; ++port) {
    threads.emplace_back([&, port] {
      const std::string text =
          std::to_string(port) + "=pcap:" + in + "," + folder_ / "out" + std::to_string(port);
      for (int round = 0; round < kRounds; ++round) {
        attached[port] = true;
        attach(&sut_, text);
        sut_.send((port + 2) % 4, packetOf(frameOf(1)));
        sut_.list();
        EXPECT_TRUE(sut_.detach(port));
        attached[port] = false;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_FALSE(strayed) << "a packet of a port that was detached";
  EXPECT_LE(received.load(), 4U * kRounds * many.size());
  for (int port = 0; port < 4; ++port) readCapture(folder_ / "out" + std::to_string(port));
}

}  // namespace
}  // namespace jxmodel
