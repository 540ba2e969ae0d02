#!/usr/bin/env python3
"""Checks the diced surfaces that `tracery -dumprib` prints against the
surfaces themselves, evaluated here another way: implicit equations for the
quadrics and a rational NURBS sphere, de Casteljau for a Bezier patch, the
uniform B-spline blending functions for a periodic patch mesh, and the
recursive definition of the B-spline basis for a cubic NURBS surface with
interior knots.

Usage: check_surface_dumps.py TRACERY
The program opens its window even while dumping, so an X display is needed
(ctest runs under xvfb-run when there is none).
Prints one line per check and exits with status 1 if any fails.
"""
import math
import os
import subprocess
import sys
import tempfile

TOLERANCE = 2e-4


def dump(tracery, rib, *options):
    """The lattice points of each primitive of rib, as a list of grids
    (rows of points), rebuilt from the quadrilaterals of -dumprib."""
    with tempfile.TemporaryDirectory() as work:
        path = os.path.join(work, "scene.rib")
        with open(path, "w") as f:
            f.write(rib)
        env = {"PATH": os.environ.get("PATH", ""), "HOME": work, "LC_ALL": "C"}
        for name in ("DISPLAY", "XAUTHORITY", "ASAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                env[name] = os.environ[name]
        out = subprocess.run([tracery, "-nowait", "-dumprib", *options, path], env=env,
                             capture_output=True, text=True, check=True).stdout
    quads = []
    for line in out.splitlines():
        assert line.startswith('Polygon "P" [') and line.endswith("]"), line
        values = [float(v) for v in line[len('Polygon "P" ['):-1].split()]
        quads.append([tuple(values[k:k + 3]) for k in range(0, 12, 3)])
    return quads


def grid_of(quads, nu, nv):
    """Rows 0..nv of columns 0..nu from nu x nv quadrilaterals A B C D."""
    assert len(quads) == nu * nv, (len(quads), nu, nv)
    grid = [[None] * (nu + 1) for _ in range(nv + 1)]
    for j in range(nv):
        for i in range(nu):
            a, b, c, d = quads[j * nu + i]
            grid[j][i], grid[j][i + 1], grid[j + 1][i + 1], grid[j + 1][i] = a, b, c, d
    return grid


def close(p, q):
    return all(abs(x - y) <= TOLERANCE * max(1.0, abs(y)) for x, y in zip(p, q))


def basis(knots, i, k, t):
    """N(i, k)(t) by the recursive definition (order k)."""
    if k == 1:
        return 1.0 if knots[i] <= t < knots[i + 1] else 0.0
    value = 0.0
    if knots[i + k - 1] > knots[i]:
        value += (t - knots[i]) / (knots[i + k - 1] - knots[i]) * basis(knots, i, k - 1, t)
    if knots[i + k] > knots[i + 1]:
        value += (knots[i + k] - t) / (knots[i + k] - knots[i + 1]) * basis(knots, i + 1, k - 1, t)
    return value


def nurbs_point(points, nu, uorder, uknots, nv, vorder, vknots, u, v, rational):
    # Just below the top of the knot domain, where the recursion gives zero.
    u = min(u, uknots[nu] - 1e-9)
    v = min(v, vknots[nv] - 1e-9)
    total = [0.0] * 4
    for r in range(nv):
        bv = basis(vknots, r, vorder, v)
        if bv == 0.0:
            continue
        for c in range(nu):
            weight = bv * basis(uknots, c, uorder, u)
            cp = points[r * nu + c]
            for k in range(len(cp)):
                total[k] += weight * cp[k]
    w = total[3] if rational else 1.0
    return tuple(x / w for x in total[:3])


def lattice_params(knots, order, count, lo, hi, per_span):
    """min, then per_span even steps through each non-empty span in range, then max."""
    params = []
    for i in range(order - 1, count):
        a, b = max(knots[i], lo), min(knots[i + 1], hi)
        if a < b:
            params += [a + (b - a) * k / per_span for k in range(per_span)]
    return params + [hi]


def check_sphere_and_torus(tracery):
    quads = dump(tracery, "WorldBegin\nSphere 2 -2 2 360\nWorldEnd\n", "-rd", "2")
    sphere = all(abs(math.dist(p, (0, 0, 0)) - 2) < TOLERANCE for q in quads for p in q)
    quads = dump(tracery, "WorldBegin\nTorus 3 1 0 360 360\nWorldEnd\n", "-rd", "8")
    on_torus = all(abs((math.hypot(x, y) - 3) ** 2 + z * z - 1) < 1e-3 for q in quads
                   for x, y, z in q)
    return [("sphere at detail 8 on its radius", sphere),
            ("torus at detail 32: 128 x 64 cells on the torus", on_torus and len(quads) == 8192)]


def check_bezier_patch(tracery):
    cp = [(c, r + 0.25 * c, math.sin(r * 4 + c)) for r in range(4) for c in range(4)]
    text = " ".join("%.6f %.6f %.6f" % p for p in cp)
    quads = dump(tracery, 'WorldBegin\nPatch "bicubic" "P" [%s]\nWorldEnd\n' % text)
    grid = grid_of(quads, 4, 4)

    def casteljau(points, t):
        while len(points) > 1:
            points = [tuple((1 - t) * a + t * b for a, b in zip(p, q))
                      for p, q in zip(points, points[1:])]
        return points[0]

    ok = True
    for j in range(5):
        for i in range(5):
            rows = [casteljau(cp[4 * r:4 * r + 4], i / 4) for r in range(4)]
            ok = ok and close(grid[j][i], casteljau(rows, j / 4))
    return [("Bezier patch lattice equals de Casteljau", ok)]


def check_bspline_mesh(tracery):
    # A ring of 6 points around the z axis, periodic in u, 4 rows up.
    ring = [(math.cos(a * math.pi / 3), math.sin(a * math.pi / 3)) for a in range(6)]
    cp = [(x, y, float(r)) for r in range(4) for x, y in ring]
    text = " ".join("%.6f %.6f %.6f" % p for p in cp)
    rib = ('WorldBegin\nBasis "b-spline" 1 "b-spline" 1\n'
           'PatchMesh "bicubic" 6 "periodic" 4 "nonperiodic" "P" [%s]\nWorldEnd\n' % text)
    quads = dump(tracery, rib)
    ok = len(quads) == 6 * 16

    def blend(t):
        s = 1 - t
        return [s ** 3 / 6, (3 * t ** 3 - 6 * t * t + 4) / 6, (-3 * t ** 3 + 3 * t * t + 3 * t + 1) / 6,
                t ** 3 / 6]

    for patch in range(6):
        grid = grid_of(quads[patch * 16:(patch + 1) * 16], 4, 4)
        for j in range(5):
            for i in range(5):
                bu, bv = blend(i / 4), blend(j / 4)
                expect = [sum(bv[r] * bu[c] * cp[r * 6 + (patch + c) % 6][k]
                              for r in range(4) for c in range(4)) for k in range(3)]
                ok = ok and close(grid[j][i], expect)
    return [("periodic B-spline mesh: 6 patches equal to the blending functions", ok)]


def check_cubic_nurbs(tracery):
    uknots = [0, 0, 0, 0, 0.3, 0.6, 1, 1, 1, 1]
    vknots = [0, 0, 0, 0.5, 1, 1, 1]
    cp = [(c, r, math.cos(c * r)) for r in range(4) for c in range(6)]
    text = " ".join("%.6f %.6f %.6f" % p for p in cp)
    rib = ("WorldBegin\nNuPatch 6 4 [%s] 0.1 0.95 4 3 [%s] 0 1 \"P\" [%s]\nWorldEnd\n" %
           (" ".join(map(str, uknots)), " ".join(map(str, vknots)), text))
    us = lattice_params(uknots, 4, 6, 0.1, 0.95, 2)
    vs = lattice_params(vknots, 3, 4, 0.0, 1.0, 2)
    quads = dump(tracery, rib)
    grid = grid_of(quads, len(us) - 1, len(vs) - 1)
    ok = all(close(grid[j][i], nurbs_point(cp, 6, 4, uknots, 4, 3, vknots, u, v, False))
             for j, v in enumerate(vs) for i, u in enumerate(us))
    return [("cubic NURBS with interior knots equals the recursive basis (%d x %d cells)" %
             (len(us) - 1, len(vs) - 1), ok)]


def check_rational_sphere(tracery):
    # Unit sphere: a rational quadratic half circle (5 points) swept round
    # by a rational quadratic full circle (9 points).
    h = math.sqrt(0.5)
    profile = [(0, -1, 1), (h, -h, h), (1, 0, 1), (h, h, h), (0, 1, 1)]  # (r w, z w, w)
    circle = [(1, 0, 1), (h, h, h), (0, 1, 1), (-h, h, h), (-1, 0, 1), (-h, -h, h), (0, -1, 1),
              (h, -h, h), (1, 0, 1)]  # (x w, y w, w)
    points = []
    for rw, zw, wv in profile:
        for xw, yw, wu in circle:
            points.append((rw * xw, rw * yw, zw * wu, wv * wu))
    text = " ".join("%.7f %.7f %.7f %.7f" % p for p in points)
    rib = ("WorldBegin\nNuPatch 9 3 [0 0 0 0.25 0.25 0.5 0.5 0.75 0.75 1 1 1] 0 1 "
           "5 3 [0 0 0 0.5 0.5 1 1 1] 0 1 \"Pw\" [%s]\nWorldEnd\n" % text)
    quads = dump(tracery, rib, "-rd", "2")
    ok = len(quads) == 16 * 8 and all(abs(math.dist(p, (0, 0, 0)) - 1) < TOLERANCE for q in quads
                                      for p in q)
    return [("rational NURBS sphere (\"Pw\"): every point on the unit radius", ok)]


def main():
    tracery = sys.argv[1]
    results = []
    for check in (check_sphere_and_torus, check_bezier_patch, check_bspline_mesh,
                  check_cubic_nurbs, check_rational_sphere):
        results += check(tracery)
    for name, ok in results:
        print("%s  %s" % ("PASS" if ok else "FAIL", name))
    sys.exit(0 if all(ok for _, ok in results) else 1)


if __name__ == "__main__":
    main()
