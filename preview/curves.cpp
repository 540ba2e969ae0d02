// Curves and NuCurves: their size rules, their evaluation into polylines
// (cubic curves through the v basis and v step of the graphics state, NURBS
// curves by de Boor's algorithm) and their interface procedures. A curve is
// drawn as a polyline whose density follows the relative detail. Curves are
// not surfaces: like points-polygons they are drawn only, never dumped, and
// they are drawn under the dump options as well.
#include "preview/curves.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>

#include "preview/projection.h"
#include "preview/wire.h"
#include "preview/world_sink.h"
#include "preview/x11_previewer.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

long long curve_segments(bool cubic, bool periodic, long long nv, int vstep) {
    if (!cubic) {
        if (nv < 2) return -1;
        return periodic ? nv : nv - 1;
    }
    if (vstep < 1) return -1;
    if (periodic) return nv >= 1 && nv % vstep == 0 ? nv / vstep : -1;
    if (nv < 4 || (nv - 4) % vstep != 0) return -1;
    return (nv - 4) / vstep + 1;
}

long long curve_varying(bool cubic, bool periodic, long long nv, int vstep) {
    const long long segments = curve_segments(cubic, periodic, nv, vstep);
    if (segments < 0) return 0;
    return periodic ? segments : segments + 1;
}

int curve_steps_per_span(int detail, long long spans) {
    const long long steps = 2 * std::max(detail, 1);
    if (spans <= 0 || steps * spans <= CURVE_POINTS_MAX) return int(steps);
    return int(std::max(CURVE_POINTS_MAX / spans, 1LL));
}

namespace {

// x, y, z of a control point, divided through when it is homogeneous.
void send_point(const float* p, int width, CurvePointSink& out) {
    float w = width == 4 ? p[3] : 1.0f;
    if (w == 0.0f) w = 1.0f;
    const float q[3] = {p[0] / w, p[1] / w, p[2] / w};
    out.point(q);
}

class VectorSink : public CurvePointSink {
  public:
    explicit VectorSink(std::vector<float>& out) : out_(out) {}
    void point(const float p[3]) override { out_.insert(out_.end(), p, p + 3); }

  private:
    std::vector<float>& out_;
};

}  // namespace

void cubic_curve_polyline(const float* cps, int width, int nv, bool periodic,
                          const float basis[4][4], int vstep, int steps, std::vector<float>& out) {
    VectorSink sink(out);
    cubic_curve_points(cps, width, nv, periodic, basis, vstep, steps, sink);
}

void cubic_curve_points(const float* cps, int width, int nv, bool periodic, const float basis[4][4],
                        int vstep, int steps, CurvePointSink& out) {
    const long long segments = curve_segments(true, periodic, nv, vstep);
    for (long long s = 0; s < segments; s++) {
        const float* g[4];
        for (int c = 0; c < 4; c++) {
            const long long index = (s * vstep + c) % nv;
            g[c] = cps + index * width;
        }
        for (int k = s == 0 ? 0 : 1; k <= steps; k++) {
            const float t = float(k) / float(steps);
            const float powers[4] = {t * t * t, t * t, t, 1.0f};
            float weight[4];
            for (int c = 0; c < 4; c++) {
                weight[c] = 0.0f;
                for (int r = 0; r < 4; r++) weight[c] += powers[r] * basis[r][c];
            }
            float h[4] = {0.0f, 0.0f, 0.0f, 0.0f};
            for (int c = 0; c < 4; c++) {
                for (int d = 0; d < width; d++) h[d] += weight[c] * g[c][d];
            }
            send_point(h, width, out);
        }
    }
}

const char* nurbs_curve_problem(const NurbsCurve& c) {
    if (c.order < 2 || c.order > NURBS_CURVE_ORDER_MAX) return "order out of range";
    if (c.n < c.order) return "fewer control points than its order";
    for (int i = 1; i < c.n + c.order; i++) {
        if (!(c.knots[i] >= c.knots[i - 1])) return "knots decrease";
    }
    if (!(c.min < c.max) || c.min < c.knots[c.order - 1] || c.max > c.knots[c.n]) {
        return "range outside its knots";
    }
    return nullptr;
}

