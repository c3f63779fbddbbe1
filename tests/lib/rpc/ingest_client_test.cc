// The ingest client through the real rpcbind, against Ingest's own service
// (run in this process) and the ingest server's failure modes: the whole
// connection cycle on both socket kinds, through the library's ingest
// input; each failure code once, and the messages the operators see.
#include <errno.h>
#include <gtest/gtest.h>
#include <math.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>
#include <string>

#include "base/Exception.h"
#include "base/logit.h"
#include "rpc/chan_subs.h"
#include "rpc/getTernServerEnvVar.h"
#include "rpc/ingest_client.h"
#include "samples/StreamInputs.h"
#include "support/live_service.h"
#include "support/rpc_fixture.h"
#include "support/thrown.h"

namespace {

using heron_test::kLoopback;

long openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

struct Mask {
  uint32_t words[CHAN_MASK_WORDS] = {};
  explicit Mask(std::set<int> chans) { for (int c : chans) set_channel(words, c); }
};

// The channel of the first raw sample (6-byte header, 4 data bytes) on a
// data connection, or -1 when none comes within 10 s.
int firstChannel(int fd) {
  struct pollfd p = {fd, POLLIN, 0};
  unsigned char b[10];
  return poll(&p, 1, 10000) == 1 && recv(fd, b, sizeof b, MSG_WAITALL) == 10 && b[5] == 4 ? b[4] : -1;
}

// Reads until n samples in a row are of the channels given (samples of the
// channels asked for before may still be on their way); each is whole, of
// this station and stamped within a minute of now.
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

std::string perrorText(const char* tern, int code) {
  testing::internal::CaptureStderr();
  ingest_perror(tern, "s", code);
  return testing::internal::GetCapturedStderr();
}

class IngestClient : public ::testing::Test {
 protected:
  void SetUp() override {
    syslogit = 0;  // messages to standard error, where the tests read them
    HERON_REQUIRE_RPCBIND();
  }
  void TearDown() override { EXPECT_EQ(openDescriptors(), fdsBefore_) << "descriptor left open"; }

  ingest_connect* connect(std::set<int> chans, int dgram, int* err) {
    return call_ingest_server("tern1", number_, kLoopback, Mask(chans).words, dgram, err);
  }
  // A connect that must fail: its code; what it printed is in log_.
  int connectFails(std::set<int> chans, int dgram = 0) {
    int err = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(connect(chans, dgram, &err), nullptr);
    log_ = testing::internal::GetCapturedStderr();
    return err;
  }

  int number_ = heron_test::testSystemNumber();
  unsigned long prog_ = INGEST_PROG + static_cast<unsigned long>(number_);
  long fdsBefore_ = openDescriptors();
  std::string log_;
};

// Data come on a socket of the kind asked for, of the channels asked for
// and then of the channels changed to; once the input is gone, the service
// serves it no more.
TEST_F(IngestClient, ConnectionCycle) {
  heron_test::LiveService service(number_);
  for (int socketType : {1, 2}) {
    SCOPED_TRACE(socketType);
    ChanBits bits;
    bits.Set(std::vector<int>{1, 40, 255});
    auto in = std::make_unique<IngestRawDataInput>("tern1", number_, kLoopback, bits, socketType);
    EXPECT_STREQ(in->getName(), "tern1@127.0.0.1");
    int type = 0;
    socklen_t len = sizeof type;
    ASSERT_EQ(getsockopt(in->getFD(), SOL_SOCKET, SO_TYPE, &type, &len), 0);
    EXPECT_EQ(type, socketType == 2 ? SOCK_DGRAM : SOCK_STREAM);  // the accepted stream, not the listener
    expectChannels(*in, {1, 40, 255}, 20, number_);
    ChanBits next;
    next.Set(7);
    in->resetChannels(next);
    expectChannels(*in, {7}, 10, number_);
    EXPECT_EQ(service.clients(), 1u);
    in.reset();
    EXPECT_EQ(service.clients(), 0u) << "still served after the disconnect";
  }
}

// In a UTS namespace of its own a child takes a host name that no resolver
// knows; it still connects, announcing the bare name.
TEST_F(IngestClient, UnresolvableOwnNameIsAnnouncedBare) {
  heron_test::LiveService service(number_);
  const char* bare = "heron-unresolvable.invalid";
  pid_t pid;
  {
    auto held = service.hold();  // the child gets no library lock half-taken
    pid = fork();
  }
  if (pid == 0) {
    if (unshare(CLONE_NEWUTS) != 0 || sethostname(bare, strlen(bare)) != 0) _exit(77);
    int err = 0;
    ingest_connect* igp = connect({4}, 0, &err);
    _exit(igp == nullptr ? 1 : strcmp(igp->param.name, bare) != 0 ? 2 : firstChannel(igp->socketfd) != 4 ? 3 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no UTS namespace here";
  EXPECT_EQ(status, 0) << "1: no connection, 2: wrong name, 3: no data";
}

TEST_F(IngestClient, EachFailureCode) {
  EXPECT_EQ(connectFails({}), INGEST_ERR_NO_CHANNELS);
  EXPECT_EQ(connectFails({3}), INGEST_ERR_CONNECT);
  EXPECT_EQ(log_, "127.0.0.1 ingest: RPC: Program not registered\n");

  // A handle whose server is not there: disconnect and reset fail, and the
  // handle still takes the new mask.
  ingest_connect igp = {};
  igp.socketfd = -1;
  testing::internal::CaptureStderr();
  EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, &igp), INGEST_ERR_DISCONNECT);
  EXPECT_EQ(reset_ingest_connection("tern1", number_, kLoopback, &igp, Mask({9}).words), INGEST_ERR_RESET);
  // A server that crashed leaves its registration behind and its port
  // refuses: the data connection went with it, so disconnecting succeeds.
  heron_test::FaultyServer crashed(prog_, "hangup");
  EXPECT_TRUE(crashed.ok()) << crashed.error();
  crashed.crash();
  EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, &igp), 0);
  heron_test::withdrawProgram(prog_);
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(igp.param.channels.channels_len, 8u);
  EXPECT_EQ(next_channel(igp.param.channels.channels_val), 9);
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&igp.param));

  // Waits out the fixed five seconds for the connection back.
  heron_test::FaultyServer mute(prog_, "mute");
  ASSERT_TRUE(mute.ok()) << mute.error();
  EXPECT_EQ(connectFails({3}), INGEST_ERR_SYSTEM);
  EXPECT_EQ(perrorText("tern1", INGEST_ERR_SYSTEM), "ingest tern1@s: Connection timed out\n");
}

