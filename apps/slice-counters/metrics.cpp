#include "metrics.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace slice_counters {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

constexpr size_t kSeriesPerEntry = 2;

MetricFamily family(const char* name, const char* help, MetricType type) {
  MetricFamily family;
  family.name = name;
  family.help = help;
  family.type = type;
  return family;
}

void add(MetricFamily* family, const Labels& labels, double value) {
  ClientMetric metric;
  metric.label = labels;
  (family->type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
  family->metric.push_back(std::move(metric));
}

MetricFamily presence(bool present) {
  MetricFamily presence =
      family("jex_counters_segment_present",
             "Whether there is a segment of counters that can be read.", MetricType::Gauge);
  add(&presence, {}, present ? 1 : 0);
  return presence;
}

/// The families that tables fill.
struct Families {
  MetricFamily entries = family("jex_counters_entries", "Entries of the table.", MetricType::Gauge);
  MetricFamily age =
      family("jex_counters_last_sync_age_seconds",
             "Time since the end of the table's last counter sync.", MetricType::Gauge);
  MetricFamily packets =
      family("jex_counters_packets_total", "Packets counted by the entry.", MetricType::Counter);
  MetricFamily bytes =
      family("jex_counters_bytes_total", "Bytes counted by the entry.", MetricType::Counter);
  MetricFamily omitted = family(
      "jex_counters_entries_omitted",
      "Entries that have counted something and are left out by --max-series.", MetricType::Gauge);
};

Labels labelsOf(const Block& block, const TableNames& names) {
  Labels labels;
  if (const std::string* const name = names.find(block.table_id))
    labels.push_back({"table", *name});
  labels.push_back({"table_id", std::to_string(block.table_id)});
  return labels;
}

void addEntries(const BlockSample& sample, Labels labels, size_t share, Families* families) {
  labels.push_back({"index", ""});
  for (size_t index = 0; index < sample.counters.size() && share > 0; ++index) {
    const PartnerCounterEntry& counter = sample.counters[index];
    if (isZero(counter)) continue;
    --share;
    labels.back().value = std::to_string(index);
    add(&families->packets, labels, static_cast<double>(counter.packets));
    add(&families->bytes, labels, static_cast<double>(counter.bytes));
  }
}

size_t countingEntries(const BlockSample& sample) {
  return static_cast<size_t>(
      std::count_if(sample.counters.begin(), sample.counters.end(),
                    [](const PartnerCounterEntry& entry) { return !isZero(entry); }));
}

}  // namespace

std::vector<size_t> shareOut(const std::vector<size_t>& counting, size_t limit) {
  std::vector<size_t> order(counting.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return counting[a] < counting[b]; });
  std::vector<size_t> shares(counting.size());
  size_t left = order.size();
  for (const size_t table : order) {  // the smallest first: what it leaves is for the others
    shares[table] = std::min(counting[table], limit / left);
    limit -= shares[table];
    --left;
  }
  return shares;
}

std::vector<MetricFamily> metricsOf(const std::vector<BlockSample>& samples,
                                    const TableNames& names, uint64_t now_ms, size_t max_series) {
  std::vector<size_t> counting;
  counting.reserve(samples.size());
  for (const BlockSample& sample : samples) counting.push_back(countingEntries(sample));
  const std::vector<size_t> shares = shareOut(counting, max_series / kSeriesPerEntry);

  Families families;
  for (size_t i = 0; i < samples.size(); ++i) {
    const BlockSample& sample = samples[i];
    const Labels labels = labelsOf(sample.block, names);
    add(&families.entries, labels, sample.block.entries);
    if (sample.last_sync_ms != 0) {
      add(&families.age, labels, static_cast<double>(sample.ageMs(now_ms)) / kMsPerSecond);
    }
    addEntries(sample, labels, shares[i], &families);
    add(&families.omitted, labels, static_cast<double>(counting[i] - shares[i]));
  }
  std::vector<MetricFamily> all{presence(true)};
  for (MetricFamily* const family :
       {&families.entries, &families.age, &families.packets, &families.bytes, &families.omitted}) {
    all.push_back(std::move(*family));
  }
  return all;
}

std::vector<MetricFamily> metricsOfNone() { return {presence(false)}; }

Metrics::Metrics(std::vector<uint32_t> wanted, TableNames names, size_t max_series)
    : names_(std::move(names)), max_series_(max_series), source_(std::move(wanted)) {}

std::vector<MetricFamily> Metrics::Collect() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<BlockSample> samples;
  bool anew = false;
  if (!source_.read(&samples, &anew)) return metricsOfNone();
  return metricsOf(samples, names_, nowMs(), max_series_);
}

}  // namespace slice_counters
