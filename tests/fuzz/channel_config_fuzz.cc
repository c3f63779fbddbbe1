// Feeds arbitrary bytes to the channel_config reader: it must accept them or
// report a syntax error, without a crash, a leak or undefined behaviour.  A
// syntax error normally ends the process; here it is thrown, so that the
// driver goes on with the next input.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "base/Exception.h"
#include "site/channels.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One in-memory file for every input, opened by name as a site file is.
  static const int fd = memfd_create("channel_config", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();
  channel_list::throwOnSyntaxError(true);
  try {
    channel_list cl(path.c_str());
    // Walk what was built so that a bad link shows.
    float gain, offset;
    for (const analog_entry* a = cl.analogEntries(); a; a = a->next.get())
      cl.AnalogGainOffset(a->tern.c_str(), a->chan, &gain, &offset);
    for (const serial_entry* s = cl.serialEntries(); s; s = s->next.get())
      if (s->tern.size() + s->protocol.size() + s->msg_and_conv.size() > size) abort();  // words of the input
    for (const ttloutput_entry* t = cl.ttlEntries(); t; t = t->next.get())
      if (t->status != ON) abort();
  } catch (const BadConfigurationException&) {
    // A syntax error, logged and thrown.
  }
  return 0;
}
