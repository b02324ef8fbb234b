// Hosts: network namespaces with the kernel's own protocol stack, plugged into a switch by veth
// pairs.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "endtoend/cli_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace jextest {

/// The address that routers have towards their hosts.
inline constexpr const char* kGateway = "02:00:00:00:01:01";

/// A network namespace with one interface, whose other end `wire()` stands in the switch's own. It
/// lasts as long as the process that keeps it.
class Host {
 public:
  explicit Host(int number) : number_(number), keeper_(started({"unshare", "--net", "cat"})) {
    // The echo tells that the process has entered its namespace.
    EXPECT_EQ(keeper_.ask("there"), "there") << keeper_.standardError();
    must({"ip", "link", "add", wire(), "type", "veth", "peer", "name", "eth0", "address", mac(),
          "netns", std::to_string(keeper_.pid())});
    must({"ip", "link", "set", wire(), "addrgenmode", "none"});
    ip({"link", "set", "lo", "up"});
    must({"ip", "link", "set", wire(), "up"});
    ip({"link", "set", "eth0", "up"});
    awaitRunning({}, wire());
    awaitRunning(inside(), "eth0");
  }
  /// The kernel takes namespaces away when it likes to; the next test wants the names now.
  ~Host() { must({"ip", "link", "delete", wire()}); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  std::string wire() const { return "wire" + std::to_string(number_); }
  std::string mac() const { return macOf(number_); }
  int port() const { return number_; }
  std::string spec() const { return std::to_string(number_) + "=if:" + wire(); }
  const std::string& v4() const { return v4_; }
  const std::string& v6() const { return v6_; }

  /// All hosts in one subnet: they find each other with ARP and neighbour discovery.
  void joinLan() { setAddresses(lanAddress(number_), "fd00::" + std::to_string(number_)); }

  /// In the same subnet, but only with IPv4, and with the other hosts' addresses known: the host
  /// sends no frame unless it is told to, or asked.
  void joinLanSilently() {
    ip({"link", "set", "eth0", "down"});  // takes the IPv6 addresses away
    ip({"link", "set", "eth0", "addrgenmode", "none"});
    ip({"link", "set", "eth0", "up"});
    awaitRunning({}, wire());
    awaitRunning(inside(), "eth0");
    v4_ = lanAddress(number_);
    ip({"address", "add", v4_ + "/24", "dev", "eth0"});
    for (int other = 1; other <= kSilentHosts; ++other) {
      ip({"neigh", "replace", lanAddress(other), "lladdr", macOf(other), "dev", "eth0", "nud",
          "permanent"});
    }
  }

  /// Each host in a subnet of its own, behind a gateway whose address it need not ask for.
  void joinRouter() {
    const std::string n = std::to_string(number_);
    setAddresses("10.0." + n + ".2", "fd00:" + n + "::2");
    for (const auto& [family, gateway] :
         {std::pair{"-4", "10.0." + n + ".1"}, std::pair{"-6", "fd00:" + n + "::1"}}) {
      ip({family, "neigh", "replace", gateway, "lladdr", kGateway, "dev", "eth0", "nud",
          "permanent"});
      ip({family, "route", "add", "default", "via", gateway});
    }
  }

  Child start(const Words& command) const { return started(joined(inside(), command)); }
  Finished run(const Words& command) const { return finish(start(command)); }

  /// Whether one request is answered, however long that takes.
  bool reachesOnce(const std::string& address) const {
    return run({"ping", "-n", "-c", "1", "-W", kForEver, address}).endedWith(0);
  }
  /// The same of two requests. One ping with both would wait for the second answer only twice as
  /// long as the first took.
  bool reaches(const std::string& address) const {
    return reachesOnce(address) && reachesOnce(address);
  }

 private:
  static constexpr int kSilentHosts = 4;
  static constexpr const char* kForEver = "100000";  // seconds; a child is not waited for so long

  static std::string macOf(int number) { return "02:00:00:00:00:0" + std::to_string(number); }
  static std::string lanAddress(int number) { return "10.0.0." + std::to_string(number); }

  static Words joined(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  static Child started(const Words& command) { return Child("/usr/bin/env", command); }
  /// Runs a command that has to succeed.
  static void must(const Words& command) {
    const Finished result = finish(started(command));
    EXPECT_TRUE(result.endedWith(0)) << testing::PrintToString(command) << ": " << result.error;
  }
  void ip(const Words& arguments) const {
    const Finished result = run(joined({"ip"}, arguments));
    EXPECT_TRUE(result.endedWith(0)) << testing::PrintToString(arguments) << result.error;
  }
  Words inside() const {
    return {"nsenter", "--target", std::to_string(keeper_.pid()), "--net", "--"};
  }
  /// Until the kernel has seen that the cable is plugged in, it drops what an interface sends. The
  /// second setting waits for the lock that it holds while it goes from seeing to sending.
  static void awaitRunning(const Words& where, const std::string& interface) {
    std::string shown;
    EXPECT_TRUE(waitUntil([&] {
      const Words show = {"ip", "-oneline", "link", "show", "dev", interface};
      shown = testing::PrintToString(finish(started(joined(where, show))).output);
      return shown.find(" state UP ") != std::string::npos;
    })) << shown;
    must(joined(where, {"ip", "link", "set", interface, "up"}));
  }
  void setAddresses(const std::string& v4, const std::string& v6) {
    v4_ = v4;
    v6_ = v6;
    ip({"address", "add", v4 + "/24", "dev", "eth0"});
    ip({"address", "add", v6 + "/64", "dev", "eth0", "nodad"});
    askForEver();
  }
  /// A neighbour that has not answered after three seconds would count as unreachable.
  void askForEver() const {
    for (const char* cache : {"arp_cache", "ndisc_cache"}) {
      ip({"ntable", "change", "name", cache, "dev", "eth0", "mcast_probes", kForEver,
          "ucast_probes", kForEver});
    }
  }

  int number_;
  Child keeper_;
  std::string v4_, v6_;
};

}  // namespace jextest
