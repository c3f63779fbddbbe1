// raw_dump: prints the samples of raw-sample archive files, merged in time
// order, one line each with its absolute time.
//
//   raw_dump [-s start_time]... [-D day] [-f time_format] [-z zone] FILE...
//
// Each FILE is an input of its own ("-" is standard input).  The time tags
// of a sample give only the time of day; the day comes from the file's
// start time: the n-th -s belongs to the n-th FILE, and a file without one
// starts on -D's day (default: today) at the time of its first sample.  See
// raw_dump.1.
#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "base/Exception.h"
#include "samples/RawDataInputs.h"
#include "time/UTime.h"

namespace {

const char kUsage[] =
    "Usage: raw_dump [-s start_time]... [-D day] [-f time_format] [-z zone] FILE...\n"
    "  -s time  start time of the next FILE, e.g. \"2026 nov 21 12:00\"\n"
    "  -D day   day of the files without -s, e.g. \"2026 11 21\" (default: today)\n"
    "  -f fmt   strftime format of the sample times, %nF for fractions\n"
    "           (default \"%Y %m %d %H:%M:%S%3F\")\n"
    "  -z zone  time zone of the times given and printed (default UTC)\n"
    "FILE \"-\" is standard input.\n";

// Midnight of the day of t.
double dayOf(double t) { return floor(t / 86400.0) * 86400.0; }

// Start time of a named file without one: its day plus the time of day of
// its first sample.  Standard input cannot be looked into beforehand: a
// stream there is taken to be live, so its start is now.
double guessStart(const char* name, double day) {
  if (strcmp(name, "-") == 0) return static_cast<double>(time(nullptr));
  int fd = open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return day;  // the input reports the failure when it opens it
  unsigned char head[RawSample::headLen];
  ssize_t n = pread(fd, head, sizeof head, 0);
  close(fd);
  if (n != static_cast<ssize_t>(sizeof head)) return day;
  uint32_t tt;
  memcpy(&tt, head, 4);
  const long ms = RawDataInput::tt_to_msecs(static_cast<long>(tt));
  if (ms < 0 || ms >= 86400000L) return day;
  return day + ms / 1000.0;
}

bool readTime(const char* text, int local, double* out) {
  UTime t(local, text);
  if (t.val() == UTime::BIGBANG) return false;
  *out = t.val();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<const char*> startTexts;
  const char* dayText = nullptr;
  const char* fmt = "%Y %m %d %H:%M:%S%3F";
  const char* zone = nullptr;
  int opt;
  while ((opt = getopt(argc, argv, "s:D:f:z:h")) != -1) {
    switch (opt) {
      case 's': startTexts.push_back(optarg); break;
      case 'D': dayText = optarg; break;
      case 'f': fmt = optarg; break;
      case 'z': zone = optarg; break;
      default: fputs(kUsage, stderr); return 1;
    }
  }
  if (optind >= argc) {
    fputs(kUsage, stderr);
    return 1;
  }
  const int nfiles = argc - optind;
  if (static_cast<int>(startTexts.size()) > nfiles) {
    fprintf(stderr, "raw_dump: more start times than files\n");
    return 1;
  }
  UTime::setTZ(zone);
  const int local = zone != nullptr && zone[0] != '\0';

  double day = dayOf(static_cast<double>(time(nullptr)));
  if (dayText != nullptr) {
    double t;
    if (!readTime(dayText, local, &t)) {
      fprintf(stderr, "raw_dump: cannot read the day \"%s\"\n", dayText);
      return 1;
    }
    // Midnight in the zone the day was given in.
    day = t;
  }

  static char outbuf[1 << 16];
  setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);

  RawDataInputs merge;
  long tossed = 0;
  try {
    for (int i = 0; i < nfiles; ++i) {
      char* name = argv[optind + i];
      double start;
      if (i < static_cast<int>(startTexts.size())) {
        if (!readTime(startTexts[static_cast<size_t>(i)], local, &start)) {
          fprintf(stderr, "raw_dump: cannot read the start time \"%s\"\n", startTexts[static_cast<size_t>(i)]);
          return 1;
        }
      } else {
        start = guessStart(name, day);
      }
      std::vector<char*> names(1, name);
      std::vector<double> times(1, start);
      merge.addInput(new FilesRawDataInput(i, names, times));
    }
    char line[128 + RawSample::maxTextLen];
    for (;;) {
      double t;
      RawSample* s = merge.getSample(t);
      if (s == nullptr) continue;  // only non-blocking inputs have none now
      if (t == RawDataInput::BIGBANG) {
        ++tossed;
        continue;
      }
      UTime(t).to_charstar(line, 96, fmt);
      size_t n = strlen(line);
      n += static_cast<size_t>(snprintf(line + n, 16, " %d ", s->ternIndex));
      n += static_cast<size_t>(s->format(line + n));
      line[n++] = '\n';
      if (fwrite(line, 1, n, stdout) != n) throw oru::IOException("stdout", "write", errno);
    }
  } catch (const oru::EOFException&) {
    // All inputs have ended.
  } catch (const oru::Exception& e) {
    fflush(stdout);
    fprintf(stderr, "raw_dump: %s\n", e.toString().c_str());
    return 1;
  }
  if (fflush(stdout) != 0) {
    fprintf(stderr, "raw_dump: stdout: write: %s\n", strerror(errno));
    return 1;
  }
  if (tossed > 0) fprintf(stderr, "raw_dump: %ld samples with untrusted time tags left out\n", tossed);
  return 0;
}
