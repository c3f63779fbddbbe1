#include "rpc/getTernServerEnvVar.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "base/Exception.h"
#include "support/rpc_fixture.h"
#include "rpc/ternserver.h"

namespace {

// Points the server look-up at the given hosts (null: unset) for the
// duration of a test.
class ServerHostEnv {
 public:
  ServerHostEnv(const char* config, const char* ingest) {
    for (auto v : {std::make_pair("CONFIG_SERVER", config), std::make_pair("INGEST_SERVER", ingest)})
      v.second ? setenv(v.first, v.second, 1) : unsetenv(v.first);
  }
  ~ServerHostEnv() {
    unsetenv("CONFIG_SERVER");
    unsetenv("INGEST_SERVER");
  }
};

std::string failureText() {
  try {
    getTernServerEnvVar("PROJECT");
  } catch (const oru::IOException& e) {
    return e.toString();
  }
  return "no exception";
}

TEST(GetTernServerEnvVar, ReadsTheServersEnvironment) {
  heron_test::TestModuleServer server({"PROJECT=surface-flux", "OPS=ops2", "EMPTY="});
  ASSERT_TRUE(server.ok()) << server.error();
  {
    ServerHostEnv env(heron_test::kLoopback, "no-such-host.invalid");
    EXPECT_EQ(getTernServerEnvVar("PROJECT"), "surface-flux");
    EXPECT_EQ(getTernServerEnvVar("OPS"), "ops2");
    EXPECT_EQ(getTernServerEnvVar("EMPTY"), "");
    EXPECT_EQ(getTernServerEnvVar("UNSET"), "");
  }
  ServerHostEnv fallback(nullptr, heron_test::kLoopback);  // the ingest server's host
  EXPECT_EQ(getTernServerEnvVar("PROJECT"), "surface-flux");
}

TEST(GetTernServerEnvVar, FailureNamesTheHostAndTheRpcError) {
  ASSERT_EQ(heron_test::ensureRpcbind(), "");
  {
    // Nothing may pose as the module server while we check that none answers.
    heron_test::FileLock lock(heron_test::moduleServerLockPath());
    ASSERT_TRUE(lock.held());
    ServerHostEnv env(heron_test::kLoopback, nullptr);
    EXPECT_EQ(failureText(), "IOException: ternserver rpc connection: 127.0.0.1: 127.0.0.1: RPC: Program not registered");
  }
  {
    heron_test::JunkServer junk(TERNSERVER, "truncated");
    ASSERT_TRUE(junk.ok()) << junk.error();
    ServerHostEnv env(heron_test::kLoopback, nullptr);
    EXPECT_EQ(failureText(), "IOException: ternserver rpc connection: 127.0.0.1: 127.0.0.1: RPC: Can't decode result");
  }
  ServerHostEnv env("no-such-host.invalid", nullptr);
  EXPECT_EQ(failureText(),
            "IOException: ternserver rpc connection: no-such-host.invalid: no-such-host.invalid: RPC: Unknown host");
}

}  // namespace
