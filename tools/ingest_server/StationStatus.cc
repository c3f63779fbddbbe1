#include "StationStatus.h"

StationStatusReply::StationStatusReply(const InputState& in, size_t clients, double now)
    : station_(in.station.substr(0, 64)), port_(in.port.substr(0, 256)), file_(in.archiveFile.substr(0, 1024)) {
  for (const auto& c : in.channels)
    if (channels_.size() < kMaxChannels) channels_.push_back({c.first, c.second.samples, static_cast<float>(now - c.second.lastSample),
                         static_cast<float>(c.second.rate.rate(now))});
  const char* state = !in.archiveFailure.empty() ? "archive-failing" : in.quiet ? "quiet" : "up";
  const double up = now - in.started;
  station_status& s = res.station_status_res_u.status;
  res.ierr = 0;
  s.station = const_cast<char*>(station_.c_str());
  s.port = const_cast<char*>(port_.c_str());
  s.state = const_cast<char*>(state);
  s.lastSampleAge = static_cast<float>(in.lastSample < 0 ? -1 : now - in.lastSample);
  s.rate = static_cast<float>(in.rate.rate(now));
  s.upTime = static_cast<unsigned long>(up > 0 ? up : 0);
  s.samples = in.samples;
  s.badSamples = static_cast<unsigned long>(in.badSerialSamples);
  s.samplesLost = in.samplesLost;
  s.archiveFile = const_cast<char*>(file_.c_str());
  s.archiveBytes = in.archiveBytes;
  s.archiveErrors = in.archiveErrors;
  s.clients = clients;
  s.channels.channels_len = static_cast<u_int>(channels_.size());
  s.channels.channels_val = channels_.empty() ? nullptr : channels_.data();
}
