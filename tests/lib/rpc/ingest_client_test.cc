#include "rpc/ingest_client.h"

#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "rpc/chan_subs.h"
#include "support/rpc_fixture.h"
#include "base/logit.h"
#include "rpc/rpc_client.h"

namespace {

using heron_test::kLoopback;

int openDescriptors() {
  int n = 0;
  DIR* d = opendir("/proc/self/fd");
  if (d == nullptr) return -1;
  while (readdir(d) != nullptr) ++n;
  closedir(d);
  return n;
}

struct Mask {
  uint32_t words[CHAN_MASK_WORDS] = {};
  explicit Mask(std::vector<int> chans = {}) {
    for (int c : chans) set_channel(words, c);
  }
};

struct RawSampleSeen {
  uint32_t tt;
  int chan;
  int len;
};

// Reads raw samples (6-byte header, then data) from a data connection.  The
// poll time-out only guards against a hang; the test servers send every 20 ms.
class SampleReader {
 public:
  SampleReader(int fd, bool dgram) : fd_(fd), dgram_(dgram) {}

  // The next sample, or false at end of stream or when nothing comes at all.
  bool next(RawSampleSeen* s) {
    while (buf_.size() < 6 || buf_.size() < 6u + static_cast<unsigned char>(buf_[5])) {
      if (dgram_ && !buf_.empty()) {
        ADD_FAILURE() << "a datagram ended inside a sample";
        return false;
      }
      struct pollfd p = {fd_, POLLIN, 0};
      char chunk[4096];
      const ssize_t got = poll(&p, 1, 10000) == 1 ? recv(fd_, chunk, sizeof chunk, 0) : 0;
      if (got <= 0) return false;
      buf_.append(chunk, static_cast<size_t>(got));
    }
    const unsigned char* h = reinterpret_cast<const unsigned char*>(buf_.data());
    *s = {static_cast<uint32_t>(h[0]) << 24 | static_cast<uint32_t>(h[1]) << 16 | static_cast<uint32_t>(h[2]) << 8 | h[3],
          h[4], h[5]};
    buf_.erase(0, 6u + h[5]);
    return true;
  }

 private:
  int fd_;
  bool dgram_;
  std::string buf_;
};

// What ingest_perror prints for a code.
std::string perrorText(const char* tern, const char* server, int code) {
  testing::internal::CaptureStderr();
  ingest_perror(tern, server, code);
  return testing::internal::GetCapturedStderr();
}

// Every sample read carries 4 data bytes and a time tag of the day.
void expectChannels(SampleReader& r, int count, const std::set<int>& allowed) {
  for (int i = 0; i < count; ++i) {
    RawSampleSeen s;
    ASSERT_TRUE(r.next(&s)) << "sample " << i;
    EXPECT_EQ(allowed.count(s.chan), 1u) << "channel " << s.chan;
    EXPECT_EQ(s.len, 4);
    EXPECT_LT(s.tt, 86400000u);
  }
}

// After a reset to `wanted`, samples of the old channels may still be in
// flight; once a wanted one arrives, only wanted ones follow.
void expectSwitchTo(SampleReader& r, const std::set<int>& wanted) {
  RawSampleSeen s;
  int skipped = 0;
  do {
    ASSERT_TRUE(r.next(&s));
    ASSERT_LT(++skipped, 10000) << "the new channels never came";
  } while (wanted.count(s.chan) == 0);
  expectChannels(r, 20, wanted);
}

class IngestClient : public ::testing::Test {
 protected:
  void SetUp() override {
    syslogit = 0;  // messages to standard error, where the tests read them
    number_ = heron_test::testSystemNumber();
    fdsBefore_ = openDescriptors();
  }
  void TearDown() override { EXPECT_EQ(openDescriptors(), fdsBefore_) << "descriptor left open"; }

