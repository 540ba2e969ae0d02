// Reading a RIB stream that may be gzip-compressed: the stream's first bytes
// decide (the gzip magic number, not the file name), plain streams are passed
// through untouched and gzip streams are inflated with zlib as their bytes
// arrive. A damaged or cut-off gzip stream is reported once and then reads as
// ended.
#ifndef TRACERY_RIB_COMPRESSED_INPUT_H
#define TRACERY_RIB_COMPRESSED_INPUT_H

#include <cstdio>

struct CompressedInput;

// Starts reading from the file descriptor fd, or from the stdio stream f when
// fd is negative. name is used in reports (it is copied). Returns null when
// memory runs out. Nothing is read until the first compressed_read.
CompressedInput* compressed_open(int fd, FILE* f, const char* name);

// Reads up to capacity (at least 2) bytes of the stream's content into
// buffer. Returns the number of bytes stored; 0 means the content has ended,
// or a read or decompression error ended it (reported once).
int compressed_read(CompressedInput* in, unsigned char* buffer, int capacity);

// Bytes of content that compressed_read has delivered, over every stream
// read so far: what the reader has been given to read (archive reads are
// bounded by it).
long long compressed_bytes_delivered();

// Whether the stream is gzip-compressed (known after the first read).
bool compressed_is_gzip(const CompressedInput* in);
// Whether reading stopped at damaged compressed data.
bool compressed_failed(const CompressedInput* in);

// Frees the reading state; the descriptor or stream itself is not closed.
void compressed_close(CompressedInput* in);

#endif  // TRACERY_RIB_COMPRESSED_INPUT_H
