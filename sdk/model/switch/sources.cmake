# Physical devices as switches: ports with a pipeline between them.
target_sources(jxmodel_core PRIVATE
  model/switch/ports.cpp
  model/switch/switch.cpp
  model/switch/tap.cpp
)
