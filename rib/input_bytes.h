// The byte level of the RIB tokenizer, shared by its ASCII and binary halves:
// the reader state of the stream being read, one byte of lookahead over the
// stream's read buffer, and where in the stream that byte lies.
//
// Every read stores the next byte into the lookahead; when the stream ends the
// end flag is set and the lookahead holds 255. Nothing is read once the flag
// is set.
#ifndef TRACERY_RIB_INPUT_BYTES_H
#define TRACERY_RIB_INPUT_BYTES_H

#include "rib/tokenizer.h"

// The reader state of the stream being read (all zero: no stream).
extern RibStreamState rib_input;

constexpr int RIB_END_OF_INPUT = 255;

// Refills the read buffer and takes its first byte as the lookahead; at end
// of input sets the end flag instead.
void rib_input_refill();

// Consumes the lookahead and reads the next byte into it.
inline void rib_advance() {
    if (rib_input.buffer_pos < rib_input.buffer_len) {
        rib_input.lookahead = rib_input.buffer[rib_input.buffer_pos++];
    } else {
        rib_input_refill();
    }
}

// Consumes the lookahead and returns it.
inline int rib_next_byte() {
    int c = rib_input.lookahead;
    rib_advance();
    return c;
}

// Offset in the stream's content (after inflating) of the lookahead byte.
inline long long rib_input_offset() {
    return rib_input.buffer_base + rib_input.buffer_pos - (rib_input.at_eof ? 0 : 1);
}

#endif  // TRACERY_RIB_INPUT_BYTES_H
