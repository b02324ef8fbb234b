#include "both_ways.h"

#include <filesystem>
#include <stdexcept>

#include "child.h"
#include "clock.h"
#include "cpu.h"
#include "model/port/packet_buffer.h"
#include "scenario.h"
#include "spread.h"
#include "unit/pipeline/frame.h"

namespace bench {
namespace {

using jxpipelinetest::Flow;

constexpr uint64_t kFirstStation = 0x0200'0000'0000;
constexpr uint64_t kRouterMac = 0x0200'0000'FF01;
constexpr uint32_t kEgressPort = 2;
constexpr size_t kBatch = 1024;  // packets that are in memory at a time

std::string compiledProgram(const std::string& name) {
  return std::string(JEX_P4_PROGRAMS_DIR) + '/' + name + ".json";
}

void writeMac(uint64_t mac, uint8_t* at) {
  for (int i = 0; i < 6; ++i) at[i] = static_cast<uint8_t>(mac >> (40 - 8 * i));
}

Rig::Bytes frameOf(uint64_t dst, uint64_t src, const Flow& flow) {
  Rig::Bytes frame = jxpipelinetest::ipv4Frame(flow);
  writeMac(dst, frame.data() + jxpipelinetest::kEthernetDst);
  writeMac(src, frame.data() + jxpipelinetest::kEthernetSrc);
  return frame;
}

/// Where packets go: they stay until the next batch, so that none is freed while time is taken.
class Kept : public jxmodel::Egress {
 public:
  Kept() { packets_.reserve(kBatch); }
  void send(uint32_t, jxmodel::PacketBuffer&& packet) override {
    packets_.push_back(std::move(packet));
  }
  void flood(uint32_t, jxmodel::PacketBuffer&& packet) override { send(0, std::move(packet)); }
  size_t count() const { return packets_.size(); }

