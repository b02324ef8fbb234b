// The control service: answers about devices, programs, tables and digests, from the runtime API
// but for who takes a digest (service.cpp); ports and packets of physical devices
// (port_service.cpp), and what happens on them (watch_service.cpp).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/device/device_gate.h"
#include "model/rpc/seats.h"
#include "switch.grpc.pb.h"

namespace jxmodel::control {

/// Thread safety: calls run side by side on the server's threads. They share nothing but the
/// session; each piece of work on a device is done under the device gate (device_gate.h), and
/// nothing is sent while it is held. Calls about ports hold the device itself instead, and so do
/// not keep others from removing it.
class SwitchService final : public jx::control::v1::Switch::Service {
 public:
  explicit SwitchService(std::shared_ptr<jxrt::JxRtSession> session)
      : session_(std::move(session)) {}

  grpc::Status ListPrograms(grpc::ServerContext* context,
                            const jx::control::v1::ListProgramsRequest* request,
                            jx::control::v1::ListProgramsReply* reply) override;
  grpc::Status ListTables(grpc::ServerContext* context,
                          const jx::control::v1::ListTablesRequest* request,
                          jx::control::v1::ListTablesReply* reply) override;
  grpc::Status CountTable(grpc::ServerContext* context,
                          const jx::control::v1::TableRequest* request,
                          jx::control::v1::CountTableReply* reply) override;
  grpc::Status ReadTable(grpc::ServerContext* context, const jx::control::v1::TableRequest* request,
                         grpc::ServerWriter<jx::control::v1::EntryChunk>* writer) override;
  grpc::Status ListDigests(grpc::ServerContext* context,
                           const jx::control::v1::ListDigestsRequest* request,
                           jx::control::v1::ListDigestsReply* reply) override;

  grpc::Status AddPort(grpc::ServerContext* context, const jx::control::v1::AddPortRequest* request,
                       jx::control::v1::Port* reply) override;
  grpc::Status DeletePort(grpc::ServerContext* context, const jx::control::v1::PortRequest* request,
                          jx::control::v1::Port* reply) override;
  grpc::Status ListPorts(grpc::ServerContext* context,
                         const jx::control::v1::ListPortsRequest* request,
                         jx::control::v1::ListPortsReply* reply) override;
  grpc::Status SetPort(grpc::ServerContext* context, const jx::control::v1::SetPortRequest* request,
                       jx::control::v1::Port* reply) override;
  grpc::Status Inject(grpc::ServerContext* context,
                      grpc::ServerReader<jx::control::v1::CaptureUpload>* upload,
                      jx::control::v1::InjectReply* reply) override;
  grpc::Status Trace(grpc::ServerContext* context,
                     grpc::ServerReaderWriter<jx::control::v1::TracedPacket,
                                              jx::control::v1::CaptureUpload>* stream) override;
  grpc::Status Capture(grpc::ServerContext* context, const jx::control::v1::CaptureRequest* request,
                       grpc::ServerWriter<jx::control::v1::CapturedPackets>* writer) override;

  grpc::Status Watch(grpc::ServerContext* context, const jx::control::v1::WatchRequest* request,
                     grpc::ServerWriter<jx::control::v1::WatchedEvents>* writer) override;

 private:
  /// A program on a device.
  struct ProgramPlace {
    jx_dev_id_t device;
    std::string name;
    const jxrt::JxRtInfo* info;
  };
  /// A table by names, and the object that the names meant when it was looked up.
  struct TablePlace {
    jx_dev_id_t device;
    std::string program;
    std::string name;
    const jxrt::JxRtTable* table;
  };

  grpc::Status findPrograms(std::optional<jx_dev_id_t> device,
                            const std::optional<std::string>& program,
                            std::vector<ProgramPlace>* places) const
      ABSL_SHARED_LOCKS_REQUIRED(deviceGate());
  grpc::Status findTable(const jx::control::v1::TableRequest& request, TablePlace* place) const
      ABSL_SHARED_LOCKS_REQUIRED(deviceGate());
  grpc::Status describeTable(const ProgramPlace& program, const jxrt::JxRtTable& table,
                             jx::control::v1::Table* out) const
      ABSL_SHARED_LOCKS_REQUIRED(deviceGate());

  // A caller who does not read keeps what has happened queued, up to 65536 events, or 64 MiB of
  // packets.
  static constexpr int kWatches = 32;
  static constexpr int kCaptures = 16;

  const std::shared_ptr<jxrt::JxRtSession> session_;
  Seats watches_{kWatches};
  Seats captures_{kCaptures};
};

}  // namespace jxmodel::control
