// A slice agent as a switch: ports are attached and detached, packets of capture files are moved,
// injected, captured and traced, and a partner's tables decide where they go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::answerOf;
using jextest::Bytes;
using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::Frame;
using jextest::internetSum;
using jextest::isOneLine;
using jextest::kCaptureTime;
using jextest::kSecond;
using jextest::pathOf;
using jextest::portOf;
using jextest::programFile;
using jextest::readCapture;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::withProgram;
using jextest::Words;
using jextest::writeCapture;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

/// The address 02:00:00:00:00:NN.
Bytes mac(uint8_t last) { return {2, 0, 0, 0, 0, last}; }

Bytes ethernet(const Bytes& dst, const Bytes& src, uint16_t type, const Bytes& rest) {
  Bytes frame(dst);
  frame.insert(frame.end(), src.begin(), src.end());
  frame.push_back(static_cast<uint8_t>(type >> 8));
  frame.push_back(static_cast<uint8_t>(type));
  frame.insert(frame.end(), rest.begin(), rest.end());
  frame.resize(std::max<size_t>(frame.size(), 60));
  return frame;
}

/// A frame of a type that programs do not look into.
Bytes frameTo(const Bytes& dst) { return ethernet(dst, mac(9), 0x88b5, {1, 2, 3}); }

/// An IPv4 frame of a protocol without ports, from 10.9.9.9.
Bytes ipv4To(const Bytes& dst, uint8_t ttl = 64) {
  Bytes ip{0x45, 0, 0, 28, 0, 1, 0, 0, ttl, 253, 0, 0, 10, 9, 9, 9};
  ip.insert(ip.end(), dst.begin(), dst.end());
  const auto sum = static_cast<uint16_t>(~internetSum(ip.data(), 20));
  ip[10] = static_cast<uint8_t>(sum >> 8);
  ip[11] = static_cast<uint8_t>(sum);
  ip.insert(ip.end(), 8, 0x5a);
  return ethernet(mac(1), mac(9), 0x0800, ip);
}

/// A partner that has done what `commands` say, all of which the agent has replayed.
class Partner {
 public:
  Partner(const std::string& program, const Words& commands, const std::string& last_table,
          const std::string& last_count)
      : shell_(JEX_PARTNER_SHELL, {"--program", programFile(program), "--device", "1", "--json"}) {
    EXPECT_TRUE(jextest::saysReady(shell_)) << shell_.standardError();
    for (const std::string& command : commands) {
      EXPECT_THAT(shell_.ask(command), HasSubstr("\"ok\":true")) << command;
    }
    EXPECT_TRUE(waitUntil([&] {
      return switchctl({"count", last_table}).output == Words{last_count};
    }));
  }

 private:
  Child shell_;
};

/// An agent with one program, ready.
class SwitchTest : public testing::Test {
 protected:
  void start(const std::string& program, const Words& more = {}) {
    agent_ = std::make_unique<Child>(JEX_SLICE_AGENT, withProgram(program, more));
    ASSERT_THAT(agent_->readLine(), StartsWith("slice-agent: ready")) << agent_->standardError();
  }
  void addPort(const std::string& spec) {
    const Finished run = switchctl({"port-add", spec});
    ASSERT_TRUE(run.endedWith(0)) << run.error;
  }

  std::unique_ptr<Child> agent_;
};

using L2Switch = SwitchTest;
using Router = SwitchTest;
using Ports = SwitchTest;

const Words kForwardToPort3{"add dmac ethernet.dst=02:00:00:00:00:03 -> forward port=3"};

