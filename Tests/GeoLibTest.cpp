#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <string>

#include "GeoLib.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Counts live instances so that leaks and double destruction show; copies fail
// once the budget runs out, the way an element that cannot allocate would.
struct Tracked {
    static int live;
    static int copyBudget;
    std::string text;
    explicit Tracked(std::string t) : text(std::move(t)) { ++live; }
    Tracked(const Tracked& other) : text(other.text)
    {
        if (copyBudget-- <= 0) throw 1;
        ++live;
    }
    Tracked(Tracked&& other) noexcept : text(std::move(other.text)) { ++live; }
    ~Tracked() { --live; }
};
int Tracked::live = 0;
int Tracked::copyBudget = 1 << 30;

// Long enough that std::string owns heap memory rather than its inline buffer.
std::string Text(int i) { return "element number " + std::to_string(i) + " of a long-enough list"; }

// zefatoll is process-wide: a test that changes it puts it back.
struct ToleranceGuard {
    L_TOLERANCE saved = zefatoll;
    ~ToleranceGuard() { zefatoll = saved; }
};

void ExpectPointNear(const L_POINT& p, double x, double y, double z, double tolerance)
{
    EXPECT_NEAR(p.x, x, tolerance);
    EXPECT_NEAR(p.y, y, tolerance);
    EXPECT_NEAR(p.z, z, tolerance);
}

// x' = z + 10, y' = x + 20, z' = y + 30: every entry off the diagonal, so a
// transposed product or a misplaced translation gives a different point.
L_MATRIX CyclicShift()
{
    L_MATRIX m = {{0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 10, 20, 30, 1}};
    return m;
}

}  // namespace

TEST(GeoList, OneBasedAccessAndInvalidEntries)
{
    List<int> list;
    EXPECT_EQ(list.Get(1), nullptr);
    for (int v = 1; v <= 3; ++v) list.Append(v * 10);
    const List<int>& view = list;
    EXPECT_EQ(*view.Get(1), 10);
    EXPECT_EQ(view.Get(0), nullptr);
    EXPECT_EQ(view.Get(4), nullptr);
    ASSERT_TRUE(list.Invalidate(2));
    EXPECT_EQ(list.Get(2), nullptr);
    for (int v = 4; v <= 20; ++v) ASSERT_TRUE(list.Append(v * 10));  // grows the validity bytes too
    List<int> copy = list;
    EXPECT_EQ(copy.Get(2), nullptr);
    EXPECT_EQ(*copy.Get(20), 200);
}

TEST(GeoList, OwningElementsSurviveGrowthCopyAndMove)
{
    {
        List<Tracked> list;
        for (int i = 0; i < 8; ++i) ASSERT_TRUE(list.Append(Tracked(Text(i))));
        ASSERT_TRUE(list.Append(*list.Get(1))) << "an own entry, as the storage moves";
        for (int i = 9; i < 100; ++i) ASSERT_TRUE(list.Append(Tracked(Text(i))));
        EXPECT_EQ(list.Get(9)->text, Text(0));

        List<Tracked> copy = list;
        copy.Get(5)->text = "changed";
        EXPECT_EQ(list.Get(5)->text, Text(4));
        List<Tracked> moved = std::move(copy);
        EXPECT_EQ(copy.Size(), 0u);
        EXPECT_EQ(moved.Get(100)->text, Text(99));
        list.Clear();
        EXPECT_EQ(list.Get(1), nullptr);
    }
    EXPECT_EQ(Tracked::live, 0);
}

TEST(GeoList, FailedCopyLeavesListUnchanged)
{
    {
        List<Tracked> list;
        for (int i = 0; i < 8; ++i) ASSERT_TRUE(list.Append(Tracked(Text(i))));
        Tracked::copyBudget = 0;
        EXPECT_FALSE(list.Append(*list.Get(1))) << "the append that would grow the list";
        EXPECT_EQ(list.Size(), 8u);

        List<Tracked> target;
        Tracked::copyBudget = 1;
        ASSERT_TRUE(target.Append(Tracked("kept")));
        Tracked::copyBudget = 3;
        EXPECT_FALSE(target.CopyFrom(list));
        Tracked::copyBudget = 1 << 30;
        EXPECT_EQ(target.Size(), 1u);
        EXPECT_EQ(target.Get(1)->text, "kept");
    }
    EXPECT_EQ(Tracked::live, 0);
}

