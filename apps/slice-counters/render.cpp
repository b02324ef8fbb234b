#include "render.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace slice_counters {
namespace {

template <typename... Values>
std::string format(const char* pattern, Values... values) {
  char text[256];
  const int length = std::snprintf(text, sizeof text, pattern, values...);
  return {text, std::min(static_cast<size_t>(length), sizeof text - 1)};
}

/// A name that comes from a file, on one line, without anything that a terminal obeys.
std::string printable(const std::string& name) {
  std::string text;
  for (const char c : name) {
    const auto code = static_cast<unsigned char>(c);
    text += code < 0x20 || code == 0x7F ? '?' : c;
  }
  return text;
}

std::string syncText(const BlockSample& sample, uint64_t now_ms) {
  if (sample.last_sync_ms == 0) return "never";
  return format("%.3f s ago", static_cast<double>(sample.ageMs(now_ms)) / kMsPerSecond);
}

std::string headingOf(const BlockSample& sample, const TableNames& names, uint64_t now_ms) {
  const std::string* const name = names.find(sample.block.table_id);
  std::string text = format("table %" PRIu32, sample.block.table_id);
  if (name != nullptr) text += " (" + printable(*name) + ")";
  return text + format(", %" PRIu32 " entries, synced ", sample.block.entries) +
         syncText(sample, now_ms);
}

void appendRow(const Row& row, std::string* out) {
  *out += format("%10" PRIu32 " %20" PRIu64 " %20" PRIu64, row.index, row.counter.packets,
                 row.counter.bytes);
  if (row.rate) *out += format(" %16.3f %18.3f", row.rate->packets, row.rate->bytes);
  *out += '\n';
}

void appendRows(const std::vector<Row>& rows, bool with_rates, std::string* out) {
  if (rows.empty()) return;
  *out += format("%10s %20s %20s", "INDEX", "PACKETS", "BYTES");
  if (with_rates) *out += format(" %16s %18s", "PACKETS/S", "BYTES/S");
  *out += '\n';
  for (const Row& row : rows) appendRow(row, out);
}

/// A number as JSON, in as many digits as tell it from all others.
std::string jsonOf(double value) { return nlohmann::json(value).dump(); }

/// The members of a table up to its counters, without the closing brace.
std::string jsonHead(const BlockSample& sample, const TableNames& names, uint64_t now_ms) {
  using nlohmann::json;
  const std::string* const name = names.find(sample.block.table_id);
  const bool synced = sample.last_sync_ms != 0;
  const nlohmann::ordered_json head{
      {"table_id", sample.block.table_id},
      {"table", name != nullptr ? json(*name) : json()},
      {"entries", sample.block.entries},
      {"last_sync_ms", synced ? json(sample.last_sync_ms) : json()},
      {"age_ms", synced ? json(sample.ageMs(now_ms)) : json()},
  };
  std::string text = head.dump();
  text.pop_back();
  return text;
}

/// By hand: a table can have a million of them.
void appendCounters(const std::vector<Row>& rows, bool with_rates, std::string* out) {
  *out += ",\"counters\":[";
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    *out += format("%s{\"index\":%" PRIu32 ",\"packets\":%" PRIu64 ",\"bytes\":%" PRIu64,
                   i == 0 ? "" : ",", row.index, row.counter.packets, row.counter.bytes);
    if (with_rates) {
      *out += ",\"packets_per_second\":" + (row.rate ? jsonOf(row.rate->packets) : "null");
      *out += ",\"bytes_per_second\":" + (row.rate ? jsonOf(row.rate->bytes) : "null");
    }
    *out += '}';
  }
  *out += ']';
}

std::string watchedText(const TableHistory& history, const TableNames& names, const View& view) {
  std::string text = headingOf(history.latest(), names, view.now_ms);
  const std::optional<uint64_t> interval = history.intervalMs();
  if (interval)
    text += format(", rates over %.3f s", static_cast<double>(*interval) / kMsPerSecond);
  text += '\n';
  appendRows(rowsOf(history, view.selection), interval.has_value(), &text);
  return text;
}

std::string watchedJson(const TableHistory& history, const TableNames& names, const View& view) {
  std::string text = jsonHead(history.latest(), names, view.now_ms);
  const std::optional<uint64_t> interval = history.intervalMs();
  text += ",\"interval_ms\":" + (interval ? std::to_string(*interval) : "null");
  appendCounters(rowsOf(history, view.selection), true, &text);
  return text + '}';
}

}  // namespace

std::string renderList(const std::vector<BlockSample>& samples, const TableNames& names,
                       const View& view) {
  std::string text;
  if (view.format == Format::kJson) {
    for (const BlockSample& sample : samples) {
      text += (text.empty() ? "" : ",") + jsonHead(sample, names, view.now_ms) + '}';
    }
    return '[' + text + "]\n";
  }
  text = format("%10s %10s %14s  %s\n", "TABLE_ID", "ENTRIES", "SYNCED", "TABLE");
  for (const BlockSample& sample : samples) {
    const std::string* const name = names.find(sample.block.table_id);
    text += format("%10" PRIu32 " %10" PRIu32 " %14s", sample.block.table_id, sample.block.entries,
                   syncText(sample, view.now_ms).c_str());
    text += "  " + (name != nullptr ? printable(*name) : "-") + '\n';
  }
  return text;
}

std::string renderTables(const std::vector<BlockSample>& samples, const TableNames& names,
                         const View& view) {
  std::string text;
  for (const BlockSample& sample : samples) {
    if (view.format == Format::kJson) {
      text += (text.empty() ? "[" : ",") + jsonHead(sample, names, view.now_ms);
      appendCounters(rowsOf(sample, view.selection), false, &text);
      text += '}';
    } else {
      text += (text.empty() ? "" : "\n") + headingOf(sample, names, view.now_ms) + '\n';
      appendRows(rowsOf(sample, view.selection), false, &text);
    }
  }
  if (view.format == Format::kJson) return (text.empty() ? "[" : text) + "]\n";
  return text;
}

std::string renderWatched(const Histories& histories, const TableNames& names, const View& view) {
  std::string text;
  const bool json = view.format == Format::kJson;
  for (const auto& [id, history] : histories.tables()) {
    if (!text.empty()) text += json ? ',' : '\n';
    text += json ? watchedJson(history, names, view) : watchedText(history, names, view);
  }
  if (!json) return text.empty() ? "no counters\n" : text;
  return "{\"now_ms\":" + std::to_string(view.now_ms) + ",\"tables\":[" + text + "]}\n";
}

}  // namespace slice_counters