TEST_F(Ports, AreListedWithWhatPassedThem) {
  start("l2_switch");
  const std::string in = writeCapture("list.in", {frameTo(mac(3)), frameTo(mac(4))});
  const std::string out = pathOf("list.out");
  EXPECT_THAT(answerOf({"ports"}).at("ports"), IsEmpty());
  addPort("2=pcap:," + out);
  addPort("1=pcap:" + in);
  ASSERT_TRUE(waitUntil([] { return portOf(2).at("packets_out") == 2; }));

  const json listed = answerOf({"ports"});
  ASSERT_THAT(listed.at("ports"), SizeIs(2));
  const json& first = listed.at("ports")[0];
  EXPECT_EQ(first.at("port"), 1);
  EXPECT_EQ(first.at("spec"), "1=pcap:" + in);
  EXPECT_EQ(first.at("link"), true);
  EXPECT_EQ(first.at("input"), "exhausted");
  EXPECT_EQ(first.at("packets_in"), 2);
  EXPECT_EQ(first.at("bytes_in"), 120);
  EXPECT_EQ(first.at("packets_out"), 0);
  const json& packets = listed.at("packets");
  EXPECT_EQ(packets.at("program"), "l2_switch");
  EXPECT_EQ(packets.at("received"), 2);
  EXPECT_EQ(packets.at("flooded"), 2);
  EXPECT_EQ(packets.at("dropped"), 0);

  // The times of the input stand in the output.
  const std::vector<Frame> sent = readCapture(out);
  ASSERT_THAT(sent, SizeIs(2));
  EXPECT_EQ(sent[0].time_ns, kCaptureTime);
  EXPECT_EQ(sent[1].time_ns, kCaptureTime + kSecond);
  EXPECT_EQ(sent[1].bytes, frameTo(mac(4)));

  const std::string text = testing::PrintToString(switchctl({"ports"}).output);
  EXPECT_THAT(text,
              AllOf(HasSubstr("1=pcap:" + in), HasSubstr("2 received, 0 forwarded, 2 flooded")));
}

TEST_F(Ports, AreGoneWhenDeletedAndTheirNumberIsFree) {
  start("l2_switch");
  const std::string out = pathOf("delete.out");
  addPort("7=pcap:," + out);
  const Finished taken = switchctl({"port-add", "7=pcap:," + pathOf("other.out")});
  EXPECT_TRUE(taken.endedWith(1));
  EXPECT_THAT(taken.error, HasSubstr("port 7: already attached (7=pcap:," + out + ")"));
  EXPECT_TRUE(isOneLine(taken.error)) << taken.error;
  EXPECT_TRUE(switchctl({"port-delete", "7"}).endedWith(0));
  EXPECT_THAT(answerOf({"ports"}).at("ports"), IsEmpty());
  for (const char* command : {"port-delete", "port-up", "port-down"}) {
    const Finished again = switchctl({command, "7"});
    EXPECT_TRUE(again.endedWith(1));
    EXPECT_EQ(again.error, "switchctl: 127.0.0.1:50051: there is no port 7\n");
  }
  addPort("7=pcap:," + out);
}

TEST_F(Ports, DropWhatComesAndGoesWhileTheyAreSetDown) {
  start("l2_switch");
  const std::string capture = writeCapture("down.in", {frameTo(mac(3))});
  addPort("1=pcap:," + pathOf("down1.out"));
  addPort("2=pcap:," + pathOf("down2.out"));
  EXPECT_EQ(answerOf({"port-down", "2"}).at("link"), false);
  ASSERT_TRUE(switchctl({"inject", "--port", "1", capture}).endedWith(0));
  ASSERT_TRUE(switchctl({"inject", "--port", "2", capture}).endedWith(0));
  EXPECT_THAT(readCapture(pathOf("down2.out")), IsEmpty());
  EXPECT_THAT(readCapture(pathOf("down1.out")), IsEmpty());
  json port = portOf(2);
  EXPECT_EQ(port.at("dropped_out"), 1);
  EXPECT_EQ(port.at("dropped_in"), 1);

  EXPECT_EQ(answerOf({"port-up", "2"}).at("link"), true);
  ASSERT_TRUE(switchctl({"inject", capture, "--port", "1"}).endedWith(0));
  EXPECT_THAT(readCapture(pathOf("down2.out")), SizeIs(1));
}

