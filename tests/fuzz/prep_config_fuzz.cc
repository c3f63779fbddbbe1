// Feeds arbitrary bytes to the prep.config reader: it must build the list or
// throw BadConfigurationException, without a crash, a leak or undefined
// behaviour; the lookups must then work on whatever was built.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "base/Exception.h"
#include "calconf/SidList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One in-memory file for every input, opened by name as a site file is.
  static const int fd = memfd_create("prep.config", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();
  try {
    SidList sl(path.c_str());
    for (const auto& s : sl.sids) {
      for (int i = 0; i < s->n_prefixes(); ++i)
        if (sl.sid_from_did(s->DidName(i).c_str()) == nullptr) abort();
      // Every parameter is read as its kind says.
      for (int i = 0; i < s->n_calib_params(); ++i) {
        volatile double v = s->calib_param_types[i] == CAL_DOUBLE ? *static_cast<double*>(s->calib_params[i])
                                                                  : strlen(static_cast<char*>(s->calib_params[i]));
        (void)v;
      }
      sl.TernChannels(s->sid_tern.c_str());
    }
    for (const auto& ph : sl.phases)
      if (sl.phase_from_did(DidNameOf(ph->prefixes[0], ph->root_name).c_str()) == nullptr) abort();
  } catch (const BadConfigurationException&) {
    // A fault of the contents, or a lag file that cannot be read.
  }
  return 0;
}
