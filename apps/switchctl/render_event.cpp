#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "named_values.h"
#include "render.h"

namespace switchctl {
namespace {

namespace pb = jx::control::v1;
using Json = nlohmann::ordered_json;
using jexapps::appendNamed;
using jexapps::jsonOf;
using jexapps::NamedValues;
using jexapps::textOf;

NamedValues valuesOf(const pb::Event::Aged& aged) {
  NamedValues values;
  for (const pb::KeyField& field : aged.key()) {
    jexapps::KeyFieldView view;
    toView(field, &view);
    appendNamed(view, &values);
  }
  return values;
}

NamedValues valuesOf(const pb::Event::Learned& learned) {
  NamedValues values;
  for (const pb::Param& field : learned.fields()) {
    std::string value;
    jexapps::appendValue({field.name(), field.width()}, field.value(), &value);
    values.emplace_back(field.name(), std::move(value));
  }
  return values;
}

Json jsonOf(const pb::Event& event) {
  Json json{{"event", "unknown"}, {"time_ns", event.time_ns()}};
  if (event.has_learned()) {
    json["event"] = "learned";
    json["program"] = event.learned().program();
    json["digest"] = event.learned().digest();
    json["fields"] = jsonOf(valuesOf(event.learned()));
  } else if (event.has_aged()) {
    json["event"] = "aged";
    json["program"] = event.aged().program();
    json["table"] = event.aged().table();
    json["handle"] = event.aged().handle();
    json["key"] = jsonOf(valuesOf(event.aged()));
  } else if (event.has_link()) {
    json["event"] = event.link().up() ? "port_up" : "port_down";
    json["port"] = event.link().port();
  }
  return json;
}

/// 2026-01-31T12:00:00.000000000Z
std::string timeText(uint64_t time_ns) {
  constexpr uint64_t kNsPerSecond = 1'000'000'000;
  const auto seconds = static_cast<time_t>(time_ns / kNsPerSecond);
  tm utc{};
  gmtime_r(&seconds, &utc);
  char date[32];
  char fraction[16];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(fraction, sizeof fraction, ".%09uZ", static_cast<unsigned>(time_ns % kNsPerSecond));
  return std::string(date) + fraction;
}

std::string textOf(const pb::Event& event) {
  std::string text = timeText(event.time_ns());
  if (event.has_learned()) {
    text += " learned " + event.learned().digest() + textOf(valuesOf(event.learned()));
  } else if (event.has_aged()) {
    text += " aged " + event.aged().table() + " #" + std::to_string(event.aged().handle()) +
            textOf(valuesOf(event.aged()));
  } else if (event.has_link()) {
    text += " port " + std::to_string(event.link().port()) + (event.link().up() ? " up" : " down");
  } else {
    text += " unknown";
  }
  return text + '\n';
}

}  // namespace

std::string renderWatching(int32_t device, Format format) {
  if (format == Format::kJson) return jsonLine(Json{{"event", "watching"}, {"device", device}});
  return "watching device " + std::to_string(device) + '\n';
}

std::string renderEvent(const pb::Event& event, Format format) {
  return format == Format::kJson ? jsonLine(jsonOf(event)) : textOf(event);
}

std::string renderLost(uint64_t events, Format format) {
  if (format == Format::kJson) return jsonLine(Json{{"event", "lost"}, {"events", events}});
  return "lost " + std::to_string(events) + " events\n";
}

std::string renderWatched(uint64_t events, uint64_t lost, Format format) {
  if (format == Format::kJson) return "";
  return std::to_string(events) + " events" +
         (lost != 0 ? ", " + std::to_string(lost) + " lost" : "") + '\n';
}

}  // namespace switchctl
