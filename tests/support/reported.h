// Faults that would end the program, checked in the test's own process:
// reported(f) runs f with both of logit's ends read into memory and
// exit_status_1 made to throw, and returns what f reported, one message a
// line, followed by "[exit 1]" when f ended the program there.  What f
// allocates is kept out of the leak check: a program that ended there would
// have released it all.
#ifndef HERON_TESTS_REPORTED_H
#define HERON_TESTS_REPORTED_H

#include <string>

#include "base/fatal.h"
#include "base/logit.h"

#ifdef __SANITIZE_ADDRESS__  // gcc's word
#define HERON_TEST_ASAN 1
#elif defined(__has_feature)  // clang's
#if __has_feature(address_sanitizer)
#define HERON_TEST_ASAN 1
#endif
#endif
#ifdef HERON_TEST_ASAN
#include <sanitizer/lsan_interface.h>
#endif

namespace heron_test {

inline void leakCheck(bool on) {
#ifdef HERON_TEST_ASAN
  on ? __lsan_enable() : __lsan_disable();
#else
  (void)on;
#endif
}

struct EndedWithStatus1 {};

template <class F>
std::string reported(F f) {
  std::string text;
  const auto keep = [&text](const std::string& message) { text += message + "\n"; };
  struct Restore {  // put back however f leaves
    heron::LogEnds ends;
    heron::Ending ending;
    ~Restore() {
      heron::setLogEnds(ends), heron::setEnding(ending);
      leakCheck(true);
    }
  } restore{heron::setLogEnds({[keep](int, const std::string& m) { keep(m); }, keep}),
            heron::setEnding([] { throw EndedWithStatus1(); })};
  leakCheck(false);
  try {
    f();
  } catch (const EndedWithStatus1&) {
    text += "[exit 1]";
  }
  return text;
}

}  // namespace heron_test

#endif
