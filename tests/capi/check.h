/* The C tests' one assertion: counts and prints a failed condition, and goes on. */
#ifndef QUOR_CS_TEST_CHECK_H
#define QUOR_CS_TEST_CHECK_H

#include <stdio.h>

static int failures = 0;
#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                             \
    }                                                                         \
  } while (0)

#endif
