#include "site/channels.h"

#include <stdio.h>
#include <string.h>

#include <memory>

#include "site/ConfigScanner.h"
#include "base/Exception.h"
#include "site/channels_grammar.h"
#include "site/heron_fopen.h"
#include "base/logit.h"
#include "base/fatal.h"

TTtype channel_list::_processTimeTag = msecs;
bool channel_list::_throwOnSyntaxError = false;

namespace {

portstat statusOf(const std::string& word) { return word == "on" ? ON : OFF; }

// The card of an entry: one of the one or two cards this kind of entry may
// sit on, else UNKNOWN.
hardware cardOf(const std::string& word, const char* name1, hardware card1, const char* name2 = nullptr,
                hardware card2 = UNKNOWN) {
  if (word == name1) return card1;
  if (name2 && word == name2) return card2;
  return UNKNOWN;
}

// Seconds to whole milliseconds, truncated toward zero, held within int.
int millisecondsOf(double secs) {
  const double ms = secs * 1000.0;
  if (!(ms > -2147483648.0)) return -2147483647 - 1;  // NaN too
  if (!(ms < 2147483647.0)) return 2147483647;
  return static_cast<int>(ms);
}

// Unlinks a list one entry at a time: a long table must not cost a deep
// recursion of destructors.
template <class Entry>
void unlink(std::unique_ptr<Entry>& head) {
  while (head) head = std::move(head->next);
}

}  // namespace

serial_entry::serial_entry(std::string tern_, const std::string& card_, int chan_, const std::string& status_,
                           std::string protocol_, std::string msg_and_conv_)
    : tern(std::move(tern_)),
      card(cardOf(card_, "iv1624", IV1624, "iv3234", IV3234)),
      protocol(std::move(protocol_)),
      msg_and_conv(std::move(msg_and_conv_)),
      chan(static_cast<unsigned char>(chan_)),
      status(statusOf(status_)) {}

analog_entry::analog_entry(std::string tern_, const std::string& card_, int chan_, float hertz_,
                           const std::string& status_, float gain_, float offset_)
    : tern(std::move(tern_)),
      card(cardOf(card_, "datel", DATEL)),
      chan(static_cast<unsigned char>(chan_)),
      hertz(hertz_),
      status(statusOf(status_)),
      gain(gain_),
      offset(offset_) {}

ttloutput_entry::ttloutput_entry(std::string tern_, const std::string& card_, int chan_, double start_,
                                 double on_, double off_)
    : tern(std::move(tern_)),
      card(cardOf(card_, "datel_ttl_out", DATEL_TTL_OUT)),
      chan(static_cast<unsigned char>(chan_)),
      status(ON),
      start(millisecondsOf(start_)),
      on(millisecondsOf(on_)),
      off(millisecondsOf(off_)) {}

void channelserror(ChannelParse& p, const char* msg) {
  // The generated parser names a full stack "memory exhausted".
  if (strcmp(msg, "memory exhausted") == 0) msg = "parser stack overflow";
  p.error = "Error: " + std::string(msg) + " in line " + std::to_string(p.scanner->line()) + " of " + p.file;
  if (p.faults != nullptr)
    p.faults->push_back(SiteFault{p.file, p.scanner->line(), msg});
  else
    logit(LOG_ERR, "%s", p.error.c_str());
}

channel_list::channel_list(const char* file) : _file(file), _timeTagType(_processTimeTag) {
  ConfigFile opened = openConfigFile(_file);
  FILE* fp = opened.get();
  ConfigScanner scanner(fp, _file.c_str());
  ChannelParse p{&scanner, _file.c_str(), &sentry, &aentry, &ttlentry, &_processTimeTag, true, std::string(), nullptr};
  const int failed = channelsparse(p);
  _timeTagType = _processTimeTag;
  if (failed == 0) return;
  // Already logged; nothing of the file is usable.
  release();
  if (_throwOnSyntaxError) throw BadConfigurationException(p.error);
  exit_status_1();
}

void channel_list::check(const std::string& file, SiteFaults* faults) {
  std::string path = file;
  ConfigFile opened = openConfigFile(path);
  ConfigScanner scanner(opened.get(), path.c_str());
  std::unique_ptr<serial_entry> serial;
  std::unique_ptr<analog_entry> analog;
  std::unique_ptr<ttloutput_entry> ttl;
  TTtype timeTag = _processTimeTag;  // the process's type is left alone
  ChannelParse p{&scanner, path.c_str(), &serial, &analog, &ttl, &timeTag, true, std::string(), faults};
  channelsparse(p);
  unlink(serial);
  unlink(analog);
  unlink(ttl);
}

channel_list::~channel_list() { release(); }

void channel_list::release() {
  unlink(sentry);
  unlink(aentry);
  unlink(ttlentry);
}

void channel_list::AnalogGainOffset(const char* tern, int chan, float* gain, float* offset) const {
  *gain = 1.0f;
  *offset = 0.0f;
  if (chan < 0 || chan > 199) return;
  for (const analog_entry* a = aentry.get(); a; a = a->next.get())
    if (a->chan == chan && a->tern == tern) {
      *gain = a->gain;
      *offset = a->offset;
      return;
    }
}
