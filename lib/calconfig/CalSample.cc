#include "calconfig/CalSample.h"

#include <math.h>
#include <string.h>

#include <memory>

#include "base/flop_convert.h"

namespace {

// A waiting raw record copied into zeroed room for the longest record, as
// TaggedRawSample keeps its own.
struct Record {
  explicit Record(const DataArray<char>& d) {
    memset(bytes, 0, sizeof bytes);
    const int n = d.getNbytes() < static_cast<int>(sizeof bytes) ? d.getNbytes() : static_cast<int>(sizeof bytes);
    if (n > 0) memcpy(bytes, static_cast<const char*>(d), static_cast<size_t>(n));
  }
  char bytes[TaggedRawSample::kRecordRoom];
};

void convert(CalSample& s, const char* raw, const ChannelConfig* cc, int ichan) {
  calib_input in = {0, raw};
  if (cc->sampleType == ChannelConfig::ANALOG) {
    const double volts = flop_short(raw) * ChannelConfig::ADVRANGE / ChannelConfig::ADDRANGE;
    in.volts = static_cast<float>((volts - cc->offset) / cc->gain);
  }
  cc->calib_func(&s.ttag, in, static_cast<float*>(s.data), ichan);
}

HeronDataId** idsOf(const ChannelConfig* cc, int from) {
  return const_cast<HeronDataId**>(cc->dids.data()) + from;
}

}  // namespace

CalSample::CalSample(double t, const char* raw, const ChannelConfig* cc) : FullDataSample(t, 0, nullptr) {
  all(t, raw, cc);
}

CalSample::CalSample(double t, const char* raw, const ChannelConfig* cc, int isub) : FullDataSample(t, 0, nullptr) {
  one(t, raw, cc, isub);
}

CalSample::CalSample(const CalSample& cs, int i) : FullDataSample(cs.ttag, 0, nullptr) { lagged(cs, i); }

CalSample* CalSample::spare() {
  CalSample* s = Spares<CalSample>::take();
  return s ? s : new CalSample;
}

CalSample* CalSample::make(double t, const char* raw, const ChannelConfig* cc) {
  std::unique_ptr<CalSample, ReleaseSample> s(spare());  // given back if the conversion throws
  s->all(t, raw, cc);
  return s.release();
}

CalSample* CalSample::make(double t, const char* raw, const ChannelConfig* cc, int isub) {
  std::unique_ptr<CalSample, ReleaseSample> s(spare());
  s->one(t, raw, cc, isub);
  return s.release();
}

CalSample* CalSample::make(const CalSample& cs, int i) {
  std::unique_ptr<CalSample, ReleaseSample> s(spare());
  s->lagged(cs, i);
  return s.release();
}

void CalSample::reset(double t, int n, HeronDataId** ids) {
  ttag = t;
  data.setNbytes(n * static_cast<int>(sizeof(float)));
  for (int i = 0; i < n; ++i) data[i] = 0.0f;
  ngood = n;
  info = ids;
}

void CalSample::all(double t, const char* raw, const ChannelConfig* cc) {
  reset(t, cc->nsub, idsOf(cc, 0));
  convert(*this, raw, cc, cc->ithCall);
}

void CalSample::one(double t, const char* raw, const ChannelConfig* cc, int isub) {
  reset(t, 1, idsOf(cc, isub));
  convert(*this, raw, cc, cc->ithCall + isub);
  if (info[0]->phase) ttag -= info[0]->phase->GetLag(ttag);
}

void CalSample::lagged(const CalSample& cs, int i) {
  reset(cs.ttag, 1, cs.info + i);
  data[0] = cs.data[i];
  ttag -= info[0]->phase->GetLag(ttag);
}

TaggedSample<int>* RoundedSample(TaggedSample<float>& s) {
  TaggedSample<int>* r = new TaggedSample<int>(s.ttag, s.size());
  for (int i = 0; i < s.size(); ++i) r->data[i] = static_cast<int>(floor(s.data[i] + 0.5));
  return r;
}

CalSample* CalibrateMultiplex(double t, const DataArray<char>& raw, ChannelConfig* cc, ChannelConfig* ic) {
  const auto* index = static_cast<const TaggedSample<int>*>(ic->lastSample.get());
  if (!index || fabs(t - index->ttag) > 0.99 / ic->rate) {
    cc->lastSample.reset(new TaggedSample<char>(t, raw));
    return nullptr;
  }
  if (cc->indexSubChan >= index->size()) return nullptr;
  const int k = index->data[cc->indexSubChan];
  if (k < 0 || k >= cc->nsub || !cc->dids[static_cast<size_t>(k)]) return nullptr;
  const Record rec(raw);
  return CalSample::make(t, rec.bytes, cc, k);
}

void calibrate(SampleStream<TaggedSampleBase>& stream) {
  std::unique_ptr<DPlist<TaggedSampleBase>> raws(stream.Pop(type(static_cast<TaggedRawSample*>(nullptr))));
  const int calibrated = type(static_cast<FullDataSample*>(nullptr));
  stream.SetType(calibrated);
  if (!raws) return;
  for (DPlist_iter<TaggedSampleBase> it = raws->begin(); it(); ++it) {
    TaggedRawSample* rs = static_cast<TaggedRawSample*>(*it);
    ChannelConfig* cc = rs->cc;
    if (ChannelConfig* ic = cc->indexChanConfig) {
      cc->lastSample.reset();
      if (CalSample* s = CalibrateMultiplex(rs->ttag, rs->data, cc, ic)) stream.Push(calibrated, s);
      continue;
    }
    CalSample* cs = CalSample::make(rs->ttag, static_cast<const char*>(rs->data), cc);
    // An index channel's own values go out only when someone asked for
    // them; otherwise cs lives only until the end of this step.
    const bool keep = !(cc->indexChannel && cc->indexOnly);
    std::unique_ptr<CalSample, ReleaseSample> unkept(keep ? nullptr : cs);
    if (keep) stream.Push(calibrated, cs);
    if (cc->indexChannel) {
      cc->lastSample.reset(RoundedSample(*cs));
      for (ChannelConfig* m : cc->multiplexChanConfigs) {
        if (!m || !m->lastSample) continue;
        const auto* waiting = static_cast<const TaggedSample<char>*>(m->lastSample.get());
        if (CalSample* s = CalibrateMultiplex(waiting->ttag, waiting->data, m, cc)) {
          m->lastSample.reset();
          stream.Push(calibrated, s);
        }
      }
    }
    if (cc->nLagged > 0)
      for (int i = 0; i < cc->nsub; ++i)
        if (cc->laggedDids[static_cast<size_t>(i)]) stream.Push(calibrated, CalSample::make(*cs, i));
    cs->SetInfo(const_cast<HeronDataId**>(cc->nonLaggedDids.data()));
  }
}
