// serial_ingest: dumps a serial port, prints the samples an acquisition
// module sends on it, or supervises one acquisition process per port.
#include <stdio.h>

#include <exception>

#include "base/Exception.h"
#include "SerialIngest.h"

int main(int argc, char** argv) {
  try {
    SerialIngest app(argc, argv);
    return app.run() < 0 ? 1 : 0;
  } catch (const oru::Exception& e) {
    fprintf(stderr, "%s\n", e.toString().c_str());
  } catch (const std::exception& e) {
    fprintf(stderr, "%s: %s\n", argv[0], e.what());
  }
  return 1;
}
