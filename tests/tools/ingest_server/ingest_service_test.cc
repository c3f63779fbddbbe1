// Ingest's service under attack, in process: an IngestService registered
// with the test rpcbind and served by a thread of this test on a clock the
// test moves, called by real RPC clients and raw sockets from loopback
// addresses of their choosing (127.0.0.2 plays another host).
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <rpc/pmap_clnt.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "IngestService.h"
#include "support/live_service.h"
#include "support/rpc_fixture.h"

namespace {

using heron_test::loopback;

bool_t xdrVoid(XDR*, void*) { return TRUE; }
const struct timeval kPatience = {2, 0};  // a call held up by another caller fails

bool waitFor(int fd, short events, int ms = 5000) {
  struct pollfd p = {fd, events, 0};
  return poll(&p, 1, ms) == 1;
}

// True once the peer has closed fd (within 5 s).
bool closedByPeer(int fd) {
  char c;
  return waitFor(fd, POLLIN) && recv(fd, &c, 1, MSG_DONTWAIT) <= 0;
}

class Service : public ::testing::Test {
 protected:
  void SetUp() override {
    HERON_REQUIRE_RPCBIND();
    signal(SIGPIPE, SIG_IGN);  // as Ingest has it
    AllowList hosts;  // 127.0.0.1 to .3, not the stranger at 127.0.0.4
    hosts.nets = {{0x7f000000, 0xfffffffc}};
    service_.reset(new heron_test::LiveService(number_, hosts, [this] { return heron::monotonicSeconds() + skew_; }, false));
    struct sockaddr_in rpcbind = loopback(heron_test::kLoopback, 0);
    ASSERT_NE(port_ = pmap_getport(&rpcbind, INGEST_PROG + number_, INGEST_VERS, IPPROTO_TCP), 0);
  }
  size_t clients() { return service_->clients(); }
  // A TCP connection to the service from `from`.
  int dial(const char* from) {
    const int fd = heron_test::dialFrom(from, port_);
    EXPECT_GE(fd, 0) << from;
    return fd;
  }
  // An RPC client of the service calling from `from`.
  CLIENT* client(const char* from) {
    struct sockaddr_in it = loopback(heron_test::kLoopback, port_);
    struct netbuf nb = {sizeof it, sizeof it, &it};
    CLIENT* c = clnt_vc_create(dial(from), &nb, INGEST_PROG + number_, INGEST_VERS, 0, 0);
    if (c != nullptr) clnt_control(c, CLSET_FD_CLOSE, nullptr);
    return c;
  }
  // The result of proc for a data socket at `port`, or -100 when the call failed.
  int call(const char* from, rpcproc_t proc, unsigned short port, const char* name, bool dgram) {
    CLIENT* c = client(from);
    if (c == nullptr) return -100;
    u_int mask[8] = {2};
    connect_t p = {port, const_cast<char*>(name), {8, mask}, dgram};
    int result = -100;
    if (clnt_call(c, proc, reinterpret_cast<xdrproc_t>(xdr_connect_t), reinterpret_cast<char*>(&p),
                  reinterpret_cast<xdrproc_t>(xdr_int), reinterpret_cast<char*>(&result), kPatience) != RPC_SUCCESS)
      result = -100;
    clnt_destroy(c);
    return result;
  }
  static bool nullCall(CLIENT* c) {
    return c != nullptr && clnt_call(c, NULLPROC, reinterpret_cast<xdrproc_t>(xdrVoid), nullptr,
                                     reinterpret_cast<xdrproc_t>(xdrVoid), nullptr, kPatience) == RPC_SUCCESS;
  }

