#include "client.h"

#include <grpcpp/grpcpp.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "health.grpc.pb.h"
#include "stf_commands.h"
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

template <typename Request>
void setDevice(const Place& place, Request* request) {
  if (place.device) request->set_device(*place.device);
}

/// Sends a file piece by piece; stops when the server has heard enough, which says why at the end.
template <typename Stream>
void upload(std::istream& file, const std::string& name, uint32_t port, const Place& place,
            Stream* stream) {
  constexpr size_t kPiece = size_t{256} * 1024;
  pb::CaptureUpload message;
  setDevice(place, &message);
  message.set_port(port);
  bool last = false;
  do {
    std::string* const data = message.mutable_data();
    data->resize(kPiece);
    file.read(data->data(), static_cast<std::streamsize>(kPiece));
    data->resize(static_cast<size_t>(file.gcount()));
    if (file.bad()) throw CallError("cannot read " + name);
    last = file.eof();
  } while (stream->Write(message) && !last);
  stream->WritesDone();
}

std::ifstream openFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  // A folder can be opened, but not read.
  if (file.is_open()) file.peek();
  if (!file.is_open() || file.bad()) {
    throw CallError("cannot read " + name + ": " + std::generic_category().message(errno));
  }
  file.clear();
  return file;
}

/// A capture of one packet.
std::string captureOf(const std::string& bytes) {
  // Magic number, version 2.4, time zone and accuracy, longest packet, Ethernet.
  const uint32_t header[] = {0xA1B2C3D4, 4U << 16 | 2U, 0, 0, 0x40000, 1};
  const auto length = static_cast<uint32_t>(bytes.size());
  const uint32_t record[] = {0, 0, length, length};  // time, bytes that are there, on the wire
  std::string capture(reinterpret_cast<const char*>(header), sizeof header);
  capture.append(reinterpret_cast<const char*>(record), sizeof record);
  return capture + bytes;
}

template <typename Request, typename Reply, typename Stub>
grpc::Status callStub(Stub* stub,
                      grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&, Reply*),
                      const google::protobuf::MessageLite& request,
                      google::protobuf::MessageLite* reply) {
  grpc::ClientContext context;
  setDeadline(&context);
  return (stub->*method)(&context, static_cast<const Request&>(request),
                         static_cast<Reply*>(reply));
}

}  // namespace

struct Client::Stubs {
  explicit Stubs(const std::shared_ptr<grpc::Channel>& channel)
      : control(channel), settings(channel), health(channel) {}

