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
  void finish(const char* what) {
    log += what;
    done = true;
  }
  // A byte waits in the pipe: readiness without a writer at work.
  void fill() { ASSERT_EQ(write(pipe[1], "x", 1), 1); }
  void drain() {
    char c;
    ASSERT_EQ(read(pipe[0], &c, 1), 1);
  }
};

struct Case {
  const char* name;
  std::function<void(Scene&)> setup;
  const char* log;
  int maxDispatches;
  double minSeconds;
};

const Case kCases[] = {
    {"timers fire by due time, a cancelled one never",
     [](Scene& r) {
       r.loop.addTimeout(0.03, [&r] { r.finish("c"); });
       r.loop.addTimeout(0.01, [&r] { r.log += "a"; });
       r.loop.cancelTimeout(r.loop.addTimeout(0.015, [&r] { r.log += "x"; }));
       r.loop.addTimeout(0.02, [&r] { r.log += "b"; });
     },
     "abc", 4, 0.03},
    {"a timer due now fires at once; one it adds, in the next dispatch",
     [](Scene& r) {
       r.loop.addTimeout(0, [&r] {
         r.log += "a";
         r.loop.addTimeout(-1, [&r] { r.finish("b"); });
       });
     },
     "ab", 2, 0},
    {"a future timer bounds the wait and does not spin",
     [](Scene& r) { r.loop.addTimeout(0.2, [&r] { r.finish("t"); }); }, "t", 2, 0.2},
    {"a pipe made readable wakes its handler",
     [](Scene& r) {
       r.loop.addFileHandler(r.pipe[0], POLLIN, [&r](short ev) {
         if (ev & POLLIN) r.drain();
         r.finish("r");
       });
       r.loop.addTimeout(0.01, [&r] {
         r.log += "w";
         r.fill();
       });
     },
     "wr", 3, 0.01},
    {"an unwatched descriptor is left alone until watched again",
     [](Scene& r) {
       r.fill();
       r.loop.addFileHandler(r.pipe[0], 0, [&r](short) {
         r.drain();
         r.finish("r");
       });
       r.loop.addTimeout(0.05, [&r] {
         r.log += "t";
         r.loop.setFileEvents(r.pipe[0], POLLIN);
       });
     },
     "tr", 3, 0.05},
    {"a signal reaches its handler in the loop",
     [](Scene& r) {
       r.loop.addSignal(SIGUSR1, [&r](int sig) { r.finish(sig == SIGUSR1 ? "s" : "?"); });
       r.loop.addTimeout(0.01, [&r] {
         r.log += "k";
         ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
       });
     },
     "ks", 3, 0.01},
    {"a signal that came before the loop waits for it",
     [](Scene& r) {
       r.loop.addSignal(SIGUSR1, [&r](int) { r.finish("s"); });
       ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
     },
     "s", 1, 0},
};

TEST(Reactor, ServesTimersDescriptorsAndSignalsWithoutSpinning) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    int dispatches = 0;
    double took;
    {
      Scene r;
      ASSERT_EQ(pipe(r.pipe), 0);
      c.setup(r);
      const double start = heron::monotonicSeconds();
      while (!r.done && dispatches < 50) {
        r.loop.dispatch();
        ++dispatches;
      }
      took = heron::monotonicSeconds() - start;
      EXPECT_EQ(r.log, c.log);
      close(r.pipe[0]);
      close(r.pipe[1]);
    }
    EXPECT_LE(dispatches, c.maxDispatches);
    EXPECT_GE(took, c.minSeconds);
  }
}

TEST(Reactor, RunEndsWhenAHandlerStopsIt) {
  heron::Reactor loop;
  int ticks = 0;
  std::function<void()> tick = [&] {
    if (++ticks == 3) loop.stop();
    else loop.addTimeout(0.001, tick);
  };
  loop.addTimeout(0, tick);
  loop.run();
  EXPECT_EQ(ticks, 3);
}

}  // namespace
