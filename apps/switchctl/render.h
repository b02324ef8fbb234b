// What switchctl prints: answers of the control service as text for people, or as JSON.
#pragma once

#include <string>
#include <vector>

#include "entry.h"
#include "switch.pb.h"

namespace switchctl {

enum class Format { kText, kJson };

// Whole outputs, each ending with an end of line. Lists in JSON are an array of objects.
std::string renderHealth(const std::string& status, Format format);
std::string renderPrograms(const std::vector<jx::control::v1::Program>& programs, Format format);
std::string renderTables(const std::vector<jx::control::v1::Table>& tables, Format format);
std::string renderCount(const std::string& table, uint64_t entries, Format format);

/// The entry in the form of a dump. `view` is filled anew and keeps its memory from call to call;
/// it refers to names inside `entry`.
void toView(const jx::control::v1::Entry& entry, jexapps::EntryView* view);

}  // namespace switchctl
