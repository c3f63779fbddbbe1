#include <stdio.h>

#include "rpc/ingest_client.h"

namespace {
const char* shown(const char* s) { return s != nullptr ? s : "(null)"; }
}  // namespace

extern "C" void ingest_perror(const char* tern, const char* server, int ingest_error) {
  tern = shown(tern);
  server = shown(server);
  switch (ingest_error) {
    case INGEST_ERR_SYSTEM: {
      char prefix[100];  // a longer prefix is cut, never overrun
      snprintf(prefix, sizeof prefix, "ingest %s@%s", tern, server);
      perror(prefix);
      break;
    }
    case INGEST_ERR_NO_CHANNELS:
      fprintf(stderr, "%s@%s: no channels specified\n", tern, server);
      break;
    case INGEST_ERR_NO_LOCALHOST:
      fprintf(stderr, "cannot find address of localhost\n");
      break;
    case INGEST_ERR_NO_SERVER:
      fprintf(stderr, "%s: no such server\n", server);
      break;
    case INGEST_ERR_NO_TERN:
      fprintf(stderr, "%s: no such tern\n", tern);
      break;
    case INGEST_ERR_CONNECT:
      fprintf(stderr, "%s@%s: can't connect to ingestor\n", tern, server);
      break;
    case INGEST_ERR_DISCONNECT:
      fprintf(stderr, "%s@%s: can't disconnect from ingestor\n", tern, server);
      break;
    case INGEST_ERR_RESET:
      fprintf(stderr, "%s@%s: can't reset connection with ingestor\n", tern, server);
      break;
    default:
      break;
  }
}
