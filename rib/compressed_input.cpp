// Reading a RIB stream that may be gzip-compressed. The first bytes of the
// stream decide: a stream that begins with the gzip magic number (1f 8b) is
// inflated with zlib, any other is handed on exactly as read, with no copy
// and no zlib call, so plain files read as fast as before.
//
// zlib's gzread is not used: it fills its whole input buffer before it
// returns, which would hold back a RIB stream piped in a line at a time.
// Here every read takes what the descriptor has and inflates it at once.
#include "rib/compressed_input.h"

#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "support/error.h"
#include "support/memory.h"

namespace {

constexpr int RAW_CHUNK = 64 * 1024;
constexpr unsigned char GZIP_MAGIC_0 = 0x1f;
constexpr unsigned char GZIP_MAGIC_1 = 0x8b;
// zlib window bits: 15 (the largest window) plus 16 for a gzip wrapper.
constexpr int GZIP_WINDOW_BITS = 15 + 16;

enum class Mode { UNDECIDED, PLAIN, GZIP, ENDED };

void* zlib_alloc(void*, uInt items, uInt size) {
    if (size != 0 && items > static_cast<uInt>(-1) / size) return Z_NULL;
    return myalloc(static_cast<size_t>(items) * size);
}

void zlib_free(void*, void* p) {
    myfree(p);
}

}  // namespace

struct CompressedInput {
    int fd = -1;
    FILE* file = nullptr;
    std::string name;
    Mode mode = Mode::UNDECIDED;
    bool failed = false;
    bool raw_ended = false;        // the descriptor or stream has no more bytes
    bool member_done = false;      // the last gzip member ended cleanly
    bool padded = false;           // zero bytes of padding followed it
    std::string pending_failure;   // reported when the reader gets to it
    unsigned char* raw = nullptr;  // compressed bytes read, not yet inflated
    z_stream z{};
    bool z_ready = false;
};