TEST(GeoDistance, PointsPlanesSegmentsAndBoxes)
{
    const L_POINT o = {0, 0, 0}, p = {2, 3, 6};
    EXPECT_EQ(dist_PP(&o, &p), 7.0);
    EXPECT_DOUBLE_EQ(real_dist_PP(&o, &p), 7.0);  // the scaled form divides, so not exact
    const L_POINT3f of = {0, 0, 0}, pf = {2, 3, 6};
    EXPECT_EQ(dist_PP3f(&of, &pf), 7.0f);

    const L_PLANE plane = {{5, 5, 1}, {0, 0, 5}};  // z = 1, normal not unit
    const L_POINT above = {7, 8, 4}, below = {7, 8, -2};
    EXPECT_EQ(dist_PPl(&above, &plane), 3.0);
    EXPECT_EQ(dist_PPl(&below, &plane), -3.0);

    const L_SEGM segment = {{0, 0, 0}, {4, 0, 0}};
    EXPECT_DOUBLE_EQ(real_dist_PS({7, 4, 0}, segment), 5.0);  // beyond the end
    EXPECT_DOUBLE_EQ(real_dist_PS({3, 4, 0}, {{0, 0, 0}, {0, 0, 0}}), 5.0);

    const L_BOUNDS box = {{0, 0, 0}, {1, 1, 1}};
    EXPECT_EQ(min_dist_point_bbox({0.5, 1, 0.25}, box), 0.0);
    EXPECT_EQ(min_dist_point_bbox({4, 5, 1}, box), 5.0);
    EXPECT_EQ(min_dist_point_bbox({0, 0, 0}, {{1, 0, 0}, {0, 1, 1}}), DBL_MAX);

    // Only the real_ forms survive magnitudes whose squares overflow or underflow.
    const L_POINT far = {3e200, 4e200, 0};
    EXPECT_TRUE(std::isinf(dist_PP(&o, &far)));
    EXPECT_NEAR(real_dist_PP(&o, &far), 5e200, 5e186);
}

TEST(GeoAngle, RangeSenseAndDegenerateVectors)
{
    const L_VECTOR x = {2, 0, 0}, y = {0, 3, 0}, z = {0, 0, 1}, zero = {0, 0, 0};
    const L_VECTOR minusX = {-1, 0, 0};
    // acos and atan2 round pi / 2 and pi correctly, hence DOUBLE_EQ.
    EXPECT_DOUBLE_EQ(vector_angle(&x, &y), kPi / 2);
    EXPECT_DOUBLE_EQ(real_vector_angle(x, minusX), kPi);
    EXPECT_DOUBLE_EQ(real_vector_angle(&x, &y, &z), kPi / 2);
    EXPECT_DOUBLE_EQ(real_vector_angle(&y, &x, &z), 3 * kPi / 2);
    EXPECT_DOUBLE_EQ(vector_angle(y, x, &zero), kPi / 2) << "a zero axis is no axis";
    EXPECT_EQ(real_vector_angle(x, x, &z), 0.0) << "never 2 pi";
    EXPECT_EQ(real_vector_angle(&x, &zero), 0.0);
    const L_VECTOR nearlyX = {1, 1e-10, 0};
    EXPECT_NEAR(real_vector_angle(x, nearlyX), 1e-10, 1e-24);
}

TEST(GeoAngle, OrientationWithinTolerance)
{
    const L_VECTOR x = {1, 0, 0}, longX = {5, 0, 0}, back = {-2, 0, 0}, zero = {0, 0, 0};
    EXPECT_EQ(vector_orientation(x, longX, 0.0), 1);
    EXPECT_EQ(vector_orientation(x, back, 0.0), -1);
    EXPECT_EQ(vector_orientation(x, zero, 10.0), 0);
    const L_VECTOR tilted = {std::cos(0.01), std::sin(0.01), 0};  // 0.01 rad off x
    EXPECT_EQ(new_vector_orientation(x, tilted, 0.02), 1);
    EXPECT_EQ(new_vector_orientation(x, tilted, 0.005), 0);
    EXPECT_EQ(new_vector_orientation(back, tilted, 0.02), -1);
    EXPECT_EQ(vector_orientation(x, tilted, 0.005), 0);  // chord 2 sin(0.005), about 0.01
}

