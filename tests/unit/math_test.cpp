// Matrix helpers, the transformation of points, normals and lengths through
// records (moving ones included) and the value classes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "math/matrix.h"
#include "math/matrix4.h"
#include "math/transform.h"
#include "math/vector.h"

namespace {

void expect_matrix_near(const float a[4][4], const float b[4][4], float tolerance) {
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) EXPECT_NEAR(a[i][j], b[i][j], tolerance) << i << "," << j;
}

void xform(float m[4][4], int kind, float x, float y, float z) {
    const float v[3] = {x, y, z};
    make_xform_matrix(m, v, kind);
}

// Determinant 25; its first two rows exchanged give -25.
const float kGeneral[4][4] = {{2, 0, 1, 0}, {1, 3, 0, 0}, {0, 1, 4, 0}, {1, 2, 3, 1}};
const float kSwapped[4][4] = {{1, 3, 0, 0}, {2, 0, 1, 0}, {0, 1, 4, 0}, {1, 2, 3, 1}};

}  // namespace

TEST(MathMatrix, InversionAndDeterminant) {
    float id[4][4], inv[4][4], product[4][4];
    make_ident(id);
    const float m[4][4] = {{0.5f, 2, -1, 0.25f}, {3, -1, 0.5f, 1}, {1, 1, 7, -2}, {4, 0.5f, 2, 3}};
    matrix_invert(inv, m);
    matrix_matrix_mult(m, inv, product);
    expect_matrix_near(product, id, 1e-5f);

    // Pivoting swaps rows; each swap must negate the sign.
    EXPECT_NEAR(matrix_invert(inv, kGeneral), 25.0f, 1e-4f);
    EXPECT_NEAR(matrix_invert(inv, kSwapped), -25.0f, 1e-4f);
    matrix_matrix_mult(kSwapped, inv, product);
    expect_matrix_near(product, id, 1e-5f);

    float flat[4][4];
    xform(flat, 3, 1, 0, 1);
    EXPECT_EQ(matrix_invert(inv, flat), 0.0f);  // singular
}

// The determinant alone must be the very value the inversion returns: the
// handedness bit is set from it, so a different rounding could flip it.
TEST(MathMatrix, DeterminantAloneMatchesTheInversionsBitForBit) {
    std::mt19937 random(6);
    std::uniform_real_distribution<float> value(-100.0f, 100.0f);
    const float specials[] = {0.0f,
                              -0.0f,
                              1.0f,
                              1e-30f,
                              1e30f,
                              std::numeric_limits<float>::infinity(),
                              std::numeric_limits<float>::quiet_NaN()};
    float m[4][4], inv[4][4];
    for (int trial = 0; trial < 20000; trial++) {
        for (int i = 0; i < 4; i++)
            for (int j = 0; j < 4; j++) {
                // Mostly small integers and zeros (ties between pivots and
                // singular matrices), sometimes wide values or specials.
                const unsigned pick = random() % 10;
                m[i][j] = pick < 4   ? float(int(random() % 5) - 2)
                          : pick < 9 ? value(random)
                                     : specials[random() % 7];
            }
        if (trial % 3 == 0) {  // the transformation requests' shapes
            const float v[3] = {value(random), value(random), value(random)};
            make_xform_matrix(m, v, 1 + trial % 3);
        }
        const float expected = matrix_invert(inv, m), got = matrix_determinant(m);
        ASSERT_EQ(std::memcmp(&expected, &got, sizeof got), 0) << "trial " << trial;
    }
    EXPECT_EQ(matrix_determinant(kSwapped), matrix_invert(m, kSwapped));
}

// RiTranslate relies on this to leave the handedness bit alone without
// computing the determinant: for any finite offsets the inversion's
// determinant is positive.
TEST(MathMatrix, TranslationsHaveAPositiveDeterminant) {
    std::mt19937 random(8);
    const float magnitudes[] = {0.0f, 1e-40f, 0.5f, 1.0f, 1.5f, 1e3f, 1e20f, 3.4e38f};
    float m[4][4], inv[4][4];
    for (int trial = 0; trial < 20000; trial++) {
        float v[3];
        for (float& x : v) {
            const float scale = magnitudes[random() % 8];
            x = (random() % 2 ? -scale : scale) *
                (random() % 3 ? 1.0f : float(random() % 1000) / 999);
        }
        if (trial % 5 == 0) v[1] = -v[0];  // equal magnitudes tie for the pivot
        make_xform_matrix(m, v, 1);
        ASSERT_GT(matrix_invert(inv, m), 0.0f) << v[0] << " " << v[1] << " " << v[2];
    }
}

