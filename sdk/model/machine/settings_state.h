// What MachineSettings keeps, as packets read and change it.
#pragma once

#include <deque>

#include "model/base/mutex.h"
#include "model/machine/meters.h"
#include "model/machine/random_numbers.h"
#include "model/machine/registers.h"
#include "model/machine/replication.h"
#include "model/machine/settings.h"
#include "model/machine/value_sets.h"

namespace jxmodel {

struct MachineSettings::State {
  explicit State(const Machine& machine);
  ~State() { reclaimer.drain(); }

  // As the lists of the machine. Deques, because elements cannot be moved.
  std::deque<RegisterArray> registers;
  std::deque<MeterArray> meters;
  std::deque<ValueSetTable> value_sets;
  RandomNumbers random;

  /// Over all calls of value sets and of `replication` but those of packets.
  Mutex mutex;
  Reclaimer reclaimer;
  Replication replication;
  const Machine& machine;
};

}  // namespace jxmodel