TEST(GeoTolerance, CoincidenceAndWorkingTolerances)
{
    const L_POINT a = {1, 1, 1}, b = {1.5, 0.5, 1.5}, c = {1.5, 1, 1.75};
    EXPECT_EQ(coincident_points(&a, &b, 0.5), 1) << "inclusive";
    EXPECT_EQ(coincident_points(&a, &a, 0.0), 1);
    ToleranceGuard guard;
    zefatoll.length = 0.75;
    EXPECT_EQ(coincident_points(a, c), 1);
    zefatoll.length = 0.5;
    EXPECT_EQ(coincident_points(a, c), 0);
    EXPECT_EQ(toll_testp(NAN), 0.5);
    EXPECT_EQ(toll_testp(2.0), 2.0);
    EXPECT_EQ(toll_testp_param(1.0, 4.0), 0.25);
    EXPECT_EQ(toll_testp_param(1.0, 0.5), 1.0) << "a curve no longer than the tolerance";
    zefatoll.parameter = 0.125;
    EXPECT_EQ(toll_testp_param(1.0, 64.0), 0.125);
}

TEST(GeoTolerance, BoxesPointsAndRounding)
{
    const L_BOUNDS unit = {{0, 0, 0}, {1, 1, 1}};
    short overlap = -1;
    check_bb_overlapping(unit, {{1, 0.5, -1}, {2, 2, 0}}, &overlap);
    EXPECT_EQ(overlap, 1) << "touching counts";
    check_bb_overlapping(unit, {{0, 0, 1.5}, {1, 1, 2}}, &overlap);
    EXPECT_EQ(overlap, 0);
    check_bb_overlapping(unit, {{0.5, 0.5, 0.5}, {0.2, 0.6, 0.6}}, &overlap);
    EXPECT_EQ(overlap, 0) << "an inverted box is empty";

    L_POINT bad = {1, NAN, 3}, huge = {0, 0, 1e12};
    EXPECT_EQ(validate_P(&bad, false), 1);
    EXPECT_EQ(validate_P(&huge, false), 0);
    EXPECT_EQ(validate_P(&huge, true), 1);

    // Division by an exact power of ten is correctly rounded, hence EXPECT_EQ.
    EXPECT_EQ(rounds(1.23456, 2), 1.23);
    EXPECT_EQ(rounds(-2.5, 0), -3.0);
    EXPECT_EQ(rounds(1250.0, -2), 1300.0);
}

TEST(GeoConstruction, VectorsAndDegenerateInputs)
{
    L_VECTOR v = {0, 0, -7}, zero = {0, 0, 0};
    EXPECT_EQ(normalise(&v), 0);
    EXPECT_EQ(v.z, -1.0);
    EXPECT_EQ(normalise(&zero), 1);
    const L_POINT p = {1, 2, 3};
    EXPECT_EQ(nvector_PP(&p, &p, &v), 1);
    EXPECT_EQ(v.z, 0.0);
    L_VECTOR a = {2, 0, 0}, b = {0, 3, 0};
    EXPECT_EQ(naXb(&a, &b, &a), 0) << "output aliases the first input";
    EXPECT_EQ(a.z, 1.0);
    L_POINT moved;
    const L_VECTOR up = {0, 0, 5};
    project_point_on_vector(&p, &up, 2.0, &moved);
    EXPECT_EQ(moved.z, 5.0) << "moves by a distance, not by multiples of the vector";
}

TEST(GeoConstruction, ArbitraryAxesFormARightHandedFrame)
{
    L_VECTOR first, second;
    const L_VECTOR minusZ = {0, 0, -3};
    nvector_arbitraryaxis(&minusZ, &first, &second);
    EXPECT_EQ(first.x, 1.0);
    EXPECT_EQ(second.y, -1.0);
    for (const L_VECTOR n : {L_VECTOR{1, 2, 3}, L_VECTOR{-5, 0.1, 0.1}, L_VECTOR{0.3, -4, 0.3}}) {
        nvector_arbitraryaxis(&n, &first, &second);
        L_VECTOR unitN = n, cross;
        normalise(&unitN);
        naXb(&first, &second, &cross);
        // Products of unit vectors: a few roundings of 1e-16 each.
        EXPECT_NEAR(adotb(&first, &unitN), 0.0, 1e-15);
        EXPECT_NEAR(adotb(&cross, &unitN), 1.0, 1e-15);
    }
}

