// Gives every packet of every capture in a folder to the fuzz target, with mutations of each: what
// the fuzzer does, made repeatable, and under any compiler.
//
//   packet_replay [FOLDER]      left out: pcap in the folder that JEX_REAL_DATA names
//
// Status 1 if there is no capture or one cannot be read to its end, 77 if no folder is named.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "capture.h"
#include "model/packet/headers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kMutations = 8;       // of each packet
constexpr size_t kHeaderArea = 96;  // bytes in which headers lie

struct Counts {
  size_t packets = 0, whole = 0, cut = 0, truncated = 0, malformed = 0, inputs = 0;
};

void give(const Bytes& frame, Counts* counts) {
  LLVMFuzzerTestOneInput(frame.data(), frame.size());
  ++counts->inputs;
}

// Some bytes of the headers are replaced, now and then the end is cut off.
Bytes mutated(Bytes frame, std::mt19937* random) {
  if (frame.empty()) return frame;
  const size_t area = std::min(frame.size(), kHeaderArea);
  for (unsigned changes = 1 + (*random)() % 4; changes > 0; --changes) {
    uint8_t& byte = frame[(*random)() % area];
    byte = static_cast<uint8_t>((*random)() % 2 == 0 ? (*random)() : byte ^ 1U << (*random)() % 8);
  }
  if ((*random)() % 4 == 0) frame.resize((*random)() % (frame.size() + 1));
  return frame;
}

void giveWithMutations(const Bytes& frame, std::mt19937* random, Counts* counts) {
  give(frame, counts);
  for (int i = 0; i < kMutations; ++i) give(mutated(frame, random), counts);
  // Every end that lies in the headers.
  for (size_t size = 0; size < std::min(frame.size(), kHeaderArea); ++size) {
    give(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)), counts);
  }
}

void count(const Bytes& frame, size_t wire_size, Counts* counts) {
  jxmodel::Headers headers;
  const auto status = jxmodel::parse(frame.data(), frame.size(), wire_size, &headers);
  ++counts->packets;
  if (status == jxmodel::ParseStatus::kOk) {
    ++counts->whole;
  } else if (status == jxmodel::ParseStatus::kCutByCapture) {
    ++counts->cut;
  } else {
    ++(jxmodel::isTruncated(status) ? counts->truncated : counts->malformed);
  }
}

bool replay(const std::filesystem::path& path) {
  std::mt19937 random(1);
  Counts counts;
  const std::string error =
      jxmodel::forEachPacket(path.string(), [&](const Bytes& frame, size_t wire_size) {
        count(frame, wire_size, &counts);
        giveWithMutations(frame, &random, &counts);
      });
  if (!error.empty()) std::fprintf(stderr, "packet_replay: %s: %s\n", path.c_str(), error.c_str());
  std::printf("%s: %zu packets: %zu whole, %zu cut, %zu truncated, %zu malformed; %zu inputs\n",
              path.filename().c_str(), counts.packets, counts.whole, counts.cut, counts.truncated,
              counts.malformed, counts.inputs);
  return error.empty() && counts.packets > 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: packet_replay [FOLDER]\n");
    return 2;
  }
  const char* const real = std::getenv("JEX_REAL_DATA");
  if (argc == 1 && (real == nullptr || *real == '\0')) {
    std::fprintf(stderr,
                 "packet_replay: JEX_REAL_DATA is not set: it names the folder of real data\n");
    return 77;
  }
  const std::string folder = argc == 2 ? argv[1] : std::string(real) + "/pcap";
  int captures = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!replay(entry.path())) return 1;
    ++captures;
  }
  if (captures == 0) std::fprintf(stderr, "packet_replay: %s has no captures\n", folder.c_str());
  return captures > 0 ? 0 : 1;
}
