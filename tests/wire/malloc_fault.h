// malloc of the library's and the test's own code: a queue takes its blocks from it. The binary
// links with --wrap=malloc.
#pragma once

namespace jextest {

/// From now on malloc finds no memory, in all threads, and none of the SDK's or nanomsg's.
void failMallocs();

}  // namespace jextest
