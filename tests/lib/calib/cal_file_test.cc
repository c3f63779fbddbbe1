// Calibration files: the loaded form and its time stamps, and the line form
// with its time texts.  The choice of record by sample time is checked
// through the conversions that use it, and parse faults through the init
// functions that stop on them.
#include <time.h>

#include "calib/cal_file.h"
#include "calib_test_util.h"

namespace {

using CalPtr = std::unique_ptr<calib_struct, decltype(&free_cal_file)>;

// Parses text as a calibration file; null after a reported syntax error.
CalPtr parse(const std::string& text) {
  FILE* fp = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  calib_struct* cal = nullptr;
  parse_cal_stream(fp, "test.cal", &cal);
  fclose(fp);
  return CalPtr(cal, free_cal_file);
}

}  // namespace

TEST(CalFile, TimeStampFormsAndValues) {
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
  const double feb1 = k2004 + 31 * 86400.0 + 43200.0;  // day 32 is February 1 too
  EXPECT_EQ(std::vector<double>(cal->times, cal->times + cal->nrecords),
            (std::vector<double>{k2004, feb1, feb1, k2004 + 12 * 3600 + 34 * 60 + 56.5, 946684800.0 - 0.75,
                                 883612800.0, k2004 + 59 * 86400.0 + 43200.5}));
  EXPECT_EQ(std::vector<double>(cal->data[1], cal->data[1] + 2 * cal->ndata), (std::vector<double>{-1, 0.5, 30, -0.25}));

  std::string text;  // many records: the blocks grow and stay end to end
  for (int i = 0; i < 1000; ++i) text += "2004 1 " + std::to_string(i) + ":00 " + std::to_string(i) + " 1 2\n";
  cal = parse(text);
  ASSERT_EQ(cal->nrecords, 1000);
  EXPECT_EQ(std::vector<double>(cal->data[998], cal->data[998] + 6), (std::vector<double>{998, 1, 2, 999, 1, 2}));
  EXPECT_EQ(parse("# nothing yet\n\n")->nrecords, 0);
}

TEST(CalRec, LineFormRecordsInUtcWhateverTheZone) {
  setenv("TZ", "America/Denver", 1);  // summer time in force on these dates
  tzset();
  std::string text =
      "# time                     slope  intercept\n\n"
      "2004 jul 1 12:00:30.25     1.5    2.5\n"
      "   # only a comment\n1.0 2.0\n7\n"          // no time text, too few fields: skipped
      "04 7 1 123456.5            3.0    -1   # after a comment mark\n"
      "2004 183 12:00:00.5        oops   4\n"       // a bad field leaves its value
      + std::string(300, ' ') + "\n";               // a long line read in pieces
  FILE* fp = fmemopen(&text[0], text.size(), "r");
  const double jul1 = k2004 + 182 * 86400.0;
  double t = 0;
  float a = 0, b = 0;
  for (const std::vector<double>& want : std::vector<std::vector<double>>{
           {jul1 + 43230.25, 1.5, 2.5}, {jul1 + 45296.5, 3, -1}, {jul1 + 43200.5, 3, 4}}) {
    ASSERT_EQ(read_cal_rec(fp, &t, 2, &a, &b), 2);
    EXPECT_EQ((std::vector<double>{t, a, b}), want);
  }
  EXPECT_EQ(read_cal_rec(fp, &t, 2, &a, &b), -1);
  fclose(fp);
  unsetenv("TZ");
  tzset();
}
