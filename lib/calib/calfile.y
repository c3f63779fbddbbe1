%{
/* Grammar of the loaded calibration-file form: one record per line, a time
   stamp followed by one or more numbers. */
#include <math.h>
#include <stdlib.h>

#include "calib/cal_parse.h"

/* The parser stack starts at 200 entries and may double up to 10000. */
#define YYINITDEPTH 200
#define YYMAXDEPTH 10000
#define YY_(Msgid) cal_parse_text(Msgid)
%}

%define api.prefix {calfile}
%define api.pure full
%param {void* scanner}
%parse-param {struct cal_parse* st}
%defines

%code provides {
int calfilelex(CALFILESTYPE* lval, void* scanner);
void calfileerror(void* scanner, struct cal_parse* st, const char* msg);
}

%union {
  int ival;
  double dval;
  char* sval;
}

%token <ival> INTEGER MONTH
%token <dval> FLOAT
%token <sval> STRING WORD
%token NEWLINE
%type <dval> number stamp clock

%destructor { free($$); } <sval>

%%

file
  : lines
  | lines record             /* a last record without its newline */
  ;

lines
  : %empty
  | lines NEWLINE
  | lines record NEWLINE
  ;

record
  : stamp values             { if (cal_parse_record(st, $1)) { calfileerror(scanner, st, "syntax error"); YYABORT; } }
  ;

values
  : number                   { cal_parse_value(st, $1); }
  | values number            { cal_parse_value(st, $2); }
  ;

number
  : INTEGER                  { $$ = $1; }
  | FLOAT                    { $$ = $1; }
  ;

stamp
  : INTEGER MONTH INTEGER clock
                             { $$ = cal_parse_date(cal_parse_year($1), $2, $3) + $4; }
  | INTEGER INTEGER clock    { $$ = cal_parse_yday(cal_parse_year($1), $2) + $3; }
  ;

clock
  : INTEGER ':' INTEGER ':' number
                             { $$ = $1 * 3600.0 + $3 * 60.0 + $5; }
  | INTEGER ':' INTEGER      { $$ = $1 * 3600.0 + $3 * 60.0; }
  | number                   { $$ = cal_parse_hhmmss($1); }
  ;

%%

void calfileerror(void* scanner, struct cal_parse* st, const char* msg) {
  (void)scanner;
  cal_parse_error(st, msg);
}