  pb::Switch::Stub control;
  pb::Settings::Stub settings;
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

std::vector<pb::Digest> Client::digests(const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::ListDigestsRequest request;
  setDevice(place, &request);
  if (place.program) request.set_program(*place.program);
  pb::ListDigestsReply reply;
  check(stubs_->control.ListDigests(&context, request, &reply), target_);
  return {reply.digests().begin(), reply.digests().end()};
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

void Client::settings(const char* method, const google::protobuf::MessageLite& request,
                      google::protobuf::MessageLite* reply) {
  using Stub = pb::Settings::Stub;
  const std::string name = method;
  grpc::Status status(grpc::StatusCode::UNIMPLEMENTED, "there is no call " + name);
  Stub* const stub = &stubs_->settings;
  if (name == "Describe") status = callStub(stub, &Stub::Describe, request, reply);
  if (name == "Apply") status = callStub(stub, &Stub::Apply, request, reply);
  if (name == "ListSettings") status = callStub(stub, &Stub::ListSettings, request, reply);
  if (name == "ReadCells") status = callStub(stub, &Stub::ReadCells, request, reply);
  if (name == "Exchange") status = callStub(stub, &Stub::Exchange, request, reply);
  switch (status.error_code()) {
    case grpc::StatusCode::OK:
    case grpc::StatusCode::UNAVAILABLE:
    case grpc::StatusCode::DEADLINE_EXCEEDED:
    case grpc::StatusCode::UNIMPLEMENTED:
      return check(status, target_);
    default:
      throw stf::Error(status.error_message());
  }
}

// --- ports and packets

pb::Port Client::addPort(const std::string& spec, const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::AddPortRequest request;
  setDevice(place, &request);
  request.set_spec(spec);
  pb::Port reply;
  check(stubs_->control.AddPort(&context, request, &reply), target_);
  return reply;
}

pb::Port Client::deletePort(uint32_t port, const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::PortRequest request;
  setDevice(place, &request);
  request.set_port(port);
  pb::Port reply;
  check(stubs_->control.DeletePort(&context, request, &reply), target_);
  return reply;
}

pb::Port Client::setPort(uint32_t port, bool enabled, const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::SetPortRequest request;
  setDevice(place, &request);
  request.set_port(port);
  request.set_enabled(enabled);
  pb::Port reply;
  check(stubs_->control.SetPort(&context, request, &reply), target_);
  return reply;
}

pb::ListPortsReply Client::ports(const Place& place) {
  grpc::ClientContext context;
  setDeadline(&context);
  pb::ListPortsRequest request;
  setDevice(place, &request);
  pb::ListPortsReply reply;
  check(stubs_->control.ListPorts(&context, request, &reply), target_);
  return reply;
}

pb::InjectReply Client::inject(uint32_t port, const std::string& file, const Place& place) {
  std::ifstream capture = openFile(file);
  grpc::ClientContext context;  // without deadline: a big capture takes the time it takes
  pb::InjectReply reply;
  const auto writer = stubs_->control.Inject(&context, &reply);
  upload(capture, file, port, place, writer.get());
  check(writer->Finish(), target_);
  return reply;
}

void Client::trace(uint32_t port, const std::string& file, const Place& place,
                   const std::function<void(const pb::TracedPacket&)>& consumer) {
  std::ifstream capture = openFile(file);
  traceCapture(&capture, file, port, place, consumer);
}

void Client::tracePacket(uint32_t port, const std::string& bytes, const Place& place,
                         const std::function<void(const pb::TracedPacket&)>& consumer) {
  std::istringstream capture(captureOf(bytes));
  traceCapture(&capture, "packet", port, place, consumer);
}

void Client::traceCapture(std::istream* capture, const std::string& name, uint32_t port,
                          const Place& place,
                          const std::function<void(const pb::TracedPacket&)>& consumer) {
  grpc::ClientContext context;
  const auto stream = stubs_->control.Trace(&context);
  upload(*capture, name, port, place, stream.get());
  for (pb::TracedPacket packet; stream->Read(&packet);) consumer(packet);
  check(stream->Finish(), target_);
}

/// Reads a stream that lasts until somebody stops it.
template <typename Message, typename Open>
void Client::readUntilStopped(Open open, const std::function<void(const Message&)>& consumer) {
  grpc::ClientContext context;
  // However it ends, by an exception of the consumer say: who stops it later finds no call.
  const auto forget = [this](grpc::ClientContext*) { setStream(nullptr); };
  const std::unique_ptr<grpc::ClientContext, decltype(forget)> running(&context, forget);
  setStream(&context);
  const auto reader = open(&context);
  for (Message message; reader->Read(&message);) consumer(message);
  const grpc::Status status = reader->Finish();
  const bool as_told = stopped() && status.error_code() == grpc::StatusCode::CANCELLED;
  if (!as_told) check(status, target_);
}

void Client::capture(const pb::CaptureRequest& request,
                     const std::function<void(const pb::CapturedPackets&)>& consumer) {
  readUntilStopped(
      [&](grpc::ClientContext* context) { return stubs_->control.Capture(context, request); },
      consumer);
}

void Client::watch(const pb::WatchRequest& request,
                   const std::function<void(const pb::WatchedEvents&)>& consumer) {
  readUntilStopped(
      [&](grpc::ClientContext* context) { return stubs_->control.Watch(context, request); },
      consumer);
}

void Client::stop() {
  const std::lock_guard<std::mutex> lock(stream_mutex_);
  stopped_ = true;
  if (stream_ != nullptr) stream_->TryCancel();
}

/// The capture or watch that runs from now on; null: none.
void Client::setStream(grpc::ClientContext* stream) {
  const std::lock_guard<std::mutex> lock(stream_mutex_);
  stream_ = stream;
  if (stream_ != nullptr && stopped_) stream_->TryCancel();
}

bool Client::stopped() {
  const std::lock_guard<std::mutex> lock(stream_mutex_);
  return stopped_;
}

}  // namespace switchctl
