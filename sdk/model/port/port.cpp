#include "model/port/port.h"

namespace jxmodel {

void Port::send(PacketBuffer&& packet) {
  if (packet.empty()) return countSendError();
  if (!linkUp()) return countDroppedOut();
  transmit(std::move(packet));
}

void Port::deliver(PacketBuffer&& packet, const PacketReceiver& receiver) {
  if (!enabled()) return countDroppedIn();
  add(&packets_in_, 1);
  add(&bytes_in_, packet.wireLength());
  receiver(number(), std::move(packet));
}

void Port::countSent(size_t wire_length) {
  add(&packets_out_, 1);
  add(&bytes_out_, wire_length);
}

PortCounters Port::counters() const {
  const auto read = [](const Counter& counter) { return counter.load(std::memory_order_relaxed); };
  PortCounters now;
  now.packets_in = read(packets_in_);
  now.bytes_in = read(bytes_in_);
  now.packets_out = read(packets_out_);
  now.bytes_out = read(bytes_out_);
  now.dropped_in = read(dropped_in_) + dropsElsewhere();
  now.dropped_out = read(dropped_out_);
  now.receive_errors = read(receive_errors_);
  now.send_errors = read(send_errors_);
  return now;
}

PortStatus Port::status() const {
  PortStatus now;
  now.spec = spec_;
  now.enabled = enabled();
  now.carrier = carrier();
  now.input = inputState();
  now.error = errorText();
  now.counters = counters();
  return now;
}

}  // namespace jxmodel
