// The scanner shared by the site-file readers.  It splits a configuration
// file into words, numbers, clock times and punctuation, skips blanks and
// "#" comments, and counts lines for error messages.
//
//   word        a letter or "_" followed by letters, digits and _ . - + / @ :
//               or any text between double quotes on one line (quotes
//               dropped); delivered as a malloc'ed copy the receiver frees
//   integer     optionally signed decimal digits
//   hex integer 0x or 0X followed by hexadecimal digits
//   real        optionally signed, with a decimal point and/or an exponent
//   clock time  h:m:s with an optional fraction, delivered as seconds
//   punctuation any other single character, as itself
//
// A token longer than kMaxToken characters is delivered as SCAN_TOOLONG,
// without a value: the files are hand-written tables and such a token means
// the file is not one, which the reader reports ("token too large, exceeds
// YYLMAX").  A read error ends the process.
#ifndef HERON_CONFIGSCANNER_H
#define HERON_CONFIGSCANNER_H

#include <stdio.h>

// Token codes; punctuation is its own character code, and 0 is the end of
// the input.  Grammars built on this scanner declare the same numbers.
enum ScanToken {
  SCAN_WORD = 300,
  SCAN_INT = 301,
  SCAN_HEX = 302,
  SCAN_REAL = 303,
  SCAN_CLOCK = 304,
  SCAN_JUNK = 305,  // a NUL byte: never valid
  SCAN_TOOLONG = 306,
};

// The value of the last token.
union ScanValue {
  char* word;    // SCAN_WORD
  long integer;  // SCAN_INT, SCAN_HEX
  double real;   // SCAN_REAL, SCAN_CLOCK (seconds)
};

class ConfigScanner {
 public:
  // Longest token, in characters.
  static const int kMaxToken = 1024;

  // Scans in (which stays the caller's to close); name is used in
  // messages.  The line counter starts at 1.
  ConfigScanner(FILE* in, const char* name);
  ~ConfigScanner();
  ConfigScanner(const ConfigScanner&) = delete;
  ConfigScanner& operator=(const ConfigScanner&) = delete;

  // The next token, its value in *value; 0 at the end of the input.
  int next(ScanValue* value);

  // Line of the last token read.
  int line() const { return line_; }
  const char* name() const { return name_; }

 private:
  friend int scanner_action(ConfigScanner* s, int token, const char* text, int len);
  void* yyscanner_;
  const char* name_;
  int line_;
  ScanValue value_;
};

#endif
