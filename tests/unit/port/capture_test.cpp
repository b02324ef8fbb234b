#include <gmock/gmock.h>
#include <pcap/pcap.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "packets.h"
#include "support/test_data.h"

namespace jxmodel {
namespace {

using namespace test;
using testing::HasSubstr;

constexpr int64_t kTime = 1'700'000'000'123'456'000;

std::string fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

uint32_t magicOf(const std::string& path) {
  uint32_t magic = 0;
  const std::string bytes = fileBytes(path);
  if (bytes.size() >= sizeof magic) std::memcpy(&magic, bytes.data(), sizeof magic);
  return magic;
}

std::string refusal(const std::string& path) {
  std::string error;
  EXPECT_EQ(CaptureReader::open(path, &error), nullptr);
  return error;
}

TEST(PacketBuffer, GrowsAndShrinksAtItsFrontWithoutLosingBytes) {
  const Bytes bytes = frameOf(7);
  PacketBuffer packet = packetOf(bytes, kTime);
  packet.setWireLength(1500);
  packet.prepend(4);
  EXPECT_EQ(packet.size(), bytes.size() + 4);
  EXPECT_EQ(packet.wireLength(), 1504U);
  EXPECT_EQ(packet.headroom(), PacketBuffer::kHeadroom - 4);
  packet.trimFront(4);
  EXPECT_EQ(bytesOf(packet), bytes);
  EXPECT_EQ(packet.wireLength(), 1500U);
}

TEST(PacketBuffer, CopyIsIndependentAndMoveLeavesNothing) {
  PacketBuffer packet = packetOf(frameOf(7), kTime, TimeResolution::kMicrosecond);
  PacketBuffer copy = packet.copy();
  copy.data()[20] = 8;
  EXPECT_EQ(packet.data()[20], 7);
  EXPECT_EQ(copy.timeNs(), kTime);
  EXPECT_EQ(copy.resolution(), TimeResolution::kMicrosecond);
  const PacketBuffer moved = std::move(packet);
  EXPECT_EQ(moved.size(), 60U);
  EXPECT_TRUE(packet.empty());  // NOLINT: what is left of it is part of its contract
}

TEST(CaptureFile, KeepsBytesTimesAndLengthsOnTheWire) {
  const Folder folder;
  std::vector<PacketBuffer> written;
  written.push_back(packetOf(frameOf(1), kTime));
  written.push_back(packetOf(frameOf(2, 1514), kTime + 1000));
  written.back().setWireLength(9000);
  writeCapture(folder / "a.pcap", written);
  const auto read = readCapture(folder / "a.pcap");
  ASSERT_EQ(read.size(), 2U);
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(bytesOf(read[i]), bytesOf(written[i]));
    EXPECT_EQ(read[i].timeNs(), written[i].timeNs());
    EXPECT_EQ(read[i].wireLength(), written[i].wireLength());
    EXPECT_EQ(read[i].resolution(), TimeResolution::kMicrosecond);
  }
  EXPECT_EQ(magicOf(folder / "a.pcap"), 0xa1b2c3d4);
}

TEST(CaptureFile, ChangesToNanosecondsWithTheFirstPacketThatHasThem) {
  const Folder folder;
  std::vector<PacketBuffer> written;
  written.push_back(packetOf(frameOf(1), kTime, TimeResolution::kMicrosecond));
  written.push_back(packetOf(frameOf(2), kTime + 1, TimeResolution::kNanosecond));
  written.push_back(packetOf(frameOf(3), kTime + 5000, TimeResolution::kMicrosecond));
  writeCapture(folder / "a.pcap", written);
  const auto read = readCapture(folder / "a.pcap");
  ASSERT_EQ(read.size(), 3U);
  EXPECT_EQ(read[0].timeNs(), kTime);
  EXPECT_EQ(read[1].timeNs(), kTime + 1);
  EXPECT_EQ(read[2].timeNs(), kTime + 5000);
  EXPECT_EQ(read[1].resolution(), TimeResolution::kNanosecond);
  EXPECT_EQ(magicOf(folder / "a.pcap"), 0xa1b23c4d);
  EXPECT_FALSE(std::filesystem::exists(folder / "a.pcap.nanoseconds"));
}

TEST(CaptureFile, WrittenPacketsCanBeReadAfterFlush) {
  const Folder folder;
  std::string error;
  const auto writer = CaptureWriter::open(folder / "a.pcap", &error);
  ASSERT_NE(writer, nullptr) << error;
  ASSERT_TRUE(writer->write(packetOf(frameOf(1)), &error));
  ASSERT_TRUE(writer->flush(&error));
  EXPECT_EQ(readCapture(folder / "a.pcap").size(), 1U);
}

/// A block of a pcapng file: type, length, body, length.
std::string block(uint32_t type, const std::string& body) {
  const auto word = [](uint32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
  };
  const auto length = static_cast<uint32_t>(body.size() + 12);
  return word(type) + word(length) + body + word(length);
}

template <typename Number>
std::string number(Number value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

std::string pcapngSection() {
  return block(0x0a0d0d0a, number(uint32_t{0x1a2b3c4d}) + number(uint16_t{1}) +
                               number(uint16_t{0}) + number(~0ULL));
}

/// Time stamps of its packets are in units of 10^-exponent s.
std::string pcapngInterface(uint8_t exponent) {
  const std::string options = number(uint16_t{9}) + number(uint16_t{1}) +
                              std::string(1, static_cast<char>(exponent)) + std::string(3, '\0') +
                              number(uint32_t{0});
  return block(
      1, number(uint16_t{DLT_EN10MB}) + number(uint16_t{0}) + number(uint32_t{65535}) + options);
}

/// A packet of 60 bytes.
std::string pcapngPacket(uint32_t interface, uint64_t stamp) {
  const Bytes frame = frameOf(9);
  return block(6, number(interface) + number(static_cast<uint32_t>(stamp >> 32)) +
                      number(static_cast<uint32_t>(stamp)) + number(uint32_t{60}) +
                      number(uint32_t{60}) + std::string(frame.begin(), frame.end()));
}

std::string pcapng(uint8_t exponent, uint64_t stamp) {
  return pcapngSection() + pcapngInterface(exponent) + pcapngPacket(0, stamp);
}

TEST(CaptureFile, ReadsPcapngWithTheResolutionThatItsInterfaceNames) {
  const Folder folder;
  const struct {
    uint8_t exponent;
    uint64_t stamp;
    int64_t time_ns;
    TimeResolution resolution;
  } cases[] = {
      {6, 1'700'000'000'123'456, kTime, TimeResolution::kMicrosecond},
      {9, 1'700'000'000'123'456'789, kTime + 789, TimeResolution::kNanosecond},
      {3, 1'700'000'000'123, 1'700'000'000'123'000'000, TimeResolution::kMicrosecond},
  };
  for (const auto& expected : cases) {
    writeFile(folder / "a.pcapng", pcapng(expected.exponent, expected.stamp));
    const auto packets = readCapture(folder / "a.pcapng");
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].timeNs(), expected.time_ns);
    EXPECT_EQ(packets[0].resolution(), expected.resolution);
    EXPECT_EQ(bytesOf(packets[0]), frameOf(9));
  }
}

TEST(CaptureFile, TellsTheResolutionOfAnInterfaceThatComesBehindPackets) {
  const Folder folder;
  writeFile(folder / "a.pcapng", pcapngSection() + pcapngInterface(6) +
                                     pcapngPacket(0, 1'700'000'000'123'456) + pcapngInterface(9) +
                                     pcapngPacket(1, 1'700'000'000'123'456'789));
  const auto packets = readCapture(folder / "a.pcapng");
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_EQ(packets[0].resolution(), TimeResolution::kMicrosecond);
  EXPECT_EQ(packets[1].timeNs(), kTime + 789);
  EXPECT_EQ(packets[1].resolution(), TimeResolution::kNanosecond);
  writeCapture(folder / "b.pcap", packets);
  EXPECT_EQ(readCapture(folder / "b.pcap")[1].timeNs(), kTime + 789);
}

// Opening reads as far as the first packet, however much there is behind it.
TEST(CaptureFile, ResolutionIsSoughtInFrontOfThePackets) {
  const Folder folder;
  writeFile(folder / "a.pcapng", pcapngSection() + pcapngInterface(6) +
                                     pcapngPacket(0, 1'700'000'000'123'456) + pcapngInterface(9));
  std::string error;
  const auto reader = CaptureReader::open(folder / "a.pcapng", &error);
  ASSERT_NE(reader, nullptr) << error;
  EXPECT_EQ(reader->resolution(), TimeResolution::kMicrosecond);
}

TEST(CaptureFile, TimesBeyondTheLastOneAreTheLastOne) {
  const Folder folder;
  writeFile(folder / "a.pcapng",
            pcapng(0, ~uint64_t{0} >> 1) + pcapngPacket(0, 1) + pcapngPacket(0, 10'000'000'000));
  const auto packets = readCapture(folder / "a.pcapng");
  ASSERT_EQ(packets.size(), 3U);
  EXPECT_EQ(packets[0].timeNs(), INT64_MAX);
  EXPECT_EQ(packets[1].timeNs(), 1'000'000'000);
  EXPECT_EQ(packets[2].timeNs(), INT64_MAX);
}

TEST(CaptureFile, KeepsTimesThatNeedAll32BitsOfTheirSeconds) {
  const Folder folder;
  constexpr int64_t kLate = 0xF000'0000 * int64_t{1'000'000'000} + 123'456'000;  // in 2097
  std::vector<PacketBuffer> written;
  written.push_back(packetOf(frameOf(1), kLate));
  writeCapture(folder / "a.pcap", written);
  const auto read = readCapture(folder / "a.pcap");
  ASSERT_EQ(read.size(), 1U);
  EXPECT_EQ(read[0].timeNs(), kLate);
}

class CaptureFiles : public jextest::OverFiles {
 protected:
  CaptureFiles() : OverFiles("pcap", "pcap") {}
};

TEST_P(CaptureFiles, AreReadToTheirEnd) {
  forEachFile([](const std::string& file) {
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_t* const capture = pcap_open_offline(file.c_str(), error);
    ASSERT_NE(capture, nullptr) << error;
    size_t packets = 0;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    while (pcap_next_ex(capture, &header, &data) == 1) ++packets;
    pcap_close(capture);
    EXPECT_GT(packets, 0U);
    EXPECT_EQ(readCapture(file).size(), packets);
  });
}

INSTANTIATE_TEST_SUITE_P(Captures, CaptureFiles, testing::ValuesIn(jextest::madeAndReal("pcap")),
                         jextest::inWords);

TEST(CaptureFile, RefusesWhatIsNoCaptureAndSaysWhy) {
  const Folder folder;
  EXPECT_EQ(refusal(folder / "none"),
            "cannot read capture file `" + folder / "none" + "`: it does not exist");
  EXPECT_THAT(refusal(folder / ""), HasSubstr("it is not a regular file"));
  writeFile(folder / "text", "this is no capture, only text");
  EXPECT_THAT(refusal(folder / "text"), HasSubstr("unknown file format"));
  writeFile(folder / "empty", "");
  EXPECT_THAT(refusal(folder / "empty"), HasSubstr("truncated dump file"));
}

TEST(CaptureFile, RefusesPacketsThatAreNotEthernet) {
  const Folder folder;
  pcap_t* const dead = pcap_open_dead(DLT_LINUX_SLL, 65535);
  pcap_dump_close(pcap_dump_open(dead, (folder / "sll.pcap").c_str()));
  pcap_close(dead);
  EXPECT_THAT(refusal(folder / "sll.pcap"),
              HasSubstr("its packets are of link type LINUX_SLL, ports take Ethernet only"));
}

TEST(CaptureFile, SaysThatAFileIsCutOffAndGoesOnSayingSo) {
  const Folder folder;
  std::vector<PacketBuffer> packets;
  packets.push_back(packetOf(frameOf(1)));
  packets.push_back(packetOf(frameOf(2)));
  writeCapture(folder / "a.pcap", packets);
  const std::string whole = fileBytes(folder / "a.pcap");
  writeFile(folder / "cut.pcap", whole.substr(0, whole.size() - 10));
  std::string error;
  const auto reader = CaptureReader::open(folder / "cut.pcap", &error);
  ASSERT_NE(reader, nullptr) << error;
  PacketBuffer packet;
  EXPECT_EQ(reader->next(&packet, &error), CaptureReader::Result::kPacket);
  for (int again = 0; again < 2; ++again) {
    error.clear();
    EXPECT_EQ(reader->next(&packet, &error), CaptureReader::Result::kFailed);
    EXPECT_THAT(error, HasSubstr("cut.pcap"));
    EXPECT_THAT(error, HasSubstr("truncated"));
  }
}

TEST(CaptureFile, SaysWhyItCannotBeWritten) {
  const Folder folder;
  std::string error;
  EXPECT_EQ(CaptureWriter::open(folder / "no/such/folder.pcap", &error), nullptr);
  EXPECT_EQ(error, "cannot write capture file `" + folder / "no/such/folder.pcap" +
                       "`: No such file or directory");
}

TEST(CaptureFile, IsACaptureFileBeforeItsFirstPacket) {
  const Folder folder;
  std::string error;
  const auto writer = CaptureWriter::open(folder / "a.pcap", &error);
  ASSERT_NE(writer, nullptr) << error;
  EXPECT_TRUE(readCapture(folder / "a.pcap").empty());
}

TEST(CaptureFile, AFullDiskIsTold) {
  std::string error;
  EXPECT_EQ(CaptureWriter::open("/dev/full", &error), nullptr);
  EXPECT_EQ(error, "cannot write capture file `/dev/full`: No space left on device");
}

TEST(CaptureFile, APipeIsRefusedInsteadOfWaitingForItsReader) {
  const Folder folder;
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::string error;
  EXPECT_EQ(CaptureWriter::open(folder / "pipe", &error), nullptr);
  EXPECT_EQ(error, "cannot write capture file `" + folder / "pipe" + "`: it is a pipe");
}

/// Files of this process cannot grow beyond so many bytes while one lives.
class FileLimit {
 public:
  explicit FileLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  sighandler_t handler_;
  rlimit before_{};
};

// The copy of the file that nanoseconds need has no room for the last byte of it.
TEST(CaptureFile, StaysAsItIsWhereThereIsNoRoomForNanoseconds) {
  const Folder folder;
  std::string error;
  const auto writer = CaptureWriter::open(folder / "a.pcap", &error);
  ASSERT_NE(writer, nullptr) << error;
  for (uint8_t i = 0; i < 3; ++i) ASSERT_TRUE(writer->write(packetOf(frameOf(i)), &error));
  ASSERT_TRUE(writer->flush(&error));
  const std::string before = fileBytes(folder / "a.pcap");
  {
    const FileLimit limit(before.size() - 1);
    const PacketBuffer finer = packetOf(frameOf(9), 1, TimeResolution::kNanosecond);
    for (int again = 0; again < 2; ++again) {
      EXPECT_FALSE(writer->write(finer, &error));
      EXPECT_EQ(error, "cannot write capture file `" + folder / "a.pcap" + "`: File too large");
    }
  }
  EXPECT_EQ(fileBytes(folder / "a.pcap"), before);
  EXPECT_FALSE(std::filesystem::exists(folder / "a.pcap.nanoseconds"));
}

}  // namespace
}  // namespace jxmodel