TEST(GeoConstruction, PlanesAndProjections)
{
    const L_POINT p1 = {0, 0, 2}, p2 = {4, 0, 2}, p3 = {0, 4, 2}, onLine = {8, 0, 2};
    L_PLANE plane;
    EXPECT_EQ(plane_PPP(&p1, &p2, &p3, &plane), 0);
    EXPECT_EQ(plane.normal.z, 1.0) << "counter-clockwise points face +z";
    EXPECT_EQ(plane_PPP(&p1, &p2, &onLine, &plane), 1);
    EXPECT_EQ(plane.normal.z, 0.0);

    L_POINT p = {1, 2, 9};
    const L_PLANE level = {{5, 5, 1}, {0, 0, 2}};
    project_point_onto_plane(&p, &level, &p);
    EXPECT_EQ(p.z, 1.0);

    const L_SEGM segment = {{0, 0, 0}, {4, 0, 0}};
    L_POINT foot;
    double t = -1;
    EXPECT_TRUE(project_point_onto_segment({1, 3, 0}, segment, &foot, &t));
    EXPECT_EQ(t, 0.25);
    EXPECT_FALSE(project_point_onto_segment({9, 1, 0}, segment, &foot, &t));
    EXPECT_EQ(foot.x, 4.0);
    EXPECT_FALSE(project_point_onto_segment({1, 1, 1}, {{2, 2, 2}, {2, 2, 2}}, &foot, nullptr));
    EXPECT_EQ(foot.x, 2.0);
    segment_parameter(segment, {6, 5, 0}, &t);
    EXPECT_EQ(t, 1.5) << "unclamped";
}

TEST(GeoMatrix, RowVectorsWithTranslationInTheLastRow)
{
    const L_MATRIX m = CyclicShift();
    L_POINT p = {1, 2, 3};
    mat_transform_point(&p, &m, &p);
    EXPECT_EQ(p.x, 13.0);
    EXPECT_EQ(p.z, 32.0);
    L_POINT3f f = {1, 2, 3};
    mat_transform_pointf(&f, &m, &f);
    EXPECT_EQ(f.x, 13.0f);
    L_VECTOR v = {1, 2, 3};
    mat_transform_vector(&v, &m, &v);
    EXPECT_EQ(v.x, 3.0);

    L_MATRIX scaled = m;
    for (int k : {1, 6, 8}) scaled.m[k] = 2.0;
    L_VECTOR w = {1, 2, 2};
    mat_rotate_vector(&w, &scaled, &w);
    EXPECT_EQ(w.x, 2.0) << "turned but not stretched";
    EXPECT_EQ(w.y, 1.0);
}

TEST(GeoMatrix, DeterminantSignAndProductOrder)
{
    L_MATRIX m;
    mat_identity(&m);
    m.m[0] = 2;
    m.m[5] = 3;
    m.m[10] = 4;
    m.m[13] = 99;
    EXPECT_EQ(mat_determinant(&m), 24.0) << "translation does not count";
    mat_identity(&m);
    m.m[0] = m.m[5] = 0;
    m.m[1] = m.m[4] = 1;
    EXPECT_EQ(mat_determinant(&m), -1.0) << "swapping x and y mirrors";

    L_MATRIX shift, turn, both;
    const L_VECTOR one = {1, 0, 0}, z = {0, 0, 1}, none = {0, 0, 0};
    mat_translation(&one, &shift);
    EXPECT_EQ(mat_rotation(&z, kPi / 2, &turn), 0);
    mat_product(&shift, &turn, &both);
    L_POINT p = {1, 0, 0};
    mat_transform_point(&p, &both, &p);
    ExpectPointNear(p, 0, 2, 0, 1e-15);  // cos(pi / 2) is 6e-17, not 0
    mat_product(&turn, &shift, &turn);
    p = {1, 0, 0};
    mat_transform_point(&p, &turn, &p);
    ExpectPointNear(p, 1, 1, 0, 1e-15);
    EXPECT_EQ(mat_rotation(&none, 1.0, &turn), 1);
}

