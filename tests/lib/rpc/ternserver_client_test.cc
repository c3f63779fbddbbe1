// All fourteen procedures of the acquisition-module server through the
// generated client stubs, against the test module server.
#include <gtest/gtest.h>
#include <termios.h>
#include <time.h>

#include <string>

#include "support/rpc_fixture.h"
#include "rpc/rpc_client.h"
#include "rpc/ternserver.h"
#include "xdr_text.h"

namespace {

using xdr_text::fields;

template <class T>
void release(bool_t (*codec)(XDR*, T*), T* res) {
  xdr_free(reinterpret_cast<xdrproc_t>(codec), reinterpret_cast<char*>(res));
}

class ModuleServerClient : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server_.ok()) << server_.error();
    const struct timeval timeout = {25, 0};
    clnt_ = heron_clnt_create(heron_test::kLoopback, TERNSERVER, TERNSERVERVERS, &timeout);
    ASSERT_NE(clnt_, nullptr) << clnt_spcreateerror("127.0.0.1");
  }
  void TearDown() override {
    if (clnt_ != nullptr) clnt_destroy(clnt_);
  }

  heron_test::TestModuleServer server_{{"PROJECT=p"}};
  CLIENT* clnt_ = nullptr;
  char* tern_ = const_cast<char*>("tern1");
};

TEST_F(ModuleServerClient, ChannelSettings) {
  siocfg_res* sio = getsiocfg_1(&tern_, clnt_);
  ASSERT_NE(sio, nullptr) << clnt_sperror(clnt_, "getsiocfg");
  ASSERT_EQ(sio->ierr, 0);
  EXPECT_EQ(xdr_text::list(sio->siocfg_res_u.list),
            fields(9600, CS8, "%d,%d,%d", "\r\n", 1, 10, 3, 0, ASCII) +
                fields(19200, CS8 | PARENB, "", "\x55\xaa", 2, 3, 4, 12, BINARY) +
                fields(38400, CS7 | PARENB | PARODD | CSTOPB, "", "", 5, 0, 1, 2, PROMPTEDBINARY));
  release(xdr_siocfg_res, sio);

  char* other = const_cast<char*>("tern9");
  sio = getsiocfg_1(&other, clnt_);
  ASSERT_NE(sio, nullptr);
  EXPECT_EQ(sio->ierr, 1);
  EXPECT_STREQ(sio->siocfg_res_u.errmsg, "no such module: tern9");
  release(xdr_siocfg_res, sio);

  analogcfg_res* an = getanalogcfg_1(&tern_, clnt_);
  ASSERT_NE(an, nullptr);
  ASSERT_EQ(an->ierr, 0);
  EXPECT_EQ(xdr_text::list(an->analogcfg_res_u.list), fields(0, 20) + fields(1, 10));
  release(xdr_analogcfg_res, an);

  ttl_output_cfg_res* ttl = get_ttl_output_cfg_1(&tern_, clnt_);
  ASSERT_NE(ttl, nullptr);
  ASSERT_EQ(ttl->ierr, 0);
  EXPECT_EQ(xdr_text::list(ttl->ttl_output_cfg_res_u.list), fields(0, 100, 900, 0) + fields(500, 250, 750, 3));
  release(xdr_ttl_output_cfg_res, ttl);
}

TEST_F(ModuleServerClient, SettingsClockAndHosts) {
  char* setting = const_cast<char*>("nmodules");
  configint_res* ci = configint_1(&setting, clnt_);
  ASSERT_NE(ci, nullptr);
  EXPECT_EQ(fields(ci->ierr, ci->configint_res_u.value), fields(0, 1));
  release(xdr_configint_res, ci);

  const struct {
    const char* name;
    int ierr;
    const char* value;
  } strings[] = {{"site", 0, "flux-site-a"}, {"nosuch", 1, "no such setting: nosuch"}};
  for (const auto& want : strings) {
    char* name = const_cast<char*>(want.name);
    configstring_res* cs = configstring_1(&name, clnt_);
    ASSERT_NE(cs, nullptr);
    EXPECT_EQ(fields(cs->ierr, cs->value), fields(want.ierr, want.value));
    release(xdr_configstring_res, cs);
  }

  time_t before = time(nullptr);
  int* date = rdate_1(nullptr, clnt_);
  ASSERT_NE(date, nullptr);
  EXPECT_GE(*date, before);
  int* msecs = rgmtmsecs_1(nullptr, clnt_);
  ASSERT_NE(msecs, nullptr);
  EXPECT_GE(*msecs, 0);
  EXPECT_LT(*msecs, 86400000);

  etc_hosts_res* hosts = etc_hosts_1(nullptr, clnt_);
  ASSERT_NE(hosts, nullptr);
  ASSERT_EQ(hosts->ierr, 0);
  EXPECT_EQ(xdr_text::list(hosts->etc_hosts_res_u.list), fields("127.0.0.1", "localhost") + fields("192.0.2.7", "tern1"));
  release(xdr_etc_hosts_res, hosts);

  char* project = const_cast<char*>("PROJECT");
  char** env = getternserverenv_1(&project, clnt_);
  ASSERT_NE(env, nullptr);
  EXPECT_STREQ(*env, "p");
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(env));
}

TEST_F(ModuleServerClient, ArchiveJobs) {
  blazingArchive_res* st = getblazingstatus_1(&tern_, clnt_);
  ASSERT_NE(st, nullptr);
  EXPECT_EQ(st->ierr, 1);
  release(xdr_blazingArchive_res, st);

  blazingArchive job = {tern_, const_cast<char*>("archiver"), const_cast<char*>("/dev/nst0"), 0};
  const struct {
    int* (*stub)(blazingArchive*, CLIENT*);
    int status;
  } steps[] = {{startblazingtape_1, 1}, {stopblazingtape_1, 0}, {startblazingdisk_1, 2}, {stopblazingdisk_1, 0}};
  for (const auto& step : steps) {
    int* r = step.stub(&job, clnt_);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(*r, 0);
    st = getblazingstatus_1(&tern_, clnt_);
    ASSERT_NE(st, nullptr);
    const blazingArchive& a = st->blazingArchive_res_u.archive;
    EXPECT_EQ(fields(st->ierr, a.ternName, a.server, a.tapeDevice, a.status),
              fields(0, "tern1", "archiver", "/dev/nst0", step.status));
    release(xdr_blazingArchive_res, st);
  }
}

}  // namespace
