// The loaded calibration-file form and the choice of record by time.
#include <math.h>

#include <string>
#include <vector>

#include "calib/cal_file.h"
#include "calib_test_util.h"

namespace {

struct CalDeleter {
  void operator()(calib_struct* c) const { free_cal_file(c); }
};
using CalPtr = std::unique_ptr<calib_struct, CalDeleter>;

// Parses text as a calibration file; null after a reported syntax error.
CalPtr parse(const std::string& text) {
  FILE* fp = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  calib_struct* cal = nullptr;
  parse_cal_stream(fp, "test.cal", &cal);
  fclose(fp);
  return CalPtr(cal);
}

std::vector<double> row(const calib_struct& c, int i) { return {c.data[i], c.data[i] + c.ndata}; }

}  // namespace

TEST(CalFile, TimeStampForms) {
  CalPtr cal = parse(
      "# offsets of the mast sensors\n"
      "2004 jan 1 00:00:00 1 2.5\n"
      "\n"
      "2004 Feb 1 12:00 -1 .5   # a comment after a record\n"
      "2004 32 12:00:00 3e1 -2.5E-1\n"
      "04 january 1 123456.5 0 0\n"
      "99 Dec 31 23:59:59.25 0 0\n"
      "1998 1 000000 0 0\n"
      "2004 60 12:00:00.5 0 0");  // no final newline
  ASSERT_TRUE(cal);
  ASSERT_EQ(cal->nrecords, 7);
  ASSERT_EQ(cal->ndata, 2);
  EXPECT_STREQ(cal->cal_file_name, "test.cal");
  const double feb1 = k2004 + 31 * 86400.0 + 43200.0;  // day 32 is February 1 too
  EXPECT_EQ(std::vector<double>(cal->times, cal->times + 7),
            (std::vector<double>{k2004, feb1, feb1, k2004 + 12 * 3600 + 34 * 60 + 56.5,
                                 946684800.0 - 0.75, 883612800.0, k2004 + 59 * 86400.0 + 43200.5}));
  EXPECT_EQ(row(*cal, 0), (std::vector<double>{1.0, 2.5}));
  EXPECT_EQ(row(*cal, 1), (std::vector<double>{-1.0, 0.5}));
  EXPECT_EQ(row(*cal, 2), (std::vector<double>{30.0, -0.25}));
  EXPECT_EQ(cal->data[1], cal->data[0] + 2);  // records lie end to end
}

TEST(CalFile, ManyRecordsAndEmptyFile) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += "2004 1 " + std::to_string(i) + ":00 " + std::to_string(i) + " 1 2\n";
  CalPtr cal = parse(text);
  ASSERT_TRUE(cal);
  ASSERT_EQ(cal->nrecords, 1000);
  EXPECT_DOUBLE_EQ(cal->times[999], k2004 + 999 * 3600.0);
  EXPECT_EQ(row(*cal, 999), (std::vector<double>{999, 1, 2}));
  CalPtr empty = parse("# nothing yet\n\n");
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->nrecords, 0);
}

TEST(CalFile, RecordChoiceBySampleTime) {
  CalPtr cal = parse("2004 1 00:00 1\n2004 1 01:00 2\n2004 1 02:00 3\n2004 1 03:00 4\n");
  ASSERT_TRUE(cal);
  cal_select sel;
  cal_select_start(&sel, cal.get());
  const struct {
    double t;
    int taken;
    double inForce;  // 0: none yet
  } steps[] = {
      {k2004 - 1, 0, 0},          // before the first record
      {k2004, 1, 1},              // a record takes effect at its own time
      {k2004 + 3599.9, 0, 1},
      {k2004 + 2.5 * 3600, 1, 3},  // two passed: the later wins
      {k2004 + 1e6, 1, 4},
      {k2004 + 1e9, 0, 4},  // the last applies for ever
  };
  for (const auto& s : steps) {
    EXPECT_EQ(cal_select_update(&sel, s.t), s.taken) << s.t - k2004;
    EXPECT_EQ(sel.in_force ? sel.in_force[0] : 0, s.inForce) << s.t - k2004;
  }
  EXPECT_TRUE(isinf(sel.next_time));
}

TEST(CalFile, ParseErrorsAreReportedWithTheirLine) {
  testing::internal::CaptureStderr();
  CalPtr cal = parse("2004 1 00:00 1 @ 2\n");  // reported and skipped
  ASSERT_TRUE(cal);
  EXPECT_EQ(cal->ndata, 2);
  EXPECT_FALSE(parse("2004 1 00:00 1\n2004 1 00:00\n"));  // a time with no value
  EXPECT_FALSE(parse("2004 1 00:00 1\n\n\"quoted\" 2004 1 00:00 1\n"));
  EXPECT_FALSE(parse("2004 1 00:00 1 offset\n"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Unrecognized character, '@' ('\\0100'), at line 1\n"
            "syntax error in line 2 of calibration file: test.cal\n"
            "syntax error in line 3 of calibration file: test.cal\n"
            "syntax error in line 1 of calibration file: test.cal\n");
}

TEST(CalFileDeathTest, InconsistentRecordEndsTheProgram) {
  ScratchDir dir;
  std::string path = dir.write("offsets.cal", "2004 1 00:00 1 2 3\n2004 2 00:00 1 2\n");
  EXPECT_EXIT(read_cal_file(path.c_str()), testing::ExitedWithCode(1),
              "Inconsistant number of calibration parameters in file " + path +
                  "\nFirst record contained time \\+ 3 data elements\n"
                  "Current record contains time \\+ 2 data elements\n"
                  "syntax error in line 2 of calibration file: " + path);
}

TEST(CalFile, ReadByNameAndUnopenableFile) {
  ScratchDir dir;
  std::string path = dir.write("gains.cal", "2004 1 00:00 1.5\n");
  CalPtr cal(read_cal_file(path.c_str()));
  ASSERT_TRUE(cal);
  EXPECT_EQ(cal->nrecords, 1);
  EXPECT_STREQ(cal->cal_file_name, path.c_str());

  testing::internal::CaptureStderr();
  EXPECT_EQ(read_cal_file("/nonexistent/dir/x.cal"), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("x.cal: No such file or directory"), std::string::npos);
}
