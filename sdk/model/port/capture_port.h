// A port between two capture files: what stands in one comes in, what is sent goes to the other.
#pragma once

#include <memory>
#include <string>

#include "model/base/mutex.h"
#include "model/port/capture_file.h"
#include "model/port/port.h"

namespace jxmodel {

class CapturePort : public Port {
 public:
  /// Null, with *error saying which file and why, if one of them cannot be used.
  static std::unique_ptr<CapturePort> open(const PortSpec& spec, std::string* error);

  void flush() override;
  void stop() override;
  InputState inputState() const override { return input_state_.load(std::memory_order_acquire); }
  std::optional<int64_t> nextTime() const override;
  void receiveNext(const PacketReceiver& receiver) override;

 protected:
  void transmit(PacketBuffer&& packet) override;
  std::string errorText() const override;

 private:
  CapturePort(const PortSpec& spec, std::unique_ptr<CaptureReader> input,
              std::unique_ptr<CaptureWriter> output);
  void readAhead();

  // The I/O thread's: the input, and the packet of it that comes next.
  std::unique_ptr<CaptureReader> input_;
  PacketBuffer next_;
  std::atomic<InputState> input_state_{InputState::kNone};

  mutable Mutex mutex_;
  // Null: packets are thrown away.
  std::unique_ptr<CaptureWriter> output_ ABSL_GUARDED_BY(mutex_);
  bool stopped_ ABSL_GUARDED_BY(mutex_) = false;
  bool unflushed_ ABSL_GUARDED_BY(mutex_) = false;
  std::string error_ ABSL_GUARDED_BY(mutex_);
};

}  // namespace jxmodel
