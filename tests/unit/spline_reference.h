// A reference evaluation of B-spline curves for the tests, independent of
// the program's: the Cox-de Boor recursion of the basis functions.
#ifndef TRACERY_TESTS_UNIT_SPLINE_REFERENCE_H
#define TRACERY_TESTS_UNIT_SPLINE_REFERENCE_H

#include <vector>

// N(i, p) at u over knots, by the Cox-de Boor recursion (half-open spans;
// the caller keeps u below the last knot of the domain).
inline double cox_de_boor(const std::vector<double>& knots, int i, int p, double u) {
    if (p == 0) return knots[i] <= u && u < knots[i + 1] ? 1.0 : 0.0;
    double value = 0.0;
    const double left = knots[i + p] - knots[i];
    const double right = knots[i + p + 1] - knots[i + 1];
    if (left > 0) value += (u - knots[i]) / left * cox_de_boor(knots, i, p - 1, u);
    if (right > 0) value += (knots[i + p + 1] - u) / right * cox_de_boor(knots, i + 1, p - 1, u);
    return value;
}

// The rational B-spline point at u: control points of width 3 or 4 (x, y, z
// premultiplied by w), divided through.
inline std::vector<double> spline_point(const std::vector<double>& knots, int order,
                                        const std::vector<float>& cps, int width, double u) {
    const int n = int(cps.size()) / width;
    std::vector<double> h(4, 0.0);
    for (int i = 0; i < n; i++) {
        const double b = cox_de_boor(knots, i, order - 1, u);
        for (int k = 0; k < 3; k++) h[k] += b * cps[size_t(i * width + k)];
        h[3] += b * (width == 4 ? cps[size_t(i * width + 3)] : 1.0);
    }
    return {h[0] / h[3], h[1] / h[3], h[2] / h[3]};
}

inline std::vector<double> uniform_knots(int count) {
    std::vector<double> knots;
    for (int i = 0; i < count; i++) knots.push_back(i);
    return knots;
}

#endif  // TRACERY_TESTS_UNIT_SPLINE_REFERENCE_H
