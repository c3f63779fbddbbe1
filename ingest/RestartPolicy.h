// When the supervisor may start a port's "Ingest" again, and which failures
// to open the port are worth a log line.  One per station; times are seconds
// on a monotonic clock, given by the caller.
//
// A child that ends within 10 s of its start is started again no sooner than
// a delay after its end that doubles with every such end (1, 2, 4 ... s, at
// most 60 s); a child that has run a minute clears the delay, and one that
// ran between the two keeps it.  A port that keeps failing to open is
// reported at its first failure and then once per 10 minutes.
#ifndef SERIAL_INGEST_RESTART_POLICY_H
#define SERIAL_INGEST_RESTART_POLICY_H

class RestartPolicy {
 public:
  static constexpr double kQuickEnd = 10;     // a child ending sooner is backed off
  static constexpr double kFirstDelay = 1;    // after the first quick end
  static constexpr double kMaxDelay = 60;     // the doubling stops here
  static constexpr double kSettled = 60;      // a run this long clears the delay
  static constexpr double kReportEvery = 600; // between reports of a failing port

  // A child was started at `now`.
  void started(double now);
  // True while a started child has not been seen to end.
  bool running() const { return _running; }
  // The child has ended at `now`.
  void ended(double now);
  // Earliest time of the next start.
  double due() const { return _due; }

  // The port failed to open at `now`.  True when this failure is to be
  // logged: *count is then 0 for the first failure, else the number of
  // failures since the last report, this one included.
  bool failed(double now, int* count);
  // The port opened: the next failure is a first one again.
  void opened() { _failing = false; }

 private:
  bool _running = false;
  double _startedAt = 0;
  double _delay = 0;  // 0 until a quick end
  double _due = 0;
  bool _failing = false;
  int _failures = 0;  // since the last report
  double _reportedAt = 0;
};

#endif
