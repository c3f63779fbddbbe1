#include "calib/cal_file.h"

#include <errno.h>
#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "base/logit.h"
#include "calib/cal_parse.h"
extern "C" {
#include "calib/calfile_parser.h"
}
#include "calib/calib_common.h"
#include "site/heron_fopen.h"
#include "base/fatal.h"

// The generated scanner's entry points (reentrant form).
extern "C" {
int calfilelex_init_extra(struct cal_parse* extra, void** scanner);
void calfileset_in(FILE* in, void* scanner);
int calfilelex_destroy(void* scanner);
}

namespace {

// Blocks grow by at least this many entries, and by half their size once
// they are large, so that long files are not copied over and over.
constexpr size_t kBlockStep = 100;

size_t grown(size_t cap) { return cap + (cap / 2 > kBlockStep ? cap / 2 : kBlockStep); }

void* grow_block(void* block, size_t count, size_t size) {
  if (count > SIZE_MAX / size) {
    errno = ENOMEM;
    calib_alloc_fail("Calibration file parse");
  }
  void* p = realloc(block, count * size);
  if (!p) calib_alloc_fail("Calibration file parse");
  return p;
}


// Keeps the first fault of a checked file; true when st is checking.
bool keepFault(struct cal_parse* st, const std::string& what) {
  if (!st->quiet) return false;
  if (st->fault_line == 0) {
    st->fault_line = st->line > 0 ? st->line : 1;
    snprintf(st->fault, sizeof st->fault, "%s", what.c_str());
  }
  return true;
}

}  // namespace

extern "C" void cal_parse_value(struct cal_parse* st, double v) {
  calib_struct* cal = st->cal;
  if (cal->nrecords == 0) {
    if (st->nvalues == 0 && !st->values) {
      st->data_cap = kBlockStep;
      st->values = static_cast<double*>(grow_block(nullptr, st->data_cap, sizeof(double)));
      st->time_cap = kBlockStep;
      cal->times = static_cast<double*>(grow_block(nullptr, st->time_cap, sizeof(double)));
    }
    cal->ndata = st->nvalues + 1;
  }
  if (st->nvalues_all == st->data_cap) {
    st->data_cap = grown(st->data_cap);
    st->values = static_cast<double*>(grow_block(st->values, st->data_cap, sizeof(double)));
  }
  st->values[st->nvalues_all++] = v;
  st->nvalues++;
}

extern "C" int cal_parse_record(struct cal_parse* st, double t) {
  calib_struct* cal = st->cal;
  int n = st->nvalues;
  st->nvalues = 0;
  if (cal->nrecords > 0 && n != cal->ndata) {
    if (keepFault(st, "a time and " + std::to_string(n) + " values, where the first record has " +
                          std::to_string(cal->ndata)))
      return 1;
    logit(LOG_ERR, "Inconsistant number of calibration parameters in file %s (%s:%d)", cal->cal_file_name, st->path,
          st->line);
    logit(LOG_ERR, "First record contained time + %d data elements", cal->ndata);
    logit(LOG_ERR, "Current record contains time + %d data elements", n);
    return 1;
  }
  if (static_cast<size_t>(cal->nrecords) == st->time_cap) {
    st->time_cap = grown(st->time_cap);
    cal->times = static_cast<double*>(grow_block(cal->times, st->time_cap, sizeof(double)));
  }
  cal->times[cal->nrecords++] = t;
  return 0;
}

extern "C" int cal_parse_year(int year) {
  if (year < 50) return 2000 + year;
  if (year < 100) return 1900 + year;
  return year;
}

extern "C" double cal_parse_date(int year, int month, int day) {
  // The month is 0..11 from the scanner; the day may run past the month's
  // end and carries over as a calendar would.
  return static_cast<double>(calib_days_from_civil(year, month + 1, 1) + (static_cast<int64_t>(day) - 1)) *
         86400.0;
}

extern "C" double cal_parse_yday(int year, int yday) {
  return static_cast<double>(calib_days_from_civil(year, 1, 1) + (static_cast<int64_t>(yday) - 1)) *
         86400.0;
}

extern "C" double cal_parse_hhmmss(double v) {
  // Done in floating point throughout so that no value, however large,
  // meets an integer conversion.
  const double whole = trunc(v);
  const double hours = trunc(whole / 10000.0);
  const double minutes = trunc(fmod(whole, 10000.0) / 100.0);
  const double seconds = fmod(whole, 100.0);
  return hours * 3600.0 + minutes * 60.0 + seconds + (v - whole);
}

extern "C" void cal_parse_error(struct cal_parse* st, const char* what) {
  if (keepFault(st, what)) return;
  const char* name = st->cal->cal_file_name;
  if (strcmp(st->path, name) == 0)
    logit(LOG_ERR, "%s in line %d of calibration file: %s", what, st->line, name);
  else
    logit(LOG_ERR, "%s in line %d of calibration file: %s (%s)", what, st->line, name, st->path);
}

