// The reactor on real descriptors, timers and signals: each case sets up
// handlers that write to a log and end the loop, and says what the log must
// read and in how many dispatches at most, so that a loop that spins while
// it waits fails as surely as one that runs things in the wrong order.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "base/Reactor.h"
#include "base/clock.h"

namespace {

struct Scene {
  heron::Reactor loop;
  std::string log;
  bool done = false;
  int pipe[2] = {-1, -1};
  void note(const char* what, bool last = false) {
    log += what;
    done = done || last;
  }
  void byte(bool in) {
    char c = 'x';
    EXPECT_EQ(in ? write(pipe[1], &c, 1) : read(pipe[0], &c, 1), 1);
  }
};

struct Case {
  const char* name;
  std::function<void(Scene&)> setup;
  const char* log;
  int minDispatches, maxDispatches;
  double minSeconds;
};

const Case kCases[] = {
    {"timers fire by due time, a cancelled one never",
     [](Scene& r) {
       r.loop.addTimeout(0.03, [&r] { r.note("c", true); });
       r.loop.addTimeout(0.01, [&r] { r.note("a"); });
       r.loop.cancelTimeout(r.loop.addTimeout(0.015, [&r] { r.note("x"); }));
       r.loop.addTimeout(0.02, [&r] { r.note("b"); });
     },
     "abc", 1, 4, 0.03},
    {"a timer due now fires at once; one it adds, in the next dispatch",
     [](Scene& r) { r.loop.addTimeout(0, [&r] { r.note("a"), r.loop.addTimeout(-1, [&r] { r.note("b", true); }); }); },
     "ab", 2, 2, 0},
    {"a future timer bounds the wait and does not spin",
     [](Scene& r) { r.loop.addTimeout(0.2, [&r] { r.note("t", true); }); }, "t", 1, 2, 0.2},
    {"an unwatched descriptor is left alone; watched, its readiness wakes the handler",
     [](Scene& r) {
       r.byte(true);
       r.loop.addFileHandler(r.pipe[0], 0, [&r](short) { r.byte(false), r.note("r", true); });
       r.loop.addTimeout(0.05, [&r] { r.note("t"), r.loop.setFileEvents(r.pipe[0], POLLIN); });
     },
     "tr", 2, 3, 0.05},
    {"a signal reaches its handler in the loop",
     [](Scene& r) {
       r.loop.addSignal(SIGUSR1, [&r](int sig) { r.note(sig == SIGUSR1 ? "s" : "?", true); });
       r.loop.addTimeout(0.01, [&r] {
         r.note("k");
         EXPECT_EQ(kill(getpid(), SIGUSR1), 0);
       });
     },
     "ks", 2, 3, 0.01},
    {"a signal from before the loop waits for it; no handler runs after one stops the loop",
     [](Scene& r) {
       r.loop.addTimeout(0, [&r] { r.note("t"); });
       r.loop.addSignal(SIGUSR1, [&r](int) { r.note("s", true), r.loop.stop(); });
       EXPECT_EQ(kill(getpid(), SIGUSR1), 0);
     },
     "s", 1, 1, 0},
};

TEST(Reactor, ServesTimersDescriptorsAndSignalsWithoutSpinning) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    Scene r;
    ASSERT_EQ(pipe(r.pipe), 0);
    const double start = heron::monotonicSeconds();  // before the timers are set
    c.setup(r);
    int dispatches = 0;
    for (; !r.done && dispatches < 50; ++dispatches) r.loop.dispatch();
    EXPECT_GE(heron::monotonicSeconds() - start, c.minSeconds);
    EXPECT_EQ(r.log, c.log);
    EXPECT_GE(dispatches, c.minDispatches);
    EXPECT_LE(dispatches, c.maxDispatches);
    close(r.pipe[0]);
    close(r.pipe[1]);
  }
}

}  // namespace
