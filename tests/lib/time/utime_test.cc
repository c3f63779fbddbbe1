// UTime against the C library and date(1): text forms, calendar forms,
// formatting with fractions, zones with daylight saving.
#include <gtest/gtest.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "time/UTime.h"

namespace {

// Puts the process's zone back as it was, whatever a test installed.
class UTimeTest : public ::testing::Test {
 protected:
  void SetUp() override { UTime::setTZ(nullptr); }  // UTC
  void TearDown() override {
    if (saved_ != nullptr)
      setenv("TZ", savedTZ_.c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
    UTime::setfmt(nullptr);
  }

 private:
  const char* saved_ = getenv("TZ");
  const std::string savedTZ_ = saved_ ? saved_ : "";
};

std::string fmtTm(const char* fmt, const struct tm& tm) {
  char buf[128];
  strftime(buf, sizeof buf, fmt, &tm);
  return buf;
}

std::string shell(const std::string& cmd) {
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return "";
  char buf[256];
  std::string out;
  while (fgets(buf, sizeof buf, p)) out += buf;
  pclose(p);
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

// Every text form of the instant whole + ms/1000, built from the C
// library's broken-down time, must read back as the same instant.
void expectAllForms(int local, time_t whole, int ms, double expect) {
  // In the UTC runs the process's zone is UTC as well, so the local
  // breakdown also names the zone as strftime will.
  struct tm tm;
  localtime_r(&whole, &tm);
  char frac[8];
  snprintf(frac, sizeof frac, ".%03d", ms);
  struct tm midnight = tm;
  midnight.tm_hour = midnight.tm_min = midnight.tm_sec = 0;
  midnight.tm_isdst = -1;
  const double withMs = expect + ms / 1000.0, minuteStart = expect - tm.tm_sec,
               dayStart = static_cast<double>(local ? mktime(&midnight) : timegm(&midnight));
  const struct {
    const char* fmt;
    bool withFraction;
    double want;
  } forms[] = {
      {"%Y %b %d %H:%M:%S", true, withMs},    {"%Y %B %d %H:%M:%S", true, withMs},
      {"%Y %m %d %H:%M:%S", true, withMs},    {"%Y %m %d %H%M%S", true, withMs},
      {"%Y %b %d %H%M%S", true, withMs},      {"%Y %j %H:%M:%S", true, withMs},
      {" %Y  %m %d  %H:%M:%S", true, withMs}, {"%Y %b %d %H:%M", false, minuteStart},
      {"%Y %m %d %H:%M", false, minuteStart}, {"%Y %j %H:%M", false, minuteStart},
      {"%Y %b %d", false, dayStart},          {"%Y %m %d", false, dayStart},
      {"%Y %j", false, dayStart},
  };
  for (const auto& f : forms) {
    const std::string s = fmtTm(f.fmt, tm) + (f.withFraction ? frac : "");
    EXPECT_NEAR(UTime(local, s.c_str()).val(), f.want, 1e-6) << s << " local=" << local;
  }
  if (tm.tm_year >= 50 && tm.tm_year < 150) {  // two-digit years inside the window
    const std::string s = fmtTm("%y %m %d %H:%M:%S", tm) + frac;
    EXPECT_NEAR(UTime(local, s.c_str()).val(), withMs, 1e-6) << s;
  }
  const float sec = static_cast<float>(tm.tm_sec);
  EXPECT_EQ(UTime(local, tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, sec).val(), expect);
  EXPECT_EQ(UTime(local, tm.tm_year + 1900, tm.tm_yday + 1, tm.tm_hour, tm.tm_min, sec).val(), expect);
  EXPECT_EQ(UTime(local, fmtTm("%Y-%m-%d %H:%M:%S", tm).c_str(), "%Y-%m-%d %H:%M:%S").val(), expect);
  // Formatting back: strftime of the same fields plus the milliseconds.
  UTime u(static_cast<double>(whole) + ms / 1000.0);
  EXPECT_EQ(u.string("%Y %m %d %H:%M:%S%F %Z"),
            fmtTm("%Y %m %d %H:%M:%S", tm) + frac + fmtTm(" %Z", tm));
  int a[11];
  u.to_intArray(a, 11);
  const int want[11] = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_yday + 1,
                        tm.tm_hour,        tm.tm_min,     tm.tm_sec,  a[7],
                        tm.tm_isdst,       static_cast<int>(-tm.tm_gmtoff), tm.tm_wday};
  for (int i = 0; i < 11; ++i) EXPECT_EQ(a[i], want[i]) << i;
  EXPECT_NEAR(a[7], ms, 1);
}

TEST_F(UTimeTest, RandomInstantsRoundTripInUtcAndDaylightSavingZone) {
  std::mt19937_64 rng(20261122);
  // 1901 to 2099: both sides of the epoch and of the two-digit-year window.
  std::uniform_int_distribution<long long> secs(-2177452800LL, 4102444799LL);
  std::uniform_int_distribution<int> msecs(0, 999);
  for (int local : {0, 1}) {
    if (local) UTime::setTZ("America/Denver");
    for (int i = 0; i < 1500 && !HasFailure(); ++i) {
      const time_t whole = static_cast<time_t>(secs(rng));
      // In the repeated hour the text is ambiguous; the C library's choice
      // for the same fields is the reference.
      struct tm tm;
      localtime_r(&whole, &tm);
      tm.tm_isdst = -1;
      const double expect = static_cast<double>(local ? mktime(&tm) : whole);
      expectAllForms(local, whole, msecs(rng), expect);
    }
  }
}

TEST_F(UTimeTest, AgreesWithDate) {
  if (system("date -u -d @0 >/dev/null 2>&1") != 0) GTEST_SKIP() << "no GNU date";
  std::mt19937_64 rng(7);
  std::uniform_int_distribution<long long> secs(0, 4102444799LL);
  for (int i = 0; i < 40; ++i) {
    const long long t = secs(rng);
    const std::string text = shell("date -u -d @" + std::to_string(t) + " '+%Y %b %d %H:%M:%S'");
    EXPECT_EQ(UTime(0, text.c_str()).val(), static_cast<double>(t)) << text;
    EXPECT_EQ(UTime(static_cast<double>(t)).string("%Y %b %d %H:%M:%S"), text);
    const std::string local =
        shell("TZ=Europe/Berlin date -d @" + std::to_string(t) + " '+%Y %m %d %H:%M:%S %Z'");
    UTime::setTZ("Europe/Berlin");
    EXPECT_EQ(UTime(static_cast<double>(t)).string("%Y %m %d %H:%M:%S %Z"), local);
    UTime::setTZ(nullptr);
  }
}

// Text forms in UTC against instants computed from the calendar.
TEST_F(UTimeTest, FreeFormTexts) {
  const double feb29 = 1078012800.0, noon = feb29 + 43200;  // 2004-02-29
  const struct {
    const char* text;
    double want;
  } cases[] = {
      {"2000 1 1", 946684800.0},
      {"0 1 1", 946684800.0},  // two-digit years: 0 .. 49 are 2000 ..
      {"99 12 31", 946598400.0},  // .. and 50 .. 99 are 1900 ..
      {"100 1 1", 946684800.0},  // three-digit years count from 1900
      {"130 1 1", 1893456000.0},
      {"1900 3 1", -2203891200.0},  // full years stay
      {"1930 jan 1", -1262304000.0},
      {"2004 60", feb29},  // day 60 is February 29 in leap years ..
      {"2000 60", 951782400.0},
      {"2100 60", 4107542400.0},  // .. and 2100 is not one
      {"2003 366", 1072915200.0},
      {"2004 feb 29 12:00", noon},
      {"2004 60 12:00:00.5", noon + 0.5},
      {"2004 FEBRUARY 29 120000", noon},
      {"2004 2 29 120000.25", noon + 0.25},
      {"2004 2 29", feb29},  // a partly matching form leaves nothing behind
      {"2004 xyz 1", 1070236800.0},  // an unknown month carries into December before
      {"1078056000.125", 1078056000.125},
      {"", 0.0},
      {"   ", 0.0},
      {"garbage", 0.0},
      {"2004 1 1 1e12", UTime::BIGBANG},
  };
  for (const auto& c : cases) EXPECT_EQ(UTime(0, c.text).val(), c.want) << '"' << c.text << '"';
  EXPECT_EQ(UTime(0, 99, 12, 31, 0, 0, 0.0f).val(), 946598400.0);
  const double before = static_cast<double>(time(nullptr));
  const double now = UTime(0, "nowhere").val();
  EXPECT_GE(now, before);
  EXPECT_EQ(now, floor(now));
  EXPECT_LE(now, static_cast<double>(time(nullptr)));
  // Microseconds survive the text form (doubles near 1.6e9 hold no more).
  EXPECT_NEAR(UTime(0, "2020 1 1 00:00:01.123456").val() - UTime(0, "2020 1 1").val(), 1.123456, 1e-6);
}

TEST_F(UTimeTest, DayOfYearAcrossDaylightSaving) {
  UTime::setTZ("Europe/Berlin");
  // Day 200 is in summer time, January 1 is not.
  EXPECT_EQ(UTime(1, "2021 200 12:00:00").string("%Y %m %d %H:%M:%S %Z"), "2021 07 19 12:00:00 CEST");
  EXPECT_EQ(UTime(1, 2021, 200, 12, 0, 0.0f).val(), 1626688800.0);
  EXPECT_EQ(UTime(1, "2021 200", "%Y %j").string("%m %d %H %Z"), "07 19 00 CEST");
  EXPECT_EQ(UTime(0, "2021 200 12:00:00").val(), 1626696000.0);  // UTC fields, whatever the zone
}

TEST_F(UTimeTest, FractionFormatting) {
  UTime t(1000.9999996);
  EXPECT_EQ(t.string("%H:%M:%S%3F"), "00:16:41.000");
  EXPECT_EQ(t.string("%S%F"), "41.000");
  EXPECT_EQ(UTime(1000.9994).string("%S%F"), "40.999");
  EXPECT_EQ(UTime(1000000000.25).string("%S%1F|%6F|%0F"), "40.3|.250000|.");
  EXPECT_EQ(UTime(1000000000.0625).string("%S%9F"), "40.062500000");
  EXPECT_EQ(UTime(1000000000.5).string("100%%F %S"), "100%F 40");
  // Before the epoch the fraction still counts forward from the second.
  EXPECT_EQ(UTime(-0.25).string("%Y %H:%M:%S%2F"), "1969 23:59:59.75");
  char small[4];
  EXPECT_STREQ(UTime(0.0).to_charstar(small, sizeof small, "%Y"), "");
}

TEST_F(UTimeTest, UnusableTimes) {
  const UTime bad(0, "2004 feb 29", "%Y-%m-%d");
  EXPECT_EQ(bad.val(), UTime::BIGBANG);
  const std::string printed = bad.string("%Y");
  ASSERT_FALSE(printed.empty());
  EXPECT_EQ(printed[0], '-');  // long before the epoch
  EXPECT_EQ(UTime(NAN).string("%Y")[0], '-');
  EXPECT_EQ(UTime::Msecs(NAN), -1);
}

TEST_F(UTimeTest, DefaultFormatAndManipulators) {
  std::ostringstream os;
  os << UTime(0.0);
  EXPECT_EQ(os.str(), "Thu Jan 01 00:00:00 UTC 1970");
  os.str("");
  os << UTsetfmt("%Y%m%d %H%M%S%2F") << UTime(86400.5) << UTsetTZ("Asia/Kolkata") << " "
     << UTime(86400.5);
  EXPECT_EQ(os.str(), "19700102 000000.50 19700102 053000.50");
  EXPECT_STREQ(getenv("TZ"), "Asia/Kolkata");
  UTime::setTZ("Asia/Kolkata");  // unchanged: nothing to do
  EXPECT_STREQ(getenv("TZ"), "Asia/Kolkata");
  UTime::setTZ(nullptr);
  EXPECT_STREQ(getenv("TZ"), "");
}

TEST_F(UTimeTest, IntArrayBounds) {
  int a[12];
  for (int& v : a) v = -7;
  const UTime t(0, "2004 feb 29 12:34:56.789");
  t.to_intArray(a, 0);
  t.to_intArray(a, 12);
  EXPECT_EQ(a[0], -7);
  t.to_intArray(a, 1);
  EXPECT_EQ(a[0], 2004);
  EXPECT_EQ(a[1], -7);
  t.to_intArray(a, 11);
  EXPECT_EQ(std::vector<int>(a, a + 12),
            (std::vector<int>{2004, 2, 29, 60, 12, 34, 56, 789, 0, 0, 0, -7}));
}

TEST(UTimeStatic, MonthNamesAndMsecs) {
  char a[] = "SEPTEMBER", b[] = "Ja", c[] = "dEc";
  EXPECT_EQ(UTime::month(a), 9);
  EXPECT_STREQ(a, "sepTEMBER");
  EXPECT_EQ(UTime::month(b), 0);
  EXPECT_EQ(UTime::month(c), 12);
  EXPECT_EQ(UTime::Msecs(86400.0 * 12345 + 3600.0 + 0.2496), 3600250);
  EXPECT_EQ(UTime::Msecs(86400.0 * 12345 + 86399.9996), 0);
  EXPECT_EQ(UTime::Msecs(1.0004), 1000);
}

}  // namespace
