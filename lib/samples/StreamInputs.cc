#include "samples/StreamInputs.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/Exception.h"
#include "base/fatal.h"
#include "base/logit.h"
#include "rpc/ingest_client.h"

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
  if (socketType == 2) framer.setDatagrams(true);
  fd = igp->socketfd;
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
