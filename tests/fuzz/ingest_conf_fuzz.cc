// Feeds arbitrary bytes to the ingest.conf reader as the whole table: it must
// read them, log or reject them without a crash, a leak or undefined
// behaviour.  A station name never starts a comment.  (A NUL byte inside a
// word ends the name there, as the entries are built from C strings: a name
// may come out empty.)
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "base/Exception.h"
#include "site/IngestConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One in-memory file for every input, opened by name as a site file is.
  static const int fd = memfd_create("ingest.conf", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();
  try {
    IngestConfig cfg(path.c_str());
    for (const IngestConfigEntry& e : cfg.stns)
      if (!e.stationName.empty() && e.stationName[0] == '#') abort();
  } catch (const BadConfigurationException&) {
    // A read failure: reported, as it should be.
  }
  return 0;
}
