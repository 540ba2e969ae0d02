// The diced-RIB text of -dumprib and -dumptri: number formatting, one polygon
// line, and the triangle fan of a polygon in world space.
#include "preview/dump.h"

#include <charconv>
#include <cstdio>

#include "math/transform.h"
#include "ri/transforms.h"

namespace {

constexpr int SIGNIFICANT_DIGITS = 6;

}  // namespace

// std::to_chars in general format with precision 6 gives the text of
// printf's "%g", which is what a standard stream prints for a float at its
// default precision, without the cost of a stream or a locale.
void append_dump_number(std::string& out, float value) {
    char text[32];
    auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general,
                                SIGNIFICANT_DIGITS);
    out.append(text, result.ptr);
}

int format_dump_point(const float* p, char* text) {
    char* end = text + DUMP_POINT_TEXT_MAX;
    char* cursor = text;
    for (int c = 0; c < 3; ++c) {
        if (c > 0) *cursor++ = ' ';
        cursor =
            std::to_chars(cursor, end, p[c], std::chars_format::general, SIGNIFICANT_DIGITS).ptr;
    }
    return static_cast<int>(cursor - text);
}

void append_dump_polygon(std::string& out, const float* const points[], int n) {
    out += "Polygon \"P\" [";
    for (int k = 0; k < n; ++k) {
        for (int c = 0; c < 3; ++c) {
            if (k > 0 || c > 0) out += ' ';
            append_dump_number(out, points[k][c]);
        }
    }
    out += "]\n";
}

void print_dump_polygon(const float* const points[], int n) {
    std::string line;
    append_dump_polygon(line, points, n);
    fwrite(line.data(), 1, line.size(), stdout);
}

void dump_polygon_fan(int n, const float* P) {
    if (n < 3 || P == nullptr) return;
    float first[3], previous[3], current[3];
    transform_p(P, curxform, first);
    transform_p(P + 3, curxform, previous);
    for (int k = 1; k + 1 < n; ++k) {
        transform_p(P + 3 * (k + 1), curxform, current);
        const float* triangle[3] = {first, previous, current};
        print_dump_polygon(triangle, 3);
        for (int c = 0; c < 3; ++c) previous[c] = current[c];
    }
}
