#include "wire/counter_processes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include "JexPartnerLibClient.h"
#include "JexPartnerLibCounter.h"
#include "JexPartnerLibServer.h"
#include "jxmodel/faults.h"
#include "jxmodel/ports.h"
#include "jxmodel/service.h"
#include "support/bytes.h"
#include "support/helper.h"
#include "support/private_world.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "support/write_command.h"

namespace jextest {
namespace {

void answer(const std::string& line) { std::cout << line << std::endl; }
void answer(uint64_t number) { answer(std::to_string(number)); }

std::string joined(const std::vector<uint64_t>& numbers) {
  std::string text;
  for (const uint64_t number : numbers) text += (text.empty() ? "" : " ") + std::to_string(number);
  return text;
}

using Words = std::vector<std::string>;

class CountingPartner {
 public:
  explicit CountingPartner(const Arguments& arguments)
      : profile_({arguments.at(1)}), view_(std::stoi(arguments.at(0))) {}

  void serve() {
    for (std::string line; std::getline(std::cin, line);) {
      const Words words = wordsOf(line);
      if (!runLife(words) && !runCounters(words) && !runBarriers(words)) answer("no such command");
    }
  }

 private:
  bool runLife(const Words& words) {
    if (words[0] == "start") {
      const bool started =
          PartnerLibStartup(view_.session(), view_.target(), JX_DEV_TYPE_MODEL, profile_.get());
      answer(started ? "true" : "false");
    } else if (words[0] == "shutdown") {
      PartnerLibShutdown(view_.id());
      answer("done");
    } else {
      return false;
    }
    return true;
  }

  bool runCounters(const Words& words) {
    if (words[0] == "init") {
      const PartnerProgramName program = PartnerProgramNameOf(words.at(1).c_str());
      answer(init(program.text, words.at(2).c_str(), &handles_[words.at(2)]));
    } else if (words[0] == "init-null") {
      const PartnerProgramName program = PartnerProgramNameOf("limits");
      void* handle = nullptr;
      answer(words.at(1) == "program" ? init(nullptr, "pairs", &handle)
                                      : init(program.text, nullptr, &handle));
    } else if (words[0] == "init-padded") {
      PartnerProgramName program = PartnerProgramNameOf(words.at(1).c_str());
      for (size_t i = words.at(1).size() + 1; i < sizeof program.text; ++i) {
        program.text[i] = static_cast<char>(0xC7);
      }
      answer(init(program.text, words.at(2).c_str(), &handles_[words.at(2)]));
    } else if (words[0] == "init-uncaught") {
      const PartnerProgramName program = PartnerProgramNameOf(words.at(1).c_str());
      void* handle = nullptr;
      PartnerCounterInit(program.text, words.at(2).c_str(), view_.target(),
                         view_.session().cHandle(), &handle);
    } else if (words[0] == "read") {
      answer(read(handles_.at(words.at(1)), static_cast<uint32_t>(std::stoul(words.at(2))),
                  static_cast<uint32_t>(std::stoul(words.at(3)))));
    } else {
      return runCounterEnds(words);
    }
    return true;
  }

  bool runCounterEnds(const Words& words) {
    if (words[0] == "read-all") {
      answer(sums(handles_.at(words.at(1)), static_cast<uint32_t>(std::stoul(words.at(2)))));
    } else if (words[0] == "read-none") {
      CounterHandleStruct empty{};
      answer(read(&empty, 0, 1));
    } else if (words[0] == "free-unknown") {
      CounterHandleStruct unknown{};
      unknown.tableId = static_cast<uint32_t>(std::stoul(words.at(1)));
      PartnerCounterFree(&unknown);
    } else if (words[0] == "fault") {
      must(jx_model_fault_arm(words.at(1).c_str(), 1, JX_MODEL_FAULT_STATUS,
                              static_cast<uint32_t>(std::stoul(words.at(2)))),
           "fault");
      answer("done");
    } else if (words[0] == "free") {
      PartnerCounterFree(handles_.at(words.at(1)));
      handles_.erase(words.at(1));
      answer("done");
    } else {
      return false;
    }
    return true;
  }

