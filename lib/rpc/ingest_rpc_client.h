// Shared by the ingest client functions: the RPC client of one ingest server
// and the call to it, each failure logged at priority 3 in the form the
// operators know.
#ifndef HERON_INGEST_RPC_CLIENT_H
#define HERON_INGEST_RPC_CLIENT_H

#include <rpc/rpc.h>

#include "rpc/ingest_rpc.h"
#include "rpc/rpc_client.h"

// A TCP client of program INGEST_PROG + kites_number, version 1 on
// ingest_server, or none after logging the creation error.  When refused is
// not NULL it is set to whether the server's host refused the connection.
RpcClient ingest_rpc_client(const char* ingest_server, int kites_number, bool* refused);

// Calls procedure proc with *param and the call time-out, decoding the int
// result into *result.  On failure logs the error text prefixed by what,
// sets *refused (when not NULL) to whether the connection was refused,
// and returns false.  The client stays alive either way.
bool ingest_rpc_call(CLIENT* clnt, rpcproc_t proc, connect_t* param, int* result, const char* what,
                     bool* refused);

#endif
