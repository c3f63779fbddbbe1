// The words of a Campbell datalogger's binary final-storage format, as its
// loggers send output arrays over their binary telecommunications.  Words are
// two bytes, most significant byte first; the bits of the first byte are
// A B C D E F G H, A the most significant.
//
//   low resolution   D, E, F not all 1: A the sign, BC the decimal locator
//                    (divide by 10^BC), D..H and the second byte a 13-bit
//                    magnitude
//   array start      111111GH + byte (10-bit array id), or on the 21X
//                    1111110H + byte (9-bit id)
//   high resolution  AB0111GH + byte, then 001111G'H' + byte: B the sign,
//                    decimal exponent 4G + 2H + A (0..5), 17-bit magnitude of
//                    H' and the two second bytes
//   dummy            01111111 00, to be skipped
//
// The decoder is pure: it reads only the bytes it is given.
#ifndef HERON_CALIB_CAMPBELL_WORDS_H
#define HERON_CALIB_CAMPBELL_WORDS_H

// The two array-start forms.
enum class CampbellLogger { CR10, L21X };

enum class CampbellWord {
  Low,        // a 2-byte value
  HighFirst,  // the first word of a 4-byte value
  HighSecond, // the second word of a 4-byte value
  Start,      // an array start
  Dummy,      // padding, skipped
  Invalid,    // none of the above for this logger
};

// The kind of the word at w (two bytes).
CampbellWord campbell_word(const unsigned char* w, CampbellLogger logger);

// The value of a low-resolution word.
float campbell_low(const unsigned char* w);

// The value of the 4-byte high-resolution value at w, or 1e37 when the two
// words are not a first and a second word or the exponent is above 5.
float campbell_high(const unsigned char* w);

// The array id of an array-start word of this logger, or -1 for any other word.
int campbell_array_id(const unsigned char* w, CampbellLogger logger);

#endif