  ingest_connect* connect(const Mask& mask, int dgram, int* err) {
    return call_ingest_server("tern1", number_, kLoopback, mask.words, dgram, err);
  }

  // A connect that must fail: returns its code; what it printed is in log_.
  int connectFails(std::vector<int> chans, int dgram = 0) {
    int err = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(connect(Mask(chans), dgram, &err), nullptr);
    log_ = testing::internal::GetCapturedStderr();
    return err;
  }

  // Runs a full connect, stream, reset, disconnect cycle.
  void cycle(bool dgram) {
    heron_test::TestIngestServer server(number_);
    ASSERT_TRUE(server.ok()) << server.error();
    Mask mask({1, 40, 255});
    int err = 99;
    ingest_connect* igp = connect(mask, dgram, &err);
    ASSERT_NE(igp, nullptr);
    EXPECT_EQ(err, 0);
    EXPECT_NE(igp->param.s_port, 0);
    EXPECT_EQ(igp->param.sock_is_dgram, dgram ? 1 : 0);
    ASSERT_EQ(igp->param.channels.channels_len, 8u);
    EXPECT_EQ(memcmp(igp->param.channels.channels_val, mask.words, sizeof mask.words), 0);
    int type = 0, listening = 1;
    socklen_t len = sizeof type;
    ASSERT_EQ(getsockopt(igp->socketfd, SOL_SOCKET, SO_TYPE, &type, &len), 0);
    ASSERT_EQ(getsockopt(igp->socketfd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &len), 0);
    EXPECT_EQ(type, dgram ? SOCK_DGRAM : SOCK_STREAM);
    EXPECT_EQ(listening, 0);

    SampleReader reader(igp->socketfd, dgram);
    expectChannels(reader, 30, {1, 40, 255});
    Mask next({7});
    EXPECT_EQ(reset_ingest_connection("tern1", number_, kLoopback, igp, next.words), 0);
    EXPECT_EQ(memcmp(igp->param.channels.channels_val, next.words, sizeof next.words), 0);
    expectSwitchTo(reader, {7});

    EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, igp), 0);
    RawSampleSeen s;
    for (int left = 100000; !dgram && reader.next(&s);) ASSERT_GT(--left, 0) << "the server kept the stream open";
    close(igp->socketfd);
    free_ingest_connect(igp);
  }

  int number_ = 0;
  int fdsBefore_ = 0;
  std::string log_;
};

TEST_F(IngestClient, StreamConnectionCycle) { cycle(false); }

TEST_F(IngestClient, DatagramConnectionCycle) { cycle(true); }

// In a UTS namespace of its own a child process takes a host name that no
// resolver knows; it must still connect, announcing the bare name.
TEST_F(IngestClient, UnresolvableOwnNameIsAnnouncedBare) {
  heron_test::TestIngestServer server(number_);
  ASSERT_TRUE(server.ok()) << server.error();
  const char* bare = "heron-unresolvable.invalid";
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (unshare(CLONE_NEWUTS) != 0 || sethostname(bare, strlen(bare)) != 0) _exit(77);
    int err = 0;
    ingest_connect* igp = connect(Mask({4}), 0, &err);
    if (igp == nullptr) _exit(1);
    if (strcmp(igp->param.name, bare) != 0) _exit(2);
    RawSampleSeen s;
    if (!SampleReader(igp->socketfd, false).next(&s) || s.chan != 4) _exit(3);
    _exit(quit_ingest_server("tern1", number_, kLoopback, igp) != 0 ? 4 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no UTS namespace here";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: no connection, 2: wrong name, 3: no data, 4: no disconnect";
}

TEST_F(IngestClient, EmptyMaskFailsBeforeAnySocket) { EXPECT_EQ(connectFails({}), INGEST_ERR_NO_CHANNELS); }

TEST_F(IngestClient, NoServerRegistered) {
  ASSERT_EQ(heron_test::ensureRpcbind(), "");
  EXPECT_EQ(connectFails({3}), INGEST_ERR_CONNECT);
  EXPECT_EQ(log_, "127.0.0.1 ingest: RPC: Program not registered\n");

  // A handle whose server is not there: disconnect and reset fail, and the
  // reset still leaves the new mask in the handle.
  ingest_connect igp = {};
  igp.socketfd = -1;
  Mask next({9, 10});
  testing::internal::CaptureStderr();
  EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, &igp), INGEST_ERR_DISCONNECT);
  EXPECT_EQ(reset_ingest_connection("tern1", number_, kLoopback, &igp, next.words), INGEST_ERR_RESET);
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(igp.param.channels.channels_len, 8u);
  EXPECT_EQ(memcmp(igp.param.channels.channels_val, next.words, sizeof next.words), 0);
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&igp.param));
}

