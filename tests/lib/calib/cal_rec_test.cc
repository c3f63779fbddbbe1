// The line form of calibration files, its time texts, and the conversion
// that interpolates between its records.
#include <time.h>

#include <string>

#include "calib/cal_file.h"
#include "calib_test_util.h"
#include "calib/conversions.h"

TEST(TimeString, DateFormsReadAsUtc) {
  const char* old = getenv("TZ");
  const std::string saved = old ? old : "";
  setenv("TZ", "America/Denver", 1);  // summer time in force on the dates below
  tzset();
  const double jul1 = k2004 + 182 * 86400.0;
  EXPECT_DOUBLE_EQ(time_string_to_double("2004 jul 1 12:00:30.25"), jul1 + 43230.25);
  EXPECT_DOUBLE_EQ(time_string_to_double("04 7 1 123456.5"), jul1 + 45296.5);
  EXPECT_DOUBLE_EQ(time_string_to_double("2004 183 12:00:00.5"), jul1 + 43200.5);
  if (old)
    setenv("TZ", saved.c_str(), 1);
  else
    unsetenv("TZ");
  tzset();
  EXPECT_NEAR(time_string_to_double("now"), static_cast<double>(time(nullptr)), 5);
}

TEST(CalRec, RecordsAndSkippingRules) {
  std::string text =
      "# time                slope  intercept\n"
      "\n"
      "2004 1 1 00:00:00     1.5    2.5\n"
      "   # only a comment\n"
      "1.0 2.0\n"                       // no time text: skipped
      "7\n"                             // too few fields: skipped
      "2004 1 1 06:00:00     3.0    -1   # after a comment mark\n"
      "2004 1 1 12:00:00     oops   4\n"  // a bad field leaves its value
      + std::string(300, ' ') + "\n";   // a long line read in pieces
  FILE* fp = fmemopen(&text[0], text.size(), "r");
  const struct {
    double t;
    float a, b;
  } want[] = {{k2004, 1.5f, 2.5f}, {k2004 + 6 * 3600, 3.0f, -1.0f}, {k2004 + 12 * 3600, 3.0f, 4.0f}};
  double t = 0;
  float a = 0, b = 0;
  for (const auto& w : want) {
    ASSERT_EQ(read_cal_rec(fp, &t, 2, &a, &b), 2);
    EXPECT_EQ(t, w.t);
    EXPECT_EQ(a, w.a);
    EXPECT_EQ(b, w.b);
  }
  EXPECT_EQ(read_cal_rec(fp, &t, 2, &a, &b), -1);
  EXPECT_EQ(read_cal_rec(fp, &t, 2, &a, &b), -1);
  fclose(fp);
}

TEST(CalRec, SetCalParamsMovesAndFrees) {
  double* src[2] = {static_cast<double*>(malloc(sizeof(double))), static_cast<double*>(malloc(sizeof(double)))};
  *src[0] = 1.25;
  *src[1] = -3.5;
  double x = 0, y = 0;
  set_cal_params(src, 2, &x, &y);
  EXPECT_EQ(x, 1.25);
  EXPECT_EQ(y, -3.5);
  EXPECT_EQ(src[0], nullptr);
}

TEST(CalRec, InterpolatedLinearConversion) {
  ScratchDir dir;
  std::string path = dir.write("drift.cal",
                               "2004 1 1 00:00:00  1.0  0.0\n"
                               "2004 1 1 10:00:00  2.0  10.0\n"
                               "2004 1 1 20:00:00  2.0  30.0\n");
  InfoPtr info = init(td_linear_interp_init, Params{path, "mV"});
  EXPECT_STREQ(info->units[0], "mV");
  EXPECT_EQ(convert(td_linear_interp, 1.0f, k2004 - 1), kMissing);
  EXPECT_FLOAT_EQ(convert(td_linear_interp, 2.0f, k2004), 2.0f);
  // Half way: slope 1.5, intercept 5.
  EXPECT_FLOAT_EQ(convert(td_linear_interp, 2.0f, k2004 + 5 * 3600), 8.0f);
  // Between the second and third records: slope 2, intercept 10 .. 30.
  EXPECT_FLOAT_EQ(convert(td_linear_interp, 1.0f, k2004 + 15 * 3600), 22.0f);
  // Past the end the last two records are extrapolated.
  EXPECT_FLOAT_EQ(convert(td_linear_interp, 1.0f, k2004 + 30 * 3600), 52.0f);
  // A single record applies for ever.
  InfoPtr one = init(td_linear_interp_init, Params{dir.write("one.cal", "2004 1 1 00:00:00  3.0  1.0\n")});
  EXPECT_FLOAT_EQ(convert(td_linear_interp, 2.0f, k2004 + 1e6), 7.0f);
}

TEST(CalRecDeathTest, FileWithoutRecords) {
  ScratchDir dir;
  EXPECT_EXIT(init(td_linear_interp_init, Params{dir.write("empty.cal", "# nothing\n")}), testing::ExitedWithCode(1),
              "Error: td_linear_interp calibration function error\nCalibration file .*empty.cal holds no record\n");
}
