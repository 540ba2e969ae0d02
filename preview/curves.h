// Curves and NuCurves: the size rules of their vertex and varying data, their
// evaluation into object-space polylines, and their drawing.
#ifndef TRACERY_PREVIEW_CURVES_H
#define TRACERY_PREVIEW_CURVES_H

#include <vector>

// Segments of one Curves curve of nv vertices, or -1 when nv does not fit
// the type, the wrap and the v step: a cubic nonperiodic curve needs
// nv >= 4 and (nv - 4) divisible by vstep and has (nv - 4) / vstep + 1
// segments; a cubic periodic one needs nv divisible by vstep and has
// nv / vstep; a linear curve has nv - 1 segments (nv when periodic) and
// needs two vertices at least.
long long curve_segments(bool cubic, bool periodic, long long nv, int vstep);
// Varying values of one curve: segments + 1 for a nonperiodic curve,
// segments for a periodic one.
long long curve_varying(bool cubic, bool periodic, long long nv, int vstep);

// Lines drawn across one cubic span or one knot span at the detail level:
// twice the lattice density of a patch, since a curve costs one row; fewer
// (one at least) when the request's spans would make more than
// CURVE_POINTS_MAX points, so that a huge request stays drawable.
constexpr long long CURVE_POINTS_MAX = 1 << 22;
int curve_steps_per_span(int detail, long long spans);

// Receives the points of a curve one by one.
class CurvePointSink {
  public:
    virtual ~CurvePointSink() = default;
    virtual void point(const float p[3]) = 0;
};

// Appends to out (x, y, z triples) the polyline of one cubic curve whose nv
// control points of width floats (3, or 4 for homogeneous points, which are
// divided through) start at cps: each segment evaluated through basis (row
// vectors: (t^3, t^2, t, 1) x basis, then weights of control points
// segment * vstep + 0..3, taken modulo nv when periodic) at steps + 1 values
// of t, shared ends written once. The curve must fit (curve_segments >= 0).
void cubic_curve_points(const float* cps, int width, int nv, bool periodic, const float basis[4][4],
                        int vstep, int steps, CurvePointSink& out);
void cubic_curve_polyline(const float* cps, int width, int nv, bool periodic,
                          const float basis[4][4], int vstep, int steps, std::vector<float>& out);

// One NuCurves curve: n control points of width floats, its order, its
// n + order knots and its parameter range.
struct NurbsCurve {
    int n;
    int order;
    const float* knots;
    float min, max;
    const float* cps;
    int width;
};

// Most order a NuCurves curve may have (its evaluation keeps order points).
constexpr int NURBS_CURVE_ORDER_MAX = 32;

// Null when the curve is consistent (order 2..NURBS_CURVE_ORDER_MAX, n >=
// order, knots non-decreasing, min < max within [knot[order - 1],
// knot[n]]); else the reason, for a report.
const char* nurbs_curve_problem(const NurbsCurve& curve);
// The point at parameter u (de Boor's algorithm on the span holding u; at the
// top of the range the last non-empty span), divided through by w.
void nurbs_curve_point(const NurbsCurve& curve, float u, float out[3]);
// Appends the polyline of the curve over [min, max]: steps lines across each
// non-empty knot span inside the range.
void nurbs_curve_points(const NurbsCurve& curve, int steps, CurvePointSink& out);
void nurbs_curve_polyline(const NurbsCurve& curve, int steps, std::vector<float>& out);

#endif  // TRACERY_PREVIEW_CURVES_H