TEST_F(Ports, AreRefusedWithTheReason) {
  start("l2_switch");
  const std::string broken = pathOf("broken.pcap");
  std::ofstream(broken) << "this is no capture";
  for (const auto& [spec, reason] : std::vector<std::pair<std::string, std::string>>{
           {"1=if:nowhere0", "nowhere0"},
           {"1=pcap:/nonexistent.pcap", "/nonexistent.pcap"},
           {"1=pcap:" + broken, broken},
           {"1=pcap:,/nonexistent/out.pcap", "/nonexistent/out.pcap"},
           {"512=if:lo", "512"},
           {"1=elsewhere", "N=if:NAME"}}) {
    const Finished run = switchctl({"port-add", spec});
    EXPECT_TRUE(run.endedWith(1)) << spec;
    EXPECT_THAT(run.error, HasSubstr(reason));
    EXPECT_TRUE(isOneLine(run.error)) << run.error;
  }
  EXPECT_THAT(answerOf({"ports"}).at("ports"), IsEmpty());
}

TEST_F(Ports, TakeFilesFromTheFolderOfWhoAttachesThem) {
  start("l2_switch");
  const std::string in = writeCapture("relative.in", {frameTo(mac(3))});
  const std::string relative = std::filesystem::relative(in).string();
  ASSERT_THAT(relative, Not(StartsWith("/")));
  addPort("1=pcap:" + relative);
  EXPECT_THAT(portOf(1).at("spec"), StartsWith("1=pcap:/"));
}

TEST(SliceAgentPorts, RefuseToStartWithTheReason) {
  for (const auto& [spec, reason] : std::vector<std::pair<std::string, std::string>>{
           {"1=if:nowhere0", "nowhere0"}, {"1=pcap:/nonexistent.pcap", "/nonexistent.pcap"}}) {
    const Finished run = finish(
        Child(JEX_SLICE_AGENT, withProgram("l2_switch", {"--control", "off", "--port", spec})));
    EXPECT_TRUE(run.endedWith(1));
    EXPECT_THAT(run.error, AllOf(StartsWith("slice-agent: "), HasSubstr(reason)));
    EXPECT_TRUE(isOneLine(run.error)) << run.error;
  }
}

TEST_F(Ports, OfTheCommandLineReadTheirCapturesInOrderOfTime) {
  const std::string first = writeCapture("order1.in", {frameTo(mac(1)), frameTo(mac(2))});
  const std::string second = writeCapture("order2.in", {frameTo(mac(3)), frameTo(mac(4))});
  const std::string out = pathOf("order.out");
  start("l2_switch", {"--clock", "capture", "--port", "1=pcap:" + first, "--port",
                      "2=pcap:" + second, "--port", "3=pcap:," + out});
  ASSERT_TRUE(waitUntil([&] { return readCapture(out).size() == 4; }));
  std::vector<uint8_t> order;
  for (const Frame& frame : readCapture(out)) order.push_back(frame.bytes[5]);
  EXPECT_THAT(order, ElementsAre(1, 3, 2, 4));
}

TEST_F(L2Switch, SendsKnownAddressesToTheirPortAndOthersToAllButTheirOwn) {
  start("l2_switch");
  for (const char* port : {"1", "2", "3"}) {
    addPort(std::string(port) + "=pcap:," + pathOf("l2." + std::string(port)));
  }
  const Partner partner("l2_switch", kForwardToPort3, "dmac", "1");
  const std::string capture = writeCapture("l2.in", {frameTo(mac(3)), frameTo(mac(4))});
  const json injected = answerOf({"inject", "--port", "1", capture});
  EXPECT_EQ(injected.at("packets"), 2);
  EXPECT_EQ(injected.at("bytes"), 120);

  EXPECT_THAT(readCapture(pathOf("l2.1")), IsEmpty());
  const std::vector<Frame> second = readCapture(pathOf("l2.2"));
  const std::vector<Frame> third = readCapture(pathOf("l2.3"));
  ASSERT_THAT(second, SizeIs(1));
  ASSERT_THAT(third, SizeIs(2));
  EXPECT_EQ(second[0].bytes, frameTo(mac(4)));
  EXPECT_EQ(third[0].bytes, frameTo(mac(3)));
  EXPECT_EQ(portOf(1).at("packets_in"), 2);

  ASSERT_TRUE(switchctl({"port-delete", "3"}).endedWith(0));
  ASSERT_TRUE(switchctl({"inject", "--port", "1", capture}).endedWith(0));
  const json packets = answerOf({"ports"}).at("packets");
  EXPECT_EQ(packets.at("forwarded"), 2);
  EXPECT_EQ(packets.at("flooded"), 2);
  EXPECT_EQ(packets.at("sent_nowhere"), 1);
}