namespace {

// The knot span i (order - 1 <= i < n) with knot[i] <= u < knot[i + 1];
// at or past the top of the range, the last non-empty span.
int find_span(const NurbsCurve& c, float u) {
    int span = c.n - 1;
    while (span > c.order - 1 && !(c.knots[span] < c.knots[span + 1])) span--;
    if (u >= c.knots[span + 1]) return span;
    for (int i = c.order - 1; i < c.n; i++) {
        if (u >= c.knots[i] && u < c.knots[i + 1]) return i;
    }
    return span;
}

// The point at u in knot span span, by de Boor's algorithm.
void point_in_span(const NurbsCurve& c, int span, float u, float out[3]) {
    const int p = c.order - 1;  // degree
    float d[NURBS_CURVE_ORDER_MAX][4];
    for (int j = 0; j <= p; j++) {
        const float* cp = c.cps + (span - p + j) * c.width;
        for (int k = 0; k < 4; k++) d[j][k] = k < c.width ? cp[k] : 1.0f;
        if (c.width == 3) d[j][3] = 1.0f;
    }
    for (int r = 1; r <= p; r++) {
        for (int j = p; j >= r; j--) {
            const int i = span - p + j;
            const float denominator = c.knots[i + p + 1 - r] - c.knots[i];
            const float alpha = denominator > 0.0f ? (u - c.knots[i]) / denominator : 0.0f;
            for (int k = 0; k < 4; k++) d[j][k] = (1.0f - alpha) * d[j - 1][k] + alpha * d[j][k];
        }
    }
    const float w = d[p][3] != 0.0f ? d[p][3] : 1.0f;
    for (int k = 0; k < 3; k++) out[k] = d[p][k] / w;
}

}  // namespace

void nurbs_curve_point(const NurbsCurve& c, float u, float out[3]) {
    point_in_span(c, find_span(c, u), u, out);
}

void nurbs_curve_polyline(const NurbsCurve& c, int steps, std::vector<float>& out) {
    VectorSink sink(out);
    nurbs_curve_points(c, steps, sink);
}

void nurbs_curve_points(const NurbsCurve& c, int steps, CurvePointSink& out) {
    bool first = true;
    for (int i = c.order - 1; i < c.n; i++) {
        const float lo = std::max(c.knots[i], c.min);
        const float hi = std::min(c.knots[i + 1], c.max);
        if (!(lo < hi)) continue;
        for (int k = first ? 0 : 1; k <= steps; k++) {
            const float u = k == steps ? hi : lo + (hi - lo) * float(k) / float(steps);
            float p[3];
            point_in_span(c, i, u, p);
            out.point(p);
        }
        first = false;
    }
}

namespace {

// The positions of a curve primitive: the last "P" or "Pw" of the list.
const float* find_positions(RtInt n, RtToken tokens[], RtPointer params[], int* width) {
    const float* positions = nullptr;
    for (int i = 0; i < n; i++) {
        if (tokens[i] == nullptr) continue;
        if (std::strcmp(tokens[i], "P") == 0) {
            positions = static_cast<const float*>(params[i]);
            *width = 3;
        } else if (std::strcmp(tokens[i], "Pw") == 0) {
            positions = static_cast<const float*>(params[i]);
            *width = 4;
        }
    }
    return positions;
}

// Projects each point as it comes and draws the segment from the one
// before, so that no curve is held in memory whole.
class DrawingSink : public CurvePointSink {
  public:
    void point(const float p[3]) override {
        kept_.point(p);
        float current[3] = {p[0], p[1], p[2]};
        projection_.project(current);
        if (count_ == 0) {
            std::copy(current, current + 3, first_);
        } else {
            draw_projected_segment(previous_, current);
        }
        std::copy(current, current + 3, previous_);
        count_++;
    }
    // Ends one curve, back to its first point when closed.
    void end(bool closed) {
        if (closed && count_ > 2) draw_projected_segment(previous_, first_);
        kept_.end(closed && count_ > 2);
        count_ = 0;
    }

  private:
    const ScreenProjection projection_;
    KeptPolylines kept_;
    float first_[3], previous_[3];
    long count_ = 0;
};

const float (*current_vbasis())[4] {
    if (renderer != nullptr && renderer->gstate != nullptr && renderer->gstate->vbasis != nullptr) {
        return renderer->gstate->vbasis;
    }
    return RiBezierBasis;
}

int current_vstep() {
    if (renderer != nullptr && renderer->gstate != nullptr) return renderer->gstate->vstep;
    return RI_BEZIERSTEP;
}

bool check_curve_counts(bool cubic, bool periodic, RtInt ncurves, const RtInt nvertices[],
                        int vstep, const char* type, const char* wrap) {
    for (int i = 0; i < ncurves; i++) {
        if (curve_segments(cubic, periodic, nvertices[i], vstep) < 0) {
            QuillError(RIE_CONSISTENCY, RIE_ERROR,
                       "Curves: curve %d has %d vertices, which do not make a %s %s curve with "
                       "step %d",
                       i, nvertices[i], wrap, type, vstep);
            return false;
        }
    }
    return true;
}

}  // namespace

