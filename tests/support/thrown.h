// What a call throws, as text, for tests that compare failure messages:
// thrownText<E>(f) runs f and returns the toString() of the E it throws,
// or "nothing thrown" when it returns; any other exception passes through.
#ifndef HERON_TESTS_THROWN_H
#define HERON_TESTS_THROWN_H

#include <string>

#include "base/Exception.h"

template <class E, class F>
std::string thrownText(F f) {
  try {
    f();
  } catch (const E& e) {
    return e.toString();
  }
  return "nothing thrown";
}

#endif
