// One wanted sensor channel: which module channel it reads, how its raw
// sample is turned into values (the calibration function and its use
// number), which data ids the values are, which of them trail the sample
// time by a lag, and, for multiplexed sensors, how data and index channels
// find each other.  CalConfig builds and owns them; the calibration
// pipeline (CalSample.h) reads them and keeps its matching state in
// lastSample.
#ifndef HERON_CALCONFIG_CHANNELCONFIG_H
#define HERON_CALCONFIG_CHANNELCONFIG_H

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "calconf/HeronDataIds.h"
#include "calconf/SidList.h"
#include "calconfig/TaggedSample.h"
#include "calib/calib_func.h"

class ChannelConfig {
 public:
  enum { ANALOG = 0, SERIAL = 1 };
  // Analog input range: ADDRANGE counts over ADVRANGE volts.
  static constexpr double ADVRANGE = 10.0;
  static const int ADDRANGE = 65536;

  // The configuration of sensor sep.  A calibration name without a
  // function or an init function, or a data id missing from dp, is reported
  // through logit and ends the process with status 1:
  //   Can't find calibration function named <name>
  //   Can't find initialization function for <name>
  //   Can't find did index in did.config for <did>
  ChannelConfig(const SidEntry* sep, int isIndexChannel, HeronDataIds* dp);
  ~ChannelConfig();
  ChannelConfig(const ChannelConfig&) = delete;
  ChannelConfig& operator=(const ChannelConfig&) = delete;

  const SidEntry* sid;
  calib_func_t calib_func;
  calib_init_t init_func;
  CalibInfo* cinfo = nullptr;  // from the init call, owned
  float rate;
  int nsub;           // values per sample
  int nCalibParams;   // parameters per use
  int sampleType;     // ANALOG for channels 1..199, else SERIAL
  float gain = 1.0f;
  float offset = 0.0f;
  int ternIndex = -1;  // module number
  int channel;

  // One entry per value, null for "null" outputs; lagged and non-lagged
  // split the same ids by whether their phase has a lag.
  std::vector<HeronDataId*> dids, nonLaggedDids, laggedDids;
  int nLagged = 0;
  int nonLagged = 0;

  int ithCall = 0;  // first use number of calib_func
  int nCall = 0;    // uses of calib_func in all
  int initialized = 0;
  int wanted = 0;
  std::set<std::string> wantedNames;  // the registered data ids it produces

  // Multiplexing: a data channel points at its index channel, whose value
  // at indexSubChan is the data channel's sub-channel; an index channel
  // points back at its data channels.
  ChannelConfig* indexChanConfig = nullptr;
  std::vector<ChannelConfig*> multiplexChanConfigs;
  int indexChannel = 0;
  int indexOnly;
  int indexSubChan = 0;

  // The rounded last index sample, or a data sample waiting for its index.
  std::unique_ptr<TaggedSampleBase> lastSample;
};

#endif