RtVoid RiCurvesV(RtToken type, RtInt ncurves, RtInt nvertices[], RtToken wrap, RtInt n,
                 RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    const bool cubic = type != nullptr && std::strcmp(type, "cubic") == 0;
    if (!cubic && (type == nullptr || std::strcmp(type, "linear") != 0)) {
        QuillError(RIE_BADTOKEN, RIE_ERROR, "Curves: unknown type \"%s\"", type ? type : "");
        return;
    }
    const bool periodic = wrap != nullptr && std::strcmp(wrap, "periodic") == 0;
    if (!periodic && (wrap == nullptr || std::strcmp(wrap, "nonperiodic") != 0)) {
        QuillError(RIE_BADTOKEN, RIE_ERROR, "Curves: unknown wrap \"%s\"", wrap ? wrap : "");
        return;
    }
    const int vstep = current_vstep();
    if (ncurves < 0 || (ncurves > 0 && nvertices == nullptr) ||
        !check_curve_counts(cubic, periodic, ncurves, nvertices, vstep, type, wrap)) {
        return;
    }
    int width = 3;
    const float* positions = find_positions(n, tokens, params, &width);
    if (positions == nullptr) {
        RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
        return;
    }
    long long spans = 0;
    for (int i = 0; i < ncurves; i++) spans += curve_segments(cubic, periodic, nvertices[i], vstep);
    const int steps = curve_steps_per_span(detail_level, spans);
    DrawingSink sink;
    for (int i = 0; i < ncurves; i++) {
        if (cubic) {
            cubic_curve_points(positions, width, nvertices[i], periodic, current_vbasis(), vstep,
                               steps, sink);
        } else {
            for (int k = 0; k < nvertices[i]; k++) send_point(positions + k * width, width, sink);
        }
        sink.end(!cubic && periodic);
        positions += size_t(nvertices[i]) * size_t(width);
    }
}

RtVoid RiCurves(RtToken type, RtInt ncurves, RtInt nvertices[], RtToken wrap, ...) {
    va_list ap;
    va_start(ap, wrap);
    int n = _v_to_array(ap);
    va_end(ap);
    RiCurvesV(type, ncurves, nvertices, wrap, n, _V_names, _V_params);
}

RtVoid RiNuCurvesV(RtInt ncurves, RtInt nvertices[], RtInt order[], RtFloat knot[], RtFloat min[],
                   RtFloat max[], RtInt n, RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    int width = 3;
    const float* positions = find_positions(n, tokens, params, &width);
    if (positions == nullptr) {
        RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
        return;
    }
    long long spans = 0;
    for (int i = 0; i < ncurves; i++) spans += std::max(nvertices[i] - order[i] + 1, 1);
    const int steps = curve_steps_per_span(detail_level, spans);
    DrawingSink sink;
    for (int i = 0; i < ncurves; i++) {
        const NurbsCurve curve = {nvertices[i], order[i], knot, min[i], max[i], positions, width};
        // The curves after a bad one are not drawn: its counts place them.
        if (const char* problem = nurbs_curve_problem(curve)) {
            QuillError(RIE_CONSISTENCY, RIE_ERROR, "NuCurves: curve %d: %s", i, problem);
            break;
        }
        nurbs_curve_points(curve, steps, sink);
        sink.end(false);
        positions += size_t(nvertices[i]) * size_t(width);
        knot += nvertices[i] + order[i];
    }
}

RtVoid RiNuCurves(RtInt ncurves, RtInt nvertices[], RtInt order[], RtFloat knot[], RtFloat min[],
                  RtFloat max[], ...) {
    va_list ap;
    va_start(ap, max);
    int n = _v_to_array(ap);
    va_end(ap);
    RiNuCurvesV(ncurves, nvertices, order, knot, min, max, n, _V_names, _V_params);
}
