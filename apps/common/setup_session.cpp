#include "setup_session.h"

#include <algorithm>
#include <utility>

namespace stf {
namespace {

namespace pb = jx::control::v1;

pb::DescribeRequest describeRequest(const Target& target) {
  pb::DescribeRequest request;
  if (target.device) request.set_device(*target.device);
  if (target.program) request.set_program(*target.program);
  return request;
}

/// The table that got what was added, null for another change.
const std::string* addedTo(const pb::ApplyRequest& request) {
  if (request.has_add_entry()) return &request.add_entry().table();
  if (request.has_add_member()) return &request.add_member().table();
  if (request.has_add_group()) return &request.add_group().table();
  return nullptr;
}

}  // namespace

SetupSession::SetupSession(Service* service, Target target, Nodes nodes)
    : service_(service), target_(std::move(target)), nodes_(nodes) {
  service_->call("Describe", describeRequest(target_), &program_);
}

template <typename Request>
Request SetupSession::aimed() const {
  Request request;
  request.set_device(program_.device());
  request.set_program(program_.program());
  return request;
}

/// The device's number of a node.
uint32_t SetupSession::nodeOf(uint32_t number) const {
  if (nodes_ == Nodes::kOfDevice) return number;
  if (number < created_nodes_.size()) return created_nodes_[number];
  throw Error("node " + std::to_string(number) + " does not exist: " +
              std::to_string(created_nodes_.size()) + " were created, numbered from 0 on");
}

void SetupSession::apply(const Command& command) {
  pb::ApplyRequest request = names_.request(command);
  request.set_device(program_.device());
  request.set_program(program_.program());
  if (request.has_add_entry()) request.mutable_add_entry()->set_first_handle(target_.first_handle);
  if (request.has_update_node()) {
    request.mutable_update_node()->set_node(nodeOf(request.update_node().node()));
  }
  if (request.has_associate()) {
    request.mutable_associate()->set_node(nodeOf(request.associate().node()));
  }
  pb::ApplyReply reply;
  service_->call("Apply", request, &reply);
  note(command, request, reply);
}

void SetupSession::note(const Command& command, const pb::ApplyRequest& request,
                        const pb::ApplyReply& reply) {
  if (request.has_create_node()) created_nodes_.push_back(reply.node());
  const std::string* const table = addedTo(request);
  // Of two entries that differ in priority only, the device keeps one.
  if (table != nullptr) {
    const std::pair added(*table, reply.handle());
    if (std::find(added_.begin(), added_.end(), added) == added_.end()) added_.push_back(added);
  }
  const auto* const add = std::get_if<Add>(&command);
  if (add != nullptr && !add->id.empty()) ids_[add->id] = reply.handle();
}

void SetupSession::removeAll() {
  // What refers to something was added after it.
  for (; !added_.empty(); added_.pop_back()) {
    auto request = aimed<pb::ApplyRequest>();
    request.mutable_delete_entry()->set_table(added_.back().first);
    request.mutable_delete_entry()->set_handle(added_.back().second);
    pb::ApplyReply reply;
    service_->call("Apply", request, &reply);
  }
  ids_.clear();
}

uint32_t SetupSession::handleOf(const std::string& id) const {
  const auto found = ids_.find(id);
  return found == ids_.end() ? 0 : found->second;
}

pb::ReadCellsReply::Cell SetupSession::cell(pb::ReadCellsRequest::Kind kind,
                                            const std::string& name, uint32_t index) const {
  auto request = aimed<pb::ReadCellsRequest>();
  request.set_kind(kind);
  request.set_name(name);
  request.set_first(index);
  request.set_count(1);
  pb::ReadCellsReply reply;
  service_->call("ReadCells", request, &reply);
  if (reply.cells_size() != 1) throw Error(name + " has no index " + std::to_string(index));
  return reply.cells(0);
}

pb::SettingsReply SetupSession::settings() const {
  pb::SettingsReply reply;
  service_->call("ListSettings", aimed<pb::DescribeRequest>(), &reply);
  return reply;
}

pb::ExchangeReply SetupSession::exchange(uint32_t port, const std::string& bytes) const {
  pb::ExchangeRequest request;
  request.set_device(program_.device());
  request.set_port(port);
  request.set_data(bytes);
  pb::ExchangeReply reply;
  service_->call("Exchange", request, &reply);
  return reply;
}

void setUp(const std::vector<Line>& lines, const std::string& name, SetupSession* session) {
  for (const Line& line : lines) {
    try {
      session->apply(line.command);
    } catch (const Error& error) {
      throw Error(name + ':' + std::to_string(line.number) + ": " + error.what());
    }
  }
}

}  // namespace stf