TEST_F(L2Switch, IsTracedWithoutSendingAnything) {
  start("l2_switch");
  addPort("3=pcap:," + pathOf("trace.out"));
  const Partner partner("l2_switch", kForwardToPort3, "dmac", "1");
  const std::string capture = writeCapture("trace.in", {frameTo(mac(3)), frameTo(mac(4))});
  const Finished run = switchctl({"trace", "--port", "1", capture, "--json"});
  ASSERT_TRUE(run.endedWith(0)) << run.error;
  ASSERT_THAT(run.output, SizeIs(2));

  const json known = json::parse(run.output[0]);
  EXPECT_EQ(known.at("packet"), 1);
  EXPECT_EQ(known.at("length"), 60);
  EXPECT_EQ(known.at("time_ns"), kCaptureTime);
  EXPECT_EQ(known.at("program"), "l2_switch");
  EXPECT_EQ(known.at("ingress_port"), 1);
  EXPECT_EQ(known.at("egress_port"), 3);
  EXPECT_EQ(known.at("outcome"), "forwarded to port 3");
  json applied = json::array();
  for (const json& step : known.at("steps")) {
    if (step.contains("table")) applied.push_back(step);
  }
  ASSERT_THAT(applied, SizeIs(2));
  EXPECT_EQ(applied[0].at("table"), "smac");
  EXPECT_EQ(applied[0].at("hit"), false);
  EXPECT_EQ(applied[1].at("table"), "dmac");
  EXPECT_EQ(applied[1].at("hit"), true);
  EXPECT_EQ(applied[1].at("action"), "forward");
  EXPECT_EQ(applied[1].at("parameters"), json({{"port", "0x0003"}}));

  const json unknown = json::parse(run.output[1]);
  EXPECT_EQ(unknown.at("outcome"), "flooded");
  EXPECT_THAT(readCapture(pathOf("trace.out")), IsEmpty());
  const json ports = json::parse(switchctl({"ports", "--json"}).output[0]);
  EXPECT_EQ(ports.at("packets").at("received"), 0) << "traced packets are counted";

  const std::string text =
      testing::PrintToString(switchctl({"trace", capture, "--port", "1"}).output);
  EXPECT_THAT(text, AllOf(HasSubstr("packet 1, 60 bytes, l2_switch, from port 1"),
                          HasSubstr("table smac: miss"), HasSubstr("table dmac: hit, entry"),
                          HasSubstr("forward(port=0x0003)"), HasSubstr("forwarded to port 3")));
}

TEST_F(Router, RewritesRoutedPacketsAndDropsTheOthers) {
  start("router");
  addPort("2=pcap:," + pathOf("router.out"));
  const Partner partner("router",
                        {"member-add nexthops member=1 -> set_nexthop port=2 "
                         "dmac=02:00:00:00:00:22 smac=02:00:00:00:00:11",
                         "add ipv4_lpm ipv4.dst=10.1.0.0/16 -> member=1"},
                        "ipv4_lpm", "1");
  const std::string capture = writeCapture(
      "router.in", {ipv4To({10, 1, 2, 3}), ipv4To({10, 2, 0, 1}), ipv4To({10, 1, 2, 3}, 1)});
  ASSERT_TRUE(switchctl({"inject", "--port", "1", capture}).endedWith(0));
  const std::vector<Frame> sent = readCapture(pathOf("router.out"));
  ASSERT_THAT(sent, SizeIs(1));
  const Bytes& frame = sent[0].bytes;
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), mac(0x22));
  EXPECT_EQ(Bytes(frame.begin() + 6, frame.begin() + 12), mac(0x11));
  EXPECT_EQ(frame[22], 63);                               // time to live
  EXPECT_EQ(internetSum(frame.data() + 14, 20), 0xffff);  // the checksum is right
  const json packets = answerOf({"ports"}).at("packets");
  EXPECT_EQ(packets.at("forwarded"), 1);
  EXPECT_EQ(packets.at("dropped"), 2);
  EXPECT_EQ(packets.at("drop_reasons"), json({{"dropped by the program", 2}}));
}

