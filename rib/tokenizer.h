// The RIB tokenizer: one character of lookahead over a buffered stream, line
// counting, comments, identifiers, numbers, strings, the numeric forms of the
// binary encoding, one-token push-back, the number/string/vector readers and
// the parser's scratch buffer.
#ifndef TRACERY_RIB_TOKENIZER_H
#define TRACERY_RIB_TOKENIZER_H

#include <cstdio>

struct CompressedInput;

// Token codes returned by read_RIB_token (any other value is a single byte).
enum RibToken {
    TOKEN_EOF = -1,
    TOKEN_IDENTIFIER = 'A',
    TOKEN_NUMBER = '1',
    TOKEN_STRING = '"',
    TOKEN_HASH = '#',
    TOKEN_END = 255
};

// Capacity of every token text buffer, terminating NUL included. Longer
// tokens are cut to RIB_TOKEN_MAX - 1 bytes and reported as a syntax error.
constexpr int RIB_TOKEN_MAX = 1024;

// Most elements a vector reader keeps (a longer list is reported and fails),
// and the largest parser scratch buffer that RIBparse_check_scratchsize makes.
constexpr int RIB_VECTOR_MAX = 1 << 24;
constexpr int RIB_SCRATCH_MAX = 1 << 30;

struct BinaryDefinitions;

// The whole reader state of one stream; saved and restored around archives.
struct RibStreamState {
    FILE* stream;
    int descriptor;          // file descriptor read directly, or -1 to read through stdio
    int owns_stream;         // the stream was opened here and is closed with it
    CompressedInput* input;  // reads the stream, inflating it when it is gzip (owned)
    unsigned char* buffer;   // read buffer of the stream (owned)
    int buffer_pos;
    int buffer_len;
    long long buffer_base;  // bytes of the stream's content before the buffer
    int lookahead;
    int at_eof;
    char* name_copy;    // owned copy of the stream's name
    int line;           // private line counter, kept with RIB_lineno
    int comment_lines;  // newlines ending comments, which RIB_lineno leaves out
    char pushback_text[RIB_TOKEN_MAX];
    int pushback_code;
    int pushback_full;  // the slot holds a token (its text may be empty)
    // Or the pushed-back text where it lies in this stream's read buffer:
    // nothing is read before the token is taken again, so it stays there.
    const char* pushback_view;
    int pushback_length;
    int pushback_numeric;  // a number pushed back with its exact value
    double pushback_number;
    // Binary encoding: the requests and strings the stream has defined
    // (owned, null until the first definition), the floats still to come of
    // an array under way and whether its closing ']' is still due, and
    // whether the last token came from a binary form.
    BinaryDefinitions* definitions;
    long long array_left;
    int array_close;
    int last_binary;
};

// Echo level of the current stream (the third argument of ParseRIB).
extern int RIB_echo;

extern unsigned char* RIBparse_scratch;
extern int RIBparse_scratch_size;

// Reads f (or opens name when f is null). A stream with a file descriptor is
// read straight from the descriptor, so that piped input is seen as soon as it
// arrives; it must not hold data already buffered by stdio.
int RIBparse_open_stream(FILE* f, const char* name);
void RIBparse_close_stream();
// Moves the current reader state out into *saved (leaving no stream open) and
// back in again.
void RIBparse_save_state(RibStreamState* saved);
void RIBparse_restore_state(RibStreamState* saved);

// Reads the next token into text (RIB_TOKEN_MAX bytes) and returns its code.
int read_RIB_token(char* text);
int RIBparse_return_token(const char* text, int code);
// The lookahead byte (255 at end of input), the end flag, and consuming it.
int RIBparse_lookahead();
int RIBparse_at_eof();
// Whether the last token read was of the binary encoding. Such a token is
// whole when its last byte is read, so the end flag set by that read does not
// mean the token was cut (an ASCII word is cut by the end of input).
int RIBparse_token_was_binary();
void RIBparse_advance();
// Skips characters up to, not including, the next newline or carriage return.
void RIBparse_skip_line();
// The line of the stream being read as an editor counts it: RIB_lineno with
// the newlines that end comments counted as well (reports leave those out).
int RIBparse_source_line();

int RIBparse_read_number(char* text);
int RIBparse_quoted_string(char* text);
// Sized readers: exactly n elements, at least one even for n < 1 (so out
// must hold max(n, 1) elements). Unsized readers: as many as are given.
int RIBparse_ivector(int n, int** buf, int* cap);
int RIBparse_fvector(int n, float** buf, int* cap);
int RIBparse_fvector(int n, float* out);
int RIBparse_unsized_ivector(int* n, int** buf, int* cap);
int RIBparse_unsized_fvector(int* n, float** buf, int* cap);
// Fixed-array form: reads at most max_count elements into out; a longer list
// is read to its end, reported, and fails.
int RIBparse_unsized_fvector(int* n, float* out, int max_count);
// One value or a bracketed list into out (at most out_size bytes); returns the
// number of bytes stored, or -1 after a report.
int RIBparse_value_list(char* out, int out_size);
// Grows the scratch buffer to twice needed when needed is not below its size;
// returns -1 (after a report) when needed exceeds RIB_SCRATCH_MAX or memory
// runs out, and the buffer is then left as it was.
int RIBparse_check_scratchsize(int needed);
// Frees the scratch buffer (its size is 0 again).
void RIBparse_release_scratch();

// Number conversions as the C library's atof and atoi read a token's text.
float rib_atof(const char* text);
int rib_atoi(const char* text);

// Reports a syntax error (code 47, severity 2) with the message.
void rib_syntax_error(const char* message);

#endif  // TRACERY_RIB_TOKENIZER_H