namespace {

// Reads what the source has now, up to capacity bytes; 0 at its end (a read
// error counts as the end).
int read_raw(CompressedInput* in, unsigned char* buffer, int capacity) {
    if (in->raw_ended) return 0;
    if (in->fd >= 0) {
        for (;;) {
            ssize_t got = read(in->fd, buffer, static_cast<size_t>(capacity));
            if (got > 0) return static_cast<int>(got);
            if (got < 0 && errno == EINTR) continue;
            in->raw_ended = true;
            return 0;
        }
    }
    size_t got = in->file ? fread(buffer, 1, static_cast<size_t>(capacity), in->file) : 0;
    if (got == 0) in->raw_ended = true;
    return static_cast<int>(got);
}

void report_corrupt(CompressedInput* in, const char* detail) {
    in->failed = true;
    in->mode = Mode::ENDED;
    QuillError(RIE_SYSTEM, RIE_ERROR, "corrupt compressed data in %s (%s)", in->name.c_str(),
               detail);
}

// Stops at damaged data. The bytes inflated before the damage are still
// delivered; the report comes when the reader has taken them, so that it
// names the line where the stream breaks off.
int fail(CompressedInput* in, const char* detail, int produced) {
    if (produced == 0) {
        report_corrupt(in, detail);
    } else {
        in->pending_failure = detail;
    }
    return produced;
}

// Switches to inflating; the `count` bytes already read (the start of the
// gzip stream) become the first input.
bool start_gzip(CompressedInput* in, const unsigned char* first, int count) {
    int size = count > RAW_CHUNK ? count : RAW_CHUNK;
    in->raw = static_cast<unsigned char*>(myalloc(static_cast<size_t>(size)));
    in->z.zalloc = zlib_alloc;
    in->z.zfree = zlib_free;
    in->z.opaque = Z_NULL;
    if (!in->raw || inflateInit2(&in->z, GZIP_WINDOW_BITS) != Z_OK) {
        in->mode = Mode::ENDED;
        QuillError(RIE_NOMEM, RIE_ERROR, "No memory to inflate %s", in->name.c_str());
        return false;
    }
    in->z_ready = true;
    memcpy(in->raw, first, static_cast<size_t>(count));
    in->z.next_in = in->raw;
    in->z.avail_in = static_cast<uInt>(count);
    in->mode = Mode::GZIP;
    return true;
}

// Makes compressed input available; false when the source has ended.
bool have_raw_input(CompressedInput* in) {
    if (in->z.avail_in > 0) return true;
    int got = read_raw(in, in->raw, RAW_CHUNK);
    if (got <= 0) return false;
    in->z.next_in = in->raw;
    in->z.avail_in = static_cast<uInt>(got);
    return true;
}

// Zero bytes after the end of a member are padding, as tapes and block
// devices leave after a file: like gzip -d, the reader takes them for the
// end of the stream, here without a report (nothing is wrong with the
// data). Consumes the zeros at hand; true when all the input at hand was
// zeros. Only zeros may follow padding.
bool skip_zero_padding(CompressedInput* in) {
    z_stream& z = in->z;
    while (z.avail_in > 0 && z.next_in[0] == 0) {
        z.next_in++;
        z.avail_in--;
        in->padded = true;
    }
    return z.avail_in == 0;
}

// Inflates into buffer. Returns as soon as some output is ready and no more
// input is at hand, so a stream arriving through a pipe is seen as it comes.
int read_gzip(CompressedInput* in, unsigned char* buffer, int capacity) {
    z_stream& z = in->z;
    z.next_out = buffer;
    z.avail_out = static_cast<uInt>(capacity);
    auto produced = [&] { return capacity - static_cast<int>(z.avail_out); };
    while (z.avail_out > 0) {
        if (z.avail_in == 0 && produced() > 0) break;
        if (!have_raw_input(in)) {
            if (in->member_done) {
                in->mode = Mode::ENDED;
                break;
            }
            return fail(in, "unexpected end of file", produced());
        }
        if (in->member_done) {
            if (skip_zero_padding(in)) continue;
            // Another gzip member may follow (as `cat a.gz b.gz` makes);
            // inflate checks the rest of its header.
            if (in->padded || z.next_in[0] != GZIP_MAGIC_0) {
                return fail(in, "data after the end of the compressed data", produced());
            }
            inflateReset(&z);
            in->member_done = false;
        }
        int status = inflate(&z, Z_NO_FLUSH);
        if (status == Z_STREAM_END) {
            in->member_done = true;
        } else if (status != Z_OK && status != Z_BUF_ERROR) {
            return fail(in, z.msg ? z.msg : "inflate failed", produced());
        }
    }
    return produced();
}

// The first read: the stream's first two bytes choose the mode. The bytes
// are read into the caller's buffer and, for a plain stream, stay there.
int read_first(CompressedInput* in, unsigned char* buffer, int capacity) {
    int got = read_raw(in, buffer, capacity);
    while (got == 1 && buffer[0] == GZIP_MAGIC_0) {
        int more = read_raw(in, buffer + 1, capacity - 1);
        if (more <= 0) break;
        got += more;
    }
    if (got >= 2 && buffer[0] == GZIP_MAGIC_0 && buffer[1] == GZIP_MAGIC_1) {
        if (!start_gzip(in, buffer, got)) return 0;
        return read_gzip(in, buffer, capacity);
    }
    in->mode = Mode::PLAIN;
    return got;
}

}  // namespace

CompressedInput* compressed_open(int fd, FILE* f, const char* name) {
    CompressedInput* in = new (std::nothrow) CompressedInput;
    if (!in) return nullptr;
    in->fd = fd;
    in->file = fd >= 0 ? nullptr : f;
    in->name = name ? name : "";
    return in;
}

namespace {

long long bytes_delivered = 0;

int read_content(CompressedInput* in, unsigned char* buffer, int capacity) {
    switch (in->mode) {
        case Mode::PLAIN:
            return read_raw(in, buffer, capacity);
        case Mode::UNDECIDED:
            return read_first(in, buffer, capacity);
        case Mode::GZIP:
            if (!in->pending_failure.empty()) {
                report_corrupt(in, in->pending_failure.c_str());
                return 0;
            }
            return read_gzip(in, buffer, capacity);
        case Mode::ENDED:
            break;
    }
    return 0;
}

}  // namespace

int compressed_read(CompressedInput* in, unsigned char* buffer, int capacity) {
    if (!in || capacity < 2) return 0;
    const int got = read_content(in, buffer, capacity);
    bytes_delivered += got;
    return got;
}

long long compressed_bytes_delivered() {
    return bytes_delivered;
}

bool compressed_is_gzip(const CompressedInput* in) {
    return in && in->z_ready;
}

bool compressed_failed(const CompressedInput* in) {
    return in && in->failed;
}

void compressed_close(CompressedInput* in) {
    if (!in) return;
    if (in->z_ready) inflateEnd(&in->z);
    if (in->raw) myfree(in->raw);
    delete in;
}