TEST_F(L2Switch, IsCapturedWhereItSendsAndReceives) {
  start("l2_switch");
  addPort("1=pcap:," + pathOf("tap1.out"));
  addPort("2=pcap:," + pathOf("tap2.out"));
  const std::string frames =
      writeCapture("tap.in", {frameTo(mac(1)), frameTo(mac(2)), frameTo(mac(3))});
  Child out(JEX_SWITCHCTL, {"capture", "--port", "2", pathOf("leaving"), "--count", "2"});
  Child in(JEX_SWITCHCTL, {"capture", "--port", "1", pathOf("entering"), "--direction", "in"});
  ASSERT_EQ(out.readLine(), "capturing at port 2");
  ASSERT_EQ(in.readLine(), "capturing at port 1");
  ASSERT_TRUE(switchctl({"inject", "--port", "1", frames}).endedWith(0));
  ASSERT_TRUE(switchctl({"inject", "--port", "2", frames}).endedWith(0));

  EXPECT_EQ(out.readLine(), "2 packets");
  EXPECT_EQ(out.waitForExit().code, 0);
  const std::vector<Frame> left = readCapture(pathOf("leaving"));
  ASSERT_THAT(left, SizeIs(2));
  EXPECT_EQ(left[0].bytes, frameTo(mac(1)));
  EXPECT_EQ(left[1].time_ns, kCaptureTime + kSecond);

  ASSERT_TRUE(waitUntil([] { return readCapture(pathOf("entering")).size() == 3; }));
  in.signal(SIGINT);
  EXPECT_EQ(in.readLine(), "3 packets");
  EXPECT_EQ(in.waitForExit().code, 0);
}

TEST_F(Ports, SayWhatIsWrongWithInjectTraceAndCapture) {
  start("l2_switch");
  const std::string broken = pathOf("broken2.pcap");
  std::ofstream(broken) << "this is no capture";
  for (const char* command : {"inject", "trace"}) {
    const Finished no_file = switchctl({command, "--port", "1", "/nonexistent.pcap"});
    EXPECT_TRUE(no_file.endedWith(1));
    EXPECT_EQ(no_file.error,
              "switchctl: cannot read /nonexistent.pcap: No such file or directory\n");
    const Finished no_capture = switchctl({command, "--port", "1", broken});
    EXPECT_TRUE(no_capture.endedWith(1));
    EXPECT_THAT(no_capture.error, AllOf(HasSubstr("upload"), Not(HasSubstr("/proc"))));
    EXPECT_TRUE(isOneLine(no_capture.error)) << no_capture.error;
    EXPECT_TRUE(switchctl({command, broken}).endedWith(2));
    EXPECT_TRUE(switchctl({command, "--port", "512", broken}).endedWith(2));
  }
  const std::string kept = writeCapture("kept.pcap", {frameTo(mac(3))});
  const Finished no_port = switchctl({"capture", "--port", "5", kept});
  EXPECT_TRUE(no_port.endedWith(1));
  EXPECT_EQ(no_port.error, "switchctl: 127.0.0.1:50051: there is no port 5\n");
  EXPECT_THAT(readCapture(kept), SizeIs(1)) << "a capture that did not begin has emptied a file";
  addPort("5=pcap:," + pathOf("sink.out"));
  const Finished full_disk = switchctl({"capture", "--port", "5", "/dev/full"});
  EXPECT_TRUE(full_disk.endedWith(1));
  EXPECT_EQ(full_disk.error, "switchctl: cannot write /dev/full: No space left on device\n");
  const Finished no_folder = switchctl({"capture", "--port", "5", "/nonexistent/out.pcap"});
  EXPECT_TRUE(no_folder.endedWith(1));
  EXPECT_EQ(no_folder.error,
            "switchctl: cannot write /nonexistent/out.pcap: No such file or directory\n");
  EXPECT_EQ(switchctl({"ports", "--device", "4"}).error,
            "switchctl: 127.0.0.1:50051: there is no device 4\n");
}

}  // namespace
