// The one loop of a daemon: file handlers, timers on the monotonic clock
// and signals, served by one thread from one wait.
//
// dispatch() waits (ppoll) until a watched descriptor is ready, a watched
// signal has arrived, or the nearest timer is due, and then runs what it
// found: the signals' handlers, the file handlers of the ready descriptors
// in the order of their descriptors, the descriptor sets, and the timers
// that were due, in the order of their times.  A timer due now fires in that
// very dispatch; one set in the future bounds the wait and nothing else, so
// the loop never spins.  Handlers may add, change and remove handlers and
// timers; a timer added by a handler fires in a later dispatch at the
// earliest.  An interrupted wait (EINTR) is an empty dispatch; any other
// failure of a system call is oru::IOException naming the step.
//
// Signals come in through a signal descriptor: addSignal() blocks the
// signal for the whole process, so it is never delivered to a handler at an
// arbitrary point (nor to the inputs' own handler, see RawDataInput.h) but
// read in the loop and given to its handler like any other event.  That is
// why a signal descriptor rather than a self-pipe: no code runs in signal
// context at all, and whichever sigaction handlers the libraries install,
// a blocked signal still reaches this loop.  A signal ignored when it is
// added is set back to its default action first: an ignored SIGCHLD would
// have the kernel reap the children before the loop sees them.
//
// One reactor per process takes signals (the mask is the process's).  The
// destructor closes the signal descriptor and leaves the signals blocked: a
// second SIGTERM that comes while the program winds down must not take the
// default action and end it before its files are closed.
#ifndef HERON_REACTOR_H
#define HERON_REACTOR_H

#include <poll.h>
#include <signal.h>

#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace heron {

class Reactor {
 public:
  using FileHandler = std::function<void(short revents)>;
  using SignalHandler = std::function<void(int sig)>;
  using Callback = std::function<void()>;
  // Appends the descriptors to watch; is given them back after the wait.
  using Gather = std::function<void(std::vector<struct pollfd>&)>;
  using Serve = std::function<void(struct pollfd* fds, size_t n)>;
  using TimerId = unsigned long;

  Reactor();
  ~Reactor();
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  // One handler per descriptor; events as poll takes them, 0 to leave the
  // descriptor unwatched for a while.  A descriptor that poll finds closed
  // (POLLNVAL) is oru::IOException: its handler could never clear it.
  void addFileHandler(int fd, short events, FileHandler handler);
  void setFileEvents(int fd, short events);
  void removeFileHandler(int fd);
  // A set of descriptors that a library keeps in a table of its own (the
  // RPC library does): gather lists them before every wait and serve gets
  // them back, with poll's results, after every wait, even an empty one.
  void addPollSet(Gather gather, Serve serve);

  // Calls callback once, `delay` seconds from now (at once when <= 0).
  TimerId addTimeout(double delay, Callback callback);
  // No effect on a timer that has fired or was cancelled.
  void cancelTimeout(TimerId id);

  // Blocks sig and hands each arrival of it to handler in the loop.
  void addSignal(int sig, SignalHandler handler);
  // The signal descriptor (-1 before addSignal): readable while a signal
  // waits.  A wait outside the loop that must answer signals watches it
  // and calls takeSignals() when it is readable.
  int signalFd() const { return sigfd_; }
  // Runs the handlers of the signals that have arrived, without waiting
  // (none once the loop is stopped).
  void takeSignals();

  // One wait and the handlers of what it found.
  void dispatch();
  // Dispatches until a handler calls stop(); no other handler runs after
  // that one, and signals still to come stay where they are.
  void run();
  void stop() { stopped_ = true; }  // for good

 private:
  struct File {
    short events;
    FileHandler handler;
  };
  struct PollSet {
    Gather gather;
    Serve serve;
  };
  void serveFiles(size_t from, size_t to);
  void fireTimers();

  std::map<int, File> files_;
  std::vector<PollSet> sets_;
  std::map<std::pair<double, TimerId>, Callback> timers_;  // by due time, then age
  TimerId lastTimer_ = 0;
  std::map<int, SignalHandler> signals_;
  int sigfd_ = -1;
  sigset_t watched_;
  bool stopped_ = false;
  std::vector<struct pollfd> fds_;
};

}  // namespace heron

#endif
