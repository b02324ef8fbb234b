#include "model/port/capture_port.h"

#include <filesystem>

namespace jxmodel {

std::unique_ptr<CapturePort> CapturePort::open(const PortSpec& spec, std::string* error) {
  const auto refuse = [&](const std::string& reason) {
    *error = "port " + std::to_string(spec.number) + ": " + reason;
    return nullptr;
  };
  std::error_code ignored;
  if (std::filesystem::equivalent(spec.input, spec.output, ignored)) {
    return refuse("capture file `" + spec.input + "` cannot be both read and written");
  }
  std::string reason;
  std::unique_ptr<CaptureReader> input;
  if (!spec.input.empty() && !(input = CaptureReader::open(spec.input, &reason))) {
    return refuse(reason);
  }
  std::unique_ptr<CaptureWriter> output;
  if (!spec.output.empty() && !(output = CaptureWriter::open(spec.output, &reason))) {
    return refuse(reason);
  }
  return std::unique_ptr<CapturePort>(new CapturePort(spec, std::move(input), std::move(output)));
}

CapturePort::CapturePort(const PortSpec& spec, std::unique_ptr<CaptureReader> input,
                         std::unique_ptr<CaptureWriter> output)
    : Port(spec), input_(std::move(input)), output_(std::move(output)) {
  if (input_ == nullptr) return;
  input_state_ = InputState::kReading;
  readAhead();
}

std::optional<int64_t> CapturePort::nextTime() const {
  if (inputState() != InputState::kReading) return std::nullopt;
  return next_.timeNs();
}

void CapturePort::receiveNext(const PacketReceiver& receiver) {
  if (inputState() != InputState::kReading) return;
  deliver(std::move(next_), receiver);
  if (input_ != nullptr) readAhead();  // null: the receiver has stopped this port
}

void CapturePort::readAhead() {
  std::string reason;
  switch (input_->next(&next_, &reason)) {
    case CaptureReader::Result::kPacket:
      return;
    case CaptureReader::Result::kEnd:
      input_state_.store(InputState::kExhausted, std::memory_order_release);
      return;
    case CaptureReader::Result::kFailed: {
      countReceiveError();
      const MutexLock lock(mutex_);
      error_ = reason;
      input_state_.store(InputState::kFailed, std::memory_order_release);
      return;
    }
  }
}

void CapturePort::transmit(PacketBuffer&& packet) {
  const MutexLock lock(mutex_);
  if (stopped_) return countDroppedOut();
  if (output_ == nullptr) return countSent(packet.wireLength());
  if (!output_->write(packet, &error_)) return countSendError();
  unflushed_ = true;
  countSent(packet.wireLength());
}

void CapturePort::flush() {
  const MutexLock lock(mutex_);
  if (!unflushed_) return;
  unflushed_ = false;
  if (!output_->flush(&error_)) countSendError();
}

void CapturePort::stop() {
  flush();
  if (inputState() == InputState::kReading) input_state_ = InputState::kNone;
  input_.reset();
  const MutexLock lock(mutex_);
  output_.reset();
  stopped_ = true;
  unflushed_ = false;
}

std::string CapturePort::errorText() const {
  const MutexLock lock(mutex_);
  return error_;
}

}  // namespace jxmodel
