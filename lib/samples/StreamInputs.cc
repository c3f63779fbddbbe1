#include "samples/StreamInputs.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include "base/Exception.h"
#include "base/clock.h"
#include "base/fatal.h"
#include "base/logit.h"
#include "rpc/chan_subs.h"
#include "rpc/ingest_client.h"

namespace heron {

// The data socket of a connection to the ingest server, owned with the
// connection: at the end the server is told to stop sending, then the
// socket is closed and the handle freed.  The server drops a datagram
// destination that its owner does not renew within ten minutes, so a
// datagram connection renews its lease every kRenewMs (INGEST_RESET_CONNECT
// with the channels it has): before a read when due, and while a read that
// may wait has nothing to take.
class IngestSource : public DescriptorSource {
 public:
  static const long long kRenewMs = 300000;

  IngestSource(ingest_connect* igp, const char* module, int moduleIndex, const char* server, bool datagrams,
               const std::string& label)
      : DescriptorSource(igp->socketfd, kOwns, label),
        igp_(igp), module_(module), server_(server), label_(label), index_(moduleIndex), datagrams_(datagrams),
        due_(monotonicMs() + kRenewMs) {}
  ~IngestSource() override {
    const int r = quit_ingest_server(module_.c_str(), index_, server_.c_str(), igp_);
    if (r != 0) ingest_perror(module_.c_str(), server_.c_str(), r);
    release();
    free_ingest_connect(igp_);
  }

  long read(char* p, size_t n) override { return datagrams_ && !awaitLease() ? -1 : DescriptorSource::read(p, n); }

  const std::string& server() const { return server_; }
  // Changes the channels sent: 0, or the connection's error code.
  int reset(const uint32_t* channels) {
    return reset_ingest_connection(module_.c_str(), index_, server_.c_str(), igp_, channels);
  }

 private:
  // Renews the lease when due and, on a descriptor that may wait, waits
  // for data no longer than the next renewal.  False with errno set when
  // the descriptor cannot be looked at or the wait fails (EINTR included:
  // the reader looks at its signals).
  bool awaitLease() {
    const int flags = fcntl(fd(), F_GETFL);
    if (flags < 0) return false;
    for (;;) {
      const long long now = monotonicMs();
      if (now >= due_) {
        renew();
        due_ = now + kRenewMs;
      }
      if (flags & O_NONBLOCK) return true;
      struct pollfd pfd = {fd(), POLLIN, 0};
      const int r = poll(&pfd, 1, static_cast<int>(due_ - now));
      if (r < 0) return false;
      if (r > 0) return true;
    }
  }
  void renew() {
    uint32_t words[CHAN_MASK_WORDS];  // the call copies them into the handle
    memcpy(words, igp_->param.channels.channels_val, sizeof words);
    const int r = reset(words);
    if (r != 0) logit(LOG_WARNING, "%s: renewing the datagram connection failed (%d)", label_.c_str(), r);
  }

  ingest_connect* igp_;
  std::string module_, server_, label_;
  int index_;
  bool datagrams_;
  long long due_;
};

}  // namespace heron

// -------------------------------------------------------- IngestRawDataInput

IngestRawDataInput::IngestRawDataInput(const char* tern, int ternIndex_, const char* ingester,
                                       const ChanBits& ingestChan, int socketType)
    : RawDataInput(-1, ternIndex_, 8192), ternName(tern), connection(nullptr) {
  setName(std::string(tern) + "@" + ingester);
  int err = 0;
  ingest_connect* igp = call_ingest_server(tern, ternIndex_, ingester, ingestChan, socketType == 2, &err);
  if (igp == nullptr) {
    ingest_perror(tern, ingester, err);
    exit_status_1();
  }
  logit(LOG_INFO, "Connected to ingest %s, port=%d", getName(), static_cast<int>(igp->param.s_port));
  int size = inputBufSize;
  if (setsockopt(igp->socketfd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0) {
    const int e = errno;
    quit_ingest_server(tern, ternIndex, ingester, igp);
    close(igp->socketfd);
    free_ingest_connect(igp);
    throw oru::IOException(getName(), "setsockopt", e);
  }
  if (socketType == 2) framer.setDatagrams(true);
  connection = new heron::IngestSource(igp, tern, ternIndex_, ingester, socketType == 2, getName());
  setSource(std::unique_ptr<ByteSource>(connection));
}

IngestRawDataInput::~IngestRawDataInput() = default;

void IngestRawDataInput::resetChannels(const ChanBits& bits) {
  const int r = connection->reset(bits);
  if (r != 0) {
    ingest_perror(ternName.c_str(), connection->server().c_str(), r);
    exit_status_1();
  }
}

// ---------------------------------------------------------- TernRawDataInput

TernRawDataInput::TernRawDataInput(const char* tern, int ternIndex_, int sockfd)
    : RawDataInput(sockfd, ternIndex_, 8192) {
  setName(std::string("socket to ") + tern);
  int size = inputBufSize;
  if (setsockopt(getFD(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0)
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
