// All fourteen procedures of the acquisition-module server through the
// generated client stubs, against the test module server.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <termios.h>
#include <time.h>

#include <string>

#include "Exception.h"
#include "getTernServerEnvVar.h"
#include "lib/rpc_fixture.h"
#include "rpc_client.h"
#include "ternserver.h"

namespace {

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
};

TEST_F(ModuleServerClient, ChannelSettings) {
  char* tern = const_cast<char*>("tern1");
  siocfg_res* sio = getsiocfg_1(&tern, clnt_);
  ASSERT_NE(sio, nullptr) << clnt_sperror(clnt_, "getsiocfg");
  ASSERT_EQ(sio->ierr, 0);
  const siocfg* s = sio->siocfg_res_u.list;
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->baud, 9600);
  EXPECT_EQ(s->c_cflag, static_cast<u_long>(CS8));
  EXPECT_STREQ(s->fmt, "%d,%d,%d");
  EXPECT_STREQ(s->sync, "\r\n");
  EXPECT_EQ(s->type, ASCII);
  ASSERT_NE(s->next, nullptr);
  ASSERT_NE(s->next->next, nullptr);
  EXPECT_EQ(s->next->next->chan, 5);
  EXPECT_EQ(s->next->next->c_cflag, static_cast<u_long>(CS7 | PARENB | PARODD | CSTOPB));
  EXPECT_EQ(s->next->next->next, nullptr);
  release(xdr_siocfg_res, sio);

  char* other = const_cast<char*>("tern9");
  sio = getsiocfg_1(&other, clnt_);
  ASSERT_NE(sio, nullptr);
  EXPECT_EQ(sio->ierr, 1);
  EXPECT_STREQ(sio->siocfg_res_u.errmsg, "no such module: tern9");
  release(xdr_siocfg_res, sio);

  analogcfg_res* an = getanalogcfg_1(&tern, clnt_);
  ASSERT_NE(an, nullptr);
  ASSERT_EQ(an->ierr, 0);
  ASSERT_NE(an->analogcfg_res_u.list, nullptr);
  EXPECT_EQ(an->analogcfg_res_u.list->hz, 20);
  ASSERT_NE(an->analogcfg_res_u.list->next, nullptr);
  EXPECT_EQ(an->analogcfg_res_u.list->next->chan, 1);
  release(xdr_analogcfg_res, an);

  ttl_output_cfg_res* ttl = get_ttl_output_cfg_1(&tern, clnt_);
  ASSERT_NE(ttl, nullptr);
  ASSERT_EQ(ttl->ierr, 0);
  ASSERT_NE(ttl->ttl_output_cfg_res_u.list, nullptr);
  ASSERT_NE(ttl->ttl_output_cfg_res_u.list->next, nullptr);
  EXPECT_EQ(ttl->ttl_output_cfg_res_u.list->next->start, 500);
  EXPECT_EQ(ttl->ttl_output_cfg_res_u.list->next->chan, 3);
  release(xdr_ttl_output_cfg_res, ttl);
}

TEST_F(ModuleServerClient, SettingsClockAndHosts) {
  char* setting = const_cast<char*>("nmodules");
  configint_res* ci = configint_1(&setting, clnt_);
  ASSERT_NE(ci, nullptr);
  EXPECT_EQ(ci->ierr, 0);
  EXPECT_EQ(ci->configint_res_u.value, 1);
  release(xdr_configint_res, ci);

  char* site = const_cast<char*>("site");
  configstring_res* cs = configstring_1(&site, clnt_);
  ASSERT_NE(cs, nullptr);
  EXPECT_EQ(cs->ierr, 0);
  EXPECT_STREQ(cs->value, "flux-site-a");
  release(xdr_configstring_res, cs);
  char* missing = const_cast<char*>("nosuch");
  cs = configstring_1(&missing, clnt_);
  ASSERT_NE(cs, nullptr);
  EXPECT_EQ(cs->ierr, 1);
  EXPECT_STREQ(cs->value, "no such setting: nosuch");
  release(xdr_configstring_res, cs);

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
  ASSERT_NE(hosts->etc_hosts_res_u.list, nullptr);
  EXPECT_STREQ(hosts->etc_hosts_res_u.list->name, "localhost");
  ASSERT_NE(hosts->etc_hosts_res_u.list->next, nullptr);
  EXPECT_STREQ(hosts->etc_hosts_res_u.list->next->addr, "192.0.2.7");
  release(xdr_etc_hosts_res, hosts);

  char* project = const_cast<char*>("PROJECT");
  char** env = getternserverenv_1(&project, clnt_);
  ASSERT_NE(env, nullptr);
  EXPECT_STREQ(*env, "p");
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_wrapstring), reinterpret_cast<char*>(env));
}

TEST_F(ModuleServerClient, ArchiveJobs) {
  char* tern = const_cast<char*>("tern1");
  blazingArchive_res* st = getblazingstatus_1(&tern, clnt_);
  ASSERT_NE(st, nullptr);
  EXPECT_EQ(st->ierr, 1);
  release(xdr_blazingArchive_res, st);

  blazingArchive job = {tern, const_cast<char*>("archiver"), const_cast<char*>("/dev/nst0"), 0};
  struct Step {
    int* (*stub)(blazingArchive*, CLIENT*);
    int status;
  } steps[] = {{startblazingtape_1, 1}, {stopblazingtape_1, 0}, {startblazingdisk_1, 2}, {stopblazingdisk_1, 0}};
  for (const Step& step : steps) {
    int* r = step.stub(&job, clnt_);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(*r, 0);
    st = getblazingstatus_1(&tern, clnt_);
    ASSERT_NE(st, nullptr);
    ASSERT_EQ(st->ierr, 0);
    EXPECT_STREQ(st->blazingArchive_res_u.archive.tapeDevice, "/dev/nst0");
    EXPECT_EQ(st->blazingArchive_res_u.archive.status, step.status);
    release(xdr_blazingArchive_res, st);
  }
}

TEST(GetTernServerEnvVar, TruncatedReplyIsAnIOException) {
  heron_test::JunkServer junk(TERNSERVER, "truncated");
  ASSERT_TRUE(junk.ok()) << junk.error();
  setenv("CONFIG_SERVER", heron_test::kLoopback, 1);
  try {
    getTernServerEnvVar("PROJECT");
    ADD_FAILURE() << "no exception";
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), "IOException: ternserver rpc connection: 127.0.0.1: 127.0.0.1: RPC: Can't decode result");
  }
  unsetenv("CONFIG_SERVER");
}

}  // namespace
