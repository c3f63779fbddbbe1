// File inputs end to end, from real files of a scratch site: one file after
// another, the guard's limit for named files, the end-of-data marker, and
// the failures of opening.
#include <gtest/gtest.h>

#include "base/Exception.h"
#include "samples/FileInputs.h"
#include "support/scratch_site.h"
#include "time/UTime.h"
#include "lib/samples/sample_support.h"

namespace {

using sample_test::bytesOf;
using sample_test::Record;

TEST(FileInput, FilesOneAfterAnother) {
  ScratchSite site;
  site.writeOps("channel_config", "timetag msecs ;\n");
  TTConv::init();
  const uint32_t noon = 12 * 3600000, behind = noon - 40 * 60000;
  std::string marker;
  for (int i = 0; i < 255; ++i) marker += static_cast<char>(i);
  std::string first = bytesOf(Record{noon, 1, "a"});
  for (int i = 0; i < 12; ++i) first += bytesOf(Record{behind, 2, "b"});
  // A named file with a start time believes earlier tags only after ten
  // of them; the second file carries on from the first one's time.
  std::string one = site.write("one.raw", first + bytesOf(Record{noon, 4, "x"}).substr(0, 5));
  std::string two = site.write("two.raw", bytesOf(Record{noon + 5000, 5, "c"}) + bytesOf(Record{noon, 3, marker}));
  std::vector<char*> names{&one[0], &two[0]};
  const double day = UTime(0, 2026, 11, 21, 0, 0, 0.0f).val();
  FilesRawDataInput in(9, names, {day + 43200});
  RawSample s;
  std::vector<double> times;
  try {
    while (in.readSample(&s) == 1) {
      EXPECT_EQ(s.ternIndex, 9);
      const double t = in.tt_to_secs(static_cast<long>(s.tt));
      times.push_back(t == RawDataInput::BIGBANG ? -1 : t - day);
    }
    ADD_FAILURE() << "no end";
  } catch (const oru::EOFException& e) {
    EXPECT_EQ(e.toString(), "EOFException: " + two + ": nextSample: ");
  }
  std::vector<double> want{43200};
  want.insert(want.end(), 11, -1);
  want.push_back(43200 - 2400);
  want.push_back(43205);
  EXPECT_EQ(times, want);
  EXPECT_THROW(in.readSample(&s), oru::EOFException);  // and the last file has ended

  std::vector<char*> missing{const_cast<char*>("/nonexistent/x.raw")};
  EXPECT_THROW(FilesRawDataInput(0, missing, {0.0}), oru::IOException);
  EXPECT_THROW(FilesRawDataInput(0, names, {}), oru::Exception);
}

}  // namespace
