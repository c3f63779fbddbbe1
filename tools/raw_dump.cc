// raw_dump: prints the samples of raw-sample archive files, merged in time
// order, one line each with its absolute time.
//
//   raw_dump [-s start_time]... [-D day] [-t tag_type] [-c channels]
//            [-w word_type] [-C] [-f time_format] [-z zone] [-v] FILE...
//
// Each FILE is an input of its own ("-" is standard input).  The time tags
// of a sample give only the time of day; the day comes from the file's
// start time: the n-th -s belongs to the n-th FILE, and a file without one
// starts on -D's day, else on the date its name carries (YYYYMMDD, with an
// optional _HHMMSS), else today, at the time of its first sample.  See
// raw_dump.1.
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <bitset>
#include <string>
#include <vector>

#include "archive/ArchiveNaming.h"
#include "base/Exception.h"
#include "base/logit.h"
#include "samples/RawDataInputs.h"
#include "time/TTConv.h"
#include "time/StrictTime.h"
#include "time/UTime.h"

namespace {

const char kUsage[] =
    "Usage: raw_dump [-s start_time]... [-D day] [-t tag_type] [-c channels]\n"
    "                [-w word_type] [-C] [-f time_format] [-z zone] [-v] FILE...\n"
    "  -s time  start time of the next FILE, e.g. \"2026 nov 21 12:00\"\n"
    "  -D day   day of the files without -s, e.g. \"2026 11 21\" (default: the\n"
    "           date in the file name, YYYYMMDD[_HHMMSS], else today)\n"
    "  -t type  time-tag type, msecs or wierd12 (default: the site's channel_config)\n"
    "  -c list  only these channels, e.g. 1,3-5\n"
    "  -w type  data words as s16, u16, s32, u32 or f32 followed by le or be,\n"
    "           e.g. s16be or f32le (default: signed 16-bit in host order)\n"
    "  -C       columns: numeric time, and as many values in every line of a\n"
    "           file's channel as in its first (missing ones are NaN)\n"
    "  -f fmt   strftime format of the sample times, %nF for fractions\n"
    "           (default \"%Y %m %d %H:%M:%S%3F\", with -C \"%s%3F\")\n"
    "  -z zone  time zone of the times given and printed (default UTC)\n"
    "  -v, --verbose  also the library's information lines (files opened,\n"
    "           midnight rollovers, signals caught)\n"
    "  -h, --help, --version\n"
    "FILE \"-\" is standard input.\n";

// One way of reading the data bytes as numbers.
struct WordType {
  const char* name;
  int bytes;
  char kind;  // 's' signed, 'u' unsigned integer, 'f' IEEE float
  bool big;   // big-endian
};

const WordType kWordTypes[] = {
    {"s16le", 2, 's', false}, {"s16be", 2, 's', true}, {"u16le", 2, 'u', false}, {"u16be", 2, 'u', true},
    {"s32le", 4, 's', false}, {"s32be", 4, 's', true}, {"u32le", 4, 'u', false}, {"u32be", 4, 'u', true},
    {"f32le", 4, 'f', false}, {"f32be", 4, 'f', true},
};

// What the default text form prints, for -C without -w.
const WordType kHostWords = {"s16", 2, 's', __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__};

struct Options {
  std::vector<const char*> startTexts;
  const char* dayText = nullptr;
  const char* fmt = nullptr;
  const char* zone = nullptr;
  std::bitset<256> channels;
  const WordType* words = nullptr;  // null: the default text form
  bool columns = false;
  bool verbose = false;
};

// Midnight of the day of t.
double dayOf(double t) { return floor(t / 86400.0) * 86400.0; }

// Time tag of a named file's first sample in milliseconds of the day; -1
// when there is none to read (an input reports an unreadable file when it
// opens it).
long firstTagMs(const char* name) {
  int fd = open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char head[RawSample::headLen];
  ssize_t n = pread(fd, head, sizeof head, 0);
  close(fd);
  if (n != static_cast<ssize_t>(sizeof head)) return -1;
  const long ms = RawDataInput::tt_to_msecs(static_cast<long>(RawSample::tagAt(head)));
  return ms < 0 || ms >= 86400000L ? -1 : ms;
}

// Start time of a file without -s: the day (from -D, else its name, else
// today) plus the time of day of its first sample, so that its first
// sample is always trusted.  When the name also gives the time, the start
// is the one nearest to it, so a file begun just before midnight whose
// first sample comes after it (or the other way round) lands on the right
// day.  Standard input cannot be looked into beforehand: a stream there is
// taken to be live, so its start is now.
double startOf(const char* name, const double* givenDay) {
  const double now = static_cast<double>(time(nullptr));
  if (strcmp(name, "-") == 0) return now;
  heron::NamedStart named;
  if (givenDay != nullptr)
    named.day = *givenDay;
  else if (!heron::startInName(name, nullptr, &named))
    named.day = dayOf(now);
  const long ms = firstTagMs(name);
  if (ms < 0) return named.time();
  double t = named.day + static_cast<double>(ms) / 1000.0;
  if (named.secs >= 0) {
    const double near = named.time();
    if (t < near - 43200.0) t += 86400.0;
    if (t > near + 43200.0) t -= 86400.0;
  }
  return t;
}

// False, reported, when the text is no time.
bool readTime(const char* text, int local, double* out) {
  if (heron::parseTimeStrict(text, local, out)) return true;
  fprintf(stderr, "%s\n", heron::refusedTime("raw_dump", text).c_str());
  return false;
}

// "1,3-5" style lists of channels 0 to 255.
bool readChannels(const char* text, std::bitset<256>* out) {
  out->reset();
  for (const char* p = text;; ++p) {
    char* end;
    const long a = isdigit(static_cast<unsigned char>(*p)) ? strtol(p, &end, 10) : -1;
    if (a < 0 || a > 255) return false;
    long b = a;
    if (*end == '-') {
      p = end + 1;
      b = isdigit(static_cast<unsigned char>(*p)) ? strtol(p, &end, 10) : -1;
      if (b < a || b > 255) return false;
    }
    for (long c = a; c <= b; ++c) out->set(static_cast<size_t>(c));
    if (*end == '\0') return true;
    if (*end != ',') return false;
    p = end;
  }
}

// Appends " value" of the word at p to out; returns the length added.
int formatWord(char* out, const unsigned char* p, const WordType& w) {
  uint32_t v = 0;
  for (int i = 0; i < w.bytes; ++i) v |= static_cast<uint32_t>(p[i]) << (8 * (w.big ? w.bytes - 1 - i : i));
  if (w.kind == 'u') return sprintf(out, " %lu", static_cast<unsigned long>(v));
  if (w.kind == 's') {
    const uint32_t sign = w.bytes == 2 ? 0x8000u : 0x80000000u;
    const long value = static_cast<long>(v) - ((v & sign) != 0 ? 2 * static_cast<long>(sign) : 0);
    return sprintf(out, " %ld", value);
  }
  float f;
  memcpy(&f, &v, sizeof f);
  if (isnan(f)) return sprintf(out, " NaN");
  return sprintf(out, " %.9g", static_cast<double>(f));  // nine digits give the float back exactly
}

// A line's values in the chosen word type; with -C padded with NaN to the
// count of the first sample of the same file and channel, or cut to it
// (counted in *cut).  Returns the length added.
int formatValues(char* out, const RawSample& s, const Options& o, std::vector<int>* widths, long* cut) {
  const WordType& w = o.words != nullptr ? *o.words : kHostWords;
  int count = s.size() / w.bytes;
  int width = count;
  if (o.columns) {
    int& first = (*widths)[static_cast<size_t>(s.ternIndex) * 256 + s.chan];
    if (first < 0) first = count;
    width = first;
    if (count > width) {
      ++*cut;
      count = width;
    }
  }
  const unsigned char* p = reinterpret_cast<const unsigned char*>(static_cast<const char*>(s.data));
  int n = 0;
  for (int i = 0; i < count; ++i) n += formatWord(out + n, p + i * w.bytes, w);
  for (int i = count; i < width; ++i) n += sprintf(out + n, " NaN");
  return n;
}

// Reads the options into o; returns -1 to go on, else the exit status.
int readOptions(int argc, char** argv, Options* o) {
  static const struct option kLong[] = {
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {"verbose", no_argument, nullptr, 'v'},
      {nullptr, 0, nullptr, 0}};
  o->channels.set();
  int opt;
  while ((opt = getopt_long(argc, argv, "s:D:f:z:t:c:w:Chv", kLong, nullptr)) != -1) {
    switch (opt) {
      case 's': o->startTexts.push_back(optarg); break;
      case 'D': o->dayText = optarg; break;
      case 'f': o->fmt = optarg; break;
      case 'z': o->zone = optarg; break;
      case 'C': o->columns = true; break;
      case 'v': o->verbose = true; break;
      case 't':
        if (strcmp(optarg, "msecs") != 0 && strcmp(optarg, "wierd12") != 0) {
          fprintf(stderr, "raw_dump: unknown time-tag type \"%s\" (msecs or wierd12)\n", optarg);
          return 1;
        }
        TTConv::setType(strcmp(optarg, "msecs") == 0 ? msecs : wierd12);
        break;
      case 'c':
        if (!readChannels(optarg, &o->channels)) {
          fprintf(stderr, "raw_dump: bad channel list \"%s\" (numbers 0 to 255 and ranges, e.g. 1,3-5)\n", optarg);
          return 1;
        }
        break;
      case 'w':
        o->words = nullptr;
        for (const WordType& w : kWordTypes)
          if (strcmp(optarg, w.name) == 0) o->words = &w;
        if (o->words == nullptr) {
          fprintf(stderr, "raw_dump: unknown word type \"%s\" (s16, u16, s32, u32 or f32, then le or be)\n", optarg);
          return 1;
        }
        break;
      case 'h': fputs(kUsage, stdout); return 0;
      case 'V': printf("raw_dump (%s) %s\n", HERON_PACKAGE, HERON_VERSION); return 0;
      default: fputs(kUsage, stderr); return 1;
    }
  }
  if (optind >= argc) {
    fputs(kUsage, stderr);
    return 1;
  }
  if (o->fmt == nullptr) o->fmt = o->columns ? "%s%3F" : "%Y %m %d %H:%M:%S%3F";
  return -1;
}

// Start time of the i-th FILE, name: its -s, else the one startOf() finds.
// False, reported, when its -s cannot be read.
bool startTime(const Options& o, int i, const char* name, int local, const double* day, double* start) {
  if (i >= static_cast<int>(o.startTexts.size())) {
    *start = startOf(name, day);
    return true;
  }
  return readTime(o.startTexts[static_cast<size_t>(i)], local, start);
}

// Makes each FILE an input of merge.  False, reported, when a start time
// cannot be read.
bool addInputs(const Options& o, char** files, int nfiles, int local, const double* day, RawDataInputs* merge) {
  for (int i = 0; i < nfiles; ++i) {
    char* name = files[i];
    double start;
    if (!startTime(o, i, name, local, day, &start)) return false;
    std::vector<char*> names(1, name);
    std::vector<double> times(1, start);
    merge->addInput(new FilesRawDataInput(i, names, times));
  }
  return true;
}

// Prints the samples of merge's inputs, one line each, until they have all
// ended; counts the lines in *printed and those cut in *cut.
void printSamples(RawDataInputs& merge, const Options& o, int nfiles, long* printed, long* cut) {
  std::vector<int> widths(static_cast<size_t>(nfiles) * 256, -1);
  char line[128 + RawSample::maxTextLen + 4096];
  try {
    for (;;) {
      double t;
      RawSample* s = merge.getTrustedSample(t, [&o](const RawSample& r) { return o.channels.test(r.chan); });
      if (s == nullptr) continue;  // only non-blocking inputs have none now
      UTime(t).to_charstar(line, 96, o.fmt);
      size_t n = strlen(line);
      if (o.words == nullptr && !o.columns) {
        n += static_cast<size_t>(snprintf(line + n, 16, " %d ", s->ternIndex));
        n += static_cast<size_t>(s->format(line + n));
      } else {
        n += static_cast<size_t>(sprintf(line + n, " %d %d %d %d", s->ternIndex, s->Msecs(), s->chan, s->size()));
        n += static_cast<size_t>(formatValues(line + n, *s, o, &widths, cut));
      }
      line[n++] = '\n';
      if (fwrite(line, 1, n, stdout) != n) throw oru::IOException("stdout", "write", errno);
      ++*printed;
    }
  } catch (const oru::EOFException&) {
    // All inputs have ended.
  } catch (const oru::InterruptedException&) {
    // SIGINT, SIGTERM or SIGHUP: the normal end of reading standard input
    // or a growing file; what was read is summed up as after an end.
  }
}

// Reports the end of the run; returns the exit status, result so far.
int conclude(const RawDataInputs& merge, long printed, long cut, int result) {
  if (fflush(stdout) != 0 && result == 0) {
    fprintf(stderr, "raw_dump: stdout: write: %s\n", strerror(errno));
    result = 1;
  }
  if (cut > 0) fprintf(stderr, "raw_dump: %ld samples had more values than their channel's columns and were cut\n", cut);
  if (result == 0 && printed == 0 && merge.untrusted() > 0) {
    fprintf(stderr, "raw_dump: every sample was left out: no time tag could be trusted (is the time-tag type right? see -t)\n");
    result = 2;
  }
  fprintf(stderr, "raw_dump: %ld samples with untrusted time tags left out\n", merge.untrusted());
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  const int status = readOptions(argc, argv, &o);
  if (status >= 0) return status;
  heron::showInformation(o.verbose);
  const int nfiles = argc - optind;
  if (static_cast<int>(o.startTexts.size()) > nfiles) {
    fprintf(stderr, "raw_dump: more start times than files\n");
    return 1;
  }
  UTime::setTZ(o.zone);
  const int local = o.zone != nullptr && o.zone[0] != '\0';

  double day = 0;
  // A day read in a zone is that zone's midnight.
  if (o.dayText != nullptr && !readTime(o.dayText, local, &day)) return 1;

  static char outbuf[1 << 16];
  setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);

  RawDataInputs merge;
  long printed = 0, cut = 0;
  int result = 0;
  try {
    if (!addInputs(o, argv + optind, nfiles, local, o.dayText != nullptr ? &day : nullptr, &merge)) return 1;
    printSamples(merge, o, nfiles, &printed, &cut);
  } catch (const oru::Exception& e) {
    fflush(stdout);
    fprintf(stderr, "raw_dump: %s\n", e.toString().c_str());
    result = 1;
  }
  return conclude(merge, printed, cut, result);
}
