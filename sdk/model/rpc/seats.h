// Calls of one kind that run at the same time, and how many may.
#pragma once

#include <grpcpp/support/status.h>

#include <atomic>
#include <memory>
#include <string>

namespace jxmodel::control {

/// Thread safety: any thread may call anything. A Seats outlives what it gave out.
class Seats {
 public:
  struct Release {
    std::atomic<int>* free;
    void operator()(const Seats* /*seats*/) const { free->fetch_add(1); }
  };
  /// A running call; its end frees the place.
  using Seat = std::unique_ptr<const Seats, Release>;

  explicit Seats(int count) : count_(count), free_(count) {}

  /// Null if all are taken.
  Seat take() {
    if (free_.fetch_sub(1) > 0) return Seat(this, Release{&free_});
    free_.fetch_add(1);
    return Seat(nullptr, Release{&free_});
  }

  /// What a call is answered that found all taken; `calls` is what they are, in the plural.
  grpc::Status refusal(const std::string& calls) const {
    return {grpc::StatusCode::RESOURCE_EXHAUSTED,
            std::to_string(count_) + ' ' + calls +
                " run already, which is the most that are served at a time: end one of them first"};
  }

 private:
  const int count_;
  std::atomic<int> free_;
};

}  // namespace jxmodel::control