  bool runBarriers(const Words& words) {
    if (words[0] == "barrier") {
      answer(PartnerBarrierSend());
    } else if (words[0] == "sync") {
      answer(PartnerBarrierSendWithCounterSync(handles_.at(words.at(1))));
    } else if (words[0] == "double") {
      answer(PartnerBarrierSendWithCounterSyncDouble(handles_.at(words.at(1))));
    } else if (words[0] == "double-null") {
      answer(PartnerBarrierSendWithCounterSyncDouble(nullptr));
    } else if (words[0] == "barriers") {
      answer(sendBarriers(std::stoull(words.at(1))));
    } else if (words[0] == "last") {
      answer(PartnerBarrierGetLastComplete());
    } else if (words[0] == "requested") {
      answer(__atomic_load_n(&requestedTime, __ATOMIC_SEQ_CST));
    } else if (words[0] == "now") {
      answer(PartnerGetTimestamp());
    } else if (words[0] == "longest" || words[0] == "bins") {
      answer(words[0] == "bins" ? bins() : longest());
    } else {
      return false;
    }
    return true;
  }

  std::string init(const char* program, const char* table, void** handle) {
    char nobody = 0;
    void* const untouched = &nobody;
    void* made = untouched;
    try {
      if (!PartnerCounterInit(program, table, view_.target(), view_.session().cHandle(), &made)) {
        return "false";
      }
    } catch (const std::exception& error) {
      return std::string("thrown ") + error.what();
    }
    if (made == untouched) return "true untouched";
    *handle = made;
    return made == nullptr ? "true null" : "true handle";
  }

  static std::string read(void* handle, uint32_t first, uint32_t count) {
    std::vector<PartnerCounterEntry> entries(count + 1, {~uint64_t{0}, ~uint64_t{0}});
    uint64_t timestamp = ~uint64_t{0};
    if (!PartnerCounterRead(handle, first, count, entries.data(), &timestamp)) return "false";
    if (entries[count].packets != ~uint64_t{0} || entries[count].bytes != ~uint64_t{0}) {
      return "written past the end";
    }
    std::ostringstream text;
    text << "true " << timestamp;
    for (uint32_t i = 0; i < count; ++i)
      text << ' ' << entries[i].packets << ':' << entries[i].bytes;
    return text.str();
  }

  static std::string sendBarriers(uint64_t count) {
    uint64_t first = 0;
    uint64_t last = 0;
    for (uint64_t i = 0; i < count; ++i) {
      last = PartnerBarrierSend();
      if (i == 0) first = last;
    }
    return joined({first, last});
  }

  static std::string sums(void* handle, uint32_t count) {
    std::vector<PartnerCounterEntry> entries(count);
    uint64_t timestamp = 0;
    if (!PartnerCounterRead(handle, 0, count, entries.data(), &timestamp)) return "false";
    PartnerCounterEntry sum{};
    for (const PartnerCounterEntry& entry : entries) {
      sum.packets += entry.packets;
      sum.bytes += entry.bytes;
    }
    return "sums " + joined({sum.packets, sum.bytes});
  }

  static std::string longest() {
    uint32_t count = 0;
    uint64_t* bins = nullptr;
    return std::to_string(PartnerBarrierGetMaxProcTime(&count, &bins));
  }

  static std::string bins() {
    uint32_t count = 0;
    uint64_t* bins = nullptr;
    PartnerBarrierGetMaxProcTime(&count, &bins);
    return joined(std::vector<uint64_t>(bins, bins + count));
  }

  Profile profile_;
  DeviceView view_;
  std::map<std::string, void*> handles_;  // by table
};

class CountingAgent {
 public:
  explicit CountingAgent(const Arguments& arguments)
      : device_(DeviceKind::kPhysical, std::stoi(arguments.at(0)), {arguments.at(1)}),
        program_(arguments.at(1)) {}

  void serve() {
    std::thread([this] { answerCommands(); }).detach();
    PartnerLibServerStartup(device_.view().session().cHandle(), static_cast<uint8_t>(id()), 20);
  }

 private:
  jx_dev_id_t id() const { return device_.view().id(); }

  void answerCommands() {
    for (std::string line; std::getline(std::cin, line);) {
      const Words words = wordsOf(line);
      if (!runService(words) && !runLibrary(words)) answer("no such command");
    }
    _exit(0);
  }

  bool runService(const Words& words) {
    if (words[0] == "hold" || words[0] == "release") {
      must(jx_model_service_hold(id(), words[0] == "hold"), "hold");
      answer("done");
    } else if (words[0] == "idle") {
      answer(waitUntil([this] { return pending() == 0; }) ? "done" : "not idle");
    } else if (words[0] == "waiting") {
      answer(pending());
    } else if (words[0] == "packets") {
      answer("status " + std::to_string(inject(words)));
    } else {
      return false;
    }
    return true;
  }

  uint64_t pending() const {
    uint64_t count = 0;
    must(jx_model_service_pending(id(), &count), "pending");
    return count;
  }

