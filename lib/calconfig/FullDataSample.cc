#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "base/Exception.h"
#include "base/fatal.h"
#include "base/logit.h"
#include "calconfig/TaggedSample.h"
#include "time/UTime.h"

namespace {

void put(FILE* fp, const void* p, size_t n) {
  if (fwrite(p, 1, n, fp) != n) throw oru::IOException("output file", "write", errno);
}

void values(FILE* fp, const DataArray<float>& data, const char* const* formats) {
  for (int i = 0; i < data.size(); ++i) {
    const char* f = formats && formats[i] ? formats[i] : " %11.5g";
    if (fprintf(fp, f, static_cast<double>(data[i])) < 0) throw oru::IOException("output file", "write", errno);
  }
}

void text(int n) {
  if (n < 0) throw oru::IOException("output file", "write", errno);
}

}  // namespace

void FullDataSample::Output(FILE* fp, outputFormat fmt, const char* const* formats) const {
  const int ms = UTime::Msecs(ttag);
  switch (fmt) {
    case BIN: {
      // One write per record: the marker, the time, then index and value
      // pairs of the values someone asked for.
      std::vector<char> rec(6 + 10 * static_cast<size_t>(data.size()));
      const int16_t mark = -1;
      memcpy(rec.data(), &mark, 2);
      memcpy(rec.data() + 2, &ms, 4);
      size_t n = 6;
      for (int i = 0; i < data.size(); ++i) {
        if (!info || !info[i]) continue;
        const short idx = info[i]->Index();
        const double v = data[i];
        memcpy(rec.data() + n, &idx, 2);
        memcpy(rec.data() + n + 2, &v, 8);
        n += 10;
      }
      put(fp, rec.data(), n);
      return;
    }
    case HMS:
      text(fprintf(fp, "%02d:%02d:%06.3f ", ms / 3600000, ms / 60000 % 60, ms % 60000 / 1000.0));
      values(fp, data, formats);
      return;
    case MSEC:
    case ASCIICOLUMN:
      text(fprintf(fp, "%8d ", ms));
      values(fp, data, formats);
      return;
    case HOUR:
      text(fprintf(fp, "%09.6f ", ms / 3600000.0));
      values(fp, data, formats);
      return;
    case BINCOLUMN: {
      std::vector<char> rec(8 + 4 * static_cast<size_t>(data.size()));
      memcpy(rec.data(), &ttag, 8);
      if (data.size() > 0)
        memcpy(rec.data() + 8, static_cast<const float*>(data), 4 * static_cast<size_t>(data.size()));
      put(fp, rec.data(), rec.size());
      return;
    }
    default:
      logit(LOG_ERR, "Programming error, type = %d not supported", static_cast<int>(fmt));
      exit_status_1();
  }
}
