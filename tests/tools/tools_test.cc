// raw_dump and raw_playback as a user runs them: on small archives in a
// scratch folder and standard input, with no site in the environment.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "lib/samples/sample_support.h"
#include "support/scratch_site.h"
#include "support/subprocess.h"

namespace {

// One sample with a big-endian time tag.
std::string sample(uint32_t tag, int chan, const std::string& data) {
  return sample_test::bytesOf({tag, static_cast<uint8_t>(chan), data});
}

// A wierd12 tag: seconds of the day above, milliseconds in the low 12 bits.
uint32_t w12(uint32_t secs, uint32_t ms) { return secs << 12 | ms; }

struct Case {
  std::vector<std::string> argv;  // "A", "B", "C", "M" and "N" stand for the archives
  int status;
  std::string out;  // exact when it ends in a newline, else the start
  std::string err = "";  // a part of standard error
  std::string in = "";   // standard input
};

const std::string D = RAW_DUMP_BIN, P = RAW_PLAYBACK_BIN, S = SITE_CHECK_BIN, kKept = "raw_dump: 0 samples with untrusted time tags left out";

const Case kCases[] = {
    // The time-tag type on the command line, the day from the file name.
    {{D, "-t", "wierd12", "-c", "1", "A"}, 0, "2026 11 21 12:00:00.000 0 43200000 1 4 1 -1\n", kKept},
    {{D, "-t", "wierd12", "-c", "1", "-D", "2026 1 2", "A"}, 0, "2026 01 02 12:00:00.000 0 43200000 1 4 1 -1\n", kKept},
    {{D, "-t", "wierd12", "-c", "1", "-s", "2026 3 4 11:00", "A"}, 0, "2026 03 04 12:00:00.000 0", kKept},
    // Begun a second before midnight, first sample a second after it.
    {{D, "-t", "msecs", "B"}, 0, "2026 11 22 00:00:01.000 0 1000 1 0\n", kKept},
    {{D, "-t", "msecs", "C"}, 0, "2026 11 21 23:59:59.000 0 86399000 1 0\n", kKept},  // and the other way round
    // Two files merged in time order: earlier tags believed in a named file
    // only after ten of them, and the end-of-data marker ends M.
    {{D, "-D", "2026 11 21", "M", "N"}, 0,
     "2026 11 21 12:00:00.000 0 43200000 1 2 1\n2026 11 21 11:20:00.000 0 40800000 3 0\n"
     "2026 11 21 12:00:00.100 1 43200100 2 0\n", "raw_dump: 11 samples with untrusted time tags left out"},
    {{D, "-s", "2026 1 2 12:00", "-f", "%j %H:%M:%S%1F", "-"}, 0, "002 12:01:00.0 0 43260000 1 0\n", "",
     sample(43260000, 1, "")},
    {{D, "/nonexistent/x.raw"}, 1, "", "raw_dump: IOException: /nonexistent/x.raw: open: No such file or directory"},
    {{D, "-D", "yesterday", "A"}, 1, "", "raw_dump: cannot read the time \"yesterday\": write it as 2026-11-21T12:00:00Z or \"2026 11 21 12:00\""},
    // Without the type the site would give, every tag is out of range.
    {{D, "A"}, 2, "", "raw_dump: every sample was left out"},
    {{D, "A"}, 2, "", "raw_dump: 5 samples with untrusted time tags left out"},
    {{D, "-t", "wierd12", "-c", "1,3-4", "-f", "%S%3F", "A"}, 0,
     "00.000 0 43200000 1 4 1 -1\n00.500 0 43200500 3 4 5 6\n00.750 0 43200750 3 2 7\n01.000 0 43201000 3 6 8 9 10\n"},
    // Every word type once.
    {{D, "-t", "wierd12", "-c", "1", "-f", "%S", "-w", "s16le", "A"}, 0, "00 0 43200000 1 4 1 -1\n"},
    {{D, "-t", "wierd12", "-c", "1", "-f", "%S", "-w", "s16be", "A"}, 0, "00 0 43200000 1 4 256 -1\n"},
    {{D, "-t", "wierd12", "-c", "1", "-f", "%S", "-w", "u16le", "A"}, 0, "00 0 43200000 1 4 1 65535\n"},
    {{D, "-t", "wierd12", "-c", "1", "-f", "%S", "-w", "u16be", "A"}, 0, "00 0 43200000 1 4 256 65535\n"},
    {{D, "-t", "wierd12", "-c", "1", "-f", "%S", "-w", "s32le", "A"}, 0, "00 0 43200000 1 4 -65535\n"},
    {{D, "-t", "wierd12", "-c", "1", "-f", "%S", "-w", "u32le", "A"}, 0, "00 0 43200000 1 4 4294901761\n"},
    {{D, "-t", "wierd12", "-c", "2", "-f", "%S", "-w", "s32be", "A"}, 0, "00 0 43200250 2 4 1065353216\n"},
    {{D, "-t", "wierd12", "-c", "2", "-f", "%S", "-w", "u32be", "A"}, 0, "00 0 43200250 2 4 1065353216\n"},
    {{D, "-t", "wierd12", "-c", "2", "-f", "%S", "-w", "f32be", "A"}, 0, "00 0 43200250 2 4 1\n"},
    {{D, "-t", "wierd12", "-c", "2", "-f", "%S", "-w", "f32le", "A"}, 0, "00 0 43200250 2 4 4.60060299e-41\n"},
    // Columns: numeric time, as many values as the channel's first sample.
    {{D, "-t", "wierd12", "-c", "3", "-C", "A"}, 0,
     "1795262400.500 0 43200500 3 4 5 6\n1795262400.750 0 43200750 3 2 7 NaN\n1795262401.000 0 43201000 3 6 8 9\n",
     "raw_dump: 1 samples had more values than their channel's columns and were cut"},
    {{D, "-t", "hours", "A"}, 1, "", "raw_dump: unknown time-tag type \"hours\""},
    {{D, "-c", "3-1", "A"}, 1, "", "raw_dump: bad channel list \"3-1\""},
    {{D, "-w", "f16le", "A"}, 1, "", "raw_dump: unknown word type \"f16le\""},
    {{D, "--help"}, 0, "Usage: raw_dump ["},
    {{D, "--version"}, 0, "raw_dump (heron"},
    {{D, "--bogus", "A"}, 1, "", "Usage: raw_dump"},
    // raw_playback refuses what its timing could not convert.
    {{P, "-g", "inf", "A", "--", "/bin/true"}, 1, "", "raw_playback: bad gap \"inf\" (a number from 0 to 86400)"},
    {{P, "-w", "1e300", "A", "--", "/bin/true"}, 1, "", "raw_playback: bad wait \"1e300\""},
    {{P, "-s", "nan", "A", "--", "/bin/true"}, 1, "", "raw_playback: bad speed \"nan\""},
    {{P, "-s", "1e-300", "A", "--", "/bin/true"}, 1, "", "raw_playback: bad speed \"1e-300\""},
    {{P, "-B", "1e12", "-d", "/dev/null", "A"}, 1, "", "raw_playback: bad baud \"1e12\""},
    {{P, "--help"}, 0, "Usage: raw_playback ["},
    {{P, "--version"}, 0, "raw_playback (heron"},
    {{P, "--bogus"}, 1, "", "Usage: raw_playback"},
    {{S, "--help"}, 0, "Usage: site_check ["},
    {{S, "--version"}, 0, "site_check (heron"},
    {{S, "--bogus"}, 2, "", "Usage: site_check"},
    {{S}, 1, "", "site_check: HERON is not set"},
};

TEST(Tools, OptionsOnBareArchives) {
  ScratchSite scratch;
  for (const char* var : {"HERON", "PROJECT", "OPS"}) unsetenv(var);
  const std::string a = scratch.write(
      "a_20261121_120000.raw",
      sample(w12(43200, 0), 1, std::string("\x01\x00\xff\xff", 4)) + sample(w12(43200, 250), 2, std::string("\x3f\x80\0\0", 4)) +
          sample(w12(43200, 500), 3, std::string("\5\0\6\0", 4)) + sample(w12(43200, 750), 3, std::string("\7\0", 2)) +
          sample(w12(43201, 0), 3, std::string("\x08\0\x09\0\x0a\0", 6)));
  const std::string b = scratch.write("b_20261121_235959.raw", sample(1000, 1, ""));
  const std::string c = scratch.write("c_20261122_000001.raw", sample(86399000, 1, ""));
  std::string early, marker;
  for (int i = 0; i < 12; ++i) early += sample(43200000 - 2400000, 3, "");
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  const std::string m = scratch.write("m.raw", sample(43200000, 1, std::string("\1\0", 2)) + early +
                                                   sample(43200300, 3, marker) + sample(43200400, 1, ""));
  const std::string n = scratch.write("n.raw", sample(43200100, 2, ""));
  for (const Case& t : kCases) {
    std::vector<std::string> argv = t.argv;
    std::string shown;
    for (std::string& arg : argv) {
      shown += arg + " ";
      arg = arg == "A" ? a : arg == "B" ? b : arg == "C" ? c : arg == "M" ? m : arg == "N" ? n : arg;
    }
    const RunResult r = runProgram(argv, t.in);
    EXPECT_EQ(r.status, t.status) << shown << r.err;
    if (!t.out.empty() && t.out.back() == '\n')
      EXPECT_EQ(r.out, t.out) << shown;
    else
      EXPECT_EQ(r.out.substr(0, t.out.size()), t.out) << shown;
    EXPECT_NE(r.err.find(t.err), std::string::npos) << shown << r.err;
  }
}

}  // namespace
