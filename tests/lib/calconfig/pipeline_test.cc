#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/Exception.h"
#include "calconfig/CalConfig.h"
#include "calconfig/CalSample.h"
#include "support/reported.h"
#include "support/scratch_site.h"
#include "time/UTime.h"

namespace {

const int kCalibrated = 2;

std::string bigEndian(int count) { return {static_cast<char>(count >> 8 & 0xff), static_cast<char>(count & 0xff)}; }

// The example site's archives through the whole pipeline, compared with the
// values its generator encoded (raw/truth.txt).  The tolerance, 0.005 in each
// variable's unit, is about half a count of the coarsest encoding (the
// barometer's 50 hPa/V); a wrong gain, offset, lag or byte order is far off.
TEST(CalConfigPipeline, ExampleSiteCalibratesToTheEncodedValues) {
  setenv("HERON", HERON_SOURCE_DIR "/examples/site", 1);
  setenv("PROJECT", "demo", 1);
  setenv("OPS", "ops1", 1);
  TernList::clear();
  std::map<std::string, std::map<int, double>> truth;
  std::ifstream in(HERON_SOURCE_DIR "/examples/site/projects/demo/ops1/raw/truth.txt");
  std::string line;
  for (int ms; std::getline(in, line);) {
    char did[32];
    double v;
    if (sscanf(line.c_str(), "%d %31s %lf", &ms, did, &v) == 3) truth[did][ms] = v;
  }
  CalConfig cfg;
  cfg.PreRegisterAllDataIds();
  cfg.InitializeFunctions();
  EXPECT_EQ(cfg.GetUnits({"u.wind", "tc.wind", "q.kh2o", "p.baro", "h2o.irga", "tc.gill", "co2.opath", "p.logger"}),
            (std::vector<std::string>{"m/s", "degC", "g/m^3", "mb", "g/m^3", "degC", "mmol/m^3", "mb"}));
  cfg.openInputs(1795262400.0, 1795262430.0);

  SampleStream<TaggedSampleBase> stream;
  size_t matched = 0;
  try {
    for (;;) {
      DPlist<TaggedSampleBase> done;
      cfg.nextCalibrated(stream, done);
      for (DPlist_iter<TaggedSampleBase> it = done.begin(); it(); ++it) {
        const FullDataSample* s = static_cast<FullDataSample*>(*it);
        const int ms = UTime::Msecs(s->ttag);
        for (int i = 0; i < s->size(); ++i) {
          const HeronDataId* id = s->info ? s->info[i] : nullptr;
          if (id == nullptr) continue;  // a value nobody asked for
          // A lagged value went out at its time less the lag in force then.
          const int lagMs = id->phase ? static_cast<int>(lrint(id->phase->lag.lag * 1000)) : 0;
          const auto& series = truth[id->name];
          auto t = series.lower_bound(ms + lagMs - 1);
          ASSERT_TRUE(t != series.end() && abs(t->first - ms - lagMs) <= 1) << id->name << " at " << ms;
          EXPECT_NEAR(s->data[i], t->second, 0.005) << id->name << " at " << t->first;
          ++matched;
        }
      }
    }
  } catch (const oru::EOFException&) {
  }
  size_t values = 0;
  for (const auto& s : truth) values += s.second.size();
  EXPECT_EQ(values, 7680u);
  EXPECT_EQ(matched, values);
  EXPECT_EQ(cfg.unwantedSamples(), 0);
  TernList::clear();
}

// A site with a multiplexed sensor (values a, b, c on analog channel 5,
// their sub-channel on index channel 6) and a two-value serial sensor whose
// second value lags 0.25 s.
struct MuxSite : ScratchSite {
  explicit MuxSite(const std::string& prep = "") {
    write("config/kites_config", "kites_number m 0\n");
    writeOps("channel_config", "");
    writeOps("did.config", "a.mux 1 ; b.mux 2 ; c.mux 3 ; i.idx 4 ; x.two 5 ; y.two 6 lag 0.25 ; z.odd 7 ; w.odd 8 ;");
    writeOps("prep.config",
             prep.empty() ? "sensor mux { module m 5 ; outputs a b c ; calibrate linear 1 0 2 0 3 0 ;"
                            " index i.idx ; rate 10 ; }\n"
                            "sensor idx { module m 6 ; outputs i ; calibrate linear 1 0 ; rate 10 ; }\n"
                            "sensor two { module m 200 ; outputs x y ; calibrate serial_short \"big\" ; }\n"
                            "sensor odd { module m 7 ; outputs z w ; calibrate serial_short \"big\" ; }\n"
                          : prep);
    TernList::clear();
  }
};

TEST(CalConfigPipeline, MultiplexMatchingAndLags) {
  // Raw samples: time, channel, data.  Index count k x 6554 is k volts; data
  // count 3277 is 0.5 V, so a is 0.5, b 1 and c 1.5.
  struct Raw {
    double t;
    int chan;
    std::string data;
  };
  const std::string half = bigEndian(3277);
  const struct {
    const char* name;
    std::vector<Raw> raws;
    std::vector<std::string> out;  // "time did value"
  } cases[] = {
      {"data within one index period", {{10, 6, bigEndian(6554)}, {10.05, 5, half}}, {"10.05 b.mux 1"}},
      {"data before its index waits", {{10, 5, half}, {10.05, 6, bigEndian(2 * 6554)}}, {"10.00 c.mux 1.5"}},
      {"a later data sample replaces the waiting one",
       {{10, 5, half}, {10.02, 5, bigEndian(2 * 3277)}, {10.05, 6, bigEndian(0)}},
       {"10.02 a.mux 1"}},
      {"data a period after the index", {{10, 6, bigEndian(0)}, {10.1, 5, half}}, {}},
      {"index -1", {{10, 6, bigEndian(-6554)}, {10.05, 5, half}}, {}},
      {"index equal to the number of values", {{10, 6, bigEndian(3 * 6554)}, {10.05, 5, half}}, {}},
      {"lagged value leaves alone", {{10, 200, bigEndian(3) + bigEndian(4)}}, {"10.00 x.two 3", "9.75 y.two 4"}},
      {"a record conversion on an analog channel reads the record", {{10, 7, bigEndian(5) + bigEndian(6)}},
       {"10.00 z.odd 5", "10.00 w.odd 6"}},
  };
  for (const auto& c : cases) {
    MuxSite site;
    CalConfig cfg;
    for (const char* did : {"a.mux", "b.mux", "c.mux", "x.two", "y.two", "z.odd", "w.odd"}) cfg.RegisterDataIdByName(did);
    cfg.InitializeFunctions();
    std::vector<std::string> got;
    SampleStream<TaggedSampleBase> stream;
    for (const Raw& r : c.raws) {
      for (ChannelConfig* cc : cfg.sidMatrix[0][static_cast<size_t>(r.chan)])
        stream.Push(1, new TaggedRawSample(r.t, r.data.data(), static_cast<int>(r.data.size()), cc));
      calibrate(stream);
      DPlist<TaggedSampleBase> done;
      stream >> kCalibrated >> done;
      for (DPlist_iter<TaggedSampleBase> it = done.begin(); it(); ++it) {
        const FullDataSample* s = static_cast<FullDataSample*>(*it);
        for (int i = 0; i < s->size(); ++i)
          if (s->info[i]) {
            char text[64];
            snprintf(text, sizeof text, "%.2f %s %.3g", s->ttag, s->info[i]->name.c_str(), s->data[i]);
            got.push_back(text);
          }
      }
    }
    EXPECT_EQ(got, c.out) << c.name;
  }
  TernList::clear();
}

TEST(CalConfigPipeline, ConfigurationFaults) {
  const std::string mux = "sensor mux { module m 5 ; outputs a b c ; index i.idx ; calibrate linear ";
  // What was reported, "[exit 1]" where the program would end, and the text
  // of an exception thrown instead.
  const struct {
    std::string prep;
    const char* did;
    std::string outcome;
  } cases[] = {
      {"sensor s { module m 1 ; outputs x ; calibrate nosuch ; }", "x.s",
       "Can't find calibration function named nosuch\n[exit 1]"},
      {"sensor s { module m 1 ; outputs x ; calibrate linear_init ; }", "x.s",
       "Can't find initialization function for linear_init\n[exit 1]"},
      {"sensor s { module m 1 ; outputs x z ; calibrate linear 1 0 ; }", "x.s",
       "Can't find did index in did.config for z.s\n[exit 1]"},
      {mux + "1 0 2 0 ; }\nsensor idx { module m 6 ; outputs i ; calibrate linear 1 0 ; }", "a.mux",
       "Incorrect number of calibration parameters (4) for mux\n[exit 1]"},
      {"sensor s { module m 1 ; outputs x ; calibrate linear 1 0 ; }", "nope.s",
       "BadConfigurationException: Unknown variable: nope.s"},
      {"sensor s { module q 1 ; outputs x ; calibrate linear 1 0 ; }", "x.s",
       "BadConfigurationException: tern \"q\" is not found in $HERON/config/kites_config"},
  };
  for (const auto& c : cases) {
    MuxSite site(c.prep);
    site.writeOps("did.config", "a.mux 1 ; b.mux 2 ; c.mux 3 ; i.idx 4 ; x.s 7 ;");
    std::string thrown;
    const std::string got = heron_test::reported([&] {
      try {
        CalConfig cfg;
        cfg.RegisterDataIdByName(c.did);
      } catch (const oru::Exception& e) {
        thrown = e.what();
      }
    });
    EXPECT_EQ(got + thrown, c.outcome) << c.prep;
  }
  TernList::clear();
}

}  // namespace
