// Captures of networks of different characters.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "recording.h"

namespace jexdata {

struct Capture {
  std::string file;
  Format format;
  Recording recording;
};

/// All captures, each sorted by time but where it says otherwise.
std::vector<Capture> allCaptures(uint64_t seed);

// One each. What they hold is told in README.md.
Recording buildingDay(uint64_t seed);
Recording plantFloor(uint64_t seed);
Recording office(uint64_t seed);
Recording peers(uint64_t seed);
Recording web(uint64_t seed);
Recording backscatterDay(uint64_t seed);
Recording oddMix(uint64_t seed);

/// One line `FILE,KIND,COUNT` for each kind of packet in each capture, after a header.
std::string kindTable(const std::vector<Capture>& captures);
/// One line `FILE,NUMBER,REASON` for each packet that is whole but that no switch can forward,
/// after a header. Numbers count the packets of a file from 1.
std::string refusedTable(const std::vector<Capture>& captures);

}  // namespace jexdata
