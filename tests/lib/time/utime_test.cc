// UTime: text forms read in UTC and in a zone with daylight saving, the
// formats written back, fractions, unusable times.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <time.h>

#include <sstream>
#include <string>
#include <vector>

#include "time/StrictTime.h"
#include "time/UTime.h"

namespace {

// Puts the process's zone back as it was, whatever a test installed.
class UTimeTest : public ::testing::Test {
 protected:
  void SetUp() override { UTime::setTZ(nullptr); }  // UTC
  void TearDown() override {
    saved_ != nullptr ? setenv("TZ", savedTZ_.c_str(), 1) : unsetenv("TZ");
    tzset();
    UTime::setfmt(nullptr);
  }

 private:
  const char* saved_ = getenv("TZ");
  const std::string savedTZ_ = saved_ ? saved_ : "";
};

const double feb29 = 1078012800.0, noon = feb29 + 43200;  // 2004-02-29 UTC
const double berlinWinter = 1610708400.0;                 // 2021-01-15 12:00 CET
const double berlinSummer = 1626688800.0;                 // 2021-07-19 12:00 CEST

TEST_F(UTimeTest, FreeFormTexts) {
  const struct {
    const char* zone;  // null: UTC fields
    const char* text;
    double want;
  } cases[] = {
      {nullptr, "2000 1 1", 946684800.0},
      {nullptr, "0 1 1", 946684800.0},   // two-digit years: 0 .. 49 are 2000 ..
      {nullptr, "99 12 31", 946598400.0},  // .. and 50 .. 99 are 1900 ..
      {nullptr, "100 1 1", 946684800.0},   // three-digit years count from 1900
      {nullptr, "1930 jan 1", -1262304000.0},
      {nullptr, "2004 60", feb29},  // day 60 is February 29 in leap years ..
      {nullptr, "2100 60", 4107542400.0},  // .. and 2100 is not one
      {nullptr, "2004 feb 29 12:00", noon},
      {nullptr, "2004 60 12:00:00.5", noon + 0.5},
      {nullptr, "2004 FEBRUARY 29 120000", noon},
      {nullptr, "2004 2 29 120000.25", noon + 0.25},
      {nullptr, "2004 2 29", feb29},  // a partly matching form leaves nothing behind
      {nullptr, "2004 xyz 1", 1070236800.0},  // an unknown month carries into December before
      {nullptr, "1078056000.125", 1078056000.125},
      {nullptr, "", 0.0},
      {nullptr, "garbage", 0.0},
      {nullptr, "2004 1 1 1e12", UTime::BIGBANG},
      {nullptr, "2147483647 2147483647 1", UTime::BIGBANG},  // months carry the year past int
      {"Europe/Berlin", "2147483647 2147483647 1", UTime::BIGBANG},
      {"Europe/Berlin", "2021 1 15 12:00", berlinWinter},
      {"Europe/Berlin", "2021 15 12:00:00", berlinWinter},
      {"Europe/Berlin", "2021 jul 19 12:00:00", berlinSummer},
      {"Europe/Berlin", "2021 200 12:00:00", berlinSummer},  // January 1 is in winter time
      {"Europe/Berlin", "21 7 19 120000", berlinSummer},
  };
  for (const auto& c : cases) {
    UTime::setTZ(c.zone);
    EXPECT_EQ(UTime(c.zone != nullptr, c.text).val(), c.want) << c.zone << " \"" << c.text << '"';
  }
  EXPECT_EQ(UTime(0, "2000 -2147483648 1").val(), UTime(0, "-178956971 4 1").val());  // carried exactly
  EXPECT_EQ(UTime(0, "2021 200 12:00:00").val(), berlinSummer + 7200);  // UTC fields, whatever the zone
  EXPECT_EQ(UTime(1, 2021, 200, 12, 0, 0.0f).val(), berlinSummer);
  EXPECT_EQ(UTime(1, 2021, 1, 15, 12, 0, 0.0f).val(), berlinWinter);
  EXPECT_EQ(UTime(1, "2021 200", "%Y %j").string("%m %d %H %Z"), "07 19 00 CEST");
  const double before = static_cast<double>(time(nullptr)), now = UTime(0, "nowhere").val();
  EXPECT_GE(now, before);
  EXPECT_EQ(now, floor(now));
}

TEST_F(UTimeTest, Formatting) {
  const struct {
    const char* zone;
    double t;
    const char* fmt;
    const char* want;
  } cases[] = {
      {nullptr, 1000.9999996, "%H:%M:%S%3F", "00:16:41.000"},  // the fraction carries into the second
      {nullptr, 1000.9994, "%S%F", "40.999"},
      {nullptr, 1000000000.25, "%S%1F|%6F|%0F", "40.3|.250000|."},
      {nullptr, 1000000000.5, "100%%F %S", "100%F 40"},
      {nullptr, -0.25, "%Y %H:%M:%S%2F", "1969 23:59:59.75"},  // counted forward from the second
      {nullptr, berlinSummer, "%Y %m %d %H:%M:%S %Z", "2021 07 19 10:00:00 UTC"},
      {"Europe/Berlin", berlinSummer, "%Y %m %d %H:%M:%S %Z", "2021 07 19 12:00:00 CEST"},
      {"Europe/Berlin", berlinWinter + 0.5, "%d %H:%M:%S%1F %Z", "15 12:00:00.5 CET"},
  };
  for (const auto& c : cases) {
    UTime::setTZ(c.zone);
    EXPECT_EQ(UTime(c.t).string(c.fmt), c.want) << c.fmt;
  }
  char small[4];
  EXPECT_STREQ(UTime(0.0).to_charstar(small, sizeof small, "%Y"), "");
  EXPECT_EQ(UTime(0, "2004 feb 29", "%Y-%m-%d").string("%Y")[0], '-');  // BIGBANG: long before the epoch
  EXPECT_EQ(UTime::Msecs(NAN), -1);
}

TEST_F(UTimeTest, DefaultFormatAndManipulators) {
  std::ostringstream os;
  os << UTime(0.0) << UTsetfmt("|%Y%m%d %H%M%S%2F") << UTime(86400.5) << UTsetTZ("Asia/Kolkata") << " "
     << UTime(86400.5);
  EXPECT_EQ(os.str(), "Thu Jan 01 00:00:00 UTC 1970|19700102 000000.50 |19700102 053000.50");
  EXPECT_STREQ(getenv("TZ"), "Asia/Kolkata");
  UTime::setTZ(nullptr);
  EXPECT_STREQ(getenv("TZ"), "");
}

TEST_F(UTimeTest, IntArrayAndMonths) {
  int a[12];
  for (int& v : a) v = -7;
  const UTime t(0, "2004 feb 29 12:34:56.789");
  t.to_intArray(a, 0);
  t.to_intArray(a, 12);  // out of range: nothing written
  t.to_intArray(a, 1);
  EXPECT_EQ(a[1], -7);
  t.to_intArray(a, 11);
  EXPECT_EQ(std::vector<int>(a, a + 12), (std::vector<int>{2004, 2, 29, 60, 12, 34, 56, 789, 0, 0, 0, -7}));
  char sep[] = "SEPTEMBER", ja[] = "Ja";
  EXPECT_EQ(UTime::month(sep) * 100 + UTime::month(ja), 900);
  EXPECT_STREQ(sep, "sepTEMBER");
  EXPECT_EQ(UTime::Msecs(86400.0 * 12345 + 3600.0 + 0.2496), 3600250);
  EXPECT_EQ(UTime::Msecs(86400.0 * 12345 + 86399.9996), 0);
}

// Typed times: read whole and in range, or refused (NAN) with *seconds untouched.
TEST_F(UTimeTest, StrictTexts) {
  const double d = 1795219200.0;  // 2026-11-21T00:00:00Z
  const struct {
    const char* zone;
    const char* text;
    double want;
  } kCases[] = {
      {nullptr, "2026-11-21T12:00:00Z", d + 43200},    {nullptr, " 2026-11-21 ", d},
      {nullptr, "2026-11-21 12:00:30.25", d + 43230.25}, {nullptr, "2026-11-21T12:00+01:00", d + 39600},
      {nullptr, "2026-11-21T12:00-00:30", d + 45000},  {"Europe/Berlin", "2026-11-21T12:00Z", d + 43200},
      {"Europe/Berlin", "2021-07-19 12:00", berlinSummer}, {"Europe/Berlin", "2021 200 12:00", berlinSummer},
      {nullptr, "2026 11 21 12:00", d + 43200},        {nullptr, "2026 NOV 21 1:02:03.5", d + 3723.5},
      {nullptr, "2026 november 21 120000.5", d + 43200.5}, {nullptr, "2026 325", d},
      {nullptr, "2004 2 29", feb29},                   {nullptr, "2004-02-29 23:59:60Z", feb29 + 86400},
      {nullptr, "1795219200.5", d + 0.5},
      {nullptr, "garbage", NAN},      {nullptr, "", NAN},                  {nullptr, "2026", NAN},
      {nullptr, "20261121", NAN},     {nullptr, "2026-13-21", NAN},        {nullptr, "2026-11-32", NAN},
      {nullptr, "2025-02-29", NAN},   {nullptr, "2026-11-21T25:00", NAN},  {nullptr, "2026-11-21T12:60", NAN},
      {nullptr, "2026-11-21T12:00:61", NAN}, {nullptr, "2026-11-21T12:00Zx", NAN}, {nullptr, "2026-11-21T12", NAN},
      {nullptr, "2026-11-21T12:00+24:00", NAN}, {nullptr, "2026/11/21 12:00", NAN}, {nullptr, "26 11 21", NAN},
      {nullptr, "2026 13 21", NAN},   {nullptr, "2026 nov 21 12:00 x", NAN}, {nullptr, "21 nov 2026 12:00", NAN},
      {nullptr, "2026 novem 21", NAN}, {nullptr, "2026 366", NAN},         {nullptr, "2026 11 21 1200", NAN},
      {nullptr, "nowish", NAN},
  };
  for (const auto& c : kCases) {
    UTime::setTZ(c.zone);
    double got = NAN;
    EXPECT_EQ(heron::parseTimeStrict(c.text, c.zone != nullptr, &got), !isnan(c.want)) << c.text;
    if (!isnan(c.want)) {
      EXPECT_EQ(got, c.want) << c.zone << " \"" << c.text << '"';
    }
  }
  double now = 0;
  EXPECT_TRUE(heron::parseTimeStrict("now", 0, &now));
  EXPECT_NEAR(now, static_cast<double>(time(nullptr)), 2);
  EXPECT_EQ(heron::refusedTime("t", "x"), "t: cannot read the time \"x\": write it as 2026-11-21T12:00:00Z or \"2026 11 21 12:00\"");
}

}  // namespace
