#include "calconfig/CalConfig.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "base/Exception.h"
#include "base/fatal.h"
#include "base/logit.h"
#include "samples/RawDataInputs.h"

namespace {

bool isNull(const std::string& prefix) { return prefix == "null"; }

}  // namespace

CalConfig::CalConfig(const char* prepConfig) : SidList(prepConfig), HeronDataIds(*static_cast<SidList*>(this)) {
  TernList::initialize();
  const int nterns = TernList::nterns();
  num_chan.assign(static_cast<size_t>(nterns), 0);
  for (const auto& s : sids) {
    const size_t t = static_cast<size_t>(TernInfo(s->sid_tern.c_str()).number);
    num_chan[t] = std::max(num_chan[t], s->sid_channel + 1);
  }
  sidMatrix.resize(static_cast<size_t>(nterns));
  for (size_t t = 0; t < sidMatrix.size(); ++t) sidMatrix[t].resize(static_cast<size_t>(num_chan[t]));
}

CalConfig::~CalConfig() = default;

HeronDataId* CalConfig::RegisterDataIdByName(const char* didName, ChannelConfig* dataChannel) {
  if (strncmp(didName, "null.", 5) == 0) return nullptr;
  HeronDataId* id = (*this)[didName];
  const SidEntry* sep = sid_from_did(didName);
  if (!sep) throw BadConfigurationException(std::string("Unknown variable: ") + didName);
  ChannelConfig* cc = ChannelConfigFromDidName(didName);
  if (!cc) {
    cc = new ChannelConfig(sep, dataChannel != nullptr, this);
    ChannelConfigVec.emplace_back(cc);
    _bySid[sep] = cc;
    if (!sep->index_didname.empty()) {
      // A multiplexed sensor lists the parameters of every value in turn.
      if (sep->n_calib_params() % cc->nsub != 0) {
        logit(LOG_ERR, "Incorrect number of calibration parameters (%d) for %s", sep->n_calib_params(),
                sep->root_name.c_str());
        exit_status_1();
      }
      cc->nCalibParams = sep->n_calib_params() / cc->nsub;
    }
    cc->ternIndex = TernInfo(sep->sid_tern.c_str()).number;
    channels.AnalogGainOffset(sep->sid_tern.c_str(), sep->sid_channel, &cc->gain, &cc->offset);
    if (!sep->index_didname.empty()) RegisterDataIdByName(sep->index_didname.c_str(), cc);
  }

  std::vector<ChannelConfig*>& slot =
      sidMatrix[static_cast<size_t>(cc->ternIndex)][static_cast<size_t>(cc->channel)];
  if (std::find(slot.begin(), slot.end(), cc) == slot.end()) slot.push_back(cc);
  cc->wanted = 1;
  if (!dataChannel) cc->wantedNames.insert(didName);
  ingestChannels.Set(cc->channel);

  max_rate = std::max(max_rate, static_cast<double>(cc->rate));
  const float phaseLag = id && id->phase ? id->phase->lag.lag : 0.0f;
  for (float lag : {sep->poslag, sep->neglag, sep->lag.lag, phaseLag}) {
    maxPosLag = std::max(maxPosLag, lag);
    maxNegLag = std::min(maxNegLag, lag);
  }
  lagDiff = maxPosLag - maxNegLag;
  if (id) id->deltat = cc->rate > 0.0f ? 1.0 / cc->rate : 0.0;

  if (!dataChannel) {
    cc->indexOnly = 0;
  } else {
    const int k = sep->WhichDid(didName);
    cc->indexChannel = 1;
    cc->multiplexChanConfigs[static_cast<size_t>(k)] = dataChannel;
    dataChannel->indexSubChan = k;
    dataChannel->indexChanConfig = cc;
  }
  return id;
}

void CalConfig::PreRegisterAllDataIds() {
  for (const auto& s : sids)
    for (int i = 0; i < s->n_prefixes(); ++i)
      if (!isNull(s->prefixes[static_cast<size_t>(i)])) RegisterDataIdByName(s->DidName(i).c_str());
}

