#include "getTernServerEnvVar.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "Exception.h"
#include "lib/rpc_fixture.h"

namespace {

// Points the server look-up at one host for the duration of a test.
class ServerHostEnv {
 public:
  ServerHostEnv(const char* config, const char* ingest) {
    set("CONFIG_SERVER", config);
    set("INGEST_SERVER", ingest);
  }
  ~ServerHostEnv() {
    unsetenv("CONFIG_SERVER");
    unsetenv("INGEST_SERVER");
  }

 private:
  static void set(const char* name, const char* value) {
    if (value != nullptr)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
};

std::string failureText(const char* name) {
  try {
    getTernServerEnvVar(name);
  } catch (const oru::IOException& e) {
    return e.toString();
  }
  return "no exception";
}

TEST(GetTernServerEnvVar, ReadsTheServersEnvironment) {
  heron_test::TestModuleServer server({"PROJECT=surface-flux", "OPS=ops2", "EMPTY="});
  ASSERT_TRUE(server.ok()) << server.error();
  ServerHostEnv env(heron_test::kLoopback, "no-such-host.invalid");

  EXPECT_EQ(getTernServerEnvVar("PROJECT"), "surface-flux");
  EXPECT_EQ(getTernServerEnvVar("OPS"), "ops2");
  EXPECT_EQ(getTernServerEnvVar("EMPTY"), "");
  EXPECT_EQ(getTernServerEnvVar("UNSET"), "");
}

TEST(GetTernServerEnvVar, FallsBackToTheIngestServerHost) {
  heron_test::TestModuleServer server({"PROJECT=p"});
  ASSERT_TRUE(server.ok()) << server.error();
  ServerHostEnv env(nullptr, heron_test::kLoopback);
  EXPECT_EQ(getTernServerEnvVar("PROJECT"), "p");
}

TEST(GetTernServerEnvVar, FailureNamesTheHostAndTheRpcError) {
  ASSERT_EQ(heron_test::ensureRpcbind(), "");
  // Nothing may pose as the module server while we check that none answers.
  heron_test::FileLock lock(heron_test::moduleServerLockPath());
  ASSERT_TRUE(lock.held());
  ServerHostEnv env(heron_test::kLoopback, nullptr);
  EXPECT_EQ(failureText("PROJECT"),
            "IOException: ternserver rpc connection: 127.0.0.1: 127.0.0.1: RPC: Program not registered");
}

TEST(GetTernServerEnvVar, UnknownHostIsAnIOException) {
  ServerHostEnv env("no-such-host.invalid", nullptr);
  EXPECT_EQ(failureText("PROJECT"),
            "IOException: ternserver rpc connection: no-such-host.invalid: no-such-host.invalid: RPC: Unknown host");
}

}  // namespace
