// A device that is set up command by command, over whatever way leads to its settings.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "setup_requests.h"
#include "stf_commands.h"
#include "switch.pb.h"

namespace google::protobuf {
class MessageLite;
}

namespace stf {

/// The calls of the service jx.control.v1.Settings.
class Service {
 public:
  virtual ~Service() = default;
  /// Throws Error with what the service answered.
  virtual void call(const char* method, const google::protobuf::MessageLite& request,
                    google::protobuf::MessageLite* reply) = 0;
};

/// Which device and program are meant; left out where there is no choice.
struct Target {
  std::optional<int32_t> device;
  std::optional<std::string> program;
  /// Entries get handles from here on; 0: the operator's range.
  uint32_t first_handle = 0;
};

class SetupSession {
 public:
  enum class Nodes : uint8_t { kAsCreated, kOfDevice };

  /// `nodes`: whether commands number multicast nodes from 0 on in the order in which this session
  /// created them, or as the device does. Throws Error.
  SetupSession(Service* service, Target target, Nodes nodes);
  SetupSession(const SetupSession&) = delete;
  SetupSession& operator=(const SetupSession&) = delete;

  const jx::control::v1::ProgramDescription& program() const { return program_; }
  const Names& names() const { return names_; }

  /// Carries out a command that sets something up. Throws Error.
  void apply(const Command& command);
  /// Deletes all entries, members and groups that this session has added.
  void removeAll();
  /// The handle of an entry that was added with this id, 0 if there is none.
  uint32_t handleOf(const std::string& id) const;

  /// One cell. Throws Error.
  jx::control::v1::ReadCellsReply::Cell cell(jx::control::v1::ReadCellsRequest::Kind kind,
                                             const std::string& name, uint32_t index) const;
  jx::control::v1::SettingsReply settings() const;
  jx::control::v1::ExchangeReply exchange(uint32_t port, const std::string& bytes) const;

 private:
  template <typename Request>
  Request aimed() const;
  uint32_t nodeOf(uint32_t number) const;
  void note(const Command& command, const jx::control::v1::ApplyRequest& request,
            const jx::control::v1::ApplyReply& reply);

  Service* const service_;
  const Target target_;
  const Nodes nodes_;
  jx::control::v1::ProgramDescription program_;
  Names names_{program_};
  std::vector<uint32_t> created_nodes_;
  std::vector<std::pair<std::string, uint32_t>> added_;  // table, handle
  std::map<std::string, uint32_t> ids_;
};

/// Carries out all lines, which set something up. Throws Error, whose text begins with
/// "NAME:LINE: ".
void setUp(const std::vector<Line>& lines, const std::string& name, SetupSession* session);

}  // namespace stf
