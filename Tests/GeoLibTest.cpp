#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "GeoLib.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
using Xyz = std::vector<double>;

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

// The indices from 0 to Size() + 1 for which Get gives nothing.
std::vector<uint32_t> Missing(const List<Tracked>& list)
{
    std::vector<uint32_t> missing;
    for (uint32_t i = 0; i <= list.Size() + 1; ++i)
        if (!list.Get(i)) missing.push_back(i);
    return missing;
}

// zefatoll is process-wide: a test that changes it puts it back.
struct ToleranceGuard {
    L_TOLERANCE saved = zefatoll;
    ~ToleranceGuard() { zefatoll = saved; }
};

template <class P>
Xyz Of(const P& p)
{
    return {p.x, p.y, p.z};
}

}  // namespace

TEST(GeoList, OneBasedEntriesSurviveInvalidationGrowthCopyAndMove)
{
    {
        List<Tracked> list;
        EXPECT_EQ(Missing(list), (std::vector<uint32_t>{0, 1}));
        for (int i = 0; i < 8; ++i) ASSERT_TRUE(list.Append(Tracked(Text(i))));
        ASSERT_TRUE(list.Append(*list.Get(1))) << "an own entry, as the storage moves";
        EXPECT_EQ(Missing(list), (std::vector<uint32_t>{0, 10})) << "capacity is 16";
        ASSERT_TRUE(list.Invalidate(2));
        for (int i = 9; i < 20; ++i) ASSERT_TRUE(list.Append(Tracked(Text(i))));  // grows the validity bytes
        EXPECT_EQ(Missing(list), (std::vector<uint32_t>{0, 2, 21}));
        EXPECT_EQ(list.Get(9)->text, Text(0));

        List<Tracked> copy = list;
        copy.Get(5)->text = "changed";
        EXPECT_EQ(list.Get(5)->text, Text(4));
        List<Tracked> moved = std::move(copy);
        EXPECT_EQ(copy.Size(), 0u);
        EXPECT_EQ(Missing(moved), (std::vector<uint32_t>{0, 2, 21}));
        EXPECT_EQ(moved.Get(20)->text, Text(19));
        list.Clear();
        EXPECT_EQ(Missing(list), (std::vector<uint32_t>{0, 1}));
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
    const L_POINT3f of = {0, 0, 0}, pf = {2, 3, 6};
    EXPECT_EQ(dist_PP3f(&of, &pf), 7.0f);
    // Only the scaled form survives magnitudes whose squares overflow.
    const L_POINT far = {3e200, 4e200, 0};
    EXPECT_TRUE(std::isinf(dist_PP(&o, &far)));
    EXPECT_NEAR(real_dist_PP(&o, &far), 5e200, 5e186);

    const L_PLANE plane = {{5, 5, 1}, {0, 0, 5}};  // z = 1, normal not unit
    const L_POINT above = {7, 8, 4}, below = {7, 8, -2};
    EXPECT_EQ(dist_PPl(&above, &plane), 3.0);
    EXPECT_EQ(dist_PPl(&below, &plane), -3.0);

    const L_SEGM segment = {{0, 0, 0}, {4, 0, 0}};
    EXPECT_DOUBLE_EQ(real_dist_PS({7, 4, 0}, segment), 5.0);  // beyond the end; hypot is not exact
    EXPECT_DOUBLE_EQ(real_dist_PS({3, 4, 0}, {{0, 0, 0}, {0, 0, 0}}), 5.0);

    const L_BOUNDS box = {{0, 0, 0}, {1, 1, 1}};
    EXPECT_EQ(min_dist_point_bbox({0.5, 1, 0.25}, box), 0.0);
    EXPECT_EQ(min_dist_point_bbox({4, 5, 1}, box), 5.0);
    EXPECT_EQ(min_dist_point_bbox({0, 0, 0}, {{1, 0, 0}, {0, 1, 1}}), DBL_MAX);
}

TEST(GeoAngle, RangeSenseOrientationAndDegenerateVectors)
{
    const L_VECTOR x = {2, 0, 0}, y = {0, 3, 0}, z = {0, 0, 1}, zero = {0, 0, 0}, minusX = {-1, 0, 0};
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

    const L_VECTOR longX = {5, 0, 0}, tilted = {std::cos(0.01), std::sin(0.01), 0};  // 0.01 rad off x
    EXPECT_EQ(vector_orientation(x, longX, 0.0), 1);
    EXPECT_EQ(vector_orientation(x, minusX, 0.0), -1);
    EXPECT_EQ(vector_orientation(x, zero, 10.0), 0);
    // From x to y the unit vectors are sqrt 2 apart but pi / 2 radians.
    EXPECT_EQ(vector_orientation(x, y, 1.5), 1);
    EXPECT_EQ(new_vector_orientation(x, y, 1.5), 0);
    EXPECT_EQ(new_vector_orientation(x, tilted, 0.02), 1);
    EXPECT_EQ(new_vector_orientation(minusX, tilted, 0.02), -1);
}

TEST(GeoTolerance, CoincidenceAndWorkingTolerances)
{
    const L_POINT a = {1, 2, 3}, b = {0.5, 2.5, 2.5}, c = {1.5, 2.25, 3.75};
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
    // Touching counts, a gap does not, and an inverted box is empty.
    const std::pair<L_BOUNDS, short> cases[] = {{{{1, 0.5, -1}, {2, 2, 0}}, 1},
                                                {{{0, 0, 1.5}, {1, 1, 2}}, 0},
                                                {{{0.5, 0.5, 0.5}, {0.2, 0.6, 0.6}}, 0}};
    for (const auto& [other, expected] : cases) {
        short overlap = -1;
        check_bb_overlapping({{0, 0, 0}, {1, 1, 1}}, other, &overlap);
        EXPECT_EQ(overlap, expected);
    }

    L_POINT bad = {1, NAN, 3}, huge = {0, 0, 1e12};
    EXPECT_EQ(validate_P(&bad, false), 1);
    EXPECT_EQ(validate_P(&huge, false), 0);
    EXPECT_EQ(validate_P(&huge, true), 1);

    // Division by an exact power of ten is correctly rounded, hence EXPECT_EQ.
    EXPECT_EQ(rounds(1.23456, 2), 1.23);
    EXPECT_EQ(rounds(-2.5, 0), -3.0);
    EXPECT_EQ(rounds(1250.0, -2), 1300.0);
    EXPECT_EQ(rounds(1e300, -22), 1e300) << "too large to hold those places";
}

TEST(GeoConstruction, VectorsAndDegenerateInputs)
{
    L_VECTOR v = {0, 0, -7}, tiny = {0, 1e-13, 0};
    EXPECT_EQ(normalise(&v), 0);
    EXPECT_EQ(Of(v), (Xyz{0, 0, -1}));
    EXPECT_EQ(normalise(&tiny), 1) << "at most zefatoll.zero long";
    EXPECT_EQ(tiny.y, 1e-13);
    const L_POINT p = {1, 2, 3};
    EXPECT_EQ(nvector_PP(&p, &p, &v), 1);
    EXPECT_EQ(Of(v), (Xyz{0, 0, 0}));
    L_VECTOR a = {2, 0, 0}, b = {0, 3, 0};
    EXPECT_EQ(naXb(&a, &b, &a), 0) << "output aliases the first input";
    EXPECT_EQ(Of(a), (Xyz{0, 0, 1}));
    L_POINT moved;
    const L_VECTOR up = {0, 0, 5};
    project_point_on_vector(&p, &up, 2.0, &moved);
    EXPECT_EQ(Of(moved), (Xyz{1, 2, 5})) << "moves by a distance, not by multiples of the vector";

    L_VECTOR first, second;
    const L_VECTOR minusZ = {0, 0, -3};
    nvector_arbitraryaxis(&minusZ, &first, &second);
    EXPECT_EQ(Of(first), (Xyz{1, 0, 0}));
    EXPECT_EQ(Of(second), (Xyz{0, -1, 0}));
    for (const L_VECTOR n : {L_VECTOR{1, 2, 3}, L_VECTOR{-5, 0.1, 0.1}, L_VECTOR{0.3, -4, 0.3}}) {
        nvector_arbitraryaxis(&n, &first, &second);
        L_VECTOR unitN = n, cross;
        normalise(&unitN);
        naXb(&first, &second, &cross);
        // Products of unit vectors: a few roundings of 1e-16 each.
        EXPECT_NEAR(modulus(&first), 1.0, 1e-15);
        EXPECT_NEAR(adotb(&first, &unitN), 0.0, 1e-15);
        EXPECT_NEAR(adotb(&cross, &unitN), 1.0, 1e-15);
    }
}

TEST(GeoConstruction, PlanesAndProjections)
{
    const L_POINT p1 = {0, 0, 2}, p2 = {4, 0, 2}, p3 = {0, 4, 2}, onLine = {8, 0, 2};
    L_PLANE plane;
    EXPECT_EQ(plane_PPP(&p1, &p2, &p3, &plane), 0);
    EXPECT_EQ(Of(plane.normal), (Xyz{0, 0, 1})) << "counter-clockwise points face +z";
    EXPECT_EQ(plane_PPP(&p1, &p2, &onLine, &plane), 1);

    L_POINT p = {1, 2, 9};
    const L_PLANE level = {{5, 5, 1}, {0, 0, 2}};
    project_point_onto_plane(&p, &level, &p);
    EXPECT_EQ(Of(p), (Xyz{1, 2, 1}));

    const L_SEGM segment = {{0, 0, 0}, {4, 0, 0}};
    L_POINT foot;
    double t = -1;
    EXPECT_TRUE(project_point_onto_segment({1, 3, 0}, segment, &foot, &t));
    EXPECT_EQ(t, 0.25);
    EXPECT_FALSE(project_point_onto_segment({9, 1, 0}, segment, &foot, &t));
    EXPECT_EQ(Of(foot), (Xyz{4, 0, 0}));
    EXPECT_FALSE(project_point_onto_segment({1, 1, 1}, {{2, 2, 2}, {2, 2, 2}}, &foot, nullptr));
    EXPECT_EQ(Of(foot), (Xyz{2, 2, 2}));
    segment_parameter(segment, {6, 5, 0}, &t);
    EXPECT_EQ(t, 1.5) << "unclamped";
}

// Matrices act on row vectors with the translation in the last row.
TEST(GeoMatrix, TransformsDeterminantAndProductOrder)
{
    // x' = z + 10, y' = x + 20, z' = y + 30: every entry off the diagonal, so a
    // transposed product or a misplaced translation gives a different point.
    const L_MATRIX m = {{0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 10, 20, 30, 1}};
    L_POINT p = {1, 2, 3};
    mat_transform_point(&p, &m, &p);
    EXPECT_EQ(Of(p), (Xyz{13, 21, 32}));
    L_POINT3f f = {1, 2, 3};
    mat_transform_pointf(&f, &m, &f);
    EXPECT_EQ(Of(f), (Xyz{13, 21, 32}));
    L_VECTOR v = {1, 2, 3};
    mat_transform_vector(&v, &m, &v);
    EXPECT_EQ(Of(v), (Xyz{3, 1, 2}));
    L_MATRIX scaled = m;
    for (int k : {1, 6, 8}) scaled.m[k] = 2.0;
    v = {1, 2, 2};
    mat_rotate_vector(&v, &scaled, &v);
    EXPECT_EQ(Of(v), (Xyz{2, 1, 2})) << "turned but not stretched";

    const L_MATRIX scale = {{2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 4, 0, 0, 99, 0, 1}};
    EXPECT_EQ(mat_determinant(&scale), 24.0) << "translation does not count";
    const L_MATRIX swapXY = {{0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
    EXPECT_EQ(mat_determinant(&swapXY), -1.0) << "mirrors";

    L_MATRIX shift, turn, both;
    const L_VECTOR one = {1, 0, 0}, z = {0, 0, 1}, none = {0, 0, 0};
    mat_translation(&one, &shift);
    EXPECT_EQ(mat_rotation(&z, kPi / 2, &turn), 0);
    mat_product(&shift, &turn, &both);
    const L_POINT start = {1, 0, 0}, shiftedFirst = {0, 2, 0}, turnedFirst = {1, 1, 0};
    mat_transform_point(&start, &both, &p);
    EXPECT_NEAR(dist_PP(&p, &shiftedFirst), 0.0, 1e-15);  // cos(pi / 2) is 6e-17, not 0
    mat_product(&turn, &shift, &turn);
    mat_transform_point(&start, &turn, &p);
    EXPECT_NEAR(dist_PP(&p, &turnedFirst), 0.0, 1e-15);
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
    const L_POINT before[4] = {{3, 4, 5}, {-20, 11, 2}, {7, -9, 40}, {1, 1, 1}};
    L_POINT after[4];
    for (int k = 0; k < 4; ++k) mat_transform_point(&before[k], &rigid, &after[k]);
    EXPECT_NEAR(dist_PP(&after[0], &after[1]), dist_PP(&before[0], &before[1]), 1e-12);
    L_PLANE plane0, plane;
    plane_PPP(&before[0], &before[1], &before[2], &plane0);
    plane_PPP(&after[0], &after[1], &after[2], &plane);
    EXPECT_NEAR(dist_PPl(&after[3], &plane), dist_PPl(&before[3], &plane0), 1e-12);
    L_VECTOR n;
    mat_rotate_vector(&plane0.normal, &rigid, &n);
    EXPECT_NEAR(real_vector_angle(n, plane.normal), 0.0, 1e-14);
}

TEST(GeoWorkPlane, MatricesMapBetweenFrames)
{
    L_WORKPLANE plane;
    EXPECT_EQ(plane.Set({1, 2, 3}, {0, 5, 0}, {0, 0, 2}), 0);
    EXPECT_EQ(Of(plane.YAxis()), (Xyz{-1, 0, 0})) << "y = z cross x";
    L_MATRIX toPlane, toWorld;
    mat_WorkPlane_World(&plane, &toPlane, &toWorld);
    L_POINT p = {1, 3, 7};  // origin + x axis + 4 z axes
    mat_transform_point(&p, &toPlane, &p);
    EXPECT_EQ(Of(p), (Xyz{1, 0, 4}));
    EXPECT_EQ(plane.Set({0, 0, 0}, {0, 0, 4}, {0, 0, 1}), 1) << "x along the normal";

    ASSERT_EQ(plane.Set({10, -4, 6}, {1, 1, 0}, {1, -1, 2}), 0);
    mat_WorkPlane_World(&plane, &toPlane, &toWorld);
    const L_POINT q = {3, 8, -2};
    mat_transform_point(&q, &toPlane, &p);
    mat_transform_point(&p, &toWorld, &p);
    EXPECT_NEAR(dist_PP(&p, &q), 0.0, 1e-13);  // unit axes rounded to 1e-16
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
