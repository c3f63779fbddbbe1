// channel_config: every record kind, error reports, the process-wide
// time-tag rule, and TTConv's use of it.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/Exception.h"
#include "time/TTConv.h"
#include "site/channels.h"

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

// Every entry, one line each: kind, module, card, channel, status, then
// protocol and message (serial), rate, gain and offset (analog) or the
// three times in milliseconds (TTL).
std::string describe(const channel_list& cl) {
  std::ostringstream os;
  for (const serial_entry* s = cl.serialEntries(); s; s = s->next)
    os << "S " << s->tern << ' ' << s->card << ' ' << int(s->chan) << ' ' << s->status << ' '
       << s->protocol << " [" << s->msg_and_conv << "]\n";
  for (const analog_entry* a = cl.analogEntries(); a; a = a->next)
    os << "A " << a->tern << ' ' << a->card << ' ' << int(a->chan) << ' ' << a->status << ' '
       << a->hertz << ' ' << a->gain << ' ' << a->offset << '\n';
  for (const ttloutput_entry* t = cl.ttlEntries(); t; t = t->next)
    os << "T " << t->tern << ' ' << t->card << ' ' << int(t->chan) << ' ' << t->status << ' '
       << t->start << ' ' << t->on << ' ' << t->off << '\n';
  return os.str();
}

TEST_F(ChannelsTest, ExampleFileEveryRecordKind) {
  const std::string file =
      std::string(HERON_SOURCE_DIR) + "/examples/site/projects/demo/ops1/channel_config";
  channel_list cl(file.c_str());
  EXPECT_EQ(cl.timeTagType(), wierd12);
  EXPECT_EQ(describe(cl),
            "S tern1 1 0 0 rs232 [csat3 sonic_csat3]\n"
            "S tern1 1 1 0 rs232 [krypton kh20]\n"
            "S tern1 2 4 1 rs422 [spare_logger none]\n"
            "S tern2 1 2 0 rs232 [irga h2o_co2]\n"
            "A tern1 0 0 0 20 2 -0.015\n"
            "A tern1 0 1 0 20 1 0\n"
            "A tern1 0 2 0 1 1 0\n"
            "A tern2 0 0 1 10 1 0\n"
            "T tern1 3 0 0 30000 500 59500\n"
            "T tern1 3 1 0 1800000 2000 3598000\n");
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
  EXPECT_EQ(describe(cl),
            "S m 4 7 1 p [x y]\n"
            "A m 0 0 0 5 4 1\n"
            "A m 0 0 0 5 9 9\n"
            "A m 0 200 0 5 4 1\n"
            "A m 4 1 0 25 -0.15 2\n"
            "T m 3 255 0 1001 -1 0\n"
            "T m 4 3 0 1500 1000 2000\n");
  // Gain and offset: the first match; 1 and 0 outside 0..199, or for a
  // name that matches only in part.
  // Gain and offset: the first match; 1 and 0 outside 0..199, or for a
  // name that matches only in part.
  const struct {
    const char* tern;
    int chan;
    float gain, offset;
  } lookups[] = {{"m", 0, 4, 1}, {"m", 1, -0.15f, 2}, {"m", 200, 1, 0}, {"m", -1, 1, 0}, {"mm", 0, 1, 0}};
  for (const auto& l : lookups) {
    float g = -9, o = -9;
    cl.AnalogGainOffset(l.tern, l.chan, &g, &o);
    EXPECT_EQ(std::make_pair(g, o), std::make_pair(l.gain, l.offset)) << l.tern << " " << l.chan;
  }
}

TEST_F(ChannelsTest, EmptyAndCommentOnlyFilesAreValid) {
  for (const char* text : {"", "# nothing\n\n   # here\n", "\n\n"})
    EXPECT_EQ(describe(channel_list(write("c", text).c_str())), "");
}

TEST_F(ChannelsTest, MissingFileIsBadConfiguration) {
  pointSiteHere();
  std::string what;
  try {
    channel_list cl("$HERON/projects/$PROJECT/$OPS/none");
  } catch (const BadConfigurationException& e) {
    what = e.toString();
  }
  EXPECT_EQ(what, "BadConfigurationException: IOException: " + root_ +
                      "/projects/p/o/none: open: No such file or directory");
}

TEST_F(ChannelsTest, SyntaxErrorsNameTheLineAndEndTheProcess) {
  const struct {
    const char* name;
    std::string text;
    const char* message;  // followed by the file name
  } cases[] = {
      {"short", "# ok\nanalog m datel 0 5 on 1 2 ;\n\nserial m iv1624 1 on x p ;\n",
       "Error: syntax error in line 4 of "},
      {"keyword", "\n\nchannel m datel 0 ;\n", "Error: syntax error in line 3 of "},
      {"range", "ttl m datel_ttl_out 256 0 1 2 ;",
       "Error: channel number out of range in line 1 of "},
      {"nul", std::string("timetag msecs ;\n\0", 17), "Error: syntax error in line 2 of "},
      {"unterminated", "timetag msecs", "Error: syntax error in line 1 of "},
  };
  for (const auto& c : cases) {
    const std::string file = write(c.name, c.text);
    EXPECT_EXIT(channel_list(file.c_str()), ::testing::ExitedWithCode(1), c.message + file);
  }
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
