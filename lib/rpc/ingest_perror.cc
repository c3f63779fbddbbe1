#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "base/logit.h"
#include "rpc/ingest_client.h"

std::string heron::ingest_errtext(const char* tern, const char* server, int ingest_error) {
  const int err = errno;
  const std::string t = tern != nullptr ? tern : "(null)";
  const std::string s = server != nullptr ? server : "(null)";
  switch (ingest_error) {
    case INGEST_ERR_SYSTEM: {
      char prefix[100];  // a longer prefix is cut, never overrun
      snprintf(prefix, sizeof prefix, "ingest %s@%s", t.c_str(), s.c_str());
      return std::string(prefix) + ": " + strerror(err);
    }
    case INGEST_ERR_NO_CHANNELS:
      return t + "@" + s + ": no channels specified";
    case INGEST_ERR_NO_LOCALHOST:
      return "cannot find address of localhost";
    case INGEST_ERR_NO_SERVER:
      return s + ": no such server";
    case INGEST_ERR_NO_TERN:
      return t + ": no such tern";
    case INGEST_ERR_CONNECT:
      return t + "@" + s + ": can't connect to ingestor";
    case INGEST_ERR_DISCONNECT:
      return t + "@" + s + ": can't disconnect from ingestor";
    case INGEST_ERR_RESET:
      return t + "@" + s + ": can't reset connection with ingestor";
    default:
      return std::string();
  }
}

extern "C" void ingest_perror(const char* tern, const char* server, int ingest_error) {
  const std::string text = heron::ingest_errtext(tern, server, ingest_error);
  if (!text.empty()) heron::logText(LOG_ERR, text);
}
