// How a raw sample's 32-bit time tag counts the time of day: wierd12 has
// seconds in the upper 20 bits and milliseconds in the low 12; msecs is
// milliseconds of the day; unknown means not settled yet.  Shared by the
// channel table, which declares the site's type, and TTConv, which applies it.
#ifndef HERON_TTTYPE_H
#define HERON_TTTYPE_H

enum TTtype { wierd12 = 0, msecs = 1, unknown = 2 };

#endif
