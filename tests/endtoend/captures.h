// Captures as parameters of tests, and their frames with what a switch must make of them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "endtoend/switch_run.h"
#include "support/test_data.h"

namespace jextest {

inline std::vector<std::string> captures() { return madeAndReal("pcap"); }

struct CaptureFrame : Frame {
  bool taken = true;  // false: cut by the capture, or such that no switch can forward it
};

/// Numbers, from 1 on, of the whole frames of a capture that are truncated or contradict
/// themselves. Who made a capture has written them down; a real one has none.
inline std::set<size_t> refusedIn(const std::string& path) {
  const std::filesystem::path capture = path;
  std::ifstream table(capture.parent_path().parent_path() / "pcap-facts" / "refused.csv");
  std::set<size_t> numbers;
  std::string line;
  const std::string begin = capture.filename().string() + ",";
  while (std::getline(table, line)) {
    if (line.compare(0, begin.size(), begin) != 0) continue;
    numbers.insert(std::stoul(line.substr(begin.size())));
  }
  return numbers;
}

inline std::vector<CaptureFrame> framesOf(const std::string& path) {
  const std::set<size_t> refused = refusedIn(path);
  std::vector<CaptureFrame> frames;
  for (Frame& frame : readCapture(path)) {
    const bool taken = !frame.isCut() && refused.count(frames.size() + 1) == 0;
    frames.push_back({std::move(frame), taken});
  }
  return frames;
}

class OverCaptures : public OverFiles {
 protected:
  OverCaptures() : OverFiles("pcap", "pcap") {}
};

}  // namespace jextest
