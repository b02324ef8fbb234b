// Writes of an operator to the tables of a physical device: placement operations like those of
// partners, with handles of the operator's own.
#pragma once

#include <grpcpp/support/status.h>

#include <cstdint>

#include "model/device/device.h"
#include "model/tables/table_state.h"
#include "switch.pb.h"

namespace jxmodel::control {

/// The first handle of the operator's range. Partners take theirs from 1 on, or from bases of their
/// own that leave this range out.
inline constexpr uint32_t kFirstOperatorHandle = 0x80000000;

/// Writes to one table of a device. Lives no longer than they do; takes the device's mutex in each
/// call. Every call changes all or nothing.
class OperatorWrites {
 public:
  OperatorWrites(Device& device, TableState& state) : device_(device), state_(state) {}

  grpc::Status add(const jx::control::v1::ApplyRequest::AddEntry& change, uint32_t* handle);
  grpc::Status remove(uint32_t handle);
  grpc::Status setDefault(const jx::control::v1::ApplyRequest::SetDefault& change);
  grpc::Status addMember(const jx::control::v1::ApplyRequest::AddMember& change, uint32_t* handle);
  grpc::Status addGroup(const jx::control::v1::ApplyRequest::AddGroup& change, uint32_t* handle);
  grpc::Status writeCounter(const jx::control::v1::ApplyRequest::WriteCounter& change);

 private:
  Device& device_;
  TableState& state_;
};

/// Members and groups that carry a number of their writer's choice: the handle of the only one, or
/// why there is none. The device's mutex is held.
grpc::Status memberOf(const TableState& members, uint32_t id, uint32_t* handle);
grpc::Status groupOf(const TableState& groups, uint32_t id, uint32_t* handle);

}  // namespace jxmodel::control
