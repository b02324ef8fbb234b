#include "support/raw_socket.h"

#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>

#include <chrono>

#include "support/wait_until.h"

namespace jextest {
namespace {

std::string lastError() { return nn_strerror(nn_errno()); }

}  // namespace

RawSocket::RawSocket(int protocol) : fd_(nn_socket(AF_SP, protocol)) {
  EXPECT_GE(fd_, 0) << lastError();
  const int patience = static_cast<int>(std::chrono::milliseconds(kPatience).count());
  nn_setsockopt(fd_, NN_SOL_SOCKET, NN_RCVTIMEO, &patience, sizeof patience);
  nn_setsockopt(fd_, NN_SOL_SOCKET, NN_SNDTIMEO, &patience, sizeof patience);
  const int soon = 5;  // ms between attempts to connect
  nn_setsockopt(fd_, NN_SOL_SOCKET, NN_RECONNECT_IVL, &soon, sizeof soon);
}

RawSocket::RawSocket(RawSocket&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }

RawSocket::~RawSocket() {
  if (fd_ >= 0) nn_close(fd_);
}

void RawSocket::bind(const std::string& address) {
  EXPECT_GE(nn_bind(fd_, address.c_str()), 0) << address << ": " << lastError();
}

void RawSocket::connect(const std::string& address) {
  EXPECT_GE(nn_connect(fd_, address.c_str()), 0) << address << ": " << lastError();
}

void RawSocket::send(const Bytes& message) {
  const int sent = nn_send(fd_, message.data(), message.size(), 0);
  EXPECT_EQ(sent, static_cast<int>(message.size())) << lastError();
}

Bytes RawSocket::receive() {
  void* buffer = nullptr;
  const int count = nn_recv(fd_, &buffer, NN_MSG, 0);
  if (count < 0) {
    ADD_FAILURE() << "no message: " << lastError();
    return {};
  }
  const auto* const bytes = static_cast<const uint8_t*>(buffer);
  Bytes message(bytes, bytes + count);
  nn_freemsg(buffer);
  return message;
}

bool RawSocket::tryReceive(Bytes* message) {
  nn_pollfd entry{fd_, NN_POLLIN, 0};
  if (nn_poll(&entry, 1, 0) <= 0) return false;
  *message = receive();
  return true;
}

RawAgent::RawAgent() : requests_(NN_PULL) { requests_.bind("ipc:///tmp/Partner0"); }

std::string RawAgent::receiveRegistration() {
  const Bytes message = receive();
  EXPECT_EQ(message.size(), 80u);
  EXPECT_EQ(u32At(message, 0), 4u);
  if (message.size() != 80u) return {};
  const char* const name = reinterpret_cast<const char*>(message.data() + 16);
  return std::string(name, strnlen(name, 64));
}

RawSocket RawAgent::connectTo(const std::string& address) {
  RawSocket reverse(NN_PAIR);
  reverse.connect(address);
  return reverse;
}

RawPartner::RawPartner(uint32_t pid)
    : pid_(pid),
      address_("ipc:///tmp/raw_partner_" + std::to_string(pid)),
      requests_(NN_PUSH),
      reverse_(NN_PAIR) {
  requests_.connect("ipc:///tmp/Partner0");
  reverse_.bind(address_);
}

void RawPartner::registerWithAgent() { send(registration(pid_, address_)); }

}  // namespace jextest
