%{
// Grammar of channel_config; see docs/channel_config.md for the records.
#include <stdlib.h>
#include <string.h>

#include "base/logit.h"
#include "site/channels_grammar.h"

// A word as the scanner delivered it (malloc'ed), taken over as a string.
static std::string take(char* word) {
  std::string s(word);
  free(word);
  return s;
}
%}

%code requires {
struct ChannelParse;
}

%code provides {
int channelslex(CHANNELSSTYPE* lval, ChannelParse& p);
}

%define api.prefix {channels}
%define api.pure full
%parse-param {ChannelParse& p}
%lex-param {ChannelParse& p}

%union {
  char* word;
  long integer;
  double real;
}

/* The shared scanner's token numbers. */
%token <word> WORD 300
%token <integer> INT 301
%token <integer> HEX 302
%token <real> REAL 303
%token <real> CLOCK 304
%token JUNK 305
/* Record keywords, recognised at the start of a record only. */
%token SERIAL 400 ANALOG 401 TTL 402 TIMETAG 403

%type <real> number start
%type <integer> chan

/* Words still on the stack when a parse fails are released with it. */
%destructor { free($$); } <word>

%%

file
  : %empty
  | file record
  ;

record
  : SERIAL WORD WORD chan WORD spare WORD WORD ';'
      {
        std::string tern = take($2), card = take($3), status = take($5), protocol = take($7);
        p.serialTail->reset(new serial_entry(tern, card, static_cast<int>($4), status, protocol, take($8)));
        p.serialTail = &(*p.serialTail)->next;
      }
  | ANALOG WORD WORD chan number WORD WORD ';'
      {
        free($7);  /* not used */
        std::string tern = take($2), card = take($3);
        p.analogTail->reset(new analog_entry(tern, card, static_cast<int>($4), static_cast<float>($5), take($6),
                                             1.0f, 0.0f));
        p.analogTail = &(*p.analogTail)->next;
      }
  | ANALOG WORD WORD chan number WORD number number ';'
      {
        std::string tern = take($2), card = take($3);
        p.analogTail->reset(new analog_entry(tern, card, static_cast<int>($4), static_cast<float>($5), take($6),
                                             static_cast<float>($7), static_cast<float>($8)));
        p.analogTail = &(*p.analogTail)->next;
      }
  | TTL WORD WORD chan start number number ';'
      {
        std::string tern = take($2);
        p.ttlTail->reset(new ttloutput_entry(tern, take($3), static_cast<int>($4), $5, $6, $7));
        p.ttlTail = &(*p.ttlTail)->next;
      }
  | TIMETAG WORD ';'
      {
        /* Any word but wierd12 leaves the type as it is: once a file of the
           process has named wierd12, the site's tags stay wierd12.  A
           misspelt type would still read every tag in the old way and drop
           the samples as untrusted, so it is named with its place. */
        const std::string word = take($2);
        if (word == "wierd12") {
          *p.timeTag = wierd12;
        } else if (word != "msecs") {
          if (p.faults != nullptr)
            p.faults->push_back(SiteFault{p.file, p.scanner->line(), "time-tag type \"" + word + "\": msecs or wierd12"});
          else
            logit(LOG_WARNING, "Warning: unknown time-tag type \"%s\" (msecs or wierd12) in line %d of %s; the type is left as it was",
                  word.c_str(), p.scanner->line(), p.file);
        }
      }
  ;

chan
  : INT
      {
        if ($1 < 0 || $1 > 255) {
          channelserror(p, "channel number out of range");
          YYABORT;
        }
        $$ = $1;
      }
  | HEX
      {
        if ($1 < 0 || $1 > 255) {
          channelserror(p, "channel number out of range");
          YYABORT;
        }
        $$ = $1;
      }
  ;

/* A column that is read and not used: any single value. */
spare
  : WORD  { free($1); }
  | INT   {}
  | HEX   {}
  | REAL  {}
  ;

number
  : INT   { $$ = static_cast<double>($1); }
  | REAL  { $$ = $1; }
  ;

start
  : number
  | CLOCK
  ;

%%

int channelslex(CHANNELSSTYPE* lval, ChannelParse& p) {
  ScanValue v;
  int token = p.scanner->next(&v);
  if (token == SCAN_TOOLONG) {
    // Not a syntax error of the file's records: the file is no table at all.
    p.error = "token too large, exceeds YYLMAX";
    logit(LOG_ERR, "%s", p.error.c_str());
    return CHANNELSerror;  // ends the parse without a further message
  }
  if (token == SCAN_WORD && p.atRecordStart) {
    static const struct {
      const char* word;
      int token;
    } keywords[] = {{"serial", SERIAL}, {"analog", ANALOG}, {"ttl", TTL}, {"timetag", TIMETAG}};
    for (const auto& k : keywords)
      if (strcmp(v.word, k.word) == 0) {
        free(v.word);
        token = k.token;
        break;
      }
  }
  p.atRecordStart = token == ';';
  switch (token) {
    case SCAN_WORD:
      lval->word = v.word;
      break;
    case SCAN_INT:
    case SCAN_HEX:
      lval->integer = v.integer;
      break;
    case SCAN_REAL:
    case SCAN_CLOCK:
      lval->real = v.real;
      break;
    default:
      break;
  }
  return token;
}
