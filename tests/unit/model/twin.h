// A virtual device and a physical one that gets each of its updates: packed, unpacked and processed
// in the order in which they are reported.
#pragma once

#include <string>
#include <vector>

#include "jxsdk/pipe_mgr.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {

class Twin {
 public:
  static constexpr jx_dev_id_t kPhysical = 10, kVirtual = 11;

  explicit Twin(std::vector<std::shared_ptr<const jxmodel::Program>> programs,
                uint32_t handle_base = 0);

  ModelDevice physical;
  ModelDevice virt;

  /// What was reported, in order: "match 0", "adt 2", "sel 7", ...
  std::vector<std::string> reported;
  /// Leading words of the last update's parameters.
  std::vector<uint32_t> words;
  /// Bytes of the last update's packed data; 0 without data.
  size_t packed_bytes = 0;

  void onMatch(pipe_tbl_hdl_t table, pipe_mat_update_type type, pipe_mat_update_params* params);
  void onMember(pipe_tbl_hdl_t table, pipe_adt_update_type type, pipe_adt_update_params* params);
  void onGroup(pipe_tbl_hdl_t table, pipe_sel_update_type type, pipe_sel_update_params* params);

 private:
  /// The data as it arrives on the other side.
  const void* carried(const void* data);
  void process(pipe_tbl_hdl_t table, pipe_plcmt_info* info);

  std::shared_ptr<jxrt::JxRtSession> session_;
  std::vector<uint64_t> unpacked_;
};

}  // namespace jxmodeltest
