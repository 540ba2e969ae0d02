// Compressed input: plain streams pass through, gzip streams (one member or
// several) inflate, data arriving through a pipe is delivered before the pipe
// closes, zero padding after the end is the end, and damaged or cut-off
// gzip data is reported once.
#include "rib/compressed_input.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <string>

#include "capture.h"

namespace {

// gzip-compresses text; with sync_flush the output ends in a flush point
// instead of the stream's end, as a writer still writing would leave it.
std::string gzip(const std::string& text, bool sync_flush = false) {
    z_stream z{};
    EXPECT_EQ(deflateInit2(&z, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string out(deflateBound(&z, text.size()) + 64, '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    z.avail_in = static_cast<uInt>(text.size());
    z.next_out = reinterpret_cast<Bytef*>(&out[0]);
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, sync_flush ? Z_SYNC_FLUSH : Z_FINISH);
    out.resize(out.size() - z.avail_out);
    deflateEnd(&z);
    return out;
}

std::string sample_text() {
    std::string text;
    for (int i = 0; i < 3000; ++i) text += "Sphere 1 -1 1 " + std::to_string(i) + "\n";
    return text;
}

// Everything compressed_read delivers from a file holding bytes, read
// through its descriptor in reads of `chunk` bytes.
std::string read_all(const std::string& bytes, int chunk = 4096) {
    FILE* f = tmpfile();
    fwrite(bytes.data(), 1, bytes.size(), f);
    fflush(f);
    rewind(f);
    CompressedInput* in = compressed_open(fileno(f), f, "scene.rib.gz");
    std::string out;
    std::string buffer(static_cast<size_t>(chunk), '\0');
    for (int got;
         (got = compressed_read(in, reinterpret_cast<unsigned char*>(&buffer[0]), chunk)) > 0;) {
        out.append(buffer, 0, static_cast<size_t>(got));
    }
    compressed_close(in);
    fclose(f);
    return out;
}

TEST(CompressedInput, PlainAndGzipReadTheSame) {
    ScopedErrorCapture capture;
    std::string text = sample_text();
    EXPECT_EQ(read_all(text), text);
    EXPECT_EQ(read_all(gzip(text)), text);
    EXPECT_EQ(read_all(gzip(text), 7), text);
    EXPECT_EQ(read_all(gzip("a") + gzip("bc") + gzip(text)), "abc" + text);
    // Zero bytes after the end, as a tape or block device pads a file.
    EXPECT_EQ(read_all(gzip(text) + std::string(10000, '\0'), 7), text);
    // A plain stream that starts with the first magic byte only.
    EXPECT_EQ(read_all("\x1f rest"), "\x1f rest");
    EXPECT_EQ(read_all(""), "");
    EXPECT_EQ(capture.count(), 0u);
}

TEST(CompressedInput, ReadsFromStdioStreamsWithoutDescriptor) {
    std::string bytes = gzip("WorldBegin\n");
    FILE* f = fmemopen(&bytes[0], bytes.size(), "r");
    CompressedInput* in = compressed_open(-1, f, "memory");
    unsigned char buffer[64];
    int got = compressed_read(in, buffer, sizeof buffer);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), static_cast<size_t>(got)),
              "WorldBegin\n");
    EXPECT_TRUE(compressed_is_gzip(in));
    compressed_close(in);
    fclose(f);
}

// One report naming the file, and only the intact part delivered.
void expect_one_corrupt_report(const std::string& bytes, const std::string& text_prefix) {
    ScopedErrorCapture capture;
    std::string out = read_all(bytes);
    EXPECT_EQ(out.compare(0, text_prefix.size(), text_prefix), 0);
    ASSERT_EQ(capture.count(), 1u);
    const CapturedError& e = capture.errors()[0];
    EXPECT_EQ(e.code, RIE_SYSTEM);
    EXPECT_EQ(e.severity, RIE_ERROR);
    EXPECT_NE(e.message.find("corrupt compressed data"), std::string::npos) << e.message;
    EXPECT_NE(e.message.find("scene.rib.gz"), std::string::npos) << e.message;
}

TEST(CompressedInput, TruncatedStreamIsReportedOnce) {
    std::string text = sample_text();
    std::string bytes = gzip(text);
    expect_one_corrupt_report(bytes.substr(0, bytes.size() / 2), "");
    expect_one_corrupt_report(bytes.substr(0, bytes.size() - 4), text);  // length lost
    expect_one_corrupt_report(bytes.substr(0, 5), "");                   // inside the header
}

TEST(CompressedInput, DamagedStreamIsReportedOnce) {
    std::string text = sample_text();
    std::string bytes = gzip(text);
    std::string body = bytes;
    for (size_t i = 40; i < 60; ++i) body[i] = static_cast<char>(body[i] ^ 0x5a);
    expect_one_corrupt_report(body, "");
    std::string trailer = bytes;
    trailer[trailer.size() - 6] = static_cast<char>(trailer[trailer.size() - 6] ^ 1);  // CRC
    expect_one_corrupt_report(trailer, text);
    expect_one_corrupt_report(bytes + "garbage", text);
    expect_one_corrupt_report(bytes + std::string(512, '\0') + "x", text);
    expect_one_corrupt_report(bytes + std::string(512, '\0') + gzip("a"), text);
}

TEST(CompressedInput, PipedGzipIsDeliveredAsItArrives) {
    // A reader that waited for more input than the pipe holds would hang;
    // the alarm turns that into a failure.
    alarm(20);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string first = gzip("FrameBegin 1\n", true);
    ASSERT_EQ(write(fds[1], first.data(), first.size()), static_cast<ssize_t>(first.size()));
    CompressedInput* in = compressed_open(fds[0], nullptr, "stdin");
    unsigned char buffer[4096];
    int got = compressed_read(in, buffer, sizeof buffer);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), static_cast<size_t>(got)),
              "FrameBegin 1\n");
    close(fds[1]);
    compressed_close(in);
    close(fds[0]);
    alarm(0);
}

}  // namespace
