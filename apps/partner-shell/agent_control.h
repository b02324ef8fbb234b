// What the slice agent's control service knows, asked through switchctl: the service's own client
// cannot live in a process that has the software model loaded, as both describe its messages.
#pragma once

#include <optional>
#include <string>

#include "digests.h"

namespace jexapps {

/// Whether a partner takes a digest. Not known if the service could not be asked, for `reason`.
struct DigestTaken {
  std::optional<bool> taken;
  std::string reason;
};

/// Asks the service at `address`, HOST:PORT. Takes some milliseconds; seconds if nobody answers.
DigestTaken askDigestTaken(const std::string& address, const DigestFacts& digest);

}  // namespace jexapps
