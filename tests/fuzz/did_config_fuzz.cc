// Feeds arbitrary bytes to the did.config reader: it must build the
// registry or throw BadConfigurationException, without a crash, a leak or
// undefined behaviour; every id must then be found by name and by index.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "base/Exception.h"
#include "calconf/HeronDataIds.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("did.config", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  static const int empty = memfd_create("prep.config", 0);
  static const SidList sids(("/proc/self/fd/" + std::to_string(empty)).c_str());
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();
  try {
    HeronDataIds ids(sids, path.c_str());
    for (const auto& id : ids.all())
      if (ids[id->name.c_str()] != id.get() || ids.byIndex(id->Index()) != id.get()) abort();
    // Each word of the input may also name an implied id.
    const std::string text(reinterpret_cast<const char*>(data), size);
    ids[text.c_str()];
  } catch (const BadConfigurationException&) {
    // A fault of the contents.
  }
  return 0;
}
