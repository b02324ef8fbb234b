// Starts the control server, and takes it down when the process exits.
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/health_check_service_interface.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "jxmodel/control.h"
#include "jxsdk/rt.hpp"
#include "model/base/faults.h"
#include "model/base/mutex.h"
#include "model/rpc/service.h"
#include "model/rpc/settings_service.h"

namespace jxmodel::control {
namespace {

/// The server of the process. Made once and never destroyed, so that no thread of gRPC can meet a
/// destroyed object on the way out of the process.
struct ControlServer {
  explicit ControlServer(std::shared_ptr<jxrt::JxRtSession> session)
      : service(std::move(session)) {}

  SwitchService service;
  SettingsService settings;
  std::unique_ptr<grpc::Server> server;
  int port = 0;
  pid_t owner = 0;  // a forked child has the object, but not the threads
};

Mutex start_mutex;
std::atomic<ControlServer*> running{nullptr};

/// gRPC reports on standard error what the status of the call tells the caller anyway. Who looks
/// for a fault inside gRPC sets GRPC_VERBOSITY and gets its log back.
void silenceGrpc() {
  if (std::getenv("GRPC_VERBOSITY") == nullptr) gpr_set_log_function([](gpr_log_func_args*) {});
}

/// Once a process: what has to be in place before a server is built.
void prepareGrpc() {
  silenceGrpc();
  grpc::EnableDefaultHealthCheckService(true);
  grpc::reflection::InitProtoReflectionServerBuilderPlugin();
}

/// Ends calls and joins gRPC's threads before anything that they use is destroyed. Bounded, since a
/// call may wait for a lock of the very thread that exits; exiting is more important.
void stopAtExit() {
  ControlServer* const control = running.load();
  if (control == nullptr || control->owner != getpid()) return;
  struct Done {
    Mutex mutex;
    Condition changed;
    bool reached ABSL_GUARDED_BY(mutex) = false;
  };
  const auto done = std::make_shared<Done>();
  std::thread([control, done] {
    control->server->Shutdown(std::chrono::system_clock::now());
    control->server->Wait();
    const MutexLock lock(done->mutex);
    done->reached = true;
    done->changed.notifyAll();
  }).detach();
  const MutexLock lock(done->mutex);
  done->changed.waitFor(done->mutex, std::chrono::seconds(2),
                        [&done]()
                            ABSL_EXCLUSIVE_LOCKS_REQUIRED(done->mutex) { return done->reached; });
}

/// Whether the address ends in a port that exists; gRPC would take the low 16 bits of a greater
/// one.
bool hasPort(const char* address) {
  constexpr unsigned long kLastPort = 65535;
  const char* const colon = address == nullptr ? nullptr : std::strrchr(address, ':');
  if (colon == nullptr || colon[1] < '0' || colon[1] > '9') return false;
  char* end = nullptr;
  return std::strtoul(colon + 1, &end, 10) <= kLastPort && *end == '\0';
}

jx_status_t start(const char* address) {
  if (!hasPort(address)) return JX_INVALID_ARGUMENTS;
  const MutexLock lock(start_mutex);
  if (running.load() != nullptr) return JX_ALREADY_EXISTS;
  std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  if (session == nullptr) return JX_MAX_SESSIONS_EXCEEDED;
  jxrt::JxRtDevMgr::getInstance();  // constructed before stopAtExit is registered, destroyed after
  static std::once_flag prepared;
  std::call_once(prepared, prepareGrpc);

  auto control = std::make_unique<ControlServer>(std::move(session));
  grpc::ServerBuilder builder;
  // Without it the system resets a connection whose reader has stood still for 20 s.
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, INT_MAX);
  builder.AddListeningPort(address, grpc::InsecureServerCredentials(), &control->port);
  // Two processes on one address would each get some of the calls.
  builder.AddChannelArgument(GRPC_ARG_ALLOW_REUSEPORT, 0);
  builder.RegisterService(&control->service);
  builder.RegisterService(&control->settings);
  control->server = builder.BuildAndStart();
  if (control->server == nullptr) return JX_IO_ERROR;
  control->owner = getpid();
  running.store(control.release());
  std::atexit(stopAtExit);
  return JX_SUCCESS;
}

}  // namespace
}  // namespace jxmodel::control

jx_status_t jx_rt_grpc_server_run_with_addr(const char* address) {
  JXMODEL_ENTRY("jx_rt_grpc_server_run_with_addr");
  return jxmodel::control::start(address);
}

int jx_model_grpc_port(void) {
  const jxmodel::control::ControlServer* const control = jxmodel::control::running.load();
  return control == nullptr ? 0 : control->port;
}

void jx_model_grpc_serving_set(bool serving) {
  const jxmodel::control::ControlServer* const control = jxmodel::control::running.load();
  if (control != nullptr) control->server->GetHealthCheckService()->SetServingStatus(serving);
}
