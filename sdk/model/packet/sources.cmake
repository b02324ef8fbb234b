# Headers, fields and checksums of packets.
target_sources(jxmodel_core PRIVATE
  model/packet/checksum.cpp
  model/packet/fields.cpp
  model/packet/headers.cpp
)
