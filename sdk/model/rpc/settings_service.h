// The calls of the control service with which an operator sets up a physical device and tests it:
// tables (operator_writes.h), what a machine keeps (machine_settings.cpp), single packets.
#pragma once

#include "switch.grpc.pb.h"

namespace jxmodel::control {

/// Thread safety: calls run side by side on the server's threads. They share nothing; each holds
/// its device.
class SettingsService final : public jx::control::v1::Settings::Service {
 public:
  grpc::Status Describe(grpc::ServerContext* context,
                        const jx::control::v1::DescribeRequest* request,
                        jx::control::v1::ProgramDescription* reply) override;
  grpc::Status Apply(grpc::ServerContext* context, const jx::control::v1::ApplyRequest* request,
                     jx::control::v1::ApplyReply* reply) override;
  grpc::Status ListSettings(grpc::ServerContext* context,
                            const jx::control::v1::DescribeRequest* request,
                            jx::control::v1::SettingsReply* reply) override;
  grpc::Status ReadCells(grpc::ServerContext* context,
                         const jx::control::v1::ReadCellsRequest* request,
                         jx::control::v1::ReadCellsReply* reply) override;
  grpc::Status Exchange(grpc::ServerContext* context,
                        const jx::control::v1::ExchangeRequest* request,
                        jx::control::v1::ExchangeReply* reply) override;
};

}  // namespace jxmodel::control
