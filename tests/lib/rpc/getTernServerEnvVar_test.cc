#include "rpc/getTernServerEnvVar.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "base/Exception.h"
#include "support/rpc_fixture.h"
#include "support/thrown.h"

namespace {

// Points the server look-up at the given hosts (null: unset).
void serverHosts(const char* config, const char* ingest) {
  config ? setenv("CONFIG_SERVER", config, 1) : unsetenv("CONFIG_SERVER");
  ingest ? setenv("INGEST_SERVER", ingest, 1) : unsetenv("INGEST_SERVER");
}

std::string failureText() {
  return thrownText<oru::IOException>([] { getTernServerEnvVar("PROJECT"); });
}

TEST(GetTernServerEnvVar, ReadsTheServersEnvironment) {
  HERON_REQUIRE_RPCBIND();
  heron_test::TestModuleServer server({"PROJECT=surface-flux", "EMPTY="});
  ASSERT_TRUE(server.ok()) << server.error();
  serverHosts(heron_test::kLoopback, "no-such-host.invalid");
  EXPECT_EQ(getTernServerEnvVar("PROJECT"), "surface-flux");
  EXPECT_EQ(getTernServerEnvVar("EMPTY") + getTernServerEnvVar("UNSET"), "");
  serverHosts(nullptr, heron_test::kLoopback);  // the ingest server's host
  EXPECT_EQ(getTernServerEnvVar("PROJECT"), "surface-flux");
}

// A value has no bound of its own; only the whole reply (1 MiB) does.
TEST(GetTernServerEnvVar, LongValuesUpToTheReplyBound) {
  heron_test::TestModuleServer server({"A:5000", "B:100000", "C:1048577"});
  ASSERT_TRUE(server.ok()) << server.error();
  serverHosts(heron_test::kLoopback, nullptr);
  EXPECT_EQ(getTernServerEnvVar("A"), std::string(5000, 'x'));
  EXPECT_EQ(getTernServerEnvVar("B"), std::string(100000, 'x'));
  const std::string tooLong = thrownText<oru::IOException>([] { getTernServerEnvVar("C"); });
  EXPECT_NE(tooLong.find("RPC: Can't decode result"), std::string::npos) << tooLong;
}

// No such host, nothing registered (replies that do not decode: see
// EveryCallEndsInTime).
TEST(GetTernServerEnvVar, FailureNamesTheHostAndTheRpcError) {
  const std::string prefix = "IOException: ternserver rpc connection: ";
  serverHosts("no-such-host.invalid", nullptr);
  EXPECT_EQ(failureText(), prefix + "no-such-host.invalid: no-such-host.invalid: RPC: Unknown host");
  serverHosts(heron_test::kLoopback, nullptr);
  HERON_REQUIRE_RPCBIND();
  EXPECT_EQ(failureText(), prefix + "127.0.0.1: 127.0.0.1: RPC: Program not registered");
}

}  // namespace
