// The binary encoding of RIB inside the tokenizer: every form that starts
// with a byte from 128 to 255 (numbers, strings, single and double floats,
// float arrays, request and string definitions and their uses) decoded into
// the tokens the same text in ASCII would give.
#ifndef TRACERY_RIB_BINARY_TOKENS_H
#define TRACERY_RIB_BINARY_TOKENS_H

#include "rib/token_scan.h"
#include "rib/tokenizer.h"

// Decodes the form that starts at the lookahead byte (128 to 254; 255 too
// when it is a byte of the stream). Returns the token's code; 0 when there is
// no token to return (a definition, or a reported error whose bytes were
// skipped), and the caller scans on; TOKEN_EOF when the stream ended inside
// the form (reported once; the end flag is set).
int scan_binary_token(RibTokenView* token);

// The next token of a float array under way (rib_input.array_left or
// array_close set): one of its numbers, then its closing ']'.
int next_array_token(RibTokenView* token);

// Frees the stream's definitions.
void release_binary_definitions(RibStreamState& state);

// Provided by the ASCII half of the tokenizer, for the string that a
// definition names: skips white space (false at end of input), and scans the
// quoted string at the lookahead.
bool rib_skip_white_space();
int rib_scan_quoted_string(RibTokenView* token);

#endif  // TRACERY_RIB_BINARY_TOKENS_H
