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

#include <string>
#include <vector>

#include "calib/calib_common.h"
#include "calib/calib_func.h"

namespace {

struct Param {
  double num;
  const char* text;  // null for a number
};
struct Decoder {
  const char* name;
  std::vector<Param> params;
  int nout;
};

Param N(double v) { return {v, nullptr}; }
Param T(const char* s) { return {0, s}; }

const std::vector<Decoder>& decoders() {
  static const std::vector<Decoder> d = {
      {"campbell_binary", {}, 8},
      {"campbell_binary", {N(-1), N(120)}, 8},
      {"camp_cr10", {N(-1), N(2)}, 6},
      {"camp_21x_bin", {}, 4},
      {"camp_hr_bin", {N(-1), N(3)}, 8},
      {"sonic_csat3", {T("seven.cal"), N(1200), N(4)}, 9},
      {"sonic_gill", {T("six.cal"), N(1200), N(4), T("despike"), N(1), T("K"), T("left"), N(8)}, 9},
      {"sonic_gill_transit", {T("fifteen.cal"), N(1200), N(4), T("flag"), N(0)}, 9},
      {"solent_tv", {N(0), T("C"), N(8)}, 1},
      {"sonic_metek", {T("six.cal"), N(1200), N(4)}, 9},
      {"gps", {}, 6},
      {"gps", {T("RMC")}, 6},
      {"gps_date", {}, 5},
      {"gps_date", {T("RMC")}, 5},
      {"licor_7500", {T("labels")}, 6},
      {"licor_7500", {T("Ndx,DiagVal,CO2D,H2OD,Temp,Pres")}, 6},
      {"rain_sti700", {N(0), N(1), N(6)}, 3},
      {"rad_net_Q7", {N(10), N(12), T("big"), N(251), N(0)}, 2},
      {"q_kh2o_serial", {T("kh2o.cal"), T("little"), N(251), T("float")}, 1},
      {"q_kh2o_serializer", {T("kh2o.cal"), T("big"), N(253), N(1), N(5), N(16)}, 1},
  };
  return d;
}

std::string root;
std::vector<calib_func_t> functions;
double sample_time = 1072915200.0 + 60;  // 2004-01-01 00:01 UTC, after every record

void write_file(const std::string& name, const char* text) {
  const std::string path = root + "/cal_files/" + name;
  FILE* fp = fopen(path.c_str(), "w");
  if (!fp || fputs(text, fp) < 0 || fclose(fp) != 0) {
    perror(path.c_str());
    exit(1);
  }
}

void remove_root() {
  for (const char* f : {"six.cal", "seven.cal", "fifteen.cal", "kh2o.cal"}) unlink((root + "/cal_files/" + f).c_str());
  rmdir((root + "/cal_files").c_str());
  rmdir(root.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char tmpl[] = "/tmp/heron-fuzz-XXXXXX";
  if (!mkdtemp(tmpl)) {
    perror("mkdtemp");
    exit(1);
  }
  root = tmpl;
  if (mkdir((root + "/cal_files").c_str(), 0755) != 0) {
    perror(root.c_str());
    exit(1);
  }
  atexit(remove_root);
  setenv("HERON", root.c_str(), 1);
  setenv("PROJECT", "none", 1);
  write_file("six.cal", "2004 1 00:00 0.1 -0.1 0 3 40 30\n");
  write_file("seven.cal", "2004 1 00:00 0 0 0 2 10 0 3\n");
  write_file("fifteen.cal", "2004 1 00:00 0 0 0 0 0 0  0 1 0 1 0 0 0 0 -1\n");
  write_file("kh2o.cal", "2004 1 1 00:00:00 1.3 0.145 1.62\n");
  for (const Decoder& d : decoders()) {
    std::vector<double> nums(d.params.size());
    std::vector<void*> ptrs;
    for (size_t i = 0; i < d.params.size(); ++i) {
      nums[i] = d.params[i].num;
      ptrs.push_back(d.params[i].text ? const_cast<char*>(d.params[i].text) : static_cast<void*>(&nums[i]));
    }
    // Each entry is its own use of its function: count the earlier ones.
    int ichan = 0, nchan = 0;
    for (const Decoder& e : decoders()) {
      if (strcmp(e.name, d.name) != 0) continue;
      ++nchan;
      if (&e < &d) ++ichan;
    }
    FreeCalibInfo(init_function(d.name)(ichan, nchan, ptrs.data(), static_cast<int>(ptrs.size()), d.nout));
    functions.push_back(calib_function(d.name));
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<Decoder>& all = decoders();
  const size_t k = data[0] % all.size();
  int ichan = 0;
  for (size_t i = 0; i < k; ++i) ichan += strcmp(all[i].name, all[k].name) == 0;
  std::vector<char> room(CALIB_RECORD_ROOM, 0);  // exactly the room: one byte more is an overflow
  memcpy(room.data(), data + 1, size - 1 < room.size() ? size - 1 : room.size());
  std::vector<float> out(static_cast<size_t>(all[k].nout));
  calib_input in;
  in.raw = room.data();
  sample_time += 0.05;
  double t = sample_time;
  functions[k](&t, in, out.data(), ichan);
  for (float v : out)
    if (isnan(v)) abort();
  return 0;
}
