#include "model/base/faults.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "model/base/mutex.h"

namespace jxmodel::fault {

std::atomic<bool> any_armed{false};

namespace {

struct ArmedEntry {
  uint64_t calls = 0;
  std::vector<Fault> faults;
};

struct Registry {
  Mutex mutex;
  std::map<std::string, ArmedEntry, std::less<>> armed ABSL_GUARDED_BY(mutex);
};

/// Never destroyed: entries may be called while the process ends.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

const Entry* findEntry(std::string_view name) {
  size_t count = 0;
  const Entry* const all = entries(&count);
  for (size_t i = 0; i < count; ++i) {
    if (name == all[i].name) return &all[i];
  }
  return nullptr;
}

bool canHave(const Entry& entry, jx_model_fault_effect_t effect) {
  switch (effect) {
    case JX_MODEL_FAULT_STATUS:
      return (entry.effects & kStatusEffect) != 0;
    case JX_MODEL_FAULT_NULL:
      return (entry.effects & kNullEffect) != 0;
    case JX_MODEL_FAULT_COUNT:
      return (entry.effects & kCountEffect) != 0;
    case JX_MODEL_FAULT_DELAY:
      return true;
  }
  return false;
}

Hit::Kind kindOf(jx_model_fault_effect_t effect) {
  switch (effect) {
    case JX_MODEL_FAULT_STATUS:
      return Hit::Kind::kStatus;
    case JX_MODEL_FAULT_NULL:
      return Hit::Kind::kNull;
    default:
      return Hit::Kind::kCount;
  }
}

/// Reads all of `text` as a decimal number.
bool readNumber(const std::string& text, uint64_t limit, uint64_t* number) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
  char* end = nullptr;
  errno = 0;
  *number = std::strtoull(text.c_str(), &end, 10);
  return errno == 0 && *number <= limit;
}

std::optional<Fault> readEffect(const std::string& text) {
  static const std::pair<const char*, jx_model_fault_effect_t> kEffects[] = {
      {"status=", JX_MODEL_FAULT_STATUS},
      {"count=", JX_MODEL_FAULT_COUNT},
      {"delay=", JX_MODEL_FAULT_DELAY}};
  if (text == "null") return Fault{0, JX_MODEL_FAULT_NULL, 0};
  for (const auto& [prefix, effect] : kEffects) {
    if (text.compare(0, std::strlen(prefix), prefix) != 0) continue;
    uint64_t value = 0;
    if (!readNumber(text.substr(std::strlen(prefix)), UINT32_MAX, &value)) return std::nullopt;
    return Fault{0, effect, static_cast<uint32_t>(value)};
  }
  return std::nullopt;
}

/// Arms one ENTRY:NTH:EFFECT. Entries have "::" in their names: read from the end.
bool armText(const std::string& text) {
  const size_t effect_at = text.rfind(':');
  if (effect_at == std::string::npos || effect_at == 0) return false;
  const size_t nth_at = text.rfind(':', effect_at - 1);
  if (nth_at == std::string::npos) return false;
  std::optional<Fault> fault = readEffect(text.substr(effect_at + 1));
  if (!fault) return false;
  const std::string nth = text.substr(nth_at + 1, effect_at - nth_at - 1);
  if (!readNumber(nth, UINT64_MAX, &fault->nth)) return false;
  return arm(text.substr(0, nth_at), *fault) == JX_SUCCESS;
}

bool armFromEnvironment() {
  const char* const list = std::getenv("JX_MODEL_FAULTS");
  if (list == nullptr) return true;
  const std::string text(list);
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find(';', begin), text.size());
    const std::string item = text.substr(begin, end - begin);
    begin = end + 1;
    if (item.empty() || armText(item)) continue;
    std::fprintf(stderr, "JX_MODEL_FAULTS: cannot read '%s'\n", item.c_str());
    std::_Exit(EXIT_FAILURE);
  }
  return true;
}

/// Before main, so before the first SDK call.
[[maybe_unused]] const bool environment_read = armFromEnvironment();

}  // namespace

jx_status_t arm(std::string_view name, const Fault& fault) {
  const Entry* const entry = findEntry(name);
  if (entry == nullptr) return JX_OBJECT_NOT_FOUND;
  if (!canHave(*entry, fault.effect)) return JX_INVALID_ARGUMENTS;
  const MutexLock lock(registry().mutex);
  registry().armed[std::string(name)].faults.push_back(fault);
  any_armed.store(true, std::memory_order_relaxed);
  return JX_SUCCESS;
}

void clear() {
  const MutexLock lock(registry().mutex);
  registry().armed.clear();
  any_armed.store(false, std::memory_order_relaxed);
}

uint64_t calls(std::string_view name) {
  const MutexLock lock(registry().mutex);
  const auto found = registry().armed.find(name);
  return found == registry().armed.end() ? 0 : found->second.calls;
}

Hit find(const char* name) {
  Hit result;
  const MutexLock lock(registry().mutex);
  const auto found = registry().armed.find(std::string_view(name));
  if (found == registry().armed.end()) return result;
  const uint64_t call = ++found->second.calls;
  for (const Fault& fault : found->second.faults) {
    if (fault.nth != 0 && fault.nth != call) continue;
    if (fault.effect == JX_MODEL_FAULT_DELAY) {
      result.delay += std::chrono::milliseconds(fault.value);
    } else {
      result.kind = kindOf(fault.effect);
      result.value = fault.value;
    }
  }
  return result;
}

Hit hit(const char* name) {
  const Hit result = find(name);
  if (result.delay.count() != 0) std::this_thread::sleep_for(result.delay);
  return result;
}

}  // namespace jxmodel::fault
