// The ingest client against the test ingest server through the real
// rpcbind: whole connection cycles on both socket kinds, each failure code
// once, and the messages the operators see.
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>

#include "base/Exception.h"
#include "base/logit.h"
#include "rpc/chan_subs.h"
#include "rpc/getTernServerEnvVar.h"
#include "rpc/ingest_client.h"
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

// The channel of the next raw sample (6-byte header, 4 data bytes) on a data
// connection, or -1 at its end.  The poll time-out only guards against a
// hang: the test server sends every 20 ms.
int nextChannel(int fd, std::string& buf) {
  while (buf.size() < 10) {
    struct pollfd p = {fd, POLLIN, 0};
    char chunk[4096];
    const ssize_t got = poll(&p, 1, 10000) == 1 ? recv(fd, chunk, sizeof chunk, 0) : 0;
    if (got <= 0) return -1;
    buf.append(chunk, static_cast<size_t>(got));
  }
  EXPECT_EQ(buf[5], 4);
  const int chan = static_cast<unsigned char>(buf[4]);
  buf.erase(0, 10);
  return chan;
}

// After a change of channels, samples of the old ones may still be in
// flight; once a wanted one arrives, only wanted ones follow.
void expectSwitchTo(int fd, std::string& buf, const std::set<int>& wanted) {
  int chan, skipped = 0;
  while (wanted.count(chan = nextChannel(fd, buf)) == 0) ASSERT_LT(++skipped, 1000) << chan;
  for (int i = 0; i < 20; ++i) ASSERT_EQ(wanted.count(nextChannel(fd, buf)), 1u);
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

  void cycle(int dgram) {
    heron_test::TestIngestServer server(number_);
    ASSERT_TRUE(server.ok()) << server.error();
    int err = 99, type = 0;
    ingest_connect* igp = connect({1, 40, 255}, dgram, &err);
    ASSERT_NE(igp, nullptr);
    EXPECT_EQ(err, 0);
    socklen_t len = sizeof type;
    ASSERT_EQ(getsockopt(igp->socketfd, SOL_SOCKET, SO_TYPE, &type, &len), 0);
    EXPECT_EQ(type, dgram ? SOCK_DGRAM : SOCK_STREAM);  // the accepted stream, not the listener
    std::string buf;
    expectSwitchTo(igp->socketfd, buf, {1, 40, 255});
    EXPECT_EQ(reset_ingest_connection("tern1", number_, kLoopback, igp, Mask({7}).words), 0);
    expectSwitchTo(igp->socketfd, buf, {7});
    EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, igp), 0);
    if (!dgram) {
      int left = 100000;
      while (nextChannel(igp->socketfd, buf) >= 0) ASSERT_GT(--left, 0) << "the server kept the stream open";
    }
    close(igp->socketfd);
    free_ingest_connect(igp);
  }

  int number_ = heron_test::testSystemNumber();
  long fdsBefore_ = openDescriptors();
  std::string log_;
};

TEST_F(IngestClient, StreamConnectionCycle) { cycle(0); }
TEST_F(IngestClient, DatagramConnectionCycle) { cycle(1); }

// In a UTS namespace of its own a child takes a host name that no resolver
// knows; it still connects, announcing the bare name.
TEST_F(IngestClient, UnresolvableOwnNameIsAnnouncedBare) {
  heron_test::TestIngestServer server(number_);
  ASSERT_TRUE(server.ok()) << server.error();
  const char* bare = "heron-unresolvable.invalid";
  pid_t pid = fork();
  if (pid == 0) {
    if (unshare(CLONE_NEWUTS) != 0 || sethostname(bare, strlen(bare)) != 0) _exit(77);
    int err = 0;
    ingest_connect* igp = connect({4}, 0, &err);
    std::string buf;
    _exit(igp == nullptr ? 1 : strcmp(igp->param.name, bare) != 0 ? 2 : nextChannel(igp->socketfd, buf) != 4 ? 3 : 0);
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
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(igp.param.channels.channels_len, 8u);
  EXPECT_EQ(next_channel(igp.param.channels.channels_val), 9);
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&igp.param));

  // Waits out the fixed five seconds for the connection back.
  heron_test::TestIngestServer mute(number_, {"--no-connect-back"});
  ASSERT_TRUE(mute.ok()) << mute.error();
  EXPECT_EQ(connectFails({3}), INGEST_ERR_SYSTEM);
  EXPECT_EQ(perrorText("tern1", INGEST_ERR_SYSTEM), "ingest tern1@s: Connection timed out\n");
}

TEST_F(IngestClient, DisconnectFromVanishedServerSucceeds) {
  heron_test::TestIngestServer server(number_);
  ASSERT_TRUE(server.ok()) << server.error();
  int err = 0;
  ingest_connect* igp = connect({2}, 0, &err);
  ASSERT_NE(igp, nullptr);
  server.crash();  // its registration stays behind, its port refuses
  testing::internal::CaptureStderr();
  EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, igp), 0);
  testing::internal::GetCapturedStderr();
  heron_test::withdrawProgram(INGEST_PROG + static_cast<unsigned long>(number_));
  close(igp->socketfd);
  free_ingest_connect(igp);
}

// Whatever a server sends, a call ends within its time-out and a second:
// 5 s for the ingest server, 25 s for the module server (hugestring).
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
    const bool module = c.mode == std::string("hugestring"), stranger = c.mode == std::string("stranger");
    const unsigned long prog = module ? heron_test::kModuleServerProgram : INGEST_PROG + static_cast<unsigned long>(number_);
    heron_test::ServerProcess server(heron_test::testProgramPath("ingest_test_server"),
                                     {std::to_string(stranger ? number_ : prog), stranger ? "--stranger" : std::string("--reply=") + c.mode});
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
      std::string buf;
      if (igp != nullptr) got += "channel " + std::to_string(nextChannel(igp->socketfd, buf));
      if (igp != nullptr) close(igp->socketfd);
      free_ingest_connect(igp);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(got, c.want) << c.mode;
    EXPECT_LT(took.count(), module ? 26.0 : 6.0) << c.mode;
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
