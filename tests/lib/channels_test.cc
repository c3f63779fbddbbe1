// channel_config: every record kind, error reports, the process-wide
// time-tag rule, and TTConv's use of it.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "Exception.h"
#include "TTConv.h"
#include "channels.h"

namespace {

// A scratch site tree: $HERON/projects/p/o/channel_config.
class ChannelsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Tests about process-wide state run their checks in a fresh copy of
    // this program.
    // That copy runs this set-up again: it finds the tree through the
    // environment it inherits.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    if (const char* inherited = getenv("HERON_TEST_SCRATCH")) {
      root_ = inherited;
      return;
    }
    char tmpl[] = "/tmp/heron-channels-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    owner_ = true;
    setenv("HERON_TEST_SCRATCH", tmpl, 1);
    ASSERT_EQ(system(("mkdir -p " + root_ + "/projects/p/o").c_str()), 0);
  }
  void TearDown() override {
    if (!owner_) return;
    unsetenv("HERON_TEST_SCRATCH");
    EXPECT_EQ(system(("rm -rf " + root_).c_str()), 0);
  }

  // Writes text to a file in the tree and returns its path.
  std::string write(const std::string& name, const std::string& text) {
    const std::string path = root_ + "/" + name;
    std::ofstream(path) << text;
    return path;
  }
  void pointSiteHere() {
    setenv("HERON", root_.c_str(), 1);
    setenv("PROJECT", "p", 1);
    setenv("OPS", "o", 1);
  }

  std::string root_;
  bool owner_ = false;
};

TEST_F(ChannelsTest, ExampleFileEveryRecordKind) {
  const std::string file =
      std::string(HERON_SOURCE_DIR) + "/examples/site/projects/demo/ops1/channel_config";
  channel_list cl(file.c_str());
  EXPECT_EQ(cl.timeTagType(), wierd12);

  const serial_entry* s = cl.serialEntries();
  ASSERT_NE(s, nullptr);
  EXPECT_STREQ(s->tern, "tern1");
  EXPECT_EQ(s->card, IV1624);
  EXPECT_EQ(s->chan, 0);
  EXPECT_EQ(s->status, ON);
  EXPECT_STREQ(s->protocol, "rs232");
  EXPECT_STREQ(s->msg_and_conv, "csat3 sonic_csat3");
  s = s->next->next;
  EXPECT_EQ(s->card, IV3234);
  EXPECT_EQ(s->status, OFF);
  s = s->next;
  EXPECT_STREQ(s->tern, "tern2");
  EXPECT_EQ(s->chan, 2);  // written in hex
  EXPECT_EQ(s->next, nullptr);

  const analog_entry* a = cl.analogEntries();
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->card, DATEL);
  EXPECT_EQ(a->hertz, 20.0f);
  EXPECT_EQ(a->gain, 2.0f);
  EXPECT_EQ(a->offset, -0.015f);
  a = a->next->next;  // short form
  EXPECT_EQ(a->chan, 2);
  EXPECT_EQ(a->hertz, 1.0f);
  EXPECT_EQ(a->gain, 1.0f);
  EXPECT_EQ(a->offset, 0.0f);
  EXPECT_EQ(a->next->status, OFF);

  const ttloutput_entry* t = cl.ttlEntries();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->card, DATEL_TTL_OUT);
  EXPECT_EQ(t->status, ON);
  EXPECT_EQ(t->start, 30000);  // clock time
  EXPECT_EQ(t->on, 500);
  EXPECT_EQ(t->off, 59500);
  EXPECT_EQ(t->next->start, 1800000);
  EXPECT_EQ(t->next->next, nullptr);

  float g, o;
  cl.AnalogGainOffset("tern1", 0, &g, &o);
  EXPECT_EQ(g, 2.0f);
  EXPECT_EQ(o, -0.015f);
  cl.AnalogGainOffset("tern", 0, &g, &o);  // names match exactly
  EXPECT_EQ(g, 1.0f);
  EXPECT_EQ(o, 0.0f);
}

TEST_F(ChannelsTest, WordsValuesAndLookups) {
  const std::string file = write("c", R"(# leading comment
serial m IV1624 7 ON 3.5 p "x y" ;  # unknown card, upper-case status
analog m datel 0 5 on 4 1 ; analog m datel 0 5 on 9 9 ;  # first one wins
analog m datel 200 5 on 4 1 ;
analog m iv1624 1 2.5e1 on -1.5e-1 +2 ;
ttl m datel_ttl_out 255 1.0015 -0.0019 0 ;
ttl m other 3 0:0:1.5 1 2 ;
timetag msecs ;
)");
  channel_list cl(file.c_str());
  const serial_entry* s = cl.serialEntries();
  EXPECT_EQ(s->card, UNKNOWN);
  EXPECT_EQ(s->status, OFF);
  EXPECT_EQ(s->chan, 7);
  EXPECT_STREQ(s->msg_and_conv, "x y");
  float g, o;
  cl.AnalogGainOffset("m", 0, &g, &o);
  EXPECT_EQ(g, 4.0f);
  EXPECT_EQ(o, 1.0f);
  cl.AnalogGainOffset("m", 200, &g, &o);  // outside 0..199: not searched
  EXPECT_EQ(g, 1.0f);
  EXPECT_EQ(o, 0.0f);
  cl.AnalogGainOffset("m", -1, &g, &o);
  EXPECT_EQ(g, 1.0f);
  cl.AnalogGainOffset("m", 1, &g, &o);
  EXPECT_EQ(g, -0.15f);
  EXPECT_EQ(o, 2.0f);
  const analog_entry* a = cl.analogEntries()->next->next->next;
  EXPECT_EQ(a->card, UNKNOWN);
  EXPECT_EQ(a->hertz, 25.0f);
  const ttloutput_entry* t = cl.ttlEntries();
  EXPECT_EQ(t->chan, 255);
  EXPECT_EQ(t->start, 1001);  // truncated toward zero
  EXPECT_EQ(t->on, -1);
  EXPECT_EQ(t->next->card, UNKNOWN);
  EXPECT_EQ(t->next->start, 1500);
}

