// What the channel_config grammar works on: the scanner, the ends of the
// three lists being built and the process-wide time-tag type.  Shared by
// channel_list and the generated parser only.
#ifndef HERON_CHANNELS_GRAMMAR_H
#define HERON_CHANNELS_GRAMMAR_H

#include <memory>
#include <string>

#include "site/ConfigScanner.h"
#include "site/SiteFault.h"
#include "site/channels.h"

struct ChannelParse {
  ConfigScanner* scanner;
  const char* file;  // for messages
  std::unique_ptr<serial_entry>* serialTail;
  std::unique_ptr<analog_entry>* analogTail;
  std::unique_ptr<ttloutput_entry>* ttlTail;
  TTtype* timeTag;
  bool atRecordStart;  // the next word may be a record keyword
  std::string error;   // what was logged when the parse failed
  SiteFaults* faults = nullptr;  // when checking: the faults, nothing logged
};

// Parses the whole input: 0, or non-zero after an error was logged (with
// everything the parser held released).
int channelsparse(ChannelParse& p);

// Logs "Error: <msg> in line <n> of <file>" at priority 3 and keeps the
// text in p.error; when checking, adds the fault instead of logging.
void channelserror(ChannelParse& p, const char* msg);

#endif
