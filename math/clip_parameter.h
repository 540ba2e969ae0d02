// One step of Liang-Barsky line clipping, shared by every place that cuts a
// segment to a box or to a slab of depth: the segment a + t (b - a) for t in
// [t0, t1] is narrowed to where p t <= q.
#ifndef TRACERY_MATH_CLIP_PARAMETER_H
#define TRACERY_MATH_CLIP_PARAMETER_H

#include <algorithm>

// Narrows [*t0, *t1] to where p t <= q; false when nothing is left.
inline bool clip_parameter(double p, double q, double* t0, double* t1) {
    if (p == 0.0) return q >= 0.0;
    const double r = q / p;
    if (p < 0.0) {
        if (r > *t1) return false;
        *t0 = std::max(*t0, r);
    } else {
        if (r < *t0) return false;
        *t1 = std::min(*t1, r);
    }
    return true;
}

#endif  // TRACERY_MATH_CLIP_PARAMETER_H
