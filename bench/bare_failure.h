// The end of a part that measures bare messages.
#pragma once

#include <nanomsg/nn.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

/// Ends the process. `what`: the call of nanomsg that failed.
[[noreturn]] inline void failBare(const char* what) {
  std::fprintf(stderr, "answers: bare: %s: %s\n", what, nn_strerror(nn_errno()));
  std::exit(EXIT_FAILURE);
}

}  // namespace bench
