#include "stf_run.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace stf {
namespace {

namespace pb = jx::control::v1;
using Cells = pb::ReadCellsRequest;

std::string digitsOf(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  for (const char byte : bytes) {
    digits += kDigits[static_cast<uint8_t>(byte) >> 4];
    digits += kDigits[static_cast<uint8_t>(byte) & 15];
  }
  return digits;
}

bool holds(const CheckCounter::Condition& condition, uint64_t value) {
  switch (condition.test) {
    case CheckCounter::Test::kEqual:
      return value == condition.value;
    case CheckCounter::Test::kNotEqual:
      return value != condition.value;
    case CheckCounter::Test::kLess:
      return value < condition.value;
    case CheckCounter::Test::kLessEqual:
      return value <= condition.value;
    case CheckCounter::Test::kGreater:
      return value > condition.value;
    case CheckCounter::Test::kGreaterEqual:
      break;
  }
  return value >= condition.value;
}

const char* textOf(CheckCounter::Test test) {
  switch (test) {
    case CheckCounter::Test::kEqual:
      return "==";
    case CheckCounter::Test::kNotEqual:
      return "!=";
    case CheckCounter::Test::kLess:
      return "<";
    case CheckCounter::Test::kLessEqual:
      return "<=";
    case CheckCounter::Test::kGreater:
      return ">";
    case CheckCounter::Test::kGreaterEqual:
      break;
  }
  return ">=";
}

std::string cellName(const std::string& array, uint32_t index) {
  return array + '[' + std::to_string(index) + ']';
}

std::string textOf(const pb::Counter& counter) {
  return std::to_string(counter.packets()) + " packets, " + std::to_string(counter.bytes()) +
         " bytes";
}

/// A test on its way.
class Runner {
 public:
  Runner(SetupSession* session, const std::function<void()>& wait)
      : session_(session), wait_(wait) {}

  void step(const Line& line) {
    std::visit([&](const auto& command) { carryOut(line, command); }, line.command);
  }

  Run finish(const std::vector<Line>& lines) {
    std::vector<Difference> packets = judge(lines, left_);
    std::vector<Difference>& all = result_.differences;
    all.insert(all.end(), packets.begin(), packets.end());
    std::stable_sort(all.begin(), all.end(),
                     [](const Difference& a, const Difference& b) { return a.line < b.line; });
    result_.packets_out = left_.size();
    return std::move(result_);
  }

 private:
  void read(const Line& line, std::string text) {
    result_.readings.push_back({line.number, std::move(text)});
  }

  void carryOut(const Line& line, const PacketIn& packet) {
    ++result_.packets_in;
    const pb::ExchangeReply reply = session_->exchange(packet.port, bytesOfDigits(packet.digits));
    for (const auto& sent : reply.sent()) {
      left_.push_back({sent.port(), digitsOf(sent.data()), line.number});
    }
  }
  void carryOut(const Line&, const Expect&) {}
  // A port that nothing is expected on has to be silent without a word about it.
  void carryOut(const Line&, const Pause&) {}
  void carryOut(const Line&, const Wait&) { wait_(); }
  void carryOut(const Line&, const RemoveAll&) { session_->removeAll(); }

  uint32_t indexOf(const std::string& text) const {
    const uint32_t handle = session_->handleOf(text);
    // The direct counter of an entry stands at its handle, counted from the first one.
    if (handle != 0) return handle - 1;
    return static_cast<uint32_t>(parseNumber(text, "index", UINT32_MAX));
  }

  void carryOut(const Line& line, const CheckCounter& check) {
    const std::string name = session_->names().counter(check.name);
    const uint32_t index = indexOf(check.index);
    const pb::Counter counter = session_->cell(Cells::KIND_COUNTER, name, index).counter();
    const std::string what = "counter " + cellName(name, index);
    if (!check.condition) return read(line, what + ": " + textOf(counter));
    const uint64_t value = check.condition->bytes ? counter.bytes() : counter.packets();
    if (holds(*check.condition, value)) return;
    const std::string unit = check.condition->bytes ? "bytes" : "packets";
    result_.differences.push_back({line.number, what + ": expected " + unit + ' ' +
                                                    textOf(check.condition->test) + ' ' +
                                                    std::to_string(check.condition->value) +
                                                    ", got " + std::to_string(value)});
  }

  void carryOut(const Line& line, const GetSession& get) {
    std::string text = "clone session " + std::to_string(get.session) + " is not set";
    const pb::SettingsReply settings = session_->settings();
    for (const pb::CloneSession& session : settings.sessions()) {
      if (session.id() != get.session) continue;
      text = "clone session " + std::to_string(get.session) + ":";
      if (session.has_port()) text += " port " + std::to_string(session.port());
      if (session.has_group()) text += " group " + std::to_string(session.group());
    }
    read(line, text);
  }

  void carryOut(const Line& line, const ReadCounter& get) {
    const std::string name = session_->names().counter(get.name);
    const auto cell = session_->cell(Cells::KIND_COUNTER, name, get.index);
    read(line, "counter " + cellName(name, get.index) + ": " + textOf(cell.counter()));
  }

  void carryOut(const Line& line, const ReadRegister& get) {
    const std::string name = session_->names().reg(get.name).name();
    const auto cell = session_->cell(Cells::KIND_REGISTER, name, get.index);
    read(line, "register " + cellName(name, get.index) + ": " + valueText(cell.register_value()));
  }

  void carryOut(const Line& line, const ReadMeter& get) {
    const auto& meter = session_->names().meter(get.name);
    const auto cell = session_->cell(Cells::KIND_METER, meter.name(), get.index);
    read(line, "meter " + cellName(meter.name(), get.index) + ": " +
                   ratesText(cell, meter.counts_bytes()));
  }

  /// All others set something up.
  template <typename Other>
  void carryOut(const Line& line, const Other&) {
    session_->apply(line.command);
  }

  SetupSession* const session_;
  const std::function<void()>& wait_;
  std::vector<Left> left_;
  Run result_;
};

}  // namespace

Run run(const std::vector<Line>& lines, const std::string& name, SetupSession* session,
        const std::function<void()>& wait) {
  Runner runner(session, wait);
  for (const Line& line : lines) {
    try {
      runner.step(line);
    } catch (const Error& error) {
      throw Error(name + ':' + std::to_string(line.number) + ": " + error.what());
    }
  }
  return runner.finish(lines);
}

}  // namespace stf