 private:
  std::vector<jxmodel::PacketBuffer> packets_;
};

}  // namespace

Pair switchBothWays(uint32_t stations) {
  constexpr uint64_t kVlan = 10;
  Pair pair{"learning switch, " + std::to_string(stations) + " addresses",
            std::make_unique<Rig>(programFile("l2_switch")),
            std::make_unique<Rig>(compiledProgram("l2_learn")),
            {}};
  pair.compiled->add("port_vlan", {{kIngressPort, 0}, {0, 0}, {0, 0}}, {"set_pvid", {kVlan}}, 1);
  pair.compiled->add("egress_tag", {{kEgressPort, 0}, {kVlan, 0}}, {"NoAction", {}});
  for (uint32_t i = 0; i < stations; ++i) {
    const uint64_t mac = kFirstStation + i;
    pair.by_hand->add("smac", {{mac, 0}, {kIngressPort, 0}}, {"known", {}});
    pair.by_hand->add("dmac", {{mac, 0}}, {"forward", {kEgressPort}});
    pair.compiled->add("station", {{kVlan, 0}, {mac, 0}}, {"station_at", {kIngressPort}});
    pair.compiled->add("forward", {{kVlan, 0}, {mac, 0}}, {"to_port", {kEgressPort}});
    const Flow flow{0x0A00'0000 + i, 0x0A01'0000, 17, 1000, 2000};
    pair.frames.push_back(frameOf(kFirstStation + (i * 7 + 1) % stations, mac, flow));
  }
  return pair;
}

Pair routerBothWays(size_t count) {
  constexpr uint64_t kRouting = 1;
  const std::vector<jxpipelinetest::Prefix> routes = firstRoutes(count);
  Pair pair{"router, " + std::to_string(routes.size()) + " routes",
            std::make_unique<Rig>(programFile("router")),
            std::make_unique<Rig>(compiledProgram("router46")),
            {}};
  pair.compiled->add("port_map", {{kIngressPort, 0}}, {"set_vrf", {kRouting}});
  pair.compiled->add("router_mac", {{0, 0}, {kRouterMac, 0}}, {"station_ok", {}}, 1);
  std::vector<uint32_t> by_hand, compiled;  // members
  for (uint64_t hop = 1; hop <= kNextHops; ++hop) {
    const uint64_t neighbour = kFirstStation + hop;
    by_hand.push_back(pair.by_hand->addMember(
        "nexthops", {"set_nexthop", {kEgressPort, neighbour, kRouterMac, 0}}));
    compiled.push_back(pair.compiled->addMember("hop_groups", {"to_hop", {hop}}));
    pair.compiled->add("neighbours", {{hop, 0}}, {"rewrite", {kEgressPort, kRouterMac, neighbour}});
  }
  for (size_t i = 0; i < routes.size(); ++i) {
    const jxpipelinetest::Prefix& route = routes[i];
    const size_t hop = i % kNextHops;
    pair.by_hand->addReference("ipv4_lpm", {{route.address, route.length}}, by_hand[hop]);
    pair.compiled->addReference("v4_routes", {{kRouting, 0}, {route.address, route.length}},
                                compiled[hop]);
    const auto bits = static_cast<uint32_t>(i * 2'654'435'761U);
    const uint32_t dst = route.address | (bits & ~jxpipelinetest::maskOf(route.length));
    pair.frames.push_back(frameOf(kRouterMac, kFirstStation, {bits, dst, 17, 1000, 2000}));
  }
  return pair;
}

double costOfPacket(const Rig& rig, const std::vector<Rig::Bytes>& frames, uint64_t packets) {
  uint64_t ran = 0, cpu = 0;
  std::vector<jxmodel::PacketBuffer> batch;
  for (size_t at = 0; ran < packets; ran += kBatch) {
    batch.clear();
    while (batch.size() < kBatch) {
      const Rig::Bytes& frame = frames[at++ % frames.size()];
      batch.emplace_back(frame.data(), frame.size());
    }
    Kept kept;
    const uint64_t before = threadCpu();
    for (jxmodel::PacketBuffer& packet : batch) {
      rig.pipeline().forward(kIngressPort, std::move(packet), kept, nullptr);
    }
    cpu += threadCpu() - before;
    if (kept.count() != kBatch) throw std::runtime_error("packets did not leave");
  }
  return static_cast<double>(cpu) / static_cast<double>(ran);
}

namespace {

using Json = nlohmann::ordered_json;

Json measured(const Pair& pair, const Effort& effort) {
  std::vector<double> by_hand, compiled, ratios;
  for (int round = 0; round < effort.rounds; ++round) {
    by_hand.push_back(costOfPacket(*pair.by_hand, pair.frames, effort.packets));
    compiled.push_back(costOfPacket(*pair.compiled, pair.frames, effort.packets));
    ratios.push_back(by_hand.back() / compiled.back());
  }
  return {{"program", pair.name},
          {"by_hand", spread(by_hand)},
          {"compiled", spread(compiled)},
          {"ratio", spread(ratios)}};
}

/// Programs of growing_programs.py: the cost of a packet by the number of `what`.
Json growth(const std::string& what, const Effort& effort) {
  constexpr uint64_t kDestination = 0x0200'0000'0001;
  Rig::Bytes frame(160);
  writeMac(kDestination, frame.data());
  Json rows = Json::array();
  for (const int number : {1, 2, 4, 8, 16, 32}) {
    const Rig rig(std::string(JEX_GROWING_PROGRAMS_DIR) + '/' + what + '_' +
                  std::to_string(number) + ".json");
    std::vector<double> costs;
    for (int round = 0; round < effort.rounds; ++round) {
      costs.push_back(costOfPacket(rig, {frame}, effort.packets));
    }
    rows.push_back({{"number", number}, {"cost", spread(costs)}});
  }
  return {{"what", what}, {"rows", rows}};
}

/// The program with the most bytes among those of the tests.
std::string largestProgram() {
  std::filesystem::path largest;
  for (const auto& file : std::filesystem::directory_iterator(JEX_P4_PROGRAMS_DIR)) {
    if (file.path().extension() != ".json") continue;
    const bool larger = largest.empty() || file.file_size() > std::filesystem::file_size(largest);
    if (larger) largest = file.path();
  }
  return largest;
}

/// From the file to a device that is ready for packets.
Json loading(const Effort& effort) {
  const std::string file = largestProgram();
  std::vector<double> times;
  for (int round = 0; round < effort.rounds; ++round) {
    const uint64_t before = threadCpu();
    const Rig rig(file);
    times.push_back(static_cast<double>(threadCpu() - before) / 1e6);
  }
  return {{"program", std::filesystem::path(file).filename()},
          {"bytes", std::filesystem::file_size(file)},
          {"milliseconds", spread(times)}};
}

}  // namespace

void compiledPrograms(const Effort& effort) {
  constexpr uint32_t kStations = 1024;
  constexpr size_t kRoutes = 4000;
  CpuForPackets::keepClear();  // before there are threads
  const CpuForPackets cpu;
  Json pairs = Json::array();
  pairs.push_back(measured(switchBothWays(kStations), effort));
  pairs.push_back(measured(routerBothWays(kRoutes), effort));
  report({{"pairs", pairs},
          {"growth", {growth("tables", effort), growth("headers", effort)}},
          {"loading", loading(effort)}});
  awaitEnd();
}

}  // namespace bench
