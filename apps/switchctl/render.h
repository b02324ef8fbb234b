// What switchctl prints: answers of the control service as text for people, or as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "entry.h"
#include "switch.pb.h"

namespace switchctl {

enum class Format { kText, kJson };

/// What is printed of an object or an array. Bytes that are no UTF-8 are replaced by U+FFFD.
std::string jsonLine(const nlohmann::ordered_json& json);

/// Columns of text, as wide as their widest cell; the first row is the heading.
std::string renderColumns(const std::vector<std::vector<std::string>>& rows);

// Whole outputs, each ending with an end of line. Lists in JSON are an array of objects.
std::string renderHealth(const std::string& status, Format format);
std::string renderPrograms(const std::vector<jx::control::v1::Program>& programs, Format format);
std::string renderTables(const std::vector<jx::control::v1::Table>& tables, Format format);
std::string renderDigests(const std::vector<jx::control::v1::Digest>& digests, Format format);
std::string renderCount(const std::string& table, uint64_t entries, Format format);
std::string renderPorts(const jx::control::v1::ListPortsReply& reply, Format format);
/// One port as it is now, after a change: `what` says what has happened to it.
std::string renderPort(const jx::control::v1::Port& port, const std::string& what, Format format);
std::string renderInjected(const jx::control::v1::InjectReply& reply, Format format);
std::string renderCaptured(uint64_t packets, uint64_t lost, Format format);
/// That watching has begun.
std::string renderWatching(int32_t device, Format format);
/// One event: a line of text, or an object on one line.
std::string renderEvent(const jx::control::v1::Event& event, Format format);
/// That `events` more were lost at this place.
std::string renderLost(uint64_t events, Format format);
/// The end of watching; nothing in JSON, whose lines are events.
std::string renderWatched(uint64_t events, uint64_t lost, Format format);
/// One packet of a trace: lines of text, or an object on one line.
std::string renderTraced(const jx::control::v1::TracedPacket& packet, Format format);

/// A key field in the form of a dump; `view` refers to its name.
void toView(const jx::control::v1::KeyField& field, jexapps::KeyFieldView* view);
/// The entry in the form of a dump. `view` is filled anew and keeps its memory from call to call;
/// it refers to names inside `entry`.
void toView(const jx::control::v1::Entry& entry, jexapps::EntryView* view);

}  // namespace switchctl
