// Helpers on 3-float vectors: arithmetic, blends, cross product, lengths and
// the bilinear interpolation of float runs.
#include "math/vector.h"

#include <cmath>

void vset(float* v, float s) {
    v[0] = v[1] = v[2] = s;
}

void vadd(const float* a, const float* b, float* r) {
    for (int i = 0; i < 3; i++) r[i] = a[i] + b[i];
}

void vsub(const float* a, const float* b, float* r) {
    for (int i = 0; i < 3; i++) r[i] = a[i] - b[i];
}

void vsadd(const float* a, float s, const float* b, float* r) {
    for (int i = 0; i < 3; i++) r[i] = a[i] + s * b[i];
}

void vblend(const float* a, const float* b, float s, float* r) {
    for (int i = 0; i < 3; i++) r[i] = s * a[i] * b[i];
}

void vbladd(const float* a, const float* b, float s, float* r) {
    for (int i = 0; i < 3; i++) r[i] += s * a[i] * b[i];
}

void vmix(const float* a, const float* b, float t, float* r) {
    if (t < 0.0f) t = 0.0f;
    if (t > 1.0f) t = 1.0f;
    for (int i = 0; i < 3; i++) r[i] = (1.0f - t) * a[i] + t * b[i];
}

void vscalar(float* v, float s) {
    for (int i = 0; i < 3; i++) v[i] *= s;
}

void vcross(const float* a, const float* b, float* r) {
    // Through locals so that r may be a or b.
    float x = a[1] * b[2] - a[2] * b[1];
    float y = a[2] * b[0] - a[0] * b[2];
    float z = a[0] * b[1] - a[1] * b[0];
    r[0] = x;
    r[1] = y;
    r[2] = z;
}

float vlen(const float* v) {
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

float vdist(const float* a, const float* b) {
    float d[3];
    vsub(a, b, d);
    return vlen(d);
}

void bilinterp_v(const float* a, const float* b, const float* c, const float* d, float u, float v,
                 int n, float* r) {
    float wa = (1.0f - u) * (1.0f - v);
    float wb = u * (1.0f - v);
    float wc = (1.0f - u) * v;
    float wd = u * v;
    for (int i = 0; i < n; i++) r[i] = wa * a[i] + wb * b[i] + wc * c[i] + wd * d[i];
}
