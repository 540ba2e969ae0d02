// The tokenizer's inner interface for the readers built on it: a token as the
// scanner found it, left in place in the read buffer instead of copied out,
// and number conversions straight from such a token.
#ifndef TRACERY_RIB_TOKEN_SCAN_H
#define TRACERY_RIB_TOKEN_SCAN_H

// One token: its code (as read_RIB_token returns it) and its text, which is
// not NUL-terminated. The text lies in the read buffer or in a spill buffer
// of the tokenizer and is valid only until the next token is scanned (a
// refill of the read buffer overwrites it), so a reader converts or copies
// it at once. Its length is already cut to RIB_TOKEN_MAX - 1 bytes (and the
// cut reported), so the text is byte for byte what read_RIB_token would have
// written. At end of input the text is empty.
//
// A number of the binary encoding comes with its exact value instead (numeric
// set, the text empty): it is converted from that value, and its text is only
// made when the token is copied out (as "%.17g", which reads back exactly).
struct RibTokenView {
    int code;
    const char* text;
    int length;
    bool numeric = false;
    double number = 0.0;
};

// Scans the next token; read_RIB_token is this followed by a copy of the text.
int scan_RIB_token(RibTokenView* token);

// Copies the token's text, NUL-terminated, into text (RIB_TOKEN_MAX bytes).
void materialize_token(const RibTokenView& token, char* text);
// Pushes the token back, with its exact value when it has one.
void return_token_view(const RibTokenView& token);

// The values rib_atof and rib_atoi give for the token's text.
float token_atof(const RibTokenView& token);
int token_atoi(const RibTokenView& token);

#endif  // TRACERY_RIB_TOKEN_SCAN_H
