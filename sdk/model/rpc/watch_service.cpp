// The call of the control service about what happens on a device.
#include <map>
#include <string>
#include <utility>

#include "model/notify/events.h"
#include "model/rpc/entry_reader.h"
#include "model/rpc/physical_device.h"
#include "model/rpc/service.h"
#include "model/runtime/rt_info.h"
#include "model/runtime/rt_key.h"

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;

constexpr int kEventsPerMessage = 256;

/// Turns events of one device, which outlives this, into messages.
class EventTeller {
 public:
  EventTeller(const Device& device, const jxrt::JxRtSession& session)
      : device_(device), session_(session) {}

  void tell(const Event& event, pb::Event* out) {
    out->set_time_ns(event.time);
    switch (event.kind) {
      case Event::Kind::kLearned:
        return tellLearned(event, out->mutable_learned());
      case Event::Kind::kAged:
        return tellAged(event, out->mutable_aged());
      case Event::Kind::kPortUp:
      case Event::Kind::kPortDown:
        out->mutable_link()->set_port(event.port);
        out->mutable_link()->set_up(event.kind == Event::Kind::kPortUp);
    }
  }

 private:
  void tellLearned(const Event& event, pb::Event::Learned* out) const {
    out->set_program(event.program);
    out->set_digest(event.object);
    const RtInfo* const info = device_.findInfo(event.program);
    if (info == nullptr) return;
    const Program& program = info->program();
    for (size_t i = 0; i < program.learns.size(); ++i) {
      if (program.learns[i].name != event.object) continue;
      tellFields(program, program.learns[i], info->channels().at(i)->layout(), event, out);
    }
  }

  static void tellFields(const Program& program, const Learn& learn, const LearnLayout& layout,
                         const Event& event, pb::Event::Learned* out) {
    for (size_t i = 0; i < learn.fields.size(); ++i) {
      const PacketField& field = program.fields[learn.fields[i].field];
      const uint8_t* const value = event.values.data() + layout.fields[i].offset;
      pb::Param* const param = out->add_fields();
      param->set_name(field.name);
      param->set_width(field.width);
      param->set_value(value, (field.width + 7) / 8);
    }
  }

  void tellAged(const Event& event, pb::Event::Aged* out) {
    out->set_program(event.program);
    out->set_table(event.object);
    out->set_handle(event.entry_handle);
    const RtInfo* const info = device_.findInfo(event.program);
    const jxrt::JxRtTable* table = nullptr;
    if (info == nullptr || info->tableFromNameGet(event.object, &table) != JX_SUCCESS) return;
    RtTableKey key(static_cast<const RtTable&>(*table));
    key.assign(event.values.data(), 0);
    const EntryReader& reader = readerOf(*table);
    if (reader.status() != JX_SUCCESS ||
        reader.fillKeyFields(key, out->mutable_key()) != JX_SUCCESS)
      out->clear_key();
  }

  const EntryReader& readerOf(const jxrt::JxRtTable& table) {
    const jx_rt_target_t target = {device_.id(), JX_PIPE_ALL, 0, 0};
    return readers_.try_emplace(&table, table, session_, target).first->second;
  }

  const Device& device_;
  const jxrt::JxRtSession& session_;
  std::map<const jxrt::JxRtTable*, EntryReader> readers_;
};

/// Sends the events of a harvest, at most *left of them. What was lost came after them, so only the
/// last message tells of it.
bool sendEvents(const EventWatch::Harvest& harvest, EventTeller* teller, uint64_t* left,
                uint64_t* lost_told, grpc::ServerWriter<pb::WatchedEvents>* writer) {
  pb::WatchedEvents message;
  const auto send = [&] {
    message.set_lost(*lost_told);
    const bool sent = writer->Write(message);
    message.clear_events();
    return sent;
  };
  for (const Event& event : harvest.events) {
    teller->tell(event, message.add_events());
    if (--*left == 0) return send();
    if (message.events_size() == kEventsPerMessage && !send()) return false;
  }
  const bool news = harvest.lost != *lost_told;
  *lost_told = harvest.lost;
  return (message.events_size() == 0 && !news) || send();
}

}  // namespace

grpc::Status SwitchService::Watch(grpc::ServerContext* context, const pb::WatchRequest* request,
                                  grpc::ServerWriter<pb::WatchedEvents>* writer) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (!found.ok()) return found;

  const Seats::Seat seat = watches_.take();
  if (seat == nullptr) return watches_.refusal("watches");
  EventTeller teller(*place.device, *session_);
  const auto watch = place.device->events().open();
  uint64_t left = request->count() == 0 ? UINT64_MAX : request->count();
  uint64_t lost_told = 0;
  pb::WatchedEvents begun;
  begun.set_device(place.device->id());
  bool going = writer->Write(begun);
  bool ended = false;
  while (going && left > 0 && !ended && !context->IsCancelled()) {
    const EventWatch::Harvest harvest = watch->take(std::chrono::milliseconds(100));
    ended = harvest.ended;
    going = sendEvents(harvest, &teller, &left, &lost_told, writer);
  }
  place.device->events().close(watch);
  if (left == 0) return grpc::Status::OK;
  return ended ? gone(place) : grpc::Status::CANCELLED;
}

}  // namespace jxmodel::control
