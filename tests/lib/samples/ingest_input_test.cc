// Samples from the ingest server (the test server, registered with a real
// rpcbind on 127.0.0.1), on stream and datagram connections.  No server at
// all ends the process: the live case of CalDump.Errors runs that.
#include <gtest/gtest.h>
#include <math.h>
#include <time.h>

#include <set>

#include "samples/Sample.h"
#include "support/rpc_fixture.h"

namespace {

// Reads until n samples in a row are of the channels given (samples of the
// channels asked for before may still be on their way).
void expectChannels(RawDataInput& in, std::set<int> chans, int n, int ternIndex) {
  RawSample s;
  for (int got = 0, inRow = 0; inRow < n; ++got) {
    ASSERT_LT(got, 2000) << "the channels asked for never came alone";
    ASSERT_EQ(in.readSample(&s), 1);
    EXPECT_EQ(s.ternIndex, ternIndex);
    EXPECT_EQ(s.size(), 4);
    EXPECT_LT(fabs(in.tt_to_secs(static_cast<long>(s.tt)) - static_cast<double>(time(nullptr))), 60.0);
    inRow = chans.count(s.chan) ? inRow + 1 : 0;
  }
}

TEST(IngestInput, StreamAndDatagramConnections) {
  HERON_REQUIRE_RPCBIND();
  for (int socketType : {1, 2}) {
    SCOPED_TRACE(socketType);
    const int number = heron_test::testSystemNumber();
    heron_test::TestIngestServer server(number);
    ASSERT_TRUE(server.ok()) << server.error();
    ChanBits bits;
    bits.Set(std::vector<int>{3, 200});
    IngestRawDataInput in("tern1", number, heron_test::kLoopback, bits, socketType);
    EXPECT_STREQ(in.getName(), "tern1@127.0.0.1");
    expectChannels(in, {3, 200}, 20, number);
    ChanBits next;
    next.Set(9);
    in.resetChannels(next);
    expectChannels(in, {9}, 10, number);
  }
}

}  // namespace
