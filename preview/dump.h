// The diced-RIB text of -dumprib and -dumptri: world-space polygons printed
// as "Polygon "P" [x y z ...]" lines on standard output.
#ifndef TRACERY_PREVIEW_DUMP_H
#define TRACERY_PREVIEW_DUMP_H

#include <string>

// Appends one value as the standard stream prints a float: general format,
// six significant digits.
void append_dump_number(std::string& out, float value);

// The longest text of one point: three numbers of at most 12 characters
// ("-1.23457e+38") and two spaces.
constexpr int DUMP_POINT_TEXT_MAX = 3 * 12 + 2;

// Writes "x y z" of p, as append_dump_number prints each, into text (at
// least DUMP_POINT_TEXT_MAX characters) and returns its length.
int format_dump_point(const float* p, char* text);

// Appends "Polygon \"P\" [" the n points (x y z each, single spaces) "]\n".
void append_dump_polygon(std::string& out, const float* const points[], int n);

// Prints one polygon of n world-space points on standard output.
void print_dump_polygon(const float* const points[], int n);

// Prints the polygon of n object-space vertices P (x y z each) as the fan of
// triangles (0, k, k + 1), k = 1 .. n - 2, each vertex carried into world
// space by the current transformation. Fewer than three vertices print
// nothing.
void dump_polygon_fan(int n, const float* P);

#endif  // TRACERY_PREVIEW_DUMP_H
