#include "model/machine/replication.h"

#include <algorithm>
#include <new>
#include <utility>

namespace jxmodel {
namespace {

template <typename Object>
std::atomic<const Object*>* zeroedPointers(uint32_t size) {
  void* const memory = std::calloc(size, sizeof(std::atomic<const Object*>));
  if (memory == nullptr) throw std::bad_alloc();
  return static_cast<std::atomic<const Object*>*>(memory);
}

void sortUnique(std::vector<uint32_t>* ports) {
  std::sort(ports->begin(), ports->end());
  ports->erase(std::unique(ports->begin(), ports->end()), ports->end());
}

std::string noGroup(uint32_t group) {
  return "multicast group " + std::to_string(group) + " does not exist";
}
std::string noNode(uint32_t node) {
  return "multicast node " + std::to_string(node) + " does not exist";
}

/// Whether a setting leaves all open that another has set.
bool addsTo(const Replication::Session& session, const Replication::Session& before) {
  return !(session.port && before.port) && !(session.group && before.group);
}

}  // namespace

template <typename Object>
PublishedArray<Object>::PublishedArray(uint32_t size, Reclaimer* reclaimer)
    : size_(size), reclaimer_(reclaimer), at_(zeroedPointers<Object>(size)) {}

template <typename Object>
PublishedArray<Object>::~PublishedArray() {
  for (uint32_t i = 0; i < size_; ++i) delete at_[i].load(std::memory_order_relaxed);
  std::free(at_);
}

template class PublishedArray<Replication::Copies>;
template class PublishedArray<Replication::Session>;

Replication::Replication(Reclaimer* reclaimer)
    : published_groups_(kMaxGroup + 1, reclaimer),
      published_sessions_(kMaxSession + 1, reclaimer) {}

std::string Replication::createGroup(uint32_t group) {
  if (group > kMaxGroup) {
    return "multicast groups end at " + std::to_string(kMaxGroup) + ", not at " +
           std::to_string(group);
  }
  if (!groups_.try_emplace(group).second) {
    return "multicast group " + std::to_string(group) + " exists already";
  }
  publish(group);
  return {};
}

std::string Replication::deleteGroup(uint32_t group) {
  if (groups_.erase(group) == 0) return noGroup(group);
  published_groups_.set(group, nullptr);
  return {};
}

uint32_t Replication::createNode(Node node) {
  sortUnique(&node.ports);
  nodes_.push_back(std::move(node));
  return static_cast<uint32_t>(nodes_.size()) - 1;
}

std::string Replication::updateNode(uint32_t node, std::vector<uint32_t> ports) {
  if (node >= nodes_.size()) return noNode(node);
  sortUnique(&ports);
  nodes_[node].ports = std::move(ports);
  for (const auto& [group, members] : groups_) {
    if (std::find(members.begin(), members.end(), node) != members.end()) publish(group);
  }
  return {};
}

std::string Replication::associate(uint32_t group, uint32_t node) {
  const auto found = groups_.find(group);
  if (found == groups_.end()) return noGroup(group);
  if (node >= nodes_.size()) return noNode(node);
  std::vector<uint32_t>& members = found->second;
  if (std::find(members.begin(), members.end(), node) != members.end()) {
    return "multicast node " + std::to_string(node) + " is in group " + std::to_string(group) +
           " already";
  }
  members.push_back(node);
  publish(group);
  return {};
}

void Replication::publish(uint32_t group) {
  auto* const copies = new Copies;
  for (const uint32_t node : groups_[group]) {
    for (const uint32_t port : nodes_[node].ports) copies->push_back({nodes_[node].rid, port});
  }
  published_groups_.set(group, copies);
}

std::vector<Replication::Group> Replication::groups() const {
  std::vector<Group> all;
  for (const auto& [group, members] : groups_) all.push_back({group, members});
  return all;
}

std::string Replication::setSession(const Session& session) {
  if (session.id > kMaxSession) {
    return "clone sessions end at " + std::to_string(kMaxSession) + ", not at " +
           std::to_string(session.id);
  }
  if (!session.port && !session.group) {
    return "clone session " + std::to_string(session.id) + " needs a port or a group";
  }
  const auto [place, added] = sessions_.try_emplace(session.id, session);
  Session& set = place->second;
  if (!added && addsTo(session, set)) {
    if (session.port) set.port = session.port;
    if (session.group) set.group = session.group;
  } else {
    set = session;
  }
  published_sessions_.set(session.id, new Session(set));
  return {};
}

std::string Replication::deleteSession(uint32_t session) {
  if (sessions_.erase(session) == 0) {
    return "clone session " + std::to_string(session) + " does not exist";
  }
  published_sessions_.set(session, nullptr);
  return {};
}

std::vector<Replication::Session> Replication::sessions() const {
  std::vector<Session> all;
  for (const auto& [id, session] : sessions_) all.push_back(session);
  return all;
}

}  // namespace jxmodel
