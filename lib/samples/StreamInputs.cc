#include "samples/StreamInputs.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <memory>

#include "base/Exception.h"
#include "base/fatal.h"
#include "base/logit.h"
#include "rpc/chan_subs.h"
#include "rpc/ingest_client.h"
#include "base/clock.h"

namespace {
// The socket of a datagram connection, read with its lease renewed every
// kRenewMs (INGEST_RESET_CONNECT with the channels it has): before a read
// when due, and while a read that may wait has nothing to take.
class LeaseSource : public ByteSource {
 public:
  static const long long kRenewMs = 300000;
  LeaseSource(const int& fd, std::function<void()> renew)
      : fd_(fd), renew_(std::move(renew)), due_(heron::monotonicMs() + kRenewMs) {}
  long read(char* p, size_t n) override {
    const int flags = fcntl(fd_, F_GETFL);
    if (flags < 0) return -1;
    for (;;) {
      const long long now = heron::monotonicMs();
      if (now >= due_) {
        renew_();
        due_ = now + kRenewMs;
      }
      if (flags & O_NONBLOCK) break;
      struct pollfd pfd = {fd_, POLLIN, 0};
      const int r = poll(&pfd, 1, static_cast<int>(due_ - now));
      if (r < 0) return -1;  // EINTR included: the reader looks at its signals
      if (r > 0) break;
    }
    return static_cast<long>(::read(fd_, p, n));
  }

 private:
  const int& fd_;
  std::function<void()> renew_;
  long long due_;
};
}  // namespace

// -------------------------------------------------------- IngestRawDataInput

IngestRawDataInput::IngestRawDataInput(const char* tern, int ternIndex_, const char* ingester,
                                       const ChanBits& ingestChan, int socketType)
    : RawDataInput(-1, ternIndex_, 8192), ingestServer(ingester), igp(nullptr), ternName(tern) {
  setName(std::string(tern) + "@" + ingester);
  int err = 0;
  igp = call_ingest_server(tern, ternIndex_, ingester, ingestChan, socketType == 2, &err);
  if (igp == nullptr) {
    ingest_perror(tern, ingester, err);
    exit_status_1();
  }
  logit(LOG_INFO, "Connected to ingest %s, port=%d", getName(), static_cast<int>(igp->param.s_port));
  fd = igp->socketfd;
  if (socketType == 2) {
    framer.setDatagrams(true);
    setSource(std::unique_ptr<ByteSource>(new LeaseSource(fd, [this] {
      uint32_t words[CHAN_MASK_WORDS];  // the call copies them into the handle
      memcpy(words, igp->param.channels.channels_val, sizeof words);
      const int r = reset_ingest_connection(ternName.c_str(), ternIndex, ingestServer.c_str(), igp, words);
      if (r != 0) logit(LOG_WARNING, "%s: renewing the datagram connection failed (%d)", getName(), r);
    })));
  }
  int size = inputBufSize;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0) {
    const int e = errno;
    quit_ingest_server(ternName.c_str(), ternIndex, ingestServer.c_str(), igp);
    close(fd);
    free_ingest_connect(igp);
    throw oru::IOException(getName(), "setsockopt", e);
  }
}

IngestRawDataInput::~IngestRawDataInput() {
  const int r = quit_ingest_server(ternName.c_str(), ternIndex, ingestServer.c_str(), igp);
  if (r != 0) ingest_perror(ternName.c_str(), ingestServer.c_str(), r);
  if (close(fd) != 0) logit(LOG_WARNING, "%s: close: %m", getName());
  free_ingest_connect(igp);
}

void IngestRawDataInput::resetChannels(const ChanBits& bits) {
  const int r = reset_ingest_connection(ternName.c_str(), ternIndex, ingestServer.c_str(), igp, bits);
  if (r != 0) {
    ingest_perror(ternName.c_str(), ingestServer.c_str(), r);
    exit_status_1();
  }
}

// ---------------------------------------------------------- TernRawDataInput

TernRawDataInput::TernRawDataInput(const char* tern, int ternIndex_, int sockfd)
    : RawDataInput(sockfd, ternIndex_, 8192) {
  setName(std::string("socket to ") + tern);
  int size = inputBufSize;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0)
    throw oru::IOException(getName(), "setsockopt", errno);
}

TernRawDataInput::~TernRawDataInput() = default;

// ---------------------------------------------------- OwlFastoutRawDataInput

OwlFastoutRawDataInput::OwlFastoutRawDataInput(const char* ttyname, const char* tern, int ternIndex_, int inputfd)
    : RawDataInput(inputfd, ternIndex_, 8192) {
  setName(std::string(tern) + " (via " + ttyname + ")");
  framer.setEndOfMessage(3);
}

OwlFastoutRawDataInput::~OwlFastoutRawDataInput() = default;