TEST(MathMatrix, RotationsReduceTheAngleAndAreProper) {
    const float axis[3] = {0.0f, 0.6f, 0.8f};
    for (float x : {0.3f, 1.7f, 4.0f}) {
        float reduced[4][4], turned[4][4], negative[4][4];
        make_rotate_matrix(reduced, x, axis);
        make_rotate_matrix(turned, 6.2831853f + x, axis);
        make_rotate_matrix(negative, x - 12.566371f, axis);
        expect_matrix_near(turned, reduced, 2e-6f);
        expect_matrix_near(negative, reduced, 4e-6f);
    }
    float m[4][4], mt[4][4], product[4][4], id[4][4], inv[4][4];
    make_ident(id);
    xform(m, 2, 30, -50, 110);  // three angles: a proper rotation
    matrix_transpose(mt, m);
    matrix_matrix_mult(m, mt, product);
    expect_matrix_near(product, id, 1e-6f);
    EXPECT_NEAR(matrix_invert(inv, m), 1.0f, 1e-5f);
    xform(m, 2, 90, 0, 0);  // about x alone, y turns into -z
    EXPECT_NEAR(m[1][2], -1.0f, 1e-6f);
    xform(m, 9, 1, 2, 3);  // unknown kind
    expect_matrix_near(m, id, 0.0f);
}

TEST(MathMatrix, ConcatenationOrderAndVectorTimesMatrixModes) {
    for (int premultiply : {1, 0}) {
        float m[4][4], t[4][4], p[3] = {0, 0, 0};
        xform(t, 1, 1, 0, 0);
        xform(m, 3, 2, 2, 2);
        concat_matrix(m, t, premultiply);
        vec3_mat4_mult_inplace(p, m, 1);
        // Translate, then scale; or scale, then translate.
        EXPECT_FLOAT_EQ(p[0], premultiply ? 2.0f : 1.0f);
    }

    float m[4][4];
    xform(m, 1, 10, 20, 0);
    m[0][0] = 2;
    m[2][3] = 5;  // the fourth column is never written back

    // Modes 0 (a direction; also any unknown mode), 1 (a point), 2 (homogeneous).
    float v[4][4] = {{1, 1, 1}, {1, 1, 1}, {1, 1, 1, 2}, {1, 1, 1}};
    const int modes[4] = {0, 1, 2, 9};
    for (int i = 0; i < 4; i++) vec3_mat4_mult_inplace(v[i], m, modes[i]);
    EXPECT_EQ((std::vector<float>{v[0][0], v[1][0], v[2][1], v[2][3], v[3][0]}),
              (std::vector<float>{2, 12, 41, 2, 2}));
}

TEST(MathVector, CrossProductMayOverwriteAnInputAndBilinearCountsFloats) {
    float x[3] = {1, 0, 0};
    const float y[3] = {0, 1, 0};
    vcross(x, y, x);
    EXPECT_EQ(x[0], 0.0f);
    EXPECT_EQ(x[2], 1.0f);

    // Corner b lies at u = 1, v = 0 and corner c at u = 0, v = 1.
    const float a[4] = {0, 0, 0, 8}, b[4] = {1, 1, 1, 8}, c[4] = {2, 2, 2, 8}, d[4] = {3, 3, 3, 8};
    float r[5] = {0, 0, 0, 0, -1};
    bilinterp_v(a, b, c, d, 0.25f, 0.5f, 4, r);
    EXPECT_FLOAT_EQ(r[0], 1.25f);
    EXPECT_FLOAT_EQ(r[3], 8.0f);
    EXPECT_EQ(r[4], -1.0f);
}

namespace {

// A record built by hand around matrices it owns.
class RecordTest : public ::testing::Test {
  protected:
    void SetUp() override { saved_time_ = sample_time; }
    void TearDown() override { sample_time = saved_time_; }

    void set_first(const float m[4][4]) {
        std::memcpy(mat0, m, sizeof mat0);
        matrix_invert(inv0, m);
        rec.matrix0 = mat0;
        rec.inverse0 = inv0;
    }

    Transformation rec{};
    float mat0[4][4], inv0[4][4], mat1[4][4];

  private:
    float saved_time_ = 0;
};

}  // namespace

// A shear with a translation, so that the matrix, its inverse, the normal
// matrix and the transpose all move (1, 2, 0) differently.
TEST_F(RecordTest, EachTransformReadsItsOwnMatrixPair) {
    float m[4][4];
    xform(m, 1, 5, 0, 0);
    m[0][1] = 1;  // y' = x + y
    set_first(m);
    float normal[4][4], transposed[4][4];
    matrix_transpose(normal, inv0);
    matrix_transpose(transposed, mat0);
    rec.normal0 = normal;
    rec.transpose0 = transposed;

    const float in[3] = {1, 2, 0};
    const struct {
        void (*apply)(const float*, const Transformation*, float*);
        float x, y;
    } cases[] = {
        {transform_p, 6, 3},         {inverse_transform_p, -4, 6}, {transform_v, 1, 3},
        {inverse_transform_v, 1, 1}, {transform_n, -1, 2},         {inverse_transform_n, 3, 2},
    };
    for (const auto& c : cases) {
        float out[3];
        c.apply(in, &rec, out);
        EXPECT_FLOAT_EQ(out[0], c.x) << c.x << "," << c.y;
        EXPECT_FLOAT_EQ(out[1], c.y) << c.x << "," << c.y;
        EXPECT_EQ(out[2], 0.0f);
    }
    float n[3] = {1, 2, 0};
    inverse_transform_n_inplace(n, &rec);
    EXPECT_FLOAT_EQ(n[0], 3.0f);
}

