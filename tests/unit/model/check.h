// Checks of tests that are programs of their own, because they are about how a process begins.
#pragma once

#include <cstdio>
#include <cstdlib>

#define CHECK_EQ(actual, expected)                                                         \
  do {                                                                                     \
    const auto actual_ = (actual);                                                         \
    if (actual_ == (expected)) break;                                                      \
    std::fprintf(stderr, "%s:%d: %s is not %s\n", __FILE__, __LINE__, #actual, #expected); \
    std::exit(EXIT_FAILURE);                                                               \
  } while (false)