void CalConfig::UnRegisterDataId(const HeronDataId* id) {
  ChannelConfig* cc = ChannelConfigFromDidName(id->name.c_str());
  if (!cc) return;
  cc->wantedNames.erase(id->name);
  if (!cc->wantedNames.empty()) return;
  // An index channel stays while one of its data channels is wanted.
  std::vector<ChannelConfig*> drop{cc};
  if (ChannelConfig* ic = cc->indexChanConfig) {
    bool needed = !ic->wantedNames.empty();
    for (ChannelConfig* m : ic->multiplexChanConfigs) needed = needed || (m && m != cc && m->wanted);
    if (!needed) drop.push_back(ic);
  }
  for (ChannelConfig* c : drop) {
    c->wanted = 0;
    auto& slot = sidMatrix[static_cast<size_t>(c->ternIndex)][static_cast<size_t>(c->channel)];
    slot.erase(std::remove(slot.begin(), slot.end(), c), slot.end());
  }
  ingestChannels.Clear();
  for (const auto& c : ChannelConfigVec)
    if (c->wanted) ingestChannels.Set(c->channel);
}

void CalConfig::RegisterChannel(const char* tern, int channel) {
  for (const SidEntry* s : sids_from_tern_chan(tern, channel))
    for (int i = 0; i < s->n_prefixes(); ++i)
      if (!isNull(s->prefixes[static_cast<size_t>(i)])) RegisterDataIdByName(s->DidName(i).c_str());
}

void CalConfig::RegisterTern(const char* tern) {
  for (int channel : TernChannels(tern)) RegisterChannel(tern, channel);
}

ChannelConfig* CalConfig::ChannelConfigFromDidName(const char* didName) const {
  const auto it = _bySid.find(sid_from_did(didName));
  return it == _bySid.end() ? nullptr : it->second;
}

int CalConfig::TernIndexFromDidName(const char* didName) const {
  const SidEntry* s = sid_from_did(didName);
  return s ? TernIndex(s->sid_tern.c_str()) : -1;
}

const char* CalConfig::TernNameFromDidName(const char* didName) const {
  const SidEntry* s = sid_from_did(didName);
  return s ? s->sid_tern.c_str() : nullptr;
}

std::vector<std::string> CalConfig::DidNamesFromTernAndChannel(const char* tern, int channel) const {
  std::vector<std::string> names;
  for (const SidEntry* s : sids_from_tern_chan(tern, channel))
    for (int i = 0; i < s->n_prefixes(); ++i)
      if (!isNull(s->prefixes[static_cast<size_t>(i)])) names.push_back(s->DidName(i));
  return names;
}

std::vector<std::string> CalConfig::AllTernNames() const {
  std::vector<std::string> names;
  for (const auto& s : sids)
    if (std::find(names.begin(), names.end(), s->sid_tern) == names.end()) names.push_back(s->sid_tern);
  return names;
}

void CalConfig::InitializeFunctions() {
  std::map<std::string, int> uses;
  for (const auto& cc : ChannelConfigVec) {
    if (cc->nCall != 0) continue;
    int& n = uses[cc->sid->calib_name];
    cc->ithCall = n;
    n += cc->indexChanConfig ? cc->nsub : 1;  // one use per value of a multiplexed channel
  }
  for (const auto& cc : ChannelConfigVec) {
    if (cc->nCall == 0) cc->nCall = uses[cc->sid->calib_name];
    if (!cc->wanted || cc->initialized) continue;
    void** params = const_cast<void**>(cc->sid->calib_params.data());
    if (!cc->indexChanConfig) {
      cc->cinfo = cc->init_func(cc->ithCall, cc->nCall, params, cc->nCalibParams, cc->nsub);
      for (int j = 0; j < cc->nsub && j < cc->cinfo->iout; ++j) {
        HeronDataId* id = cc->dids[static_cast<size_t>(j)];
        if (id && cc->cinfo->units[j]) id->units = cc->cinfo->units[j];
      }
    } else {
      for (int i = 0; i < cc->nsub; ++i) {
        CalibInfo* ci =
            cc->init_func(cc->ithCall + i, cc->nCall, params + i * cc->nCalibParams, cc->nCalibParams, 1);
        HeronDataId* id = cc->dids[static_cast<size_t>(i)];
        if (id && ci->iout > 0 && ci->units[0]) id->units = ci->units[0];
        FreeCalibInfo(ci);
      }
    }
    cc->initialized = 1;
  }
  if (max_rate == 0.0) max_rate = 20.0;
}

std::vector<std::string> CalConfig::GetUnits(const std::vector<const char*>& didNames) const {
  std::vector<std::string> units;
  for (const char* name : didNames) {
    const ChannelConfig* cc = ChannelConfigFromDidName(name);
    const int k = cc ? cc->sid->WhichDid(name) : -1;
    const HeronDataId* id = k >= 0 ? cc->dids[static_cast<size_t>(k)] : nullptr;
    units.push_back(id ? id->units : std::string());
  }
  return units;
}