TEST_F(IngestClient, DisconnectFromVanishedServerSucceeds) {
  heron_test::TestIngestServer server(number_);
  ASSERT_TRUE(server.ok()) << server.error();
  int err = 0;
  ingest_connect* igp = connect(Mask({2}), 0, &err);
  ASSERT_NE(igp, nullptr);
  server.crash();  // its registration stays behind, its port refuses
  testing::internal::CaptureStderr();
  EXPECT_EQ(quit_ingest_server("tern1", number_, kLoopback, igp), 0);
  testing::internal::GetCapturedStderr();
  heron_test::withdrawProgram(INGEST_PROG + static_cast<unsigned long>(number_));
  close(igp->socketfd);
  free_ingest_connect(igp);
}

// A garbage reply waits out the fixed five-second limit.
TEST_F(IngestClient, BrokenRepliesFailTheConnect) {
  for (const char* mode : {"hangup", "truncated", "garbage"}) {
    heron_test::JunkServer junk(INGEST_PROG + static_cast<unsigned long>(number_), mode);
    ASSERT_TRUE(junk.ok()) << junk.error();
    const bool garbage = strcmp(mode, "garbage") == 0;
    EXPECT_EQ(connectFails({3}, garbage), INGEST_ERR_CONNECT) << mode;
    if (garbage) {
      EXPECT_EQ(log_, "INGEST_CONNECT failed: RPC: Timed out\n");
    } else {
      EXPECT_EQ(log_.rfind("INGEST_CONNECT failed: RPC: ", 0), 0u) << log_;
    }
  }
}

// Waits out the fixed five-second limit for the connection back.
TEST_F(IngestClient, ServerThatNeverConnectsBack) {
  heron_test::TestIngestServer server(number_, {"--no-connect-back"});
  ASSERT_TRUE(server.ok()) << server.error();
  EXPECT_EQ(connectFails({3}), INGEST_ERR_SYSTEM);
  EXPECT_EQ(perrorText("tern1", kLoopback, INGEST_ERR_SYSTEM), "ingest tern1@127.0.0.1: Connection timed out\n");
}

TEST(IngestPerror, PrintsEachCodesMessage) {
  struct Case {
    int code;
    const char* text;
  } cases[] = {
      {-2, "t@s: no channels specified\n"},
      {-3, "cannot find address of localhost\n"},
      {-4, "s: no such server\n"},
      {-5, "t: no such tern\n"},
      {-6, "t@s: can't connect to ingestor\n"},
      {-7, "t@s: can't disconnect from ingestor\n"},
      {-8, "t@s: can't reset connection with ingestor\n"},
      {0, ""},
      {-9, ""},
      {1, ""},
  };
  for (const Case& c : cases) EXPECT_EQ(perrorText("t", "s", c.code), c.text) << c.code;
  errno = ENOMEM;
  // The prefix is cut to its 99 characters, then the system's text.
  EXPECT_EQ(perrorText(std::string(200, 'x').c_str(), "s", -1), "ingest " + std::string(92, 'x') + ": Cannot allocate memory\n");
}

}  // namespace