TEST_F(RecordTest, MissingMatricesAndMeasure) {
    // No record, or a record without matrices: the identity.
    const float p[3] = {1, 2, 3};
    float out[3];
    transform_p(p, nullptr, out);
    EXPECT_EQ(out[2], 3.0f);
    transform_n(p, &rec, out);
    EXPECT_EQ(out[1], 2.0f);
    EXPECT_EQ(transform_measure(2.5f, nullptr), 2.5f);
    EXPECT_EQ(inverse_transform_measure(2.5f, &rec), 2.5f);
    float m[4][4];
    xform(m, 3, 3, 3, 3);
    set_first(m);
    EXPECT_FLOAT_EQ(transform_measure(1.0f, &rec), 3.0f);
    EXPECT_FLOAT_EQ(inverse_transform_measure(3.0f, &rec), 1.0f);
    xform(m, 3, 1, 2, 2);
    set_first(m);
    EXPECT_FLOAT_EQ(transform_measure(1.0f, &rec), std::sqrt(3.0f));
}

TEST_F(RecordTest, MovingRecordIsInterpolatedAtTheSampleTime) {
    float m[4][4];
    xform(m, 1, 2, 0, 0);
    set_first(m);
    xform(mat1, 3, 1, 3, 1);
    rec.matrix1 = mat1;
    rec.time0 = 1.0f;
    rec.time1 = 3.0f;
    rec.flags = XFORM_MOVING;

    const float p[3] = {1, 1, 0};
    float out[3];
    const struct {
        float time, x, y;
    } samples[] = {{0, 3, 1}, {1, 3, 1}, {2, 2, 2}, {3, 1, 3}, {9, 1, 3}};
    for (const auto& s : samples) {
        sample_time = s.time;
        transform_p(p, &rec, out);
        EXPECT_FLOAT_EQ(out[0], s.x) << s.time;
        EXPECT_FLOAT_EQ(out[1], s.y) << s.time;
    }
    rec.flags = 0;  // not moving: the second matrix is ignored
    transform_p(p, &rec, out);
    EXPECT_EQ(out[0], 3.0f);
}

TEST_F(RecordTest, SpacetimeTransformUsesItsOwnTimeAndMode) {
    float m[4][4];
    xform(m, 1, 2, 0, 0);
    m[3][3] = 4;
    set_first(m);
    xform(mat1, 1, 4, 0, 0);
    rec.matrix1 = mat1;
    rec.time1 = 1.0f;
    rec.flags = XFORM_MOVING;
    sample_time = 0.0f;
    float in[4] = {1, 0, 0, 1}, out[4] = {0, 0, 0, -7};
    spacetime_transform_p(in, &rec, out, 0.5f, 0, 1);  // its own time, not the sample time
    EXPECT_FLOAT_EQ(out[0], 4.0f);
    EXPECT_EQ(out[3], -7.0f);                          // three floats only
    spacetime_transform_p(in, &rec, out, 0.0f, 1, 2);  // the inverse, homogeneous
    EXPECT_FLOAT_EQ(out[0], 0.5f);                     // row 3 of the inverse is (-0.5, 0, 0, 0.25)
    EXPECT_FLOAT_EQ(out[3], 0.25f);
}

// Degenerate directions give zero vectors rather than NaNs; the matrix class
// agrees with the free functions.
TEST(MathClasses, GenOrthosAndMatrix4) {
    Point v(0, 0, 2), a, b;
    gen_orthos(v, a, b);
    EXPECT_FLOAT_EQ(v.z, 1.0f);
    EXPECT_NEAR(a.dot(v) + b.dot(v) + b.dot(a), 0.0f, 1e-7f);
    EXPECT_FLOAT_EQ(b.length(), 1.0f);
    Point diagonal(2, 2, 2), za(9, 9, 9), zb(9, 9, 9);
    gen_orthos(diagonal, za, zb);  // along (1, 1, 1) a has no direction
    EXPECT_EQ(za.length() + zb.length(), 0.0f);
    DPoint tiny(1e-13, 0, 0), da, db;
    gen_orthos(tiny, da, db);
    EXPECT_EQ(tiny.length(), 0.0);

    Matrix4 general(&kGeneral[0][0]);
    Matrix4 product = general * general.inverse();
    for (int i = 0; i < 16; i++)
        EXPECT_NEAR(product[i / 4][i % 4], Matrix4::Identity[i / 4][i % 4], 1e-5f);
    Matrix4 t(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1);
    Matrix4 s = 2.0f * Matrix4::Identity;
    s[3][3] = 1;
    EXPECT_EQ((t * s)[3][0], 10.0f);  // translate first, then scale
    EXPECT_EQ(transpose(t)[0][3], 5.0f);
    Matrix4 rows(Matrix3(), Point(1, 2, 3), 0), columns(Matrix3(), Point(1, 2, 3), 1);
    EXPECT_EQ(rows[3][1], 2.0f);
    EXPECT_EQ(columns[1][3], 2.0f);
}
