// The live inputs: a connection from the ingest server, a socket from a
// module, a module's fast output on a serial line.  Each reads through a
// descriptor source (base/ByteSource.h): the ingest connection's source
// owns the connection and its socket; the socket and the serial line are
// borrowed from their owners.  Their time tags are of the site's type;
// earlier tags believed at last mean a new day.
#ifndef HERON_STREAMINPUTS_H
#define HERON_STREAMINPUTS_H

#include <string>

#include "rpc/ChanBits.h"
#include "samples/RawDataInput.h"

namespace heron {
class IngestSource;
}

// The samples of some channels of one module, sent by the ingest server to
// a socket of our own.  A connection that cannot be made is reported with
// ingest_perror and ends the process with status 1.  The server drops a
// datagram destination that its owner does not renew within ten minutes, so
// a datagram connection renews itself every five, also while it waits.
class IngestRawDataInput : public RawDataInput {
 public:
  // socketType 2 asks for datagrams, anything else for a stream.
  IngestRawDataInput(const char* tern, int ternIndex, const char* ingester, const ChanBits& ingestChan,
                     int socketType);
  // Tells the server that the connection ends and closes the socket (the
  // source does).
  ~IngestRawDataInput() override;

  // Changes the channels sent; a failure is reported and ends the process
  // with status 1.
  void resetChannels(const ChanBits& bits);
  const char* getTernName() const { return ternName.c_str(); }

 private:
  std::string ternName;
  heron::IngestSource* connection;  // the source, which the input owns
};

// A socket on which a module sends its samples.  The caller keeps
// ownership of the socket.
class TernRawDataInput : public RawDataInput {
 public:
  TernRawDataInput(const char* tern, int ternIndex, int sockfd);
  ~TernRawDataInput() override;
};

// A module's fast output on a serial line: each sample is followed by the
// end-of-message byte 3, which is checked.  The caller keeps the port open
// (and owns its descriptor).
class OwlFastoutRawDataInput : public RawDataInput {
 public:
  OwlFastoutRawDataInput(const char* ttyname, const char* tern, int ternIndex, int inputfd);
  ~OwlFastoutRawDataInput() override;
};

#endif
