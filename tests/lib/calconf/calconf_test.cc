// The calibration site files: kites_config, prep.config, did.config and lag
// files, good and bad, and the example site's set.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <utility>
#include <vector>

#include "base/Exception.h"
#include "calconf/HeronDataIds.h"
#include "calconf/ImpliedDataId.h"
#include "calconf/SidList.h"
#include "site/TernList.h"
#include "support/scratch_site.h"
#include "support/thrown.h"

namespace {

template <class F>
std::string failure(F f) {
  return thrownText<BadConfigurationException>(f);
}

const char kSensor[] = "sensor s { module m 0 ; outputs a ; calibrate linear ; }\n";

std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

TEST(CalConf, TernList) {
  ScratchSite site;
  TernList::clear();
  EXPECT_NE(failure([] { TernList::initialize(); }), "nothing thrown");
  site.write("config/kites_config", "# kites_number no 9\nkites_number site 3 extra\nother kites_number x 5\n"
                                    "kites_number tern1 1\n");
  EXPECT_EQ(TernList::TernInfo("site").number, 3);
  EXPECT_EQ(TernList::TernInfo(1).name, "tern1");
  EXPECT_EQ(TernList::nterns(), 4);
  EXPECT_EQ(TernList::TernIndex("x"), -1);
  const std::string tail = " is not found in $HERON/config/kites_config";
  EXPECT_EQ(failure([] { TernList::TernInfo("x"); }), "BadConfigurationException: tern \"x\"" + tail);
  EXPECT_EQ(failure([] { TernList::TernInfo(5); }), "BadConfigurationException: tern #5" + tail);
  TernList::clear();
  // Numbers out of range once crashed the calibration or wrapped onto another
  // module (site_check's test has -5, 2**32 + 1 and a missing number).
  const std::string range = "\" is not 0 to 1048575";
  for (const auto& c : std::vector<std::pair<std::string, std::string>>{
           {"kites_number a 2147483648", "module number \"2147483648" + range},
           {"kites_number a 1x", "module number \"1x" + range}}) {
    site.write("config/kites_config", "kites_number ok 1\n" + c.first + "\n");
    EXPECT_EQ(failure([] { TernList::initialize(); }),
              "BadConfigurationException: " + site.root() + "/config/kites_config:2: " + c.second);
    EXPECT_EQ(TernList::nterns(), 0);
  }
}

TEST(CalConf, PrepConfig) {
  ScratchSite site;
  SidList sl(site.writeOps("prep.config", R"(sensor wind { module t1 0x2 ; outputs u null v ; rate 10 ;
  calibrate sonic 1 "f.cal" w 2.5 ; lagrange -1 2 ; lag 0.5 ; limits -3 3 -4 4 ; index ix.mux ;
  phasefile pf ; }
sensor sensor { module t1 2 ; outputs x ; calibrate lag ; lag "L" ; }
sensor b { outputs y ; module t1 7 ; calibrate c ; phasefile pf ; }
phase wind { outputs u ; filter f 1 2 ; lag 0.25 ; phasefile pf ; }
)").c_str());
  ASSERT_EQ(sl.sids.size(), 3u);
  SidEntry& w = *sl.sids[0];
  EXPECT_EQ(w.sid_channel, 2);
  EXPECT_EQ(w.DidName(2), "v.wind");
  EXPECT_EQ(w.WhichDid("null.wind"), 1);
  EXPECT_EQ(w.WhichDid("wind"), -1);
  ASSERT_EQ(w.n_calib_params(), 4);
  EXPECT_EQ(*static_cast<double*>(w.calib_params[3]), 2.5);
  EXPECT_STREQ(static_cast<char*>(w.calib_params[2]), "w");
  EXPECT_EQ(w.calib_param_types[1], CAL_STRING);
  EXPECT_EQ(w.n_limits(), 2);
  EXPECT_EQ(w.max[1], 4.0f);
  EXPECT_EQ(w.neglag + w.poslag + w.GetLag(0) + w.rate, 11.5);
  EXPECT_EQ(w.index_didname, "ix.mux");
  EXPECT_TRUE(sl.sids[1]->NonZeroLag());
  EXPECT_EQ(sl.sids[1]->calib_name, "lag");
  EXPECT_EQ(sl.sid_from_did("x.sensor"), sl.sids[1].get());
  EXPECT_EQ(sl.sid_from_did("x.wind"), nullptr);
  EXPECT_EQ(sl.sids_from_tern_chan("t1", 2).size(), 2u);
  EXPECT_EQ(sl.sid_from_tern_chan("t1", 7), sl.sids[2].get());
  EXPECT_EQ(sl.TernChannels("t1"), (std::vector<int>{2, 7}));
  PhaseEntry* ph = sl.phase_from_did("u.wind");
  ASSERT_NE(ph, nullptr);
  EXPECT_EQ(ph->n_filter_params() + ph->n_pfs + ph->GetLag(0), 4.25);
  EXPECT_EQ(sl.phase_from_did("v.wind"), nullptr);
}

TEST(CalConf, PrepConfigFaults) {
  const struct {
    std::string text, message;
  } cases[] = {
      {"sensor s { module m 0 ; outputs a ; }", "1: sensor s has no calibration function"},
      {"sensor s {\n outputs a ; calibrate c ; }", "2: sensor s has no module"},
      {"phase p { lag 1 ; }", "1: phase p has no outputs"},
      {"sensor s {\n\n module m 256 ; }", "3: channel number out of range"},
      {std::string(kSensor) + "sensor s { filter f ; }", "2: syntax error"},
      {"sensor s { calibrate c" + repeat(" 1", 65) + " ; }", "1: too many calibration parameters"},
      {"sensor s { outputs" + repeat(" a", 33) + " ; }", "1: too many did prefixes"},
      {"sensor s { limits" + repeat(" 1 2", 33) + " ; }", "1: too many min-max specifications"},
      {"phase p { filter f" + repeat(" 1", 17) + " ; }", "1: too many filter parameters"},
      {"sensor " + std::string(1025, 'x'), "1: token too large, exceeds YYLMAX"},
      {"sensor s { module m 0 ; ", "1: syntax error"},
  };
  ScratchSite site;
  for (const auto& c : cases) {
    const std::string path = site.writeOps("prep.config", c.text);
    EXPECT_EQ(failure([&] { SidList sl(path.c_str()); }), "BadConfigurationException: " + path + ":" + c.message);
  }
  EXPECT_NE(failure([] { SidList sl("/nonexistent/prep.config"); }).find("open"), std::string::npos);
}

TEST(CalConf, DidConfig) {
  ScratchSite site;
  SidList sl(site.writeOps("prep.config", std::string(kSensor) + "phase s { outputs a b ; lag 2 ; }").c_str());
  HeronDataIds ids(sl, site.writeOps("did.config", "a.s 4 ; b.s 9 lag 0.5 ;\n c.s 0x7 lag \"L\" ; ;").c_str());
  EXPECT_EQ(ids["a.s"]->phase->GetLag(0), 2.0f);
  EXPECT_EQ(ids["b.s"]->phase->GetLag(0), 0.5f);
  EXPECT_EQ(ids.byIndex(7)->phase->lag.lagFileName, "L");
  EXPECT_EQ(ids["volts.12"], nullptr);
  HeronDataId* v = ids["volts.12.site"];
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->Index(), 10);
  EXPECT_EQ(ids["volts.12.site"], v);
  ImpliedDataId imp("volts.012.t1_x");
  EXPECT_EQ(std::string(imp.ternName()) + imp.channelName() + std::to_string(imp.channel()), "t1_x01212");
  EXPECT_FALSE(ImpliedDataId("volts.1234.t").valid() || ImpliedDataId("volts.1.9t").valid());
  const struct {
    const char *text, *message;
  } bad[] = {
      {"a 1 ;\n a 2 ;", "2: data id a given twice"},
      {"a 1 ; b 1 ;", "1: index 1 given twice"},
      {"a 32768 ;", "1: index out of range 0-32767"},
      {"a 1.5 ;", "1: expected <name> <index> [lag <seconds>|<file>] ;"},
      {"a 1 lag ;", "1: expected <name> <index> [lag <seconds>|<file>] ;"},
      {"a 1 $ ;", "1: unexpected '$'"},
      {"a 1\n", "2: missing ';' at the end of the file"},
  };
  for (const auto& c : bad) {
    const std::string path = site.writeOps("did.config", c.text);
    EXPECT_EQ(failure([&] { HeronDataIds d(sl, path.c_str()); }), "BadConfigurationException: " + path + ":" + c.message);
  }
}

TEST(CalConf, LagFileReadForward) {
  ScratchSite site;
  const std::string path = site.write("l", "# t lag\n\n2026 11 21 12:00:00 0.5\n1795262410 -1  # s\n1795262420 2\n");
  Lag lag;
  lag.setFile(path);
  const struct {
    double t;
    float lag;
  } steps[] = {{0, 0.5f}, {1795262400, 0.5f}, {1795262410, -1}, {1795262405, -1}, {1e10, 2}};
  for (const auto& s : steps) EXPECT_EQ(lag.GetLag(s.t), s.lag) << s.t;
  const struct {
    const char *text, *message;
  } bad[] = {{"10 1\n5 2\n", "2: time goes backward"}, {"10 x\n", "1: expected a time and a lag"},
               {"\n1\n", "2: expected a time and a lag"}, {"10 -86401\n", "1: lag -86401 s is beyond a day (86400 s)"}};
  for (const auto& c : bad) {
    Lag l;
    l.setFile(site.write("l", c.text));
    EXPECT_EQ(failure([&] { l.GetLag(20); }), "BadConfigurationException: " + path + ":" + c.message);
  }
}

}  // namespace
