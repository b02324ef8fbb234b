# Ways in and out of a device: network interfaces and capture files.
find_package(PkgConfig REQUIRED)
pkg_check_modules(PCAP REQUIRED IMPORTED_TARGET GLOBAL libpcap)
target_sources(jxmodel_core PRIVATE
  model/port/capture_file.cpp
  model/port/capture_port.cpp
  model/port/interface_port.cpp
  model/port/offload.cpp
  model/port/port.cpp
  model/port/port_set.cpp
  model/port/port_spec.cpp
)
target_link_libraries(jxmodel_core PRIVATE PkgConfig::PCAP)
