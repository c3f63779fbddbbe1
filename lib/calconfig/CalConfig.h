// The calibration configuration of a site: the sensors of prep.config
// (SidList), the data ids of did.config (HeronDataIds), the modules of
// kites_config (TernList) and the gains and offsets of channel_config,
// tied together into one ChannelConfig per wanted sensor channel.
//
// A processing program registers the variables it wants by data-id name,
// calls InitializeFunctions once, opens the raw-data inputs of the wanted
// modules (openInputs), and then takes raw samples attached to their
// configurations (nextTaggedSample) for calibrate() (CalSample.h).
//
// An unknown variable or module throws BadConfigurationException; a broken
// calibration setup is reported through logit and ends the process with
// status 1 (ChannelConfig.h, and "Incorrect number of calibration
// parameters (<n>) for <root>" for a multiplexed sensor whose parameters do
// not divide among its values).
#ifndef HERON_CALCONFIG_CALCONFIG_H
#define HERON_CALCONFIG_CALCONFIG_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/SampleStream.h"
#include "calconf/HeronDataIds.h"
#include "calconf/SidList.h"
#include "site/TernList.h"
#include "calconfig/ChannelConfig.h"
#include "calconfig/TaggedSample.h"
#include "rpc/ChanBits.h"
#include "site/channels.h"

class RawDataInputs;

class CalConfig : public SidList, public HeronDataIds, public TernList {
 public:
  // Reads prep.config, did.config (beside it in the ops folder), the
  // module list and channel_config.  Every sensor's module must be in the
  // module list.
  explicit CalConfig(const char* prepConfig = "$HERON/projects/$PROJECT/$OPS/prep.config");
  ~CalConfig();

  // Makes a variable wanted and returns its data id; null for "null."
  // names.  dataChannel is given only when registering the index of a
  // multiplexed sensor.  Throws BadConfigurationException("Unknown
  // variable: <name>") when no sensor produces it.
  HeronDataId* RegisterDataIdByName(const char* didName, ChannelConfig* dataChannel = nullptr);
  // Every variable that a sensor produces and did.config names.
  void PreRegisterAllDataIds();
  // The variable is no longer wanted; a configuration left with no wanted
  // variable stops receiving samples.
  void UnRegisterDataId(const HeronDataId* id);
  // Every variable of the sensors on a module channel, or on a module.
  void RegisterChannel(const char* tern, int channel);
  void RegisterTern(const char* tern);

  // The configuration producing a registered variable (null if none yet).
  ChannelConfig* ChannelConfigFromDidName(const char* didName) const;
  // Module number and name of the sensor producing didName; -1 and null
  // when no sensor does.
  int TernIndexFromDidName(const char* didName) const;
  const char* TernNameFromDidName(const char* didName) const;
  std::vector<std::string> DidNamesFromTernAndChannel(const char* tern, int channel) const;
  // The modules of the sensors, in order of first appearance.
  std::vector<std::string> AllTernNames() const;
  const std::vector<std::unique_ptr<ChannelConfig>>& GetChannelConfigs() const { return ChannelConfigVec; }
  float MaxPosLag() const { return maxPosLag; }
  float MaxNegLag() const { return maxNegLag; }

  // Numbers the uses of each calibration function and calls the init
  // functions of the wanted configurations not yet initialised.
  void InitializeFunctions();

  // The units of each named variable after InitializeFunctions ("" for a
  // name that is not registered).
  std::vector<std::string> GetUnits(const std::vector<const char*>& didNames) const;
  // archive_config's files of a module for [start, end), in time order,
  // with their start times.
  std::vector<std::string> GetArchiveFileNames(const char* tern, long start, long end,
                                               std::vector<double>& startTimes) const;

  // Opens one input per wanted module and merges them in time order:
  // archive files holding [start, end), or the ingest server named by
  // INGEST_SERVER asking for ingestChannels (socketType as
  // IngestRawDataInput).  Replaces inputs opened before.
  void openInputs(double start, double end);
  void openInputs(int socketType);
  // The merger of the inputs (an empty one when none were opened), for a
  // reader that opens and replaces inputs itself; and whether a module is
  // one some wanted configuration reads.
  RawDataInputs& inputs();
  bool ternWanted(int tern) const;

  // Takes raw samples from the inputs until one belongs to a wanted
  // channel, and pushes one TaggedRawSample (kind 1) per configuration
  // registered on that module channel; returns how many.  0 when the
  // inputs have nothing now (non-blocking inputs).  Samples of untrusted
  // time (BIGBANG) are dropped, and so are samples of a wanted module on a
  // channel without a configuration (counted in unwantedSamples).  The
  // inputs' exceptions pass through: oru::EOFException when all have
  // ended.
  int nextTaggedSample(SampleStream<TaggedSampleBase>& stream);
  // The loop of a processing program in one step: nextTaggedSample, then
  // calibrate(), and the calibrated samples (FullDataSample, kind 2) moved
  // into `done`.  Returns as nextTaggedSample, and throws as it does.
  int nextCalibrated(SampleStream<TaggedSampleBase>& stream, DPlist<TaggedSampleBase>& done);
  long unwantedSamples() const { return _unwanted; }

  // Per module number, per channel: the configurations registered there.
  std::vector<std::vector<std::vector<ChannelConfig*>>> sidMatrix;
  channel_list channels;
  float maxPosLag = 0.0f;
  float maxNegLag = 0.0f;
  std::vector<std::unique_ptr<ChannelConfig>> ChannelConfigVec;
  std::vector<int> num_chan;  // per module number
  double max_rate = 0.0;
  float lagDiff = 0.0f;
  ChanBits ingestChannels;

 private:
  RawDataInputs* newInputs();

  std::map<const SidEntry*, ChannelConfig*> _bySid;  // the configuration of each sensor
  std::unique_ptr<RawDataInputs> _inputs;
  long _unwanted = 0;
};

#endif
