#include "client.h"

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <cstdlib>
#include <utility>

#include "health.grpc.pb.h"
#include "switch.grpc.pb.h"

namespace switchctl {
namespace {

namespace pb = jx::control::v1;

/// Time for an answer that the server has at hand.
constexpr std::chrono::seconds kAnswerTime{5};

void setDeadline(grpc::ClientContext* context) {
  context->set_deadline(std::chrono::system_clock::now() + kAnswerTime);
}

std::shared_ptr<grpc::Channel> openChannel(const std::string& target) {
  // What goes wrong comes back as the status of a call; gRPC's own log would only repeat it.
  if (std::getenv("GRPC_VERBOSITY") == nullptr) gpr_set_log_function([](gpr_log_func_args*) {});
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);  // a switch is not behind a web proxy
  arguments.SetMaxReceiveMessageSize(-1);
  return grpc::CreateCustomChannel(target, grpc::InsecureChannelCredentials(), arguments);
}

void check(const grpc::Status& status, const std::string& target) {
  switch (status.error_code()) {
    case grpc::StatusCode::OK:
      return;
    case grpc::StatusCode::UNAVAILABLE:
    case grpc::StatusCode::DEADLINE_EXCEEDED:
      throw CallError("cannot reach " + target + ": " + status.error_message());
    case grpc::StatusCode::UNIMPLEMENTED:
      throw CallError(target + " does not offer the switch control service");
    default:
      throw CallError(target + ": " + status.error_message());
  }
}

pb::TableRequest tableRequest(const std::string& table, const Place& place) {
  pb::TableRequest request;
  request.set_table(table);
  if (place.device) request.set_device(*place.device);
  if (place.program) request.set_program(*place.program);
  return request;
}

}  // namespace

struct Client::Stubs {
  explicit Stubs(const std::shared_ptr<grpc::Channel>& channel)
      : control(channel), health(channel) {}

  pb::Switch::Stub control;
  grpc::health::v1::Health::Stub health;
};

Client::Client(std::string target)
    : target_(std::move(target)), stubs_(std::make_unique<Stubs>(openChannel(target_))) {}

Client::~Client() = default;

std::string Client::health() {
  grpc::ClientContext context;
  setDeadline(&context);
  grpc::health::v1::HealthCheckResponse response;
  check(stubs_->health.Check(&context, {}, &response), target_);
  return grpc::health::v1::HealthCheckResponse::ServingStatus_Name(response.status());
}

std::vector<pb::Program> Client::programs(const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::ListProgramsRequest request;
  if (place.device) request.set_device(*place.device);
  pb::ListProgramsReply reply;
  check(stubs_->control.ListPrograms(&context, request, &reply), target_);
  return {reply.programs().begin(), reply.programs().end()};
}

std::vector<pb::Table> Client::tables(const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::ListTablesRequest request;
  if (place.device) request.set_device(*place.device);
  if (place.program) request.set_program(*place.program);
  pb::ListTablesReply reply;
  check(stubs_->control.ListTables(&context, request, &reply), target_);
  return {reply.tables().begin(), reply.tables().end()};
}

uint64_t Client::count(const std::string& table, const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::CountTableReply reply;
  check(stubs_->control.CountTable(&context, tableRequest(table, place), &reply), target_);
  return reply.entries();
}

void Client::entries(const std::string& table, const Place& place,
                     const std::function<void(const pb::EntryChunk&)>& consumer) {
  grpc::ClientContext context;  // without deadline: a big table takes the time it takes
  const auto reader = stubs_->control.ReadTable(&context, tableRequest(table, place));
  pb::EntryChunk chunk;
  bool answered = false;
  for (; reader->Read(&chunk); answered = true) consumer(chunk);
  const grpc::Status status = reader->Finish();
  if (answered && status.error_code() == grpc::StatusCode::UNAVAILABLE) {
    throw CallError("lost " + target_ + " while reading: " + status.error_message());
  }
  check(status, target_);
}

}  // namespace switchctl
