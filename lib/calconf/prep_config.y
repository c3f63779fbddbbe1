%{
// Grammar of prep.config; see docs/prep_config.md for the entries.
#include <stdlib.h>
#include <string.h>

#include "calconf/prep_grammar.h"

// A word as the scanner delivered it (malloc'ed), taken over as a string.
static std::string take(char* word) {
  std::string s(word);
  free(word);
  return s;
}

// Appends one value of a bounded list; false (error recorded) past max.
template <class List, class Value>
static bool add(PrepParse& p, List& list, Value v, size_t max, const char* tooMany) {
  if (list.size() >= max) {
    prepconfigerror(p, tooMany);
    return false;
  }
  list.push_back(std::move(v));
  return true;
}
%}

%code requires {
struct PrepParse;
}

%code provides {
int prepconfiglex(PREPCONFIGSTYPE* lval, PrepParse& p);
}

%define api.prefix {prepconfig}
%define api.pure full
%parse-param {PrepParse& p}
%lex-param {PrepParse& p}

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
/* Entry keywords, at the start of an entry only. */
%token SENSOR 400 PHASE 401
/* Field keywords, at the start of a field only. */
%token MODULE 410 OUTPUTS 411 CALIBRATE 412 RATE 413 LAGRANGE 414 LAG 415 LIMITS 416
%token PHASEFILE 417 INDEX 418 FILTER 419

%type <real> number
%type <integer> chan channel

%destructor { free($$); } <word>

%%

file
  : %empty
  | file entry
  ;

entry
  : SENSOR WORD '{' { p.sensor.reset(new SidEntry); p.sensor->root_name = $2; }
    sensor_fields '}'
      {
        free($2);  /* copied above; held on the stack until here so that a failed parse frees it */
        SidEntry& s = *p.sensor;
        const char* missing = s.sid_tern.empty() ? "module" : s.prefixes.empty() ? "outputs"
                            : s.calib_name.empty() ? "calibration function" : nullptr;
        if (missing) {
          prepconfigerror(p, ("sensor " + s.root_name + " has no " + missing).c_str());
          YYABORT;
        }
        p.list->sids.push_back(std::move(p.sensor));
      }
  | PHASE WORD '{' { p.phase.reset(new PhaseEntry); p.phase->root_name = $2; }
    phase_fields '}'
      {
        free($2);
        if (p.phase->prefixes.empty()) {
          prepconfigerror(p, ("phase " + p.phase->root_name + " has no outputs").c_str());
          YYABORT;
        }
        p.list->phases.push_back(std::move(p.phase));
      }
  ;

sensor_fields
  : %empty
  | sensor_fields sensor_field
  ;

sensor_field
  : MODULE WORD channel ';'       { p.sensor->sid_tern = take($2); p.sensor->sid_channel = static_cast<int>($3); }
  | OUTPUTS prefixes ';'        { p.sensor->prefixes = std::move(p.words); }
  | CALIBRATE WORD params ';'
      {
        p.sensor->calib_name = take($2);
        p.sensor->SetCalibParams(std::move(p.types), std::move(p.numbers), std::move(p.words));
      }
  | RATE number ';'             { p.sensor->rate = $2; }
  | LAGRANGE number number ';'
      {
        p.sensor->neglag = static_cast<float>($2);
        p.sensor->poslag = static_cast<float>($3);
      }
  | LAG number ';'              { p.sensor->lag.setFixed(static_cast<float>($2)); }
  | LAG WORD ';'                { p.sensor->lag.setFile(take($2)); }
  | LIMITS limits ';'
      {
        p.sensor->min.clear();
        p.sensor->max.clear();
        for (size_t i = 0; i < p.numbers.size(); i += 2) {
          p.sensor->min.push_back(static_cast<float>(p.numbers[i]));
          p.sensor->max.push_back(static_cast<float>(p.numbers[i + 1]));
        }
      }
  | PHASEFILE WORD ';'          { p.sensor->phaseFileName = take($2); }
  | INDEX WORD ';'              { p.sensor->index_didname = take($2); }
  ;

phase_fields
  : %empty
  | phase_fields phase_field
  ;

phase_field
  : OUTPUTS prefixes ';'        { p.phase->prefixes = std::move(p.words); }
  | FILTER WORD filter_params ';'
      {
        p.phase->filter_name = take($2);
        p.phase->filter_params = std::move(p.numbers);
      }
  | LAG number ';'              { p.phase->lag.setFixed(static_cast<float>($2)); }
  | LAG WORD ';'                { p.phase->lag.setFile(take($2)); }
  | PHASEFILE WORD ';'          { p.phase->phase_file_name = take($2); }
  ;

prefixes
  : prefix
  | prefixes prefix
  ;

prefix
  : WORD  { if (!add(p, p.words, take($1), SidList::kMaxPrefixes, "too many did prefixes")) YYABORT; }
  ;

params
  : %empty
  | params param
  ;

/* A number is a CAL_DOUBLE parameter, a word or quoted text a CAL_STRING. */
param
  : number
      {
        if (!add(p, p.types, CAL_DOUBLE, SidList::kMaxCalibParams, "too many calibration parameters")) YYABORT;
        p.numbers.push_back($1);
      }
  | WORD
      {
        if (!add(p, p.types, CAL_STRING, SidList::kMaxCalibParams, "too many calibration parameters")) {
          free($1);
          YYABORT;
        }
        p.words.push_back(take($1));
      }
  ;

limits
  : limit
  | limits limit
  ;

limit
  : number number
      {
        if (!add(p, p.numbers, $1, 2 * SidList::kMaxLimits, "too many min-max specifications")) YYABORT;
        p.numbers.push_back($2);
      }
  ;

filter_params
  : %empty
  | filter_params number
      {
        if (!add(p, p.numbers, $2, SidList::kMaxFilterParams, "too many filter parameters")) YYABORT;
      }
  ;

channel
  : chan
      {
        if ($1 < 0 || $1 > 255) {
          prepconfigerror(p, "channel number out of range");
          YYABORT;
        }
        $$ = $1;
      }
  ;

chan
  : INT   { $$ = $1; }
  | HEX   { $$ = $1; }
  ;


number
  : INT   { $$ = static_cast<double>($1); }
  | HEX   { $$ = static_cast<double>($1); }
  | REAL  { $$ = $1; }
  ;

%%

int prepconfiglex(PREPCONFIGSTYPE* lval, PrepParse& p) {
  ScanValue v;
  int token = p.scanner->next(&v);
  if (token == SCAN_TOOLONG) {
    prepconfigerror(p, "token too large, exceeds YYLMAX");
    return PREPCONFIGerror;  // ends the parse without a further message
  }
  static const struct {
    int at;
    const char* word;
    int token;
  } keywords[] = {{1, "sensor", SENSOR},       {1, "phase", PHASE},       {2, "module", MODULE},
                  {2, "outputs", OUTPUTS},     {2, "calibrate", CALIBRATE}, {2, "rate", RATE},
                  {2, "lagrange", LAGRANGE},   {2, "lag", LAG},           {2, "limits", LIMITS},
                  {2, "phasefile", PHASEFILE}, {2, "index", INDEX},       {2, "filter", FILTER}};
  if (token == SCAN_WORD)
    for (const auto& k : keywords)
      if (k.at == p.keywordsAt && strcmp(v.word, k.word) == 0) {
        free(v.word);
        token = k.token;
        p.words.clear();
        p.numbers.clear();
        p.types.clear();
        break;
      }
  p.keywordsAt = token == '}' ? 1 : token == '{' || token == ';' ? 2 : 0;
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
