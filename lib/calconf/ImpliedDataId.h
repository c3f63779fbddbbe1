// A data id that no table names but whose name says what it is:
// "volts.<channel>.<module>" is the raw voltage of an analog channel (one to
// three digits) of a module, e.g. volts.12.site.
#ifndef HERON_CALCONF_IMPLIEDDATAID_H
#define HERON_CALCONF_IMPLIEDDATAID_H

class ImpliedDataId {
 public:
  // Matches name against _BRE.  A failure of the regular-expression library
  // is reported through logit as "<reason>: <expression>".
  explicit ImpliedDataId(const char* name);
  ~ImpliedDataId();
  ImpliedDataId(const ImpliedDataId&) = delete;
  ImpliedDataId& operator=(const ImpliedDataId&) = delete;

  bool valid() const { return _channel >= 0; }
  int channel() const { return _channel; }             // -1 unless valid
  const char* ternName() const { return _ternName; }   // all after the second dot; null unless valid
  const char* channelName() const { return _channelName; }  // the digits; null unless valid

  static const char* const _BRE;

 private:
  int _channel;
  char* _ternName;
  char* _channelName;
};

#endif
