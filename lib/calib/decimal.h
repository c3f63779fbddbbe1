// Decimal numbers of instruments' ASCII records, read as strtod reads them
// but without its cost on the common case.  The records send plain decimal
// fields ("-12.345", "000.709", "3.2183277e1"); for those the value is
// computed exactly (a significand of at most 2^53 and a power of ten up to
// 10^22 are both exact doubles, so one multiplication or division rounds
// once, to the same double strtod gives).  Any other text (more digits,
// larger exponents, "inf", hexadecimal) goes to strtod, so
// the result and the end pointer are always strtod's in the "C" locale,
// the only one the programs run in (none calls setlocale).
#ifndef HERON_CALIB_DECIMAL_H
#define HERON_CALIB_DECIMAL_H

namespace heron {

// As strtod(text, end): the value of the number at the start of text, and in
// *end (when end is not null) the first character after it, or text itself
// when no number starts there.
double decimal_strtod(const char* text, char** end);

}  // namespace heron

#endif
