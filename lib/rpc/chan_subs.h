// Channel masks: 256 channels as eight 32-bit words, channel n being bit
// (n % 32) of word (n / 32).  The same words travel in the ingest protocol.
// Channel numbers outside 0..255 are ignored (set/clear) or reported unset.
#ifndef HERON_CHAN_SUBS_H
#define HERON_CHAN_SUBS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { CHAN_MASK_WORDS = 8, CHAN_MASK_CHANNELS = 256 };

int number_of_chans(const uint32_t* mask);
void set_channel(uint32_t* mask, int n);
void clear_channel(uint32_t* mask, int n);
void clear_all_channels(uint32_t* mask);
void set_all_channels(uint32_t* mask);
int channel_is_set(const uint32_t* mask, int n);
// The lowest set channel, or -1 for an empty mask.  The mask is not changed.
int next_channel(const uint32_t* mask);

#ifdef __cplusplus
}
#endif

#endif
