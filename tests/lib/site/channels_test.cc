// channel_config: every record kind, error reports, the process-wide
// time-tag rule, and TTConv's use of it.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "base/Exception.h"
#include "site/channels.h"
#include "support/reported.h"
#include "support/scratch_site.h"
#include "support/thrown.h"
#include "time/TTConv.h"

namespace {

// Every entry, one line each: kind, module, card, channel, status, then
// protocol and message (serial), rate, gain and offset (analog) or the
// three times in milliseconds (TTL).
std::string describe(const channel_list& cl) {
  std::ostringstream os;
  for (const serial_entry* s = cl.serialEntries(); s; s = s->next.get())
    os << "S " << s->tern << ' ' << s->card << ' ' << int(s->chan) << ' ' << s->status << ' ' << s->protocol
       << " [" << s->msg_and_conv << "]\n";
  for (const analog_entry* a = cl.analogEntries(); a; a = a->next.get())
    os << "A " << a->tern << ' ' << a->card << ' ' << int(a->chan) << ' ' << a->status << ' ' << a->hertz << ' '
       << a->gain << ' ' << a->offset << '\n';
  for (const ttloutput_entry* t = cl.ttlEntries(); t; t = t->next.get())
    os << "T " << t->tern << ' ' << t->card << ' ' << int(t->chan) << ' ' << t->status << ' ' << t->start << ' '
       << t->on << ' ' << t->off << '\n';
  return os.str();
}

TEST(ChannelConfig, WordsValuesAndLookups) {
  ScratchSite site;
  channel_list cl(site.writeOps("c", R"(# leading comment
serial m IV1624 7 ON 3.5 p "x y" ;  # unknown card, upper-case status
serial m iv3234 8 on x p q ;
analog m datel 0 5 on 4 1 ; analog m datel 0 5 on 9 9 ;  # first one wins
analog m datel 200 5 on raw ;
analog m iv1624 0x1 2.5e1 on -1.5e-1 +2 ;
ttl m datel_ttl_out 255 1.0015 -0.0019 0 ;
ttl m other 3 0:0:1.5 1 2 ;
timetag msecs ;
)").c_str());
  EXPECT_EQ(describe(cl),
            "S m 4 7 1 p [x y]\nS m 2 8 0 p [q]\nA m 0 0 0 5 4 1\nA m 0 0 0 5 9 9\nA m 0 200 0 5 1 0\nA m 4 1 0 25 -0.15 2\n"
            "T m 3 255 0 1001 -1 0\nT m 4 3 0 1500 1000 2000\n");
  // The first match; 1 and 0 outside 0..199 or for a name matching in part.
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
  EXPECT_EQ(describe(channel_list(site.writeOps("c", "# nothing\n\n").c_str())), "");
}

TEST(ChannelConfig, MissingFileIsBadConfiguration) {
  ScratchSite site;
  EXPECT_EQ(thrownText<BadConfigurationException>([] { channel_list cl("$HERON/projects/$PROJECT/$OPS/none"); }),
            "BadConfigurationException: IOException: " + site.opsDir() + "/none: open: No such file or directory");
}

TEST(ChannelConfig, SyntaxErrorsNameTheLineAndEndTheProcess) {
  ScratchSite site;
  const struct {
    std::string text;
    std::string message;  // followed by the file name
  } cases[] = {
      {"# ok\nanalog m datel 0 5 on 1 2 ;\n\nserial m iv1624 1 on x p ;\n", "Error: syntax error in line 4 of "},
      {"ttl m datel_ttl_out 256 0 1 2 ;", "Error: channel number out of range in line 1 of "},
      {std::string("timetag msecs ;\n\0", 17), "Error: syntax error in line 2 of "},
      {"timetag msecs", "Error: syntax error in line 1 of "},
      {"timetag " + std::string(5000, 'w') + " ;\n", "token too large, exceeds YYLMAX"},
  };
  for (const auto& c : cases) {
    const std::string file = site.writeOps("c", c.text);
    const std::string message = c.message[0] == 'E' ? c.message + file : c.message;
    EXPECT_EQ(heron_test::reported([&] { channel_list cl(file.c_str()); }), message + "\n[exit 1]");
    channel_list::throwOnSyntaxError(true);  // the same text, survivably
    EXPECT_EQ(thrownText<BadConfigurationException>([&] { channel_list cl(file.c_str()); }),
              "BadConfigurationException: " + message);
    channel_list::throwOnSyntaxError(false);
  }
}

uint32_t net(uint32_t host) { return htonl(host); }

// Checks of process-wide state run in a fresh copy of this program.
#define EXPECT_IN_FRESH_PROCESS(check) EXPECT_EXIT(exit((check) ? 0 : 1), ::testing::ExitedWithCode(0), "")

TEST(ChannelConfig, Wierd12StaysForTheWholeProcess) {
  ScratchSite site;
  const std::string plain = site.writeOps("plain", "timetag msecs ;\n");
  const std::string w12 = site.writeOps("w12", "timetag wierd12 ;\n");
  EXPECT_IN_FRESH_PROCESS(channel_list(plain.c_str()).timeTagType() == msecs &&
                          channel_list(w12.c_str()).timeTagType() == wierd12 &&
                          channel_list(plain.c_str()).timeTagType() == wierd12 &&
                          channel_list::processTimeTagType() == wierd12);
}

TEST(ChannelConfig, TimeTagConversionFollowsTheSite) {
  ScratchSite site;
  EXPECT_EXIT(
      {
        const bool ok = TTConv::Msecs(net(1234u)) == 1234 && TTConv::type() == msecs;
        site.writeOps("channel_config", "timetag wierd12 ;\n");
        // Read once per process: the file appearing later changes nothing.
        fprintf(stderr, "second %d\n", TTConv::Msecs(net(1234u)));
        exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "channel_config: open: No such file or directory; time tags are read as msecs\nsecond 1234");
  EXPECT_IN_FRESH_PROCESS(TTConv::type() == unknown && TTConv::Msecs(net((3600u << 12) | 250u)) == 3600250 &&
                          TTConv::type() == wierd12);
}

}  // namespace
