// Messages about what a machine keeps from packet to packet, as calls of its settings.
#pragma once

#include <grpcpp/support/status.h>

#include "model/machine/settings.h"
#include "model/program/machine.h"
#include "switch.pb.h"

namespace jxmodel::control {

/// The settings of one machine; lives no longer than they do.
class MachineMessages {
 public:
  MachineMessages(const Machine& machine, MachineSettings& settings)
      : machine_(machine), settings_(settings) {}

  /// A change that is not about tables.
  grpc::Status apply(const jx::control::v1::ApplyRequest& request,
                     jx::control::v1::ApplyReply* reply);
  void list(jx::control::v1::SettingsReply* reply) const;
  /// Of registers and meters; a count is at most as large as messages take.
  grpc::Status read(const jx::control::v1::ReadCellsRequest& request,
                    jx::control::v1::ReadCellsReply* reply) const;

 private:
  using Change = jx::control::v1::ApplyRequest;

  grpc::Status writeRegister(const Change::WriteRegister& change);
  grpc::Status setMeterRates(const Change::SetMeterRates& change);
  grpc::Status changeValueSet(const Change::ChangeValueSet& change);
  grpc::Status readRegister(const jx::control::v1::ReadCellsRequest& request,
                            jx::control::v1::ReadCellsReply* reply) const;
  grpc::Status readMeter(const jx::control::v1::ReadCellsRequest& request,
                         jx::control::v1::ReadCellsReply* reply) const;

  const Machine& machine_;
  MachineSettings& settings_;
};

/// Refuses a first cell beyond the end, and says where the last cell stands that was asked for.
grpc::Status cellsOf(const jx::control::v1::ReadCellsRequest& request, uint32_t size,
                     uint32_t* end);

}  // namespace jxmodel::control
