#include "Acquisition.h"

#include <algorithm>
#include <cmath>

#include "base/Exception.h"
#include "base/clock.h"
#include "base/logit.h"

IngestClock IngestClock::system() {
  return {heron::monotonicSeconds, heron::wallSeconds};
}

QuietWatch::QuietWatch(const std::string& station, const std::string& device, double start)
    : who_(station + " on " + device), last_(start) {}

double QuietWatch::threshold() const { return std::max(kMinQuiet, kQuietFactor * meanInterval_); }

void QuietWatch::sample(double mono) {
  if (quiet_) {
    quiet_ = false;
    logit(LOG_NOTICE, "%s: data again after %.0f s", who_.c_str(), mono - last_);
  } else if (seen_) {
    // A running mean over about the last 32 intervals; a silence the
    // watch has already reported does not count towards it.
    const double dt = mono - last_;
    meanInterval_ = meanInterval_ > 0 ? meanInterval_ + (dt - meanInterval_) / 32 : dt;
  }
  seen_ = true;
  last_ = mono;
}

void QuietWatch::check(double mono) {
  if (quiet_ || mono - last_ < threshold()) return;
  quiet_ = true;
  ++spells_;
  logit(LOG_WARNING, "%s: no data for %.0f s", who_.c_str(), mono - last_);
}

Acquisition::Acquisition(RawDataInput& in, ArchiveWriter& archive, InputState& state, const IngestClock& clock,
                         Deliver deliver)
    : in_(in),
      archive_(archive),
      state_(state),
      clock_(clock),
      deliver_(std::move(deliver)),
      quiet_(state.station, state.port, clock.monotonic()),
      nextFlush_(clock.monotonic() + 1) {
  state_.started = clock.monotonic();
}

int Acquisition::pollTimeout() const {
  const double left = (resting_ ? std::min(portDue_, nextFlush_) : nextFlush_) - clock_.monotonic();
  return left > 0 ? static_cast<int>(std::ceil(left * 1000 - 1e-6)) : 0;  // no extra ms for rounding
}

int Acquisition::serve(bool readable, bool hangup) {
  const double mono = clock_.monotonic();
  if (!readable && !(resting_ && mono >= portDue_)) return 0;
  const double wall = clock_.wall();
  RawSample samp;
  char wire[RawSample::headLen + 256];
  int got = 0, good = 0;
  size_t batch = 0;
  for (int r; batch < kBatch && (r = in_.readSample(&samp)) != Framer::NoData; ++got) {
    if (r == Framer::FramingError) {
      ++state_.badSerialSamples;
      continue;
    }
    ++good;
    // The archive keeps raw tags and its readers judge them again, so an
    // untrusted tag is only counted: dropping it here would also drop the
    // good samples after a burst of noise that the guard believed.
    if (in_.tt_to_secs(static_cast<long>(samp.tt)) == RawDataInput::BIGBANG) ++state_.tossedTags;
    const size_t n = static_cast<size_t>(samp.encode(wire));  // the tag as it came
    ++state_.samples;
    state_.rate.add(mono);
    ChannelState& chan = state_.channels[samp.chan];
    ++chan.samples;
    chan.lastSample = mono;
    chan.rate.add(mono);
    batch += n;
    archive_.append(wire, n, wall);
    deliver_(samp.chan, wire, n);
  }
  // A hung-up line reads as nothing at all, every time: end, and let the
  // supervisor start us again.
  if (got == 0 && hangup) throw oru::EOFException(state_.port.c_str(), "read");
  // Any sample, trusted or not, shows the instrument is talking.
  if (good > 0) quiet_.sample(mono);
  state_.lastSample = quiet_.seen() ? quiet_.last() : -1;
  resting_ = got > 0;
  portDue_ = batch >= kBatch ? mono : mono + kGather;
  return got;
}

void Acquisition::tick() {
  const double mono = clock_.monotonic();
  quiet_.check(mono);
  state_.quiet = quiet_.quiet();
  state_.quietSpells = quiet_.spells();
  if (mono < nextFlush_) return;
  archive_.flush(clock_.wall());
  nextFlush_ = mono + 1;
  noteArchive();
}

void Acquisition::noteArchive() {
  state_.archiveFailure = archive_.failure();
  state_.archiveErrors = archive_.errors();
  state_.samplesLost = archive_.lost();
  state_.archiveFile = archive_.currentFile();
  state_.archiveBytes = static_cast<unsigned long long>(archive_.fileBytes());
}