  jx_status_t inject(const Words& words) const {
    Bytes frame(std::stoul(words.at(3)));
    frame.at(12) = 0x88;  // an experimental EtherType: nothing is parsed behind it
    frame.at(13) = 0xB5;
    for (unsigned long i = 0; i < std::stoul(words.at(2)); ++i) {
      const jx_status_t status = jx_model_inject(
          id(), static_cast<uint32_t>(std::stoul(words.at(1))), frame.data(), frame.size());
      if (status != JX_SUCCESS) return status;
    }
    return JX_SUCCESS;
  }

  bool runLibrary(const Words& words) {
    if (words[0] == "update") {
      answer(PartnerLib::PeriodicHybridCounterUpdate() ? "true" : "false");
    } else if (words[0] == "update-model") {
      answer(PartnerLib::PeriodicHybridCounterUpdateModel() ? "true" : "false");
    } else if (words[0] == "record") {
      answer(record(words));
    } else if (words[0] == "image") {
      answer(readImage(words));
    } else if (words[0] == "become-partner") {
      answer(becomePartner());
    } else {
      return false;
    }
    return true;
  }

  static PartnerLib::CounterReadStruct_t* find(const std::string& table_id) {
    const uint32_t key = static_cast<uint32_t>(std::stoul(table_id)) * 10;
    const auto found = PartnerLib::countersCallbackMap.find(key);
    return found == PartnerLib::countersCallbackMap.end() ? nullptr : found->second;
  }

  static std::string record(const Words& words) {
    const PartnerLib::CounterReadStruct_t* const record = find(words.at(1));
    if (record == nullptr) return "none";
    return joined({__atomic_load_n(&record->pendingBarrier, __ATOMIC_SEQ_CST),
                   __atomic_load_n(&record->nextBarrier, __ATOMIC_SEQ_CST)});
  }

  /// The handler of a read request gets what a sender inside this process would send it.
  std::string readImage(const Words& words) const {
    PartnerLib::CounterReadStruct_t image = *find(words.at(1));
    image.session = nullptr;
    if (words.size() > 2) image.counters = nullptr;
    Bytes message = request(6, 1, 16 + sizeof image);
    std::memcpy(message.data() + 16, static_cast<const void*>(&image), sizeof image);
    PartnerLib::PartnerMessage decoder(nullptr);
    decoder.deSerialize(static_cast<uint8_t>(id()), device_.view().session().sessHandleGet(),
                        message.data(), message.size());
    return "done";
  }

  std::string becomePartner() const {
    static auto* const profile = new Profile({program_});  // stays as long as the device
    static auto* const view = new DeviceView(1);
    const bool started =
        PartnerLibStartup(view->session(), view->target(), JX_DEV_TYPE_MODEL, profile->get());
    return started ? "true" : "false";
  }

  SwitchDevice device_;
  std::string program_;
};

}  // namespace

JEX_HELPER(counting_partner) {
  CountingPartner(arguments).serve();
  _exit(0);
}

JEX_HELPER(counting_agent) {
  CountingAgent(arguments).serve();
  return 1;
}

Child startCountingPartner(const CountingPartnerOptions& options,
                           const Child::Environment& environment) {
  return Child::helper("counting_partner", {std::to_string(options.device), options.program},
                       environment);
}

Child startCountingAgent(const CountingAgentOptions& options,
                         const Child::Environment& environment) {
  return Child::helper("counting_agent", {std::to_string(options.device), options.program},
                       environment);
}

std::vector<uint64_t> numbersIn(const std::string& line) {
  std::vector<uint64_t> numbers;
  std::istringstream stream(line);
  for (uint64_t number = 0; stream >> number;) numbers.push_back(number);
  return numbers;
}

std::string counterProgram(uint32_t program_id, const std::vector<uint32_t>& sizes) {
  std::string tables;
  std::string control;
  for (size_t i = 0; i < sizes.size(); ++i) {
    const std::string name = "\"t" + std::to_string(i + 1) + "\"";
    const std::string comma = i == 0 ? "" : ",";
    tables += comma + R"({"kind": "counter", "name": )" + name +
              ", \"size\": " + std::to_string(sizes[i]) + "}";
    control += comma + R"({"op": "count", "index": {"field": "meta.ingress_port"}, "table": )" +
               name + "}";
  }
  const std::string file = runDirectory() + "/counters-" + std::to_string(program_id) + ".json";
  std::ofstream(file) << R"({"name": "counters", "id": )" << program_id
                      << R"(, "fields": [{"name": "meta.ingress_port", "width": 9}],)"
                      << R"("actions": [], "learn": [], "tables": [)" << tables
                      << R"(], "control": [)" << control << "]}";
  return file;
}

}  // namespace jextest
