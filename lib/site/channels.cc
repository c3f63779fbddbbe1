#include "site/channels.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "site/ConfigScanner.h"
#include "base/Exception.h"
#include "site/channels_grammar.h"
#include "site/heron_fopen.h"
#include "base/logit.h"
#include "base/fatal.h"

TTtype channel_list::_processTimeTag = msecs;

namespace {

// Translates and releases a status word.
portstat statusOf(char* word) {
  const portstat s = strcmp(word, "on") == 0 ? ON : OFF;
  free(word);
  return s;
}

// Translates and releases a card word; known is the name of the one card
// (or two cards) this kind of entry may sit on.
hardware cardOf(char* word, const char* name1, hardware card1, const char* name2 = nullptr,
                hardware card2 = UNKNOWN) {
  hardware h = UNKNOWN;
  if (strcmp(word, name1) == 0)
    h = card1;
  else if (name2 && strcmp(word, name2) == 0)
    h = card2;
  free(word);
  return h;
}

// Seconds to whole milliseconds, truncated toward zero, held within int.
int millisecondsOf(double secs) {
  const double ms = secs * 1000.0;
  if (!(ms > -2147483648.0)) return -2147483647 - 1;  // NaN too
  if (!(ms < 2147483647.0)) return 2147483647;
  return static_cast<int>(ms);
}

}  // namespace

serial_entry::serial_entry(char* tern_, char* card_, int chan_, char* status_, char* protocol_,
                           char* msg_and_conv_)
    : tern(tern_),
      card(cardOf(card_, "iv1624", IV1624, "iv3234", IV3234)),
      protocol(protocol_),
      msg_and_conv(msg_and_conv_),
      chan(static_cast<unsigned char>(chan_)),
      status(statusOf(status_)),
      next(nullptr) {}

serial_entry::~serial_entry() {
  free(tern);
  free(protocol);
  free(msg_and_conv);
}

analog_entry::analog_entry(char* tern_, char* card_, int chan_, float hertz_, char* status_,
                           float gain_, float offset_)
    : tern(tern_),
      card(cardOf(card_, "datel", DATEL)),
      chan(static_cast<unsigned char>(chan_)),
      hertz(hertz_),
      status(statusOf(status_)),
      gain(gain_),
      offset(offset_),
      next(nullptr) {}

analog_entry::~analog_entry() { free(tern); }

ttloutput_entry::ttloutput_entry(char* tern_, char* card_, int chan_, double start_, double on_,
                                 double off_)
    : tern(tern_),
      card(cardOf(card_, "datel_ttl_out", DATEL_TTL_OUT)),
      chan(static_cast<unsigned char>(chan_)),
      status(ON),
      start(millisecondsOf(start_)),
      on(millisecondsOf(on_)),
      off(millisecondsOf(off_)),
      next(nullptr) {}

ttloutput_entry::~ttloutput_entry() { free(tern); }

void channelserror(ChannelParse& p, const char* msg) {
  // The generated parser names a full stack "memory exhausted".
  if (strcmp(msg, "memory exhausted") == 0) msg = "parser stack overflow";
  logit(LOG_ERR, "Error: %s in line %d of %s", msg, p.scanner->line(), p.file);
  exit_status_1();
}

channel_list::channel_list(const char* file)
    : _file(file), _timeTagType(_processTimeTag), sentry(nullptr), aentry(nullptr),
      ttlentry(nullptr) {
  FILE* fp;
  try {
    fp = heronFopen(_file, "r");
  } catch (const oru::IOException& e) {
    throw BadConfigurationException(e);
  }
  // Closed however the parse ends (it can only end early by running out
  // of memory: syntax errors end the process).
  std::unique_ptr<FILE, int (*)(FILE*)> closer(fp, fclose);
  ConfigScanner scanner(fp, _file.c_str());
  ChannelParse p{&scanner, _file.c_str(), &sentry, &aentry, &ttlentry, &_processTimeTag, true};
  try {
    channelsparse(p);
  } catch (...) {
    release();
    throw;
  }
  _timeTagType = _processTimeTag;
}

channel_list::~channel_list() { release(); }

void channel_list::release() {
  // Iteratively: a long table must not cost a deep recursion.
  while (sentry) {
    serial_entry* n = sentry->next;
    delete sentry;
    sentry = n;
  }
  while (aentry) {
    analog_entry* n = aentry->next;
    delete aentry;
    aentry = n;
  }
  while (ttlentry) {
    ttloutput_entry* n = ttlentry->next;
    delete ttlentry;
    ttlentry = n;
  }
}

void channel_list::AnalogGainOffset(const char* tern, int chan, float* gain, float* offset) const {
  *gain = 1.0f;
  *offset = 0.0f;
  if (chan < 0 || chan > 199) return;
  for (const analog_entry* a = aentry; a; a = a->next)
    if (a->chan == chan && strcmp(a->tern, tern) == 0) {
      *gain = a->gain;
      *offset = a->offset;
      return;
    }
}
