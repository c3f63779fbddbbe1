// Strict reading of a time typed by a person, for the tools' command lines.
// Where UTime's free-form reader carries any field and stops at the first
// character it cannot use, this one takes a text only when all of it is one
// of the forms below and every field lies in its range, so a typed time is
// either read right or refused.
//
// Forms (blanks around the text are ignored):
//   now
//   YYYY-MM-DD[(T| )hh:mm[:ss[.fff]][Z|+hh:mm|-hh:mm]]
//   YYYY monthname DD [hh:mm[:ss.fff] | hhmmss[.fff]]
//   YYYY MM DD [hh:mm[:ss.fff] | hhmmss[.fff]]
//   YYYY yday [hh:mm[:ss.fff]]
//   seconds since the epoch, with at least nine digits before any fraction
// Years have four digits, from 1900; the blanked forms take h:mm too; the
// seconds 60 of a leap second is taken, 61 is not.  Month names are the full name or its first three
// letters, any case.  A text without Z or an offset is read in UTC when
// `local` is 0 and in the process's zone (UTime::setTZ) otherwise.
#ifndef HERON_STRICTTIME_H
#define HERON_STRICTTIME_H

#include <string>

namespace heron {

// True, with *seconds since 1970-01-01 UTC, when the whole text is one of
// the forms above with every field in range; false, *seconds untouched,
// otherwise.
bool parseTimeStrict(const char* text, int local, double* seconds);

// The one line a tool prints for a time it refuses:
// `program: cannot read the time "text": write it as ...`, no newline.
std::string refusedTime(const char* program, const char* text);

}  // namespace heron

#endif