  const int number_ = heron_test::testSystemNumber();
  std::atomic<double> skew_{0};  // seconds the service's clock is ahead
  std::unique_ptr<heron_test::LiveService> service_;
  unsigned short port_ = 0;
};

// A caller that dribbles a call holds nothing: others are served meanwhile,
// its call is answered once whole, and a call left half-sent or a
// connection left idle is closed at its bound.
TEST_F(Service, SlowCallersHoldNothing) {
  std::string call(44, '\0');
  const uint32_t words[] = {0x80000028, 7, 0, 2, static_cast<uint32_t>(INGEST_PROG + number_), 1, 0};
  for (size_t k = 0; k < 7; ++k) reinterpret_cast<uint32_t*>(&call[0])[k] = htonl(words[k]);
  const int slow = dial("127.0.0.1"), stalled = dial("127.0.0.1");
  for (int fd : {slow, stalled}) ASSERT_EQ(send(fd, call.data(), 8, 0), 8);
  CLIENT* other = client("127.0.0.1");
  EXPECT_TRUE(nullCall(other));
  ASSERT_EQ(send(slow, call.data() + 8, call.size() - 8, 0), static_cast<ssize_t>(call.size() - 8));
  char reply[64];
  EXPECT_TRUE(waitFor(slow, POLLIN) && recv(slow, reply, sizeof reply, 0) == 28);  // accepted, success
  skew_ = IngestService::kCallSeconds + 1;
  EXPECT_TRUE(closedByPeer(stalled));
  int fd = -1;
  clnt_control(other, CLGET_FD, reinterpret_cast<char*>(&fd));
  EXPECT_FALSE(waitFor(fd, POLLIN, 0)) << "an idle connection closed before its bound";
  skew_ = IngestService::kIdleSeconds + 1;
  EXPECT_TRUE(closedByPeer(fd));
  clnt_destroy(other);
  close(slow);
  close(stalled);
}

// Data go only to the caller's address, whatever name it announces (and
// no name is looked up); only the caller's address may end them; a caller
// not on the allow-list is not served at all.
TEST_F(Service, DataGoOnlyToTheCaller) {
  int data = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in at = loopback("127.0.0.2", 0);
  socklen_t len = sizeof at;
  ASSERT_EQ(bind(data, reinterpret_cast<struct sockaddr*>(&at), sizeof at), 0);
  ASSERT_EQ(listen(data, 1), 0);
  ASSERT_EQ(getsockname(data, reinterpret_cast<struct sockaddr*>(&at), &len), 0);
  const unsigned short port = ntohs(at.sin_port);
  EXPECT_EQ(call("127.0.0.1", INGEST_CONNECT, port, "127.0.0.2", false), -1);
  EXPECT_EQ(clients(), 0u);
  EXPECT_EQ(call("127.0.0.2", INGEST_CONNECT, port, "localhost", false), 0);  // localhost is 127.0.0.1
  ASSERT_TRUE(waitFor(data, POLLIN));
  for (rpcproc_t proc : {INGEST_DISCONNECT, INGEST_RESET_CONNECT})
    EXPECT_EQ(call("127.0.0.3", proc, port, "localhost", false), -1) << proc;
  EXPECT_EQ(clients(), 1u);
  EXPECT_EQ(call("127.0.0.2", INGEST_DISCONNECT, port, "localhost", false), 0);
  EXPECT_EQ(clients(), 0u);
  close(data);
  CLIENT* stranger = client("127.0.0.4");  // not on the allow-list
  EXPECT_FALSE(nullCall(stranger));
  clnt_destroy(stranger);
}

// A datagram destination lives ten minutes from its last renewal, and the
// destinations are bounded.
TEST_F(Service, DatagramDestinationsExpireAndAreBounded) {
  const double lease = IngestService::kLeaseSeconds;
  EXPECT_EQ(call("127.0.0.1", INGEST_CONNECT, 9, "here", true), 0);
  skew_ = lease - 60;
  EXPECT_EQ(call("127.0.0.1", INGEST_RESET_CONNECT, 9, "here", true), 0);
  skew_ = 2 * lease - 120;
  EXPECT_EQ(clients(), 1u);
  skew_ = 2 * lease;
  for (int k = 0; k < 250 && clients() != 0; ++k) usleep(20000);
  EXPECT_EQ(clients(), 0u) << "not expired";
  for (unsigned short port = 1; port <= IngestService::kMaxClients; ++port)
    ASSERT_EQ(call("127.0.0.1", INGEST_CONNECT, port, "here", true), 0);
  EXPECT_EQ(call("127.0.0.1", INGEST_CONNECT, 1000, "here", true), -1);
  EXPECT_EQ(call("127.0.0.1", INGEST_CONNECT, 1, "here", true), 0) << "a renewal is no new destination";
}

// Out of descriptors, a caller waiting at the listener costs no CPU, and is
// served once descriptors are free again.
TEST_F(Service, OutOfDescriptorsDoesNotSpin) {
  struct rlimit was;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &was), 0);
  int caller = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int top = dup(0);
  struct rlimit low = {static_cast<rlim_t>(top + 8), was.rlim_max};
  close(top);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
  std::vector<int> filler;
  for (int fd; (fd = eventfd(0, EFD_CLOEXEC)) >= 0;) filler.push_back(fd);
  struct sockaddr_in it = loopback(heron_test::kLoopback, port_);
  ASSERT_EQ(connect(caller, reinterpret_cast<struct sockaddr*>(&it), sizeof it), 0);
  struct timespec before, after;  // CPU time over a window, not a wait for anything
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
  usleep(1000000);
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
  for (int fd : filler) close(fd);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &was), 0);
  EXPECT_LT(after.tv_sec - before.tv_sec + 1e-9 * (after.tv_nsec - before.tv_nsec), 0.2) << "s of CPU in 1 s";
  CLIENT* c = client("127.0.0.1");
  EXPECT_TRUE(nullCall(c));
  clnt_destroy(c);
  close(caller);
}

TEST(AllowListFile, ParsesNetworksAndReportsEachFault) {
  const std::string path = testing::TempDir() + "ingest.allow." + std::to_string(getpid());
  std::ofstream(path) << "# the lab\n192.168.4.0/24\n  10.1.2.3  # the logger\n\n10.0.0.1/8\n300.1.1.1\n"
                         "1.2.3.4 5.6.7.8\n1.2.3.0/33\n0.0.0.0/0x\n";
  std::vector<std::string> faults;
  const AllowList list = readAllowList(path, faults);
  const std::string at = path + ":";
  EXPECT_EQ(faults, (std::vector<std::string>{
                        at + "5: '10.0.0.1/8' has bits set beyond its prefix length; did you mean the network 10.0.0.0/8?",
                        at + "6: '300.1.1.1' is not an IPv4 address (a.b.c.d)", at + "7: one address or network per line",
                        at + "8: '33' is not a prefix length from 0 to 32", at + "9: '0x' is not a prefix length from 0 to 32"}));
  for (const char* a : {"127.4.5.6", "192.168.4.200", "10.1.2.3", "!192.168.5.1", "!10.1.2.4"})
    EXPECT_EQ(list.allows(ntohl(inet_addr(a + (*a == '!')))), *a != '!') << a;
  unlink(path.c_str());
  faults.clear();
  EXPECT_EQ(readAllowList(path, faults).nets.size(), 1u);  // absent: loopback alone
  EXPECT_TRUE(faults.empty());
}

}  // namespace