extern "C" const char* cal_parse_text(const char* msg) {
  if (strcmp(msg, "memory exhausted") == 0) return "parser stack overflow";
  return msg;
}

extern "C" char* cal_parse_string(const char* text, size_t len) {
  char* s = static_cast<char*>(malloc(len + 1));
  if (!s) {
    logit(LOG_ERR, "unable to malloc space in alloc_string() for %.*s", static_cast<int>(len), text);
    exit_status_1();
  }
  memcpy(s, text, len);
  s[len] = '\0';
  return s;
}

extern "C" void cal_parse_bad_char(struct cal_parse* st, unsigned char c) {
  char text[64];
  snprintf(text, sizeof text, "unrecognized character '\\%03o'", c);
  if (keepFault(st, text)) return;
  logit(LOG_ERR, "Unrecognized character, '%c' ('\\%#o'), at line %d of %s", c, c, st->line, st->path);
}

extern "C" void free_cal_file(calib_struct* cal) {
  if (!cal) return;
  free(cal->data ? cal->data[0] : nullptr);
  free(cal->data);
  free(cal->times);
  free(cal->cal_file_name);
  free(cal);
}

namespace {
int parseStream(FILE* fp, const char* name, const char* path, calib_struct** result, struct cal_parse* check);
}

extern "C" int parse_cal_stream(FILE* fp, const char* name, calib_struct** result) {
  return parseStream(fp, name, name, result, nullptr);
}

extern "C" int check_cal_stream(FILE* fp, const char* name, int* line, char* what, size_t size) {
  struct cal_parse st;
  memset(&st, 0, sizeof st);
  calib_struct* cal = nullptr;
  const int status = parseStream(fp, name, name, &cal, &st);
  free_cal_file(cal);
  if (status == 0 && st.fault_line == 0) return 0;
  *line = st.fault_line;
  snprintf(what, size, "%s", status < 0 ? "out of memory" : st.fault);
  return 1;
}

namespace {
// parse_cal_stream of the file name found at path; with check set, the
// state is kept there and checking.
int parseStream(FILE* fp, const char* name, const char* path, calib_struct** result, struct cal_parse* check) {
  *result = nullptr;
  calib_struct* cal = static_cast<calib_struct*>(calloc(1, sizeof(calib_struct)));
  if (!cal) {
    logit(LOG_ERR, "allocating calib struct: %m");
    return -1;
  }
  cal->cal_file_name = strdup(name);
  if (!cal->cal_file_name) calib_alloc_fail("allocating calib struct");

  struct cal_parse local;
  struct cal_parse& st = check != nullptr ? *check : local;
  memset(&st, 0, sizeof st);
  st.quiet = check != nullptr;
  st.cal = cal;
  st.path = path;
  st.line = 1;
  st.next_line = 1;

  void* scanner = nullptr;
  if (calfilelex_init_extra(&st, &scanner) != 0) calib_alloc_fail("Calibration file parse");
  calfileset_in(fp, scanner);
  int status = calfileparse(scanner, &st);
  calfilelex_destroy(scanner);

  if (status != 0) {
    free(st.values);
    free(cal->times);
    free(cal->cal_file_name);
    free(cal);
    return 1;
  }
  if (cal->nrecords == 0) {
    free(st.values);
    free(cal->times);
    cal->times = nullptr;
    cal->ndata = 0;
  } else {
    const size_t nrec = static_cast<size_t>(cal->nrecords);
    cal->times = static_cast<double*>(grow_block(cal->times, nrec, sizeof(double)));
    st.values = static_cast<double*>(grow_block(st.values, st.nvalues_all, sizeof(double)));
    cal->data = static_cast<double**>(grow_block(nullptr, nrec, sizeof(double*)));
    for (size_t i = 0; i < nrec; ++i) cal->data[i] = st.values + i * static_cast<size_t>(cal->ndata);
  }
  *result = cal;
  return 0;
}
}  // namespace

namespace {
// open_cal_file, with the path the file was found at.
FILE* openCalFile(const char* name, std::string* path) {
  errno = 0;
  FILE* fp = heronCalFopen(name, "r", path);
  if (!fp) {
    // A missing HERON or PROJECT fails without a system error.
    if (errno != 0)
      logit(LOG_ERR, "%s: %m", name);
    else
      logit(LOG_ERR, "%s: cannot be opened", name);
  }
  return fp;
}
}  // namespace

extern "C" FILE* open_cal_file(const char* name) {
  std::string path;
  return openCalFile(name, &path);
}

extern "C" calib_struct* read_cal_file(const char* name) {
  std::string path;
  FILE* fp = openCalFile(name, &path);
  if (!fp) return nullptr;
  calib_struct* cal = nullptr;
  int status = parseStream(fp, name, path.c_str(), &cal, nullptr);
  fclose(fp);
  if (status > 0) exit_status_1();
  return cal;
}
