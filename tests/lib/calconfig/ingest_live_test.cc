// CalConfig::openInputs(socketType) against the test ingest server on
// 127.0.0.1: what it sends comes out calibrated, and only the channels of
// the variables asked for are sent at all.
#include <math.h>
#include <stdlib.h>
#include <time.h>

#include <string>

#include <gtest/gtest.h>

#include "calconfig/CalConfig.h"
#include "time/TTConv.h"
#include "support/rpc_fixture.h"
#include "support/tick_site.h"

namespace {

TEST(CalConfigLive, IngestSamplesArriveCalibrated) {
  const int number = heron_test::testSystemNumber();
  heron_test::TestIngestServer server(number);
  ASSERT_TRUE(server.ok()) << server.error();
  ScratchSite site;
  writeTickSite(site, number);
  setenv("INGEST_SERVER", heron_test::kLoopback, 1);
  TernList::clear();
  {
    CalConfig cfg;
    cfg.RegisterDataIdByName("x.s");
    cfg.RegisterDataIdByName("y.s");
    cfg.InitializeFunctions();
    cfg.openInputs(1);
    SampleStream<TaggedSampleBase> stream;
    float last = -1;
    for (int n = 0; n < 20;) {
      DPlist<TaggedSampleBase> done;
      cfg.nextCalibrated(stream, done);
      for (DPlist_iter<TaggedSampleBase> it = done.begin(); it(); ++it, ++n) {
        const FullDataSample* s = static_cast<FullDataSample*>(*it);
        ASSERT_EQ(s->size(), 2);
        EXPECT_EQ(s->info[0]->name + " " + s->info[1]->name, "x.s y.s");
        EXPECT_EQ(s->data[0], 0.0f);
        EXPECT_TRUE(last < 0 || s->data[1] == last + 1) << s->data[1] << " after " << last;
        last = s->data[1];
        EXPECT_LT(fabs(s->ttag - static_cast<double>(time(nullptr))), 60.0);
      }
    }
    EXPECT_EQ(cfg.unwantedSamples(), 0);  // channel 3 was never sent
  }
  unsetenv("INGEST_SERVER");
  TernList::clear();
  TTConv::setType(unknown);  // the next site reads its own time-tag type
}

}  // namespace
