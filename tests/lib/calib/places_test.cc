// A fault in a site file names the file and the line it is in, and a site
// environment left unset says which variables to set.
#include <stdlib.h>

#include <functional>

#include "base/Exception.h"
#include "calib/cal_file.h"
#include "calib_test_util.h"
#include "site/channels.h"
#include "support/reported.h"

namespace {

TEST(Places, FaultsNameTheirFileAndLine) {
  ScratchSite site;
  const std::string cal = site.root() + "/projects/p/cal_files/", ops = site.opsDir() + "/";
  calFile(site, "count.cal", "# two values\n2004 1 00:00 1 2\n2004 2 00:00 1\n");
  calFile(site, "char.cal", "2004 1 00:00 1 @ 2\n2004 1 00:00\n");  // a stray character, a time with no value
  site.writeOps("channel_config", "serial m iv1624 1 on x p \"s c\" ;\ntimetag weird12 ;\n");
  const auto calibration = [](const char* name) { return [name] { free_cal_file(read_cal_file(name)); }; };
  const auto channels = [] {  // a configuration fault, reported as a tool reports it
    try {
      channel_list cl;
    } catch (const oru::Exception& e) {
      logit(LOG_ERR, "%s", e.toString().c_str());
    }
  };
  const std::string missing = "BadConfigurationException: IOException: ";
  const struct {
    std::vector<const char*> unset;
    std::function<void()> read;
    std::string message;
  } cases[] = {
      {{}, calibration("count.cal"),
       "Inconsistant number of calibration parameters in file count.cal (" + cal + "count.cal:3)\n"
       "First record contained time + 2 data elements\nCurrent record contains time + 1 data elements\n"
       "syntax error in line 3 of calibration file: count.cal (" + cal + "count.cal)\n[exit 1]"},
      {{}, calibration("char.cal"), "Unrecognized character, '@' ('\\0100'), at line 1 of " + cal + "char.cal\n"
                                    "syntax error in line 2 of calibration file: char.cal (" + cal + "char.cal)\n[exit 1]"},
      {{}, channels, "Warning: unknown time-tag type \"weird12\" (msecs or wierd12) in line 2 of " + ops +
                     "channel_config; the type is left as it was\n"},
      {{"HERON"}, channels,
       missing + "$HERON/projects/p/o/channel_config: open: No such file or directory; set HERON, PROJECT and OPS (HERON is not set)\n"},
      {{"PROJECT", "OPS"}, channels,
       missing + site.root() + "/projects/$PROJECT/$OPS/channel_config: open: No such file or directory; "
                               "set HERON, PROJECT and OPS (PROJECT and OPS are not set)\n"},
  };
  for (const auto& c : cases) {
    for (const char* name : c.unset) unsetenv(name);
    EXPECT_EQ(heron_test::reported(c.read), c.message);
    setenv("HERON", site.root().c_str(), 1), setenv("PROJECT", "p", 1), setenv("OPS", "o", 1);
  }
}

}  // namespace
