// Client side of the ingest server's data connections.  A data source asks
// the ingest server of acquisition system n (RPC program INGEST_PROG + n) to
// send the samples of some channels to a socket that the source creates
// itself: call_ingest_server opens the connection, reset_ingest_connection
// changes its channels and quit_ingest_server closes it.  Failures are
// returned as the codes below; RPC failures are also logged at priority 3.
// The functions are not reentrant and are called from one thread.
#ifndef HERON_INGEST_CLIENT_H
#define HERON_INGEST_CLIENT_H

#include <stdint.h>

#include "rpc/ingest_rpc.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  INGEST_OK = 0,
  INGEST_ERR_SYSTEM = -1,      // system call or memory failure (errno tells)
  INGEST_ERR_NO_CHANNELS = -2, // empty channel mask
  INGEST_ERR_NO_LOCALHOST = -3,
  INGEST_ERR_NO_SERVER = -4,
  INGEST_ERR_NO_TERN = -5,
  INGEST_ERR_CONNECT = -6,     // the server refused or could not be asked
  INGEST_ERR_DISCONNECT = -7,
  INGEST_ERR_RESET = -8
};

// Seconds allowed for each remote call (from its start to its whole reply),
// and for a stream connection to be made back to us after the server
// accepted INGEST_CONNECT.  Only a connection from one of the addresses of
// the server's host is taken as that connection.
enum { INGEST_CALL_TIMEOUT_SECS = 5, INGEST_CONNECT_BACK_SECS = 5 };

// A live data connection.  socketfd is where the samples arrive (close-on-
// exec); param is what was announced to the server.  The caller owns the
// handle and the socket.
typedef struct ingest_connect {
  int socketfd;
  connect_t param;
} ingest_connect;

// Opens a data connection for the channels set in `channels` (8 mask words),
// on a datagram socket when dgram_ok is non-zero, else on a stream socket
// that the server connects back to.  Returns the new handle with *err = 0, or
// NULL with *err set to -1, -2 or -6; nothing is left open on failure.
ingest_connect* call_ingest_server(const char* kites_name, int kites_number, const char* ingest_server,
                                   const uint32_t* channels, int dgram_ok, int* err);

// Asks the server to close the connection: 0, or -7.  A server that is gone
// (connection refused) counts as disconnected.  The socket stays open.
int quit_ingest_server(const char* kites_name, int kites_number, const char* ingest_server,
                       ingest_connect* igp);

// Changes the channels of a live connection: 0, or -8.  The handle holds the
// new mask afterwards even when the server could not be told.
int reset_ingest_connection(const char* kites_name, int kites_number, const char* ingest_server,
                            ingest_connect* igp, const uint32_t* channels);

// Releases a handle's memory (not its socket).  NULL is allowed.
void free_ingest_connect(ingest_connect* igp);

// Reports the message of an error code through logit at priority 3 (on
// standard error in a tool), naming the acquisition system `tern` and the
// ingest host `server`.  Codes outside -8..-1 report nothing.
void ingest_perror(const char* tern, const char* server, int ingest_error);

#ifdef __cplusplus
}

#include <string>

namespace heron {
// The text ingest_perror reports, without a line end: "" for codes outside
// -8..-1; for -1 the system error is read from errno.
std::string ingest_errtext(const char* tern, const char* server, int ingest_error);
}  // namespace heron
#endif

#endif
