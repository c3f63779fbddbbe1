// What the channel_config grammar works on: the scanner, the ends of the
// three lists being built and the process-wide time-tag type.  Shared by
// channel_list and the generated parser only.
#ifndef HERON_CHANNELS_GRAMMAR_H
#define HERON_CHANNELS_GRAMMAR_H

#include "site/ConfigScanner.h"
#include "site/channels.h"

struct ChannelParse {
  ConfigScanner* scanner;
  const char* file;  // for messages
  serial_entry** serialTail;
  analog_entry** analogTail;
  ttloutput_entry** ttlTail;
  TTtype* timeTag;
  bool atRecordStart;  // the next word may be a record keyword
};

// Parses the whole input; returns 0.  Errors end the process.
int channelsparse(ChannelParse& p);

// Logs "Error: <msg> in line <n> of <file>" at priority 3 and exits with
// status 1.
[[noreturn]] void channelserror(ChannelParse& p, const char* msg);

#endif
