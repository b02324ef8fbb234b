#include "setup_commands.h"

#include <chrono>
#include <thread>
#include <utility>

#include "own_device.h"
#include "own_settings.h"
#include "render_settings.h"
#include "setup_session.h"
#include "stf_commands.h"
#include "stf_run.h"

namespace switchctl {
namespace {

namespace pb = jx::control::v1;

/// The settings of the server's device.
class RemoteSettings final : public stf::Service {
 public:
  explicit RemoteSettings(Client* client) : client_(client) {}
  void call(const char* method, const google::protobuf::MessageLite& request,
            google::protobuf::MessageLite* reply) override {
    client_->settings(method, request, reply);
  }

 private:
  Client* const client_;
};

stf::Target targetOf(const Place& place) {
  stf::Target target;
  target.device = place.device;
  target.program = place.program;
  return target;
}

Outcome outcomeOf(const std::string& file, const stf::Run& run, Format format) {
  return {renderRun(file, run, format), run.differences.empty() ? 0 : 1};
}

Outcome runOnOwnDevice(const std::string& file, const std::vector<stf::Line>& lines,
                       const std::string& program, Format format) {
  const OwnDevice device(program);
  stf::OwnSettings settings;
  stf::Target target;
  target.first_handle = 1;  // nobody else writes
  stf::SetupSession session(&settings, target, stf::SetupSession::Nodes::kAsCreated);
  return outcomeOf(file, stf::run(lines, file, &session, OwnDevice::wait), format);
}

/// All cells of a register or a meter, a message at a time.
template <typename Take>
void readAll(pb::ReadCellsRequest request, uint32_t size, Client& client, Take take) {
  constexpr uint32_t kAtATime = 4096;
  for (uint32_t first = 0; first < size; first += kAtATime) {
    request.set_first(first);
    request.set_count(kAtATime);
    pb::ReadCellsReply reply;
    client.settings("ReadCells", request, &reply);
    take(first, reply);
  }
}

pb::ReadCellsRequest cellsRequest(pb::ReadCellsRequest::Kind kind, const std::string& name,
                                  const Place& place) {
  pb::ReadCellsRequest request;
  if (place.device) request.set_device(*place.device);
  if (place.program) request.set_program(*place.program);
  request.set_kind(kind);
  request.set_name(name);
  return request;
}

}  // namespace

Outcome runPacketTest(const std::string& file, const Place& place, Client& client, Format format) {
  const std::vector<stf::Line> lines = stf::parseFile(file);
  if (place.program) return runOnOwnDevice(file, lines, *place.program, format);
  RemoteSettings settings(&client);
  stf::SetupSession session(&settings, targetOf(place), stf::SetupSession::Nodes::kAsCreated);
  const auto wait = [] { std::this_thread::sleep_for(std::chrono::seconds(1)); };
  return outcomeOf(file, stf::run(lines, file, &session, wait), format);
}

void applyWords(const std::vector<std::string>& words, const Place& place, Client& client) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  const std::optional<stf::Command> command = stf::parseLine(line);
  if (!command) throw stf::Error("a command is missing");
  RemoteSettings settings(&client);
  stf::SetupSession(&settings, targetOf(place), stf::SetupSession::Nodes::kOfDevice)
      .apply(*command);
}

void applyFile(const std::string& file, const Place& place, Client& client) {
  const std::vector<stf::Line> lines = stf::parseFile(file);
  RemoteSettings settings(&client);
  stf::SetupSession session(&settings, targetOf(place), stf::SetupSession::Nodes::kAsCreated);
  stf::setUp(lines, file, &session);
}

std::string showRegisters(const std::string& name, bool non_zero, const Place& place,
                          Client& client, Format format) {
  RemoteSettings settings(&client);
  const stf::SetupSession session(&settings, targetOf(place), stf::SetupSession::Nodes::kOfDevice);
  if (name.empty()) return renderRegisters(session.program(), format);
  const auto& reg = session.names().reg(name);
  std::string out;
  readAll(cellsRequest(pb::ReadCellsRequest::KIND_REGISTER, reg.name(), place), reg.size(), client,
          [&](uint32_t first, const pb::ReadCellsReply& reply) {
            out += renderCells(reply, false, first, non_zero, format);
          });
  return out;
}

std::string showMeters(const std::string& name, bool non_zero, const Place& place, Client& client,
                       Format format) {
  RemoteSettings settings(&client);
  const stf::SetupSession session(&settings, targetOf(place), stf::SetupSession::Nodes::kOfDevice);
  if (name.empty()) return renderMeters(session.program(), format);
  const auto& meter = session.names().meter(name);
  std::string out;
  readAll(cellsRequest(pb::ReadCellsRequest::KIND_METER, meter.name(), place), meter.size(), client,
          [&](uint32_t first, const pb::ReadCellsReply& reply) {
            out += renderCells(reply, meter.counts_bytes(), first, non_zero, format);
          });
  return out;
}

pb::SettingsReply readSettings(const Place& place, Client& client) {
  RemoteSettings settings(&client);
  return stf::SetupSession(&settings, targetOf(place), stf::SetupSession::Nodes::kOfDevice)
      .settings();
}

std::string packetBytes(const std::string& digits) {
  try {
    const auto command = stf::parseLine("packet 0 " + digits);
    return stf::bytesOfDigits(std::get<stf::PacketIn>(*command).digits);
  } catch (const stf::Error&) {
    return {};
  }
}

}  // namespace switchctl
