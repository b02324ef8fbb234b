# The runtime of the software model.
target_sources(jxmodel_core PRIVATE
  model/action_data_table.cpp
  model/device.cpp
  model/drv.cpp
  model/fault_entries.cpp
  model/faults.cpp
  model/key_codec.cpp
  model/match_table.cpp
  model/pipe_mgr.cpp
  model/placement.cpp
  model/plcmt_process.cpp
  model/rt_c.cpp
  model/rt_c_table.cpp
  model/rt_data.cpp
  model/rt_info.cpp
  model/rt_key.cpp
  model/rt_learn.cpp
  model/rt_table.cpp
  model/rt_table_read.cpp
  model/rt_table_write.cpp
  model/selector_table.cpp
  model/session.cpp
  model/slot_store.cpp
  model/status.cpp
  model/tuple_space.cpp
  model/update_reporter.cpp
)
