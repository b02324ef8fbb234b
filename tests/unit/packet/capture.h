// The packets of a capture file, pcap or pcapng.
#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace jxmodel {

/// Gives every packet with its length on the wire to `take`, in order. Returns what went wrong,
/// empty if the file was read to its end.
inline std::string forEachPacket(
    const std::string& path,
    const std::function<void(const std::vector<uint8_t>& frame, size_t wire_size)>& take) {
  char error[PCAP_ERRBUF_SIZE] = "";
  const std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(
      pcap_open_offline(path.c_str(), error), pcap_close);
  if (!capture) return error;
  pcap_pkthdr* header = nullptr;
  const uint8_t* data = nullptr;
  int got = 0;
  while ((got = pcap_next_ex(capture.get(), &header, &data)) == 1) {
    take({data, data + header->caplen}, header->len);
  }
  return got == PCAP_ERROR_BREAK ? "" : pcap_geterr(capture.get());
}

}  // namespace jxmodel
