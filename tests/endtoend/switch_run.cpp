#include "endtoend/switch_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include "support/private_world.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace jextest {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

std::string pathOf(const std::string& name) { return runDirectory() + "/" + name; }

std::string writeCapture(const std::string& name, const std::vector<Bytes>& frames) {
  const std::string path = pathOf(name);
  pcap_t* const format = pcap_open_dead(DLT_EN10MB, 65535);
  pcap_dumper_t* const file = pcap_dump_open(format, path.c_str());
  EXPECT_NE(file, nullptr) << pcap_geterr(format);
  int64_t time = kCaptureTime / kSecond;
  for (const Bytes& frame : frames) {
    pcap_pkthdr header{};
    header.ts.tv_sec = time++;
    header.caplen = header.len = static_cast<uint32_t>(frame.size());
    pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.data());
  }
  pcap_dump_close(file);
  pcap_close(format);
  return path;
}

std::vector<Frame> readCapture(const std::string& path) {
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* const capture =
      pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error);
  std::vector<Frame> frames;
  if (capture == nullptr) return frames;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  while (pcap_next_ex(capture, &header, &data) == 1) {
    const int64_t time = header->ts.tv_sec * kSecond + header->ts.tv_usec;
    frames.push_back({time, Bytes(data, data + header->caplen), header->len});
  }
  pcap_close(capture);
  return frames;
}

uint16_t internetSum(const uint8_t* bytes, size_t size, uint32_t start) {
  uint32_t sum = start;
  for (size_t i = 0; i + 1 < size; i += 2)
    sum += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
  if (size % 2 != 0) sum += static_cast<uint32_t>(bytes[size - 1] << 8);
  while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(sum);
}

Words withProgram(const std::string& program, const Words& more) {
  Words arguments{"--program", programFile(program)};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

json answerOf(Words arguments) {
  arguments.push_back("--json");
  const Finished run = switchctl(arguments);
  EXPECT_TRUE(run.endedWith(0)) << run.error;
  EXPECT_EQ(run.output.size(), 1u);
  return run.output.empty() ? json() : json::parse(run.output[0]);
}

json portOf(uint32_t number) {
  const json answer = answerOf({"ports"});
  for (const json& port : answer.at("ports")) {
    if (port.at("port") == number) return port;
  }
  return nullptr;
}

std::unique_ptr<Child> startSwitch(const std::string& program, const Words& more) {
  Words arguments = withProgram(program, {"--heartbeat-ms", "0"});
  arguments.insert(arguments.end(), more.begin(), more.end());
  auto agent = std::make_unique<Child>(JEX_SLICE_AGENT, arguments);
  EXPECT_THAT(agent->readLine(), StartsWith("slice-agent: ready")) << agent->standardError();
  return agent;
}

bool saysReady(const Child& shell) {
  return waitUntil(
      [&] { return shell.standardError().find("partner-shell: ready\n") != std::string::npos; });
}

ShellProcess::ShellProcess(const std::string& program)
    : shell_(JEX_PARTNER_SHELL, withProgram(program, {"--device", "1", "--json"})) {
  EXPECT_TRUE(saysReady(shell_)) << shell_.standardError();
}

void ShellProcess::make(const Words& commands, const Words& tables) {
  for (const std::string& command : commands) {
    EXPECT_THAT(shell_.ask(command), HasSubstr("\"ok\":true")) << command;
  }
  for (const std::string& table : tables) {
    const Words own = listingOf(shell_, "dump " + table);
    Words replayed;
    EXPECT_TRUE(waitUntil([&] {
      replayed = switchctl({"entries", table, "--json"}).output;
      return replayed == own;
    })) << table
        << " of the agent: " << testing::PrintToString(replayed)
        << "\nof the partner: " << testing::PrintToString(own);
  }
}

json ShellProcess::ask(const std::string& command) {
  const json answer = json::parse(shell_.ask(command), nullptr, false);
  EXPECT_TRUE(answer.is_object() && answer.value("ok", false)) << command << ": " << answer;
  return answer;
}

std::string ShellProcess::refusalOf(const std::string& command) {
  const json answer = json::parse(shell_.ask(command), nullptr, false);
  EXPECT_TRUE(answer.is_object() && !answer.value("ok", true)) << command << ": " << answer;
  return answer.is_object() ? answer.value("error", "") : "";
}

std::vector<json> ShellProcess::list(const std::string& command) {
  std::vector<json> lines;
  for (const std::string& line : listingOf(shell_, command)) {
    lines.push_back(json::parse(line, nullptr, false));
  }
  return lines;
}

Bytes frameFrom(uint8_t from) {
  Bytes frame = {2, 0, 0, 0, 0, 0xee, 2, 0, 0, 0, 0, from, 0x88, 0xb5};
  frame.resize(60);
  return frame;
}

}  // namespace jextest