// Whatever a server sends, a call ends within its time-out, 5 s for the
// ingest server and 25 s for the module server (hugestring), and less than
// one more time-out: 3 s of slack for a loaded machine still catch a call
// that waits twice.
TEST_F(IngestClient, EveryCallEndsInTime) {
  const std::string timedOut = "-6 INGEST_CONNECT failed: RPC: Timed out\n";
  const struct {
    const char* mode;
    std::string want;
  } cases[] = {
      {"hangup", "-6 INGEST_CONNECT failed: RPC: Unable to receive; errno = Connection reset by peer\n"},
      {"truncated", "-6 INGEST_CONNECT failed: RPC: Can't decode result\n"},
      {"garbage", timedOut},
      {"trickle", timedOut},
      {"stale", timedOut},
      {"stranger", "0 channel 3"},  // hung up on; the server's own connection is taken
      {"hugestring", "IOException: ternserver rpc connection: 127.0.0.1: 127.0.0.1: RPC: Can't decode result"},
  };
  setenv("CONFIG_SERVER", kLoopback, 1);
  for (const auto& c : cases) {
    const bool module = c.mode == std::string("hugestring");
    heron_test::FaultyServer server(module ? heron_test::kModuleServerProgram : prog_, c.mode);
    ASSERT_TRUE(server.ok()) << server.error();
    const auto start = std::chrono::steady_clock::now();
    std::string got;
    if (module) {
      got = thrownText<oru::IOException>([] { getTernServerEnvVar("PROJECT"); });
    } else {
      int err = 0;
      testing::internal::CaptureStderr();
      ingest_connect* igp = connect({3}, 0, &err);
      got = std::to_string(err) + " " + testing::internal::GetCapturedStderr();
      if (igp != nullptr) got += "channel " + std::to_string(firstChannel(igp->socketfd));
      if (igp != nullptr) close(igp->socketfd);
      free_ingest_connect(igp);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(got, c.want) << c.mode;
    EXPECT_LT(took.count(), module ? 28.0 : 8.0) << c.mode;
  }
}

TEST(IngestPerror, MessagesAndTheirBounds) {
  EXPECT_EQ(perrorText("t", INGEST_ERR_RESET), "t@s: can't reset connection with ingestor\n");
  EXPECT_EQ(perrorText("t", 0) + perrorText("t", -9), "");
  errno = ENOMEM;  // the prefix is cut to its 99 characters
  EXPECT_EQ(perrorText(std::string(200, 'x').c_str(), -1),
            "ingest " + std::string(92, 'x') + ": Cannot allocate memory\n");
}

}  // namespace
