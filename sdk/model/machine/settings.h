// What one device keeps for a machine from packet to packet and what operators set: registers,
// rates of meters, value sets, multicast groups, clone sessions. Indices are those of the Machine's
// lists.
//
// Thread safety: any thread may call anything; packets read and write at the same time. A packet
// that is on its way when a group, a session or a value set changes meets it as it was or as it
// becomes. Functions that can refuse return the reason on one line, empty where all was done;
// nothing is half done.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/program/machine.h"

namespace jxmodel {

class MachineSettings {
 public:
  /// The machine outlives the settings.
  explicit MachineSettings(const Machine& machine);
  ~MachineSettings();

  // Registers. Values are (width + 7) / 8 bytes in network byte order.
  std::string readRegister(uint32_t reg, uint32_t index, std::vector<uint8_t>* value) const;
  std::string writeRegister(uint32_t reg, uint32_t index, const std::vector<uint8_t>& value);
  std::string resetRegister(uint32_t reg);

  // Meters: two rates, three colours. A meter without rates is always green.
  struct Rate {
    double per_second = 0;  // bytes or packets, as the meter counts
    uint64_t burst = 0;     // bytes or packets
    bool operator==(const Rate& other) const {
      return per_second == other.per_second && burst == other.burst;
    }
  };
  struct Rates {
    Rate committed, peak;
  };
  /// Empty rates: none are set.
  std::string meterRates(uint32_t meter, uint32_t index, std::optional<Rates>* rates) const;
  std::string setMeterRates(uint32_t meter, uint32_t index, const std::optional<Rates>& rates);
  std::string setAllMeterRates(uint32_t meter, const std::optional<Rates>& rates);

  // Value sets. A member has a value and a mask of the set's compressed width, in bytes with zeros
  // in front.
  struct Member {
    std::vector<uint8_t> value, mask;
  };
  std::string addMember(uint32_t value_set, const Member& member);
  std::string removeMember(uint32_t value_set, const Member& member);
  std::vector<Member> members(uint32_t value_set) const;

  // Multicast: a group has nodes, in the order in which they were associated; a node has a
  // replication id and ports. Nodes are numbered from 0 in the order in which they were created.
  struct Node {
    uint32_t rid = 0;
    std::vector<uint32_t> ports;  // ascending, each once
  };
  struct Group {
    uint32_t id = 0;
    std::vector<uint32_t> nodes;
  };
  std::string createGroup(uint32_t group);
  std::string deleteGroup(uint32_t group);
  uint32_t createNode(Node node);
  std::string updateNode(uint32_t node, std::vector<uint32_t> ports);
  std::string associate(uint32_t group, uint32_t node);
  std::vector<Group> groups() const;
  std::vector<Node> nodes() const;

  // Clone sessions: 0 to 32767. A session has a port or a group or both.
  struct Session {
    uint32_t id = 0;
    std::optional<uint32_t> port;
    std::optional<uint32_t> group;
  };
  /// A second call for a session adds what the first has left open, else replaces it.
  std::string setSession(const Session& session);
  std::string deleteSession(uint32_t session);
  std::vector<Session> sessions() const;

  /// Restarts the generator of random numbers; it starts with 1.
  void seed(uint64_t seed);

 private:
  friend class MachineRun;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace jxmodel
