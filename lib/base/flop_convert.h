// Reads 2- and 4-byte numbers from an unaligned byte buffer.  flop_ reverses
// the bytes (byte i becomes byte width-1-i of the value); noflop_ keeps them.
// On this little-endian host flop_ therefore reads big-endian data.
#ifndef HERON_FLOP_CONVERT_H
#define HERON_FLOP_CONVERT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

float flop_float(const void* p);
float noflop_float(const void* p);
int32_t flop_long(const void* p);
int32_t noflop_long(const void* p);
uint32_t flop_ulong(const void* p);
uint32_t noflop_ulong(const void* p);
int16_t flop_short(const void* p);
int16_t noflop_short(const void* p);
uint16_t flop_ushort(const void* p);
uint16_t noflop_ushort(const void* p);

#ifdef __cplusplus
}
#endif

#endif