TEST(GeoMatrix, RigidTransformPreservesMeasures)
{
    L_MATRIX turn, shift, rigid;
    const L_VECTOR axis = {1, -2, 0.5}, offset = {120, -35, 7.25};
    mat_rotation(&axis, 0.7, &turn);
    mat_translation(&offset, &shift);
    mat_product(&turn, &shift, &rigid);
    // Entries are sines and cosines rounded to 1e-16, so results on coordinates of
    // about 100 agree to about 1e-13.
    EXPECT_NEAR(mat_determinant(&rigid), 1.0, 1e-14);
    const L_POINT a0 = {3, 4, 5}, b0 = {-20, 11, 2}, c0 = {7, -9, 40}, q0 = {1, 1, 1};
    L_POINT a, b, c, q;
    mat_transform_point(&a0, &rigid, &a);
    mat_transform_point(&b0, &rigid, &b);
    mat_transform_point(&c0, &rigid, &c);
    mat_transform_point(&q0, &rigid, &q);
    EXPECT_NEAR(dist_PP(&a, &b), dist_PP(&a0, &b0), 1e-12);
    L_PLANE plane0, plane;
    plane_PPP(&a0, &b0, &c0, &plane0);
    plane_PPP(&a, &b, &c, &plane);
    EXPECT_NEAR(dist_PPl(&q, &plane), dist_PPl(&q0, &plane0), 1e-12);
    L_VECTOR n;
    mat_rotate_vector(&plane0.normal, &rigid, &n);
    EXPECT_NEAR(real_vector_angle(n, plane.normal), 0.0, 1e-14);
}

TEST(GeoWorkPlane, MatricesMapBetweenFrames)
{
    L_WORKPLANE plane;
    EXPECT_EQ(plane.Set({1, 2, 3}, {0, 5, 0}, {0, 0, 2}), 0);
    EXPECT_EQ(plane.YAxis().x, -1.0) << "y = z cross x";
    L_MATRIX toPlane, toWorld;
    mat_WorkPlane_World(&plane, &toPlane, &toWorld);
    L_POINT p = {1, 3, 7};  // origin + x axis + 4 z axes
    mat_transform_point(&p, &toPlane, &p);
    EXPECT_EQ(p.x, 1.0);
    EXPECT_EQ(p.y, 0.0);
    EXPECT_EQ(p.z, 4.0);
    EXPECT_EQ(plane.Set({0, 0, 0}, {0, 0, 4}, {0, 0, 1}), 1) << "x along the normal";

    ASSERT_EQ(plane.Set({10, -4, 6}, {1, 1, 0}, {1, -1, 2}), 0);
    mat_WorkPlane_World(&plane, &toPlane, &toWorld);
    L_POINT q = {3, 8, -2};
    mat_transform_point(&q, &toPlane, &q);
    mat_transform_point(&q, &toWorld, &q);
    ExpectPointNear(q, 3, 8, -2, 1e-13);  // unit axes rounded to 1e-16
}

TEST(GeoSegment, MeetsPlaneAndDividesIntoEqualParts)
{
    const L_PLANE floor = {{0, 0, 1}, {0, 0, 3}};  // z = 1, normal not unit
    L_POINT hit = {9, 9, 9};
    EXPECT_EQ(intersect_SPl({{1, 2, 0}, {1, 2, 4}}, floor, &hit), 1);
    EXPECT_EQ(hit.z, 1.0);
    EXPECT_EQ(hit.y, 2.0);
    const L_SEGM endsOnIt = {{0.3, 0.7, 5}, {0.1, 0.2, 1 + 1e-7}};
    EXPECT_EQ(intersect_SPl(endsOnIt, floor, &hit), 1);
    EXPECT_EQ(hit.z, 1 + 1e-7) << "an end within the tolerance is returned as it is";
    hit = {9, 9, 9};
    EXPECT_EQ(intersect_SPl({{0, 0, 2}, {5, 0, 2}}, floor, &hit), 0) << "parallel";
    EXPECT_EQ(intersect_SPl({{0, 0, 2}, {0, 0, 1.5}}, floor, &hit), 0) << "stops short";
    EXPECT_EQ(intersect_SPl({{0, 0, 1}, {5, 3, 1}}, floor, &hit), 2) << "lies in the plane";
    EXPECT_EQ(hit.x, 9.0);

    List<L_POINT> points;
    ASSERT_EQ(convert_to_points({{0, 0, 0}, {1, 2, 0.3}}, 3, &points), 0);
    ASSERT_EQ(points.Size(), 4u);
    EXPECT_EQ(points.Get(1)->x, 0.0);
    EXPECT_EQ(points.Get(3)->y, 2.0 * 2.0 / 3.0);
    EXPECT_EQ(points.Get(4)->z, 0.3) << "the end exactly";
    EXPECT_EQ(convert_to_points({{0, 0, 0}, {1, 0, 0}}, 0, &points), 1);
    EXPECT_EQ(points.Size(), 0u);
}
