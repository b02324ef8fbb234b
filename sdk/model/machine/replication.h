// Multicast groups, their nodes, and clone sessions.
//
// Thread safety: calls of writers are serialised by their caller; packets read in a ReadSection
// what was published.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/base/read_copy_update.h"
#include "model/machine/settings.h"

namespace jxmodel {

/// Pointers by number, in memory that the system gives as it is written. Owns what it points at.
template <typename Object>
class PublishedArray {
 public:
  PublishedArray(uint32_t size, Reclaimer* reclaimer);
  ~PublishedArray();
  PublishedArray(const PublishedArray&) = delete;
  PublishedArray& operator=(const PublishedArray&) = delete;

  uint32_t size() const { return size_; }
  /// Null where there is none.
  const Object* get(uint64_t index) const {
    return index < size_ ? at_[index].load(std::memory_order_acquire) : nullptr;
  }
  void set(uint32_t index, const Object* object) {
    retire(reclaimer_, at_[index].exchange(object, std::memory_order_acq_rel));
  }

 private:
  const uint32_t size_;
  Reclaimer* const reclaimer_;
  std::atomic<const Object*>* const at_;
};

class Replication {
 public:
  using Node = MachineSettings::Node;
  using Group = MachineSettings::Group;
  using Session = MachineSettings::Session;

  static constexpr uint32_t kMaxGroup = 0xFFFF;
  static constexpr uint32_t kMaxSession = 0x7FFF;

  explicit Replication(Reclaimer* reclaimer);

  std::string createGroup(uint32_t group);
  std::string deleteGroup(uint32_t group);
  uint32_t createNode(Node node);
  std::string updateNode(uint32_t node, std::vector<uint32_t> ports);
  std::string associate(uint32_t group, uint32_t node);
  std::vector<Group> groups() const;
  const std::vector<Node>& nodes() const { return nodes_; }

  std::string setSession(const Session& session);
  std::string deleteSession(uint32_t session);
  std::vector<Session> sessions() const;

  // What packets read.
  struct Copy {
    uint32_t rid;
    uint32_t port;
  };
  using Copies = std::vector<Copy>;
  /// In the order in which they leave. Null where the group does not exist.
  const Copies* group(uint64_t number) const { return published_groups_.get(number); }
  /// Null where the session does not exist.
  const Session* session(uint64_t number) const { return published_sessions_.get(number); }

 private:
  void publish(uint32_t group);

  std::vector<Node> nodes_;
  std::map<uint32_t, std::vector<uint32_t>> groups_;  // nodes in the order of association
  std::map<uint32_t, Session> sessions_;
  PublishedArray<Copies> published_groups_;
  PublishedArray<Session> published_sessions_;
};

}  // namespace jxmodel
