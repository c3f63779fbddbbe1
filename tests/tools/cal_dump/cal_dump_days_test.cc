// cal_dump_days over archives that cross midnight: two days of data, a day
// without any, and a station whose calibration file is missing; and
// cal_dump's plot of those archives, across midnight, at the size asked.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

// The example site, its archives replaced by 20 s around midnight
// 2026-11-21/22 and its Gill sonic's calibration file removed.
TEST(CalDumpDays, StationDaysInParallelWithTheirFailuresReported) {
  ScratchSite site("demo", "ops1");
  const RunResult made = runProgram(
      {"/bin/sh", "-c",
       "cp -R \"$0\"/examples/site/. \"$1\" && rm \"$2\"/* \"$1\"/projects/demo/cal_files/demo_gill.cal && "
       "/usr/bin/python3 \"$0\"/examples/make_raw_data.py --seconds 20 --start 1795305590 --out \"$2\" >/dev/null",
       HERON_SOURCE_DIR, site.root(), site.opsDir() + "/raw"});
  ASSERT_EQ(made.status, 0) << made.err;
  const std::string out = site.root() + "/out";
  const RunResult r = runProgram({"/bin/sh", CAL_DUMP_DAYS_SCRIPT, "-s", "2026-11-21", "-e", "2026-11-24", "-o", out,
                                  "-j", "2", "-m", "tern1", "-m", "tern2", "-m", "tern3", "--", "-a", "1"},
                                 "", {"CAL_DUMP=" CAL_DUMP_BIN});
  EXPECT_EQ(r.status, 1) << r.err;
  for (const char* station : {"tern1", "tern2"}) {
    for (const char* day : {"20261121", "20261122"})
      EXPECT_EQ(access((out + "/" + station + "_" + day + ".nc").c_str(), R_OK), 0) << station << day;
    EXPECT_NE(r.out.find(std::string(station) + " 2026-11-23: no samples\n"), std::string::npos) << r.out;
  }
  EXPECT_NE(r.err.find("tern3 2026-11-21: FAILED (status 1): demo_gill.cal: No such file"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("cal_dump_days: 9 station-days: 4 written, 2 without samples, 3 failed\n"), std::string::npos)
      << r.err;

  // The plot of the same archives, across midnight, is one gnuplot takes:
  // a PNG of the size asked.
  const RunResult plot = runProgram({CAL_DUMP_BIN, "-s", "2026-11-21T23:00:00Z", "-e", "2026-11-22T01:00:00Z", "--plot",
                                     out + "/night.png", "--plot-size", "640x480", "-o", "/dev/null", "u.wind", "p.baro"});
  EXPECT_TRUE(plot.status == 0 && plot.err.find("gnuplot") == std::string::npos) << plot.err;
  EXPECT_EQ(ScratchSite::read(out + "/night.png").substr(0, 24),
            std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x02\x80\0\0\x01\xe0", 24));  // 640 x 480

  // A station's days join along time: ten one-second intervals each.
  const RunResult joined = runProgram(
      {"/usr/bin/python3", "-c",
       "import glob, sys\n"
       "try:\n"
       "    import dask, xarray\n"
       "except ImportError as e:\n"
       "    sys.exit('skip: ' + str(e))\n"
       "ds = xarray.open_mfdataset(sorted(glob.glob(sys.argv[1] + '/tern1_*.nc')))\n"
       "print(ds.sizes['time'], ds.time.values[0], ds.time.values[-1])\n",
       out});
  if (joined.err.rfind("skip: ", 0) == 0) GTEST_SKIP() << "no open_mfdataset here: " << joined.err;
  EXPECT_EQ(joined.out, "20 2026-11-21T23:59:50.000000000 2026-11-22T00:00:09.000000000\n") << joined.err;
}

}  // namespace
