// The time of day in the name of a Partner's reverse path.
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "JexPartnerLibSocket.h"
#include "support/raw_socket.h"

namespace jextest {
namespace {

std::string timeOfDayEastOfGreenwich(int seconds) {
  const time_t now = time(nullptr) + seconds;
  tm there{};
  gmtime_r(&now, &there);
  char text[sizeof "HHMMSS"];
  strftime(text, sizeof text, "%H%M%S", &there);
  return text;
}

std::string nameOfAPartner() {
  RawAgent agent;
  PartnerLib::PartnerSocket sut(1);
  EXPECT_TRUE(sut.init("ipc:///tmp/Partner0", false));
  std::string name = agent.receiveRegistration();
  sut.shutdown(false);
  return name.substr(name.rfind('_') + 1);
}

/// Whether the moment that `name` tells lies between the other two, over midnight too.
bool isBetween(const std::string& before, const std::string& name, const std::string& after) {
  return before <= after ? before <= name && name <= after : before <= name || name <= after;
}

// Applications set the zone while they run.
TEST(ReverseName, TellsTheTimeOfTheZoneThatIsSetNow) {
  constexpr int kQuarter = 15 * 60;
  setenv("TZ", "AAA-0:15", 1);
  tzset();
  for (const int quarters : {1, 7, -13}) {
    const int seconds = quarters * kQuarter;
    const std::string zone = std::string("AAA") + (seconds < 0 ? "+" : "-") +
                             std::to_string(std::abs(seconds) / 3600) + ":" +
                             std::to_string(std::abs(seconds) / 60 % 60);
    SCOPED_TRACE(zone);
    setenv("TZ", zone.c_str(), 1);
    const std::string before = timeOfDayEastOfGreenwich(seconds);
    const std::string name = nameOfAPartner();
    const std::string after = timeOfDayEastOfGreenwich(seconds);
    EXPECT_TRUE(isBetween(before, name, after)) << before << " " << name << " " << after;
  }
}

}  // namespace
}  // namespace jextest
