// Interface ports against hosts with real network stacks, over veth pairs. The switch is in the
// network namespace of the test program, each host in one of its own.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "model/packet/checksum.h"
#include "model/port/interface_port.h"
#include "model/port/port_set.h"
#include "network.h"
#include "support/private_world.h"
#include "support/wait_until.h"

namespace jxmodel {
namespace {

using namespace test;
using jextest::kPatience;
using jextest::waitUntil;
using testing::HasSubstr;

constexpr size_t kLongestOnWire = 1514;

PortSpec interfaceSpec(uint32_t number, const std::string& name) {
  PortSpec spec;
  spec.number = number;
  spec.kind = PortKind::kInterface;
  spec.interface = name;
  return spec;
}

class InterfaceTest : public testing::Test {
 protected:
  void SetUp() override { JEX_SKIP_WITHOUT_NETWORKS(); }
  void TearDown() override { sut_.stop(); }

  void attach(uint32_t number, const std::string& name) {
    std::string error;
    ASSERT_TRUE(sut_.attach(interfaceSpec(number, name), &error)) << error;
  }

  /// Keeps the packets of the type that `frameOf` makes, tagged or not.
  PacketReceiver keep() {
    return [this](uint32_t, PacketBuffer&& packet) {
      if (!isTestFrame(packet)) return;
      const std::lock_guard lock(mutex_);
      kept_.push_back(std::move(packet));
    };
  }
  static bool isTestFrame(const PacketBuffer& packet) {
    const uint8_t* const data = packet.data();
    size_t type = 12;
    while (data[type] == 0x81 || (data[type] == 0x88 && data[type + 1] == 0xa8)) type += 4;
    return data[type] == 0x88 && data[type + 1] == 0xb5;
  }
  bool waitForKept(size_t count) {
    return waitUntil([&] {
      const std::lock_guard lock(mutex_);
      return kept_.size() >= count;
    });
  }
  /// Port 1 to port 2 and back; looks at each packet.
  PacketReceiver forward(std::function<void(const PacketBuffer&)> look) {
    return [this, look](uint32_t port, PacketBuffer&& packet) {
      look(packet);
      sut_.send(3 - port, std::move(packet));
    };
  }
  PortCounters counters(uint32_t port) { return sut_.status(port).value().counters; }

