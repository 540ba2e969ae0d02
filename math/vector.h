// Helpers on 3-float vectors (points, directions, colours).
#ifndef TRACERY_MATH_VECTOR_H
#define TRACERY_MATH_VECTOR_H

void vset(float* v, float s);
void vadd(const float* a, const float* b, float* r);
void vsub(const float* a, const float* b, float* r);
void vsadd(const float* a, float s, const float* b, float* r);
void vblend(const float* a, const float* b, float s, float* r);
void vbladd(const float* a, const float* b, float s, float* r);
void vmix(const float* a, const float* b, float t, float* r);
void vscalar(float* v, float s);
void vcross(const float* a, const float* b, float* r);
float vlen(const float* v);
float vdist(const float* a, const float* b);
void bilinterp_v(const float* a, const float* b, const float* c, const float* d, float u, float v,
                 int n, float* r);

#endif  // TRACERY_MATH_VECTOR_H
