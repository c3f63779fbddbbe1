// The loaded calibration-file form and the choice of record by time.
#include <math.h>

#include <string>

#include "cal_file.h"
#include "calib_test_util.h"

namespace {

// 2004-01-01 00:00:00 UTC.
constexpr double k2004 = 1072915200.0;

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
  EXPECT_EQ(cal->ndata, 2);
  EXPECT_STREQ(cal->cal_file_name, "test.cal");
  EXPECT_DOUBLE_EQ(cal->times[0], k2004);
  EXPECT_DOUBLE_EQ(cal->times[1], k2004 + 31 * 86400.0 + 43200.0);
  EXPECT_DOUBLE_EQ(cal->times[2], cal->times[1]);  // day 32 is February 1
  EXPECT_DOUBLE_EQ(cal->times[3], k2004 + 12 * 3600 + 34 * 60 + 56.5);
  EXPECT_DOUBLE_EQ(cal->times[4], 946684800.0 - 0.75);  // just before 2000
  EXPECT_DOUBLE_EQ(cal->times[5], 883612800.0);
  EXPECT_DOUBLE_EQ(cal->times[6], k2004 + 59 * 86400.0 + 43200.5);  // Feb 29
  EXPECT_DOUBLE_EQ(cal->data[0][0], 1.0);
  EXPECT_DOUBLE_EQ(cal->data[0][1], 2.5);
  EXPECT_DOUBLE_EQ(cal->data[1][0], -1.0);
  EXPECT_DOUBLE_EQ(cal->data[1][1], 0.5);
  EXPECT_DOUBLE_EQ(cal->data[2][0], 30.0);
  EXPECT_DOUBLE_EQ(cal->data[2][1], -0.25);
  EXPECT_EQ(cal->data[1], cal->data[0] + 2);  // records lie end to end
}

TEST(CalFile, ManyRecordsAndEmptyFile) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += "2004 1 " + std::to_string(i) + ":00 " + std::to_string(i) + " 1 2\n";
  CalPtr cal = parse(text);
  ASSERT_TRUE(cal);
  ASSERT_EQ(cal->nrecords, 1000);
  EXPECT_EQ(cal->ndata, 3);
  EXPECT_DOUBLE_EQ(cal->times[999], k2004 + 999 * 3600.0);
  EXPECT_DOUBLE_EQ(cal->data[999][0], 999.0);

  CalPtr empty = parse("# nothing yet\n\n");
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->nrecords, 0);
}

TEST(CalFile, RecordChoiceBySampleTime) {
  CalPtr cal = parse(
      "2004 1 00:00 1\n"
      "2004 1 01:00 2\n"
      "2004 1 02:00 3\n"
      "2004 1 03:00 4\n");
  ASSERT_TRUE(cal);
  cal_select sel;
  cal_select_start(&sel, cal.get());
  EXPECT_EQ(cal_select_update(&sel, k2004 - 1), 0);  // before the first record
  EXPECT_EQ(sel.in_force, nullptr);
  EXPECT_EQ(cal_select_update(&sel, k2004), 1);  // takes effect at its own time
  EXPECT_DOUBLE_EQ(sel.in_force[0], 1.0);
  EXPECT_EQ(cal_select_update(&sel, k2004 + 3599.9), 0);
  EXPECT_DOUBLE_EQ(sel.in_force[0], 1.0);
  EXPECT_EQ(cal_select_update(&sel, k2004 + 2.5 * 3600), 1);  // two passed: the later wins
  EXPECT_DOUBLE_EQ(sel.in_force[0], 3.0);
  EXPECT_EQ(cal_select_update(&sel, k2004 + 1e6), 1);
  EXPECT_DOUBLE_EQ(sel.in_force[0], 4.0);
  EXPECT_TRUE(isinf(sel.next_time));
  EXPECT_EQ(cal_select_update(&sel, k2004 + 1e9), 0);  // the last applies for ever
}

TEST(CalFile, UnrecognizedCharacterIsReportedAndSkipped) {
  testing::internal::CaptureStderr();
  CalPtr cal = parse("2004 1 00:00 1 @ 2\n");
  std::string err = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(cal);
  EXPECT_EQ(cal->ndata, 2);
  EXPECT_EQ(err, "Unrecognized character, '@' ('\\0100'), at line 1\n");
}

TEST(CalFile, SyntaxErrorsAreReportedWithTheirLine) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(parse("2004 1 00:00 1\n2004 1 00:00\n"));  // a time with no value
  EXPECT_FALSE(parse("2004 1 00:00 1\n\n\"quoted\" 2004 1 00:00 1\n"));
  EXPECT_FALSE(parse("2004 1 00:00 1 offset\n"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "syntax error in line 2 of calibration file: test.cal\n"
            "syntax error in line 3 of calibration file: test.cal\n"
            "syntax error in line 1 of calibration file: test.cal\n");
}

TEST(CalFileDeathTest, InconsistentRecordEndsTheProgram) {
  ScratchDir dir;
  std::string path = dir.write("offsets.cal",
                               "2004 1 00:00 1 2 3\n"
                               "2004 2 00:00 1 2\n");
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
  EXPECT_NE(testing::internal::GetCapturedStderr().find("x.cal: No such file or directory"),
            std::string::npos);
}
