# The way of packets through the control flow of a program.
target_sources(jxmodel_core PRIVATE
  model/pipeline/compiled.cpp
  model/pipeline/packet_run.cpp
  model/pipeline/pipeline.cpp
  model/pipeline/trace.cpp
)