  std::mutex mutex_;
  std::vector<PacketBuffer> kept_;
  PortSet sut_;
};

TEST_F(InterfaceTest, RefusalsSayWhichInterfaceAndWhy) {
  std::string error;
  EXPECT_FALSE(sut_.attach(interfaceSpec(7, "nowhere"), &error));
  EXPECT_EQ(error, "port 7: cannot open interface `nowhere`: no such interface: No such device");
  const Host host("p1");
  attach(1, "p1");
  EXPECT_FALSE(sut_.attach(interfaceSpec(2, "p1"), &error));
  EXPECT_EQ(error, "port 2: interface `p1` is in use by port 1");
}

TEST_F(InterfaceTest, CarriesBytesBothWaysWhateverTheAddresses) {
  Host host("p1");
  attach(1, "p1");
  sut_.start(keep());
  Bytes to_other = frameOf(1, 200);
  to_other[0] = 0x02;  // a unicast address of nobody
  host.run([&] { Tap("eth0").send(to_other); });
  ASSERT_TRUE(waitForKept(1));
  EXPECT_EQ(bytesOf(kept_[0]), to_other);
  EXPECT_GT(kept_[0].timeNs(), 1'600'000'000LL * 1'000'000'000);

  host.run([&] {
    Tap tap("eth0");
    EXPECT_TRUE(sut_.send(1, packetOf(frameOf(2, 1514))));
    EXPECT_EQ(tap.receive(), frameOf(2, 1514));
  });
  EXPECT_EQ(counters(1).packets_out, 1U);
  EXPECT_EQ(counters(1).bytes_out, 1514U);
  // What the port itself sends does not come back.
  host.run([&] { Tap("eth0").send(frameOf(3)); });
  ASSERT_TRUE(waitForKept(2));
  EXPECT_EQ(bytesOf(kept_[1]), frameOf(3));
}

TEST_F(InterfaceTest, VlanTagsSurviveBothWays) {
  Host host("p1");
  attach(1, "p1");
  sut_.start(keep());
  Bytes tagged = frameOf(1, 100);
  const uint8_t tag[] = {0x81, 0x00, 0x60, 0x2a};
  tagged.insert(tagged.begin() + 12, std::begin(tag), std::end(tag));
  Bytes twice = tagged;
  const uint8_t outer[] = {0x88, 0xa8, 0x00, 0x64};
  twice.insert(twice.begin() + 12, std::begin(outer), std::end(outer));
  host.run([&] {
    Tap tap("eth0");
    tap.send(tagged);
    tap.send(twice);
    ASSERT_TRUE(waitForKept(2));
    EXPECT_EQ(bytesOf(kept_[0]), tagged);
    EXPECT_EQ(bytesOf(kept_[1]), twice);
    EXPECT_EQ(kept_[1].wireLength(), twice.size());
    sut_.send(1, packetOf(tagged));
    EXPECT_EQ(tap.receive(), tagged);
  });
}

TEST_F(InterfaceTest, PacketsThatAreTooLongAreSendErrors) {
  const Host host("p1");
  attach(1, "p1");
  sut_.start(keep());
  sut_.send(1, packetOf(frameOf(1, 3000)));
  sut_.send(1, packetOf(Bytes(5)));
  sut_.send(1, packetOf({}));
  EXPECT_EQ(counters(1).send_errors, 3U);
  EXPECT_EQ(counters(1).packets_out, 0U);
  EXPECT_THAT(sut_.status(1)->error, HasSubstr("interface `p1`: cannot send: "));
}

TEST_F(InterfaceTest, OnePacketThatCannotBeSentDoesNotHoldUpOthersOfItsBurst) {
  Host host("p1");
  const Host other("p2");
  attach(1, "p1");
  attach(2, "p2");
  sut_.start(keep());
  host.run([&] {
    Tap tap("eth0");
    // Sent by the I/O thread, so all of them wait in one queue.
    sut_.post([&] {
      sut_.send(1, packetOf(frameOf(1)));
      sut_.send(1, packetOf(frameOf(2, 3000)));
      sut_.send(1, packetOf(frameOf(3)));
    });
    EXPECT_EQ(tap.receive(), frameOf(1));
    EXPECT_EQ(tap.receive(), frameOf(3));
  });
  EXPECT_TRUE(sut_.waitUntilIdle(kPatience));
  EXPECT_EQ(counters(1).packets_out, 2U);
  EXPECT_EQ(counters(1).send_errors, 1U);
}

TEST_F(InterfaceTest, LinkFollowsTheInterface) {
  Host host("p1");
  attach(1, "p1");
  sut_.start(keep());
  const auto link = [&](bool up) {
    return waitUntil([&] { return sut_.status(1)->carrier == up; });
  };
  EXPECT_TRUE(link(true));
  host.run([] { ip("link set eth0 down"); });
  EXPECT_TRUE(link(false)) << "the cable's other end is down";
  sut_.send(1, packetOf(frameOf(1)));
  EXPECT_EQ(counters(1).dropped_out, 1U);
  host.run([] { ip("link set eth0 up"); });
  EXPECT_TRUE(link(true));
  ip("link set p1 down");
  EXPECT_TRUE(link(false));
  ip("link set p1 up");
  EXPECT_TRUE(link(true));
  host.run([&] { Tap("eth0").send(frameOf(2)); });
  EXPECT_TRUE(waitForKept(1));
}

TEST_F(InterfaceTest, AnInterfaceThatDisappearsIsALinkDownAndMayComeBack) {
  auto host = std::make_unique<Host>("p1");
  attach(1, "p1");
  sut_.start(keep());
  ip("link del p1");
  EXPECT_TRUE(waitUntil([&] { return !sut_.status(1)->carrier; }));
  sut_.send(1, packetOf(frameOf(1)));
  EXPECT_EQ(counters(1).dropped_out, 1U);
  host = std::make_unique<Host>("p1");
  EXPECT_TRUE(waitUntil([&] { return sut_.status(1)->carrier; }));
  host->run([&] { Tap("eth0").send(frameOf(2)); });
  ASSERT_TRUE(waitForKept(1));
  EXPECT_EQ(bytesOf(kept_[0]), frameOf(2));
}

TEST_F(InterfaceTest, APortSetDownDropsWhatArrives) {
  Host host("p1");
  attach(1, "p1");
  sut_.setEnabled(1, false);
  sut_.start(keep());
  host.run([&] { Tap("eth0").send(frameOf(1)); });
  EXPECT_TRUE(waitUntil([&] { return counters(1).dropped_in > 0; }));
  sut_.setEnabled(1, true);
  host.run([&] { Tap("eth0").send(frameOf(2)); });
  ASSERT_TRUE(waitForKept(1));
  EXPECT_EQ(bytesOf(kept_[0]), frameOf(2));
}

TEST_F(InterfaceTest, AfterDetachNothingIsReceived) {
  Host host("p1");
  attach(1, "p1");
  sut_.start(keep());
  host.run([&] { Tap("eth0").send(frameOf(1)); });
  ASSERT_TRUE(waitForKept(1));
  ASSERT_TRUE(sut_.detach(1));
  host.run([&] { Tap("eth0").send(frameOf(2)); });
  attach(1, "p1");  // the interface is free again
  host.run([&] { Tap("eth0").send(frameOf(3)); });
  ASSERT_TRUE(waitForKept(2));
  EXPECT_EQ(bytesOf(kept_[1]), frameOf(3));
}

// --- real stacks

sockaddr_storage addressOf(bool ipv6, int last, uint16_t port) {
  sockaddr_storage storage{};
  if (ipv6) {
    auto* const to = reinterpret_cast<sockaddr_in6*>(&storage);
    to->sin6_family = AF_INET6;
    to->sin6_port = htons(port);
    inet_pton(AF_INET6, ("fd00::" + std::to_string(last)).c_str(), &to->sin6_addr);
  } else {
    auto* const to = reinterpret_cast<sockaddr_in*>(&storage);
    to->sin_family = AF_INET;
    to->sin_port = htons(port);
    inet_pton(AF_INET, ("10.9.0." + std::to_string(last)).c_str(), &to->sin_addr);
  }
  return storage;
}

const sockaddr* plain(const sockaddr_storage& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

int openSocket(bool ipv6, int type) {
  const int fd = socket(ipv6 ? AF_INET6 : AF_INET, type | SOCK_CLOEXEC, 0);
  const timeval patience{kPatience.count(), 0};
  EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
  EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience), 0);
  return fd;
}

void addAddresses(Host* host, int last) {
  host->run([=] {
    ip("addr add 10.9.0." + std::to_string(last) + "/24 dev eth0");
    ip("addr add fd00::" + std::to_string(last) + "/64 dev eth0 nodad");
  });
}

Bytes payloadOf(size_t size) {
  Bytes payload(size);
  for (size_t i = 0; i < size; ++i) payload[i] = static_cast<uint8_t>(i * 31 + i / 251);
  return payload;
}

/// Checks each packet that passes as a host at the end of a real wire would.
class Inspector {
 public:
  void look(const PacketBuffer& packet) {
    if (packet.size() > kLongestOnWire) ++too_long;
    Headers headers;
    if (parse(packet.data(), packet.size(), &headers) != ParseStatus::kOk) return;
    if (!headers.has(Header::kL4)) return;
    ++packets;
    const auto place = l4ChecksumOffset(headers);
    const auto right = l4ChecksumOf(packet.data(), headers);
    if (!place || !right) return;
    const int written = packet.data()[*place] << 8 | packet.data()[*place + 1];
    if (written != *right) ++wrong_sums;
  }
  std::atomic<uint64_t> packets{0}, too_long{0}, wrong_sums{0};
};

class StackTest : public InterfaceTest, public testing::WithParamInterface<bool> {};

TEST_P(StackTest, ATcpTransferOfAHostThatOffloadsPassesAsPacketsOfAWire) {
  const bool ipv6 = GetParam();
  Host left("p1");
  Host right("p2");
  addAddresses(&left, 1);
  addAddresses(&right, 2);
  attach(1, "p1");
  attach(2, "p2");
  Inspector inspector;
  sut_.start(forward([&](const PacketBuffer& packet) { inspector.look(packet); }));

  const Bytes payload = payloadOf(4 << 20);
  const sockaddr_storage server = addressOf(ipv6, 2, 5001);
  int listener = -1;
  right.run([&] {
    listener = openSocket(ipv6, SOCK_STREAM);
    ASSERT_EQ(bind(listener, plain(server), sizeof server), 0);
    ASSERT_EQ(listen(listener, 1), 0);
  });
  Bytes arrived;
  right.begin([&] {
    const int fd = accept(listener, nullptr, nullptr);
    Bytes part(65536);
    for (ssize_t got; (got = recv(fd, part.data(), part.size(), 0)) > 0;) {
      arrived.insert(arrived.end(), part.begin(), part.begin() + got);
    }
    close(fd);
  });
  left.run([&] {
    const int fd = openSocket(ipv6, SOCK_STREAM);
    ASSERT_EQ(connect(fd, plain(server), sizeof server), 0) << std::strerror(errno);
    for (size_t sent = 0; sent < payload.size();) {
      const ssize_t now = send(fd, payload.data() + sent, payload.size() - sent, MSG_NOSIGNAL);
      ASSERT_GT(now, 0) << std::strerror(errno);
      sent += static_cast<size_t>(now);
    }
    close(fd);
  });
  right.join();
  close(listener);
  EXPECT_EQ(arrived.size(), payload.size());
  EXPECT_TRUE(arrived == payload);
  EXPECT_GT(inspector.packets, payload.size() / kLongestOnWire);
  EXPECT_EQ(inspector.too_long, 0U);
  EXPECT_EQ(inspector.wrong_sums, 0U);
  EXPECT_EQ(counters(1).receive_errors + counters(2).receive_errors, 0U);
  EXPECT_EQ(counters(1).send_errors + counters(2).send_errors, 0U);
}

TEST_P(StackTest, AUdpTrainArrivesAsDatagrams) {
  const bool ipv6 = GetParam();
  constexpr size_t kDatagram = 1000;
  constexpr size_t kCount = 20;
  Host left("p1");
  Host right("p2");
  addAddresses(&left, 1);
  addAddresses(&right, 2);
  attach(1, "p1");
  attach(2, "p2");
  Inspector inspector;
  sut_.start(forward([&](const PacketBuffer& packet) { inspector.look(packet); }));

  const sockaddr_storage to = addressOf(ipv6, 2, 5002);
  int receiver = -1;
  right.run([&] {
    receiver = openSocket(ipv6, SOCK_DGRAM);
    ASSERT_EQ(bind(receiver, plain(to), sizeof to), 0);
  });
  const Bytes payload = payloadOf(kDatagram * kCount);
  left.run([&] {
    const int fd = openSocket(ipv6, SOCK_DGRAM);
    const int segment = kDatagram;
    ASSERT_EQ(setsockopt(fd, SOL_UDP, UDP_SEGMENT, &segment, sizeof segment), 0);
    const ssize_t sent =
        sendto(fd, payload.data(), payload.size(), 0, plain(to), sizeof(sockaddr_storage));
    EXPECT_EQ(sent, static_cast<ssize_t>(payload.size())) << std::strerror(errno);
    close(fd);
  });
  right.run([&] {
    Bytes arrived;
    Bytes part(65536);
    for (size_t i = 0; i < kCount; ++i) {
      const ssize_t got = recv(receiver, part.data(), part.size(), 0);
      ASSERT_EQ(got, static_cast<ssize_t>(kDatagram)) << std::strerror(errno);
      arrived.insert(arrived.end(), part.begin(), part.begin() + got);
    }
    EXPECT_TRUE(arrived == payload);
  });
  close(receiver);
  EXPECT_EQ(inspector.too_long, 0U);
  EXPECT_EQ(inspector.wrong_sums, 0U);
}

INSTANTIATE_TEST_SUITE_P(, StackTest, testing::Values(false, true),
                         [](const auto& param) { return param.param ? "Ipv6" : "Ipv4"; });

}  // namespace
}  // namespace jxmodel
