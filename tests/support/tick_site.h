// A scratch site whose one module, "m", is served by the live service
// (live_service.h) of the given system number, which sends each channel
// asked for every 20 ms with its tick count (4 bytes, big-endian) as data.  Sensor s on
// channel 200 reads it as two big-endian shorts: x.s, the high half (0),
// and y.s, counting up by one; sensor t on channel 3 (v.t) is there to be
// left out.
#ifndef HERON_TEST_TICK_SITE_H
#define HERON_TEST_TICK_SITE_H

#include <string>

#include "support/scratch_site.h"

inline void writeTickSite(const ScratchSite& site, int number) {
  site.write("config/kites_config", "kites_number m " + std::to_string(number) + "\n");
  site.writeOps("channel_config", "");
  site.writeOps("did.config", "x.s 1 ; y.s 2 ; v.t 3 ;");
  site.writeOps("prep.config",
                "sensor s { module m 200 ; outputs x y ; calibrate serial_short \"big\" ; }\n"
                "sensor t { module m 3 ; outputs v ; calibrate linear 1 0 ; }\n");
}

#endif
