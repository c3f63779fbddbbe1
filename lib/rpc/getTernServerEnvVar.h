// Reads one setting from the environment of the site's acquisition-module
// server, so that every host of a site agrees on values such as PROJECT and
// OPS.  The server host is $CONFIG_SERVER, else $INGEST_SERVER, else "heron".
#ifndef HERON_GETTERNSERVERENVVAR_H
#define HERON_GETTERNSERVERENVVAR_H

#include <string>

// The value of variable `name` on the server (the server answers "" for a
// variable it does not have).  Throws oru::IOException, with the device
// "ternserver rpc connection", the server host as the task and the RPC
// library's error text, when the server cannot be reached or the call fails.
std::string getTernServerEnvVar(const char* name);

#endif
