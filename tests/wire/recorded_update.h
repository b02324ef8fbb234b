// Updates of a virtual device as the pipeline manager reports them, and the message that each one
// is: written here by hand, offset by offset, and sharing nothing with the library.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "jxsdk/pipe_mgr.h"
#include "support/bytes.h"
#include "support/switch_device.h"

namespace jextest {

/// What the message of one update looks like.
struct UpdateLayout {
  const char* name;
  uint32_t message;       ///< 0 match, 1 action data, 2 selector
  uint32_t type;          ///< update type
  size_t words;           ///< 32-bit words of the parameters that travel, the pointer included
  int pointer;            ///< which of them is the pointer; -1: none
  bool packed;            ///< packed data follows
  bool elements = false;  ///< the elements of a group follow
};

/// Every update that travels.
const std::vector<UpdateLayout>& updateLayouts();
const UpdateLayout& layoutOf(uint32_t message, uint32_t type);

/// One call of a placement callback; `params` is valid inside the callback only.
struct Update {
  uint32_t message;
  jx_dev_target_t target;
  pipe_tbl_hdl_t table;
  uint32_t type;
  void* params;

  const UpdateLayout& layout() const { return layoutOf(message, type); }
  uint32_t word(size_t i) const;
  void setWord(size_t i, uint32_t value) const;
  /// The pointer that begins at word `i`.
  const void* pointer(size_t i) const;
  /// The placement data; null for an update without.
  const void* data() const;
  /// The message of this update, with `pid` where a sender may leave anything.
  Bytes toMessage(uint32_t pid) const;
};

/// Calls `listener` for every update of `device`, inside the write that makes it. One at a time.
void listen(const DeviceView& device, std::function<void(const Update&)> listener);

/// What jx_drv_plcmt_copy_pack gives for `data`.
Bytes packed(const void* data);

/// The messages of all `writes`, made on a virtual device of this process that carries `programs`.
std::vector<Bytes> messagesOf(const DeviceView& device, const std::vector<std::string>& writes,
                              uint32_t pid);

}  // namespace jextest