TEST_F(ChannelsTest, EmptyAndCommentOnlyFilesAreValid) {
  for (const char* text : {"", "# nothing\n\n   # here\n", "\n\n"}) {
    channel_list cl(write("c", text).c_str());
    EXPECT_EQ(cl.serialEntries(), nullptr);
    EXPECT_EQ(cl.analogEntries(), nullptr);
    EXPECT_EQ(cl.ttlEntries(), nullptr);
  }
}

TEST_F(ChannelsTest, MissingFileIsBadConfiguration) {
  pointSiteHere();
  try {
    channel_list cl("$HERON/projects/$PROJECT/$OPS/none");
    FAIL() << "no exception";
  } catch (const BadConfigurationException& e) {
    EXPECT_EQ(e.toString(), "BadConfigurationException: IOException: " + root_ +
                                "/projects/p/o/none: open: No such file or directory");
  }
}

TEST_F(ChannelsTest, SyntaxErrorsNameTheLineAndEndTheProcess) {
  const std::string bad = write("bad", "# ok\nanalog m datel 0 5 on 1 2 ;\n\nserial m iv1624 1 on x p ;\n");
  EXPECT_EXIT(channel_list(bad.c_str()), ::testing::ExitedWithCode(1),
              "Error: syntax error in line 4 of " + bad);
  const std::string kw = write("kw", "\n\nchannel m datel 0 ;\n");
  EXPECT_EXIT(channel_list(kw.c_str()), ::testing::ExitedWithCode(1),
              "Error: syntax error in line 3 of " + kw);
  const std::string range = write("range", "ttl m datel_ttl_out 256 0 1 2 ;");
  EXPECT_EXIT(channel_list(range.c_str()), ::testing::ExitedWithCode(1),
              "Error: channel number out of range in line 1 of " + range);
  const std::string nul = write("nul", std::string("timetag msecs ;\n\0", 17));
  EXPECT_EXIT(channel_list(nul.c_str()), ::testing::ExitedWithCode(1),
              "Error: syntax error in line 2 of " + nul);
  const std::string unterminated = write("unterminated", "timetag msecs");
  EXPECT_EXIT(channel_list(unterminated.c_str()), ::testing::ExitedWithCode(1),
              "Error: syntax error in line 1 of ");
  const std::string huge = write("huge", "timetag " + std::string(5000, 'w') + " ;\n");
  EXPECT_EXIT(channel_list(huge.c_str()), ::testing::ExitedWithCode(1),
              "token too large, exceeds YYLMAX");
}

// Runs check in a fresh process; the test passes when it returns true.
#define EXPECT_IN_FRESH_PROCESS(check) \
  EXPECT_EXIT(exit((check) ? 0 : 1), ::testing::ExitedWithCode(0), "")

TEST_F(ChannelsTest, Wierd12StaysForTheWholeProcess) {
  const std::string plain = write("plain", "analog m datel 0 5 on raw ;\n");
  const std::string other = write("other", "timetag something ;\n");
  const std::string w12 = write("w12", "timetag wierd12 ;\n");
  EXPECT_IN_FRESH_PROCESS(channel_list(plain.c_str()).timeTagType() == msecs &&
                          channel_list(other.c_str()).timeTagType() == msecs &&
                          channel_list(w12.c_str()).timeTagType() == wierd12 &&
                          channel_list(plain.c_str()).timeTagType() == wierd12 &&
                          channel_list(other.c_str()).timeTagType() == wierd12 &&
                          channel_list::processTimeTagType() == wierd12);
}

uint32_t net(uint32_t host) { return htonl(host); }

TEST_F(ChannelsTest, TimeTagConversionFollowsTheSite) {
  pointSiteHere();
  write("projects/p/o/channel_config", "timetag wierd12 ;\n");
  EXPECT_IN_FRESH_PROCESS(TTConv::type() == unknown &&
                          TTConv::Msecs(net((3600u << 12) | 250u)) == 3600250 &&
                          TTConv::type() == wierd12 &&
                          TTConv::Msecs(net((86399u << 12) | 999u)) == 86399999);
  write("projects/p/o/channel_config", "# msecs by default\n");
  EXPECT_IN_FRESH_PROCESS(TTConv::Msecs(net(86399999u)) == 86399999 && TTConv::type() == msecs);
}

TEST_F(ChannelsTest, TimeTagConversionWithoutSiteFileWarnsOnce) {
  pointSiteHere();
  EXPECT_THROW(TTConv::init(), BadConfigurationException);
  EXPECT_EXIT(
      {
        const bool ok = TTConv::Msecs(net(1234u)) == 1234 && TTConv::type() == msecs;
        write("projects/p/o/channel_config", "timetag wierd12 ;\n");
        // Read once per process: the file appearing later changes nothing.
        fprintf(stderr, "second %d\n", TTConv::Msecs(net(1234u)));
        exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "channel_config: open: No such file or directory; time tags are read as msecs\nsecond 1234");
}

}  // namespace
