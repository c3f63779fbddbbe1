// Every record decoder of the calibration library on any bytes: byte 0
// picks the decoder, the rest is the sample, copied into a heap room of
// exactly the bytes a conversion may read (zero past the sample, as the
// pipeline hands records over), so reading past the room shows under
// AddressSanitizer.  No decoder may crash or give a NaN.  The decoders that
// need calibration files get them beneath a scratch install root made at
// start-up and removed at exit.
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "calib/calib_common.h"
#include "calib/calib_func.h"

namespace {

// A decoder use: its parameters as words, each a number if it reads as one.
struct Decoder {
  const char* name;
  const char* params;
  int nout;
  calib_func_t func = nullptr;
};

std::vector<Decoder> decoders = {
    {"campbell_binary", "", 8},
    {"campbell_binary", "-1 120", 8},
    {"camp_cr10", "-1 2", 6},
    {"camp_21x_bin", "", 4},
    {"camp_hr_bin", "-1 3", 8},
    {"sonic_csat3", "seven.cal 1200 4", 9},
    {"sonic_gill", "six.cal 1200 4 despike 1 K left 8", 9},
    {"sonic_gill_transit", "fifteen.cal 1200 4 flag 0", 9},
    {"solent_tv", "0 C 8", 1},
    {"sonic_metek", "six.cal 1200 4", 9},
    {"gps", "", 6},
    {"gps", "RMC", 6},
    {"gps_date", "", 5},
    {"gps_date", "RMC", 5},
    {"licor_7500", "labels", 6},
    {"licor_7500", "Ndx,DiagVal,CO2D,H2OD,Temp,Pres", 6},
    {"rain_sti700", "0 1 6", 3},
    {"rad_net_Q7", "10 12 big 251 0", 2},
    {"q_kh2o_serial", "kh2o.cal little 251 float", 1},
    {"q_kh2o_serializer", "kh2o.cal big 253 1 5 16", 1},
};

const char* const files[][2] = {
    {"six.cal", "2004 1 00:00 0.1 -0.1 0 3 40 30\n"},
    {"seven.cal", "2004 1 00:00 0 0 0 2 10 0 3\n"},
    {"fifteen.cal", "2004 1 00:00 0 0 0 0 0 0  0 1 0 1 0 0 0 0 -1\n"},
    {"kh2o.cal", "2004 1 1 00:00:00 1.3 0.145 1.62\n"},
};

std::string root;
double sample_time = 1072915200.0 + 60;  // 2004-01-01 00:01 UTC, after every record

void remove_root() {
  for (const auto& f : files) unlink((root + "/cal_files/" + f[0]).c_str());
  rmdir((root + "/cal_files").c_str());
  rmdir(root.c_str());
}

void fail(const std::string& what) {
  perror(what.c_str());
  exit(1);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char tmpl[] = "/tmp/heron-fuzz-XXXXXX";
  if (!mkdtemp(tmpl)) fail("mkdtemp");
  root = tmpl;
  if (mkdir((root + "/cal_files").c_str(), 0755) != 0) fail(root);
  atexit(remove_root);
  setenv("HERON", root.c_str(), 1);
  setenv("PROJECT", "none", 1);
  for (const auto& f : files) {
    const std::string path = root + "/cal_files/" + f[0];
    FILE* fp = fopen(path.c_str(), "w");
    if (!fp || fputs(f[1], fp) < 0 || fclose(fp) != 0) fail(path);
  }
  // Row i is use i of as many as there are rows, whatever its function.
  const int nchan = static_cast<int>(decoders.size());
  for (int i = 0; i < nchan; ++i) {
    Decoder& d = decoders[static_cast<size_t>(i)];
    std::deque<std::string> words;  // a deque keeps the elements where the pointers found them
    std::deque<double> nums;
    std::vector<void*> ptrs;
    std::istringstream in(d.params);
    for (std::string w; in >> w;) {
      words.push_back(w);
      char* end;
      nums.push_back(strtod(w.c_str(), &end));
      ptrs.push_back(*end ? static_cast<void*>(&words.back()[0]) : &nums.back());
    }
    FreeCalibInfo(init_function(d.name)(i, nchan, ptrs.data(), static_cast<int>(ptrs.size()), d.nout));
    d.func = calib_function(d.name);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t k = data[0] % decoders.size();
  const Decoder& d = decoders[k];
  std::vector<char> room(CALIB_RECORD_ROOM, 0);  // exactly the room: one byte more is an overflow
  memcpy(room.data(), data + 1, size - 1 < room.size() ? size - 1 : room.size());
  std::vector<float> out(static_cast<size_t>(d.nout));
  calib_input in;
  in.raw = room.data();
  sample_time += 0.05;
  double t = sample_time;
  d.func(&t, in, out.data(), static_cast<int>(k));
  for (float v : out)
    if (isnan(v)) abort();
  return 0;
}
