#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "GeoLibTriangles.h"

namespace {

struct Tri {
    L_POINT p[3];
};

short Meet(const Tri& a, const Tri& b, L_SEGM* segment = nullptr)
{
    return intersect_TriTri(a.p[0], a.p[1], a.p[2], b.p[0], b.p[1], b.p[2], segment);
}

Tri Rotated(const Tri& t, int shift) { return {{t.p[shift % 3], t.p[(shift + 1) % 3], t.p[(shift + 2) % 3]}}; }

void ExpectPoint(const L_POINT& p, double x, double y, double z, double tolerance = 0.0)
{
    EXPECT_NEAR(p.x, x, tolerance);
    EXPECT_NEAR(p.y, y, tolerance);
    EXPECT_NEAR(p.z, z, tolerance);
}

double Dot(const L_VECTOR& a, const L_VECTOR& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
L_VECTOR Sub(const L_POINT& a, const L_POINT& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

// Distance from p to the closed triangle, by its plane and its barycentric
// coordinates; good enough for the small, well-shaped triangles used here.
double DistanceToTriangle(const L_POINT& p, const Tri& t)
{
    const L_VECTOR e1 = Sub(t.p[1], t.p[0]), e2 = Sub(t.p[2], t.p[0]), d = Sub(p, t.p[0]);
    const double a = Dot(e1, e1), b = Dot(e1, e2), c = Dot(e2, e2);
    const double denominator = a * c - b * b;
    const double u = (c * Dot(d, e1) - b * Dot(d, e2)) / denominator;
    const double v = (a * Dot(d, e2) - b * Dot(d, e1)) / denominator;
    const double outside = std::max({0.0, -u, -v, u + v - 1.0});
    const L_VECTOR r = {d.x - u * e1.x - v * e2.x, d.y - u * e1.y - v * e2.y, d.z - u * e1.z - v * e2.z};
    return std::sqrt(Dot(r, r)) + outside * std::sqrt(std::max(a, c));
}

const Tri kFloor = {{{0, 0, 0}, {4, 0, 0}, {0, 4, 0}}};

TEST(TriTri, CrossingGivesTheSharedPieceAlongTheNormalsCross)
{
    // A wall in y = 1 standing through the floor: it meets z = 0 for 1 <= x <= 7/3.
    const Tri wall = {{{1, 1, -1}, {3, 1, -1}, {1, 1, 2}}};
    L_SEGM s;
    ASSERT_EQ(Meet(kFloor, wall, &s), 1);
    ExpectPoint(s.start, 1, 1, 0, 1e-15);
    ExpectPoint(s.end, 7.0 / 3.0, 1, 0, 1e-15);

    // Any corner order gives the same piece; swapping the triangles reverses it.
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            L_SEGM other;
            ASSERT_EQ(Meet(Rotated(kFloor, i), Rotated(wall, j), &other), 1);
            ExpectPoint(other.start, s.start.x, s.start.y, s.start.z, 1e-15);
            ASSERT_EQ(Meet(Rotated(wall, j), Rotated(kFloor, i), &other), 1);
            ExpectPoint(other.start, s.end.x, s.end.y, s.end.z, 1e-15);
        }
    }
}

TEST(TriTri, ApartPairsLeaveTheSegmentAlone)
{
    const L_SEGM untouched = {{7, 7, 7}, {8, 8, 8}};
    L_SEGM s = untouched;
    const Tri above = {{{1, 1, 0.5}, {2, 1, 0.5}, {1, 2, 3}}};
    const Tri besideTheFloor = {{{10, 1, -1}, {12, 1, -1}, {10, 1, 2}}};  // its line misses the floor
    const Tri onTheFloor = {{{1, 1, 0}, {5, 1, 0}, {1, 5, 0}}};           // coplanar overlap
    const Tri needle = {{{1, 1, -1}, {1, 1, 1}, {1, 1, 3}}};              // zero area across the floor
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Tri broken = {{{1, 1, -1}, {3, 1, -1}, {1, nan, 2}}};
    for (const Tri& other : {above, besideTheFloor, onTheFloor, needle, broken}) {
        EXPECT_EQ(Meet(kFloor, other, &s), 0);
        EXPECT_EQ(Meet(other, kFloor, &s), 0);
    }
    ExpectPoint(s.start, 7, 7, 7);
    ExpectPoint(s.end, 8, 8, 8);
}

TEST(TriTri, TouchingGivesTheSharedPointOrPartOfAnEdge)
{
    const Tri cornerOnFace = {{{1, 1, 0}, {2, 1, 3}, {1, 2, 3}}};
    const Tri cornerOnEdge = {{{2, 0, 0}, {2, -1, 3}, {3, -1, 3}}};
    const Tri cornerOnCorner = {{{4, 0, 0}, {5, 1, 1}, {5, -1, 1}}};
    const L_POINT touch[] = {{1, 1, 0}, {2, 0, 0}, {4, 0, 0}};
    L_SEGM s;
    int k = 0;
    for (const Tri& other : {cornerOnFace, cornerOnEdge, cornerOnCorner}) {
        ASSERT_EQ(Meet(kFloor, other, &s), 1);
        ExpectPoint(s.start, touch[k].x, touch[k].y, touch[k].z);
        ExpectPoint(s.end, touch[k].x, touch[k].y, touch[k].z);
        ++k;
    }

    const Tri hinge = {{{4, 0, 0}, {0, 0, 0}, {0, 0, 1}}};          // shares the whole edge
    const Tri shortHinge = {{{1, 0, 0}, {6, 0, 0}, {2, -1, 1}}};   // shares 1 <= x <= 4 of it
    ASSERT_EQ(Meet(kFloor, hinge, &s), 1);
    EXPECT_EQ(std::fabs(s.end.x - s.start.x), 4.0);
    EXPECT_EQ(s.start.y + s.start.z + s.end.y + s.end.z, 0.0);
    ASSERT_EQ(Meet(kFloor, shortHinge, &s), 1);
    EXPECT_EQ(std::min(s.start.x, s.end.x), 1.0);
    EXPECT_EQ(std::max(s.start.x, s.end.x), 4.0);
}

// A section plane z = x / 2 + y / 4 + 1000 as a triangle of side ~10^7, against
// facets of size 10^-3 placed 1000 away from the origin. The plane's points have
// exact coordinates, so touching and missing by a few units in the last place are
// both exact questions.
TEST(TriTri, HugePlaneTriangleAgainstTinyFacets)
{
    const Tri plane = {{{-4e6, -4e6, -2999000}, {4e6, -4e6, 1001000}, {0, 4e6, 1001000}}};
    const L_POINT onPlane = {1000.125, 2000.25, 2000.125};
    const double ulp = std::ldexp(1.0, -42);  // of 2000.125
    const Tri touching = {{onPlane, {1000.126, 2000.25, 2000.2}, {1000.125, 2000.251, 2000.2}}};
    const Tri justAbove = {{{onPlane.x, onPlane.y, onPlane.z + 4 * ulp}, touching.p[1], touching.p[2]}};
    L_SEGM s;
    ASSERT_EQ(Meet(plane, touching, &s), 1);
    ExpectPoint(s.start, onPlane.x, onPlane.y, onPlane.z);
    ExpectPoint(s.end, onPlane.x, onPlane.y, onPlane.z);
    EXPECT_EQ(Meet(plane, justAbove, &s), 0);

    const Tri crossing = {{{1000.125, 2000.25, 2000.124}, {1000.126, 2000.25, 2000.1265}, {1000.125, 2000.251, 2000.1265}}};
    ASSERT_EQ(Meet(plane, crossing, &s), 1);
    for (const L_POINT& end : {s.start, s.end}) {
        EXPECT_NEAR(end.z, end.x / 2 + end.y / 4 + 1000, 1e-11);
        EXPECT_LT(DistanceToTriangle(end, crossing), 1e-11);
    }
    EXPECT_GT(std::hypot(s.end.x - s.start.x, s.end.y - s.start.y), 1e-4);
}

// Turning a pair that crosses at a shallow angle must not change the answer, nor
// move the piece by more than its sensitivity to rounding.
TEST(TriTri, ShallowCrossingSurvivesRandomRotations)
{
    const Tri flat = {{{-1, -1, 0}, {1, -1, 0}, {0, 1, 0}}};
    const Tri tilted = {{{-2, 0, -1e-6}, {2, 0, -1e-6}, {0, 0.5, 2e-6}}};
    L_SEGM reference;
    ASSERT_EQ(Meet(flat, tilted, &reference), 1);
    const double length = std::hypot(reference.end.x - reference.start.x, reference.end.y - reference.start.y);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> angle(0.0, 6.283185307179586), shift(-1e3, 1e3);
    for (int trial = 0; trial < 200; ++trial) {
        const double ax = angle(random), az = angle(random);
        const L_VECTOR offset = {shift(random), shift(random), shift(random)};
        auto turn = [&](const L_POINT& p) {
            const double y = p.y * std::cos(ax) - p.z * std::sin(ax), z = p.y * std::sin(ax) + p.z * std::cos(ax);
            return L_POINT{p.x * std::cos(az) - y * std::sin(az) + offset.x,
                           p.x * std::sin(az) + y * std::cos(az) + offset.y, z + offset.z};
        };
        const Tri a = {{turn(flat.p[0]), turn(flat.p[1]), turn(flat.p[2])}};
        const Tri b = {{turn(tilted.p[0]), turn(tilted.p[1]), turn(tilted.p[2])}};
        L_SEGM s;
        ASSERT_EQ(Meet(a, b, &s), 1) << "trial " << trial;
        const L_VECTOR d = Sub(s.end, s.start);
        EXPECT_NEAR(std::sqrt(Dot(d, d)), length, 1e-6);
    }
}

// Small integer corners make touching and coplanar pairs common. The answer must not
// depend on corner order or on which triangle comes first, and every piece returned
// must lie in both triangles.
TEST(TriTri, IntegerGridPairsAreConsistent)
{
    std::mt19937 random(11);
    std::uniform_int_distribution<int> coordinate(0, 3);
    auto randomTriangle = [&] {
        Tri t;
        for (L_POINT& p : t.p) p = {double(coordinate(random)), double(coordinate(random)), double(coordinate(random))};
        return t;
    };
    int meetings = 0;
    for (int trial = 0; trial < 6000; ++trial) {
        const Tri a = randomTriangle(), b = randomTriangle();
        L_SEGM s;
        const short result = Meet(a, b, &s);
        ASSERT_EQ(Meet(b, Rotated(a, 1), nullptr), result);
        ASSERT_EQ(Meet(Rotated(a, 2), Rotated(b, 1), nullptr), result);
        if (result == 0) continue;
        ++meetings;
        for (const L_POINT& end : {s.start, s.end}) {
            ASSERT_LT(DistanceToTriangle(end, a), 1e-12);
            ASSERT_LT(DistanceToTriangle(end, b), 1e-12);
        }
    }
    EXPECT_GT(meetings, 300);
}

using Corners = std::vector<L_POINT>;

void Collect(double* a, double* b, double* c, void* user)
{
    static_cast<std::vector<Tri>*>(user)->push_back({{{a[0], a[1], a[2]}, {b[0], b[1], b[2]}, {c[0], c[1], c[2]}}});
}

void Feed(const Corners& contour)
{
    GeoLibTessellate3DBeginContour();
    for (L_POINT p : contour) GeoLibTessellate3DVertex(&p.x);
    GeoLibTessellate3DEndContour();
}

// The calls of a hole filler: one path with one contour per call of Feed.
std::vector<Tri> Tessellate(const std::vector<Corners>& contours)
{
    std::vector<Tri> triangles;
    EXPECT_TRUE(GeoLibTessellate3DInit());
    GeoLibTessellate3DSetCbk(Collect, &triangles);
    GeoLibTessellate3DBeginPath(false);
    for (const Corners& contour : contours) Feed(contour);
    GeoLibTessellate3DEndPath();
    GeoLibTessellate3DRelease();
    return triangles;
}

// Twice the signed area of the polygon seen down `view` (a unit vector).
double TwiceArea(const Corners& polygon, const L_VECTOR& view = {0, 0, 1})
{
    double sum = 0.0;
    for (size_t i = 0; i < polygon.size(); ++i) {
        const L_POINT &p = polygon[i], &q = polygon[(i + 1) % polygon.size()];
        sum += Dot({p.y * q.z - p.z * q.y, p.z * q.x - p.x * q.z, p.x * q.y - p.y * q.x}, view);
    }
    return sum;
}

// For a contour turning counter-clockwise seen down `view`: n - 2 triangles, every
// one turning the same way, made of the contour's own points, and covering the
// polygon exactly once, which together rule out overlaps and gaps.
void ExpectFan(const std::vector<Tri>& triangles, const Corners& contour, size_t distinct,
               const L_VECTOR& view = {0, 0, 1})
{
    ASSERT_EQ(triangles.size(), distinct - 2);
    double covered = 0.0;
    for (const Tri& t : triangles) {
        const double twiceArea = TwiceArea({t.p[0], t.p[1], t.p[2]}, view);
        EXPECT_GT(twiceArea, 0.0);
        covered += twiceArea;
        for (const L_POINT& corner : t.p) {
            EXPECT_TRUE(std::any_of(contour.begin(), contour.end(), [&](const L_POINT& p) {
                return p.x == corner.x && p.y == corner.y && p.z == corner.z;
            }));
        }
    }
    EXPECT_NEAR(covered, TwiceArea(contour, view), 1e-9 * std::fabs(TwiceArea(contour, view)));
}

Corners Circle(int n, double radius, double saddle = 0.0)
{
    Corners rim;
    for (int i = 0; i < n; ++i) {
        const double angle = 6.283185307179586 * i / n;
        rim.push_back({1e3 + radius * std::cos(angle), -2e3 + radius * std::sin(angle), saddle * std::sin(2 * angle)});
    }
    return rim;
}

TEST(Tessellate3D, PlanarPolygonsWithCollinearRuns)
{
    const Corners square = {{0, 0, 5}, {1, 0, 5}, {1, 1, 5}, {0, 1, 5}};
    const Corners ell = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}, {1, 2, 0}, {0, 2, 0}};
    Corners dottedSquare;  // 4 x 4 with a point at every unit of its sides
    for (int i = 0; i < 4; ++i) dottedSquare.push_back({double(i), 0, 0});
    for (int i = 0; i < 4; ++i) dottedSquare.push_back({4, double(i), 0});
    for (int i = 4; i > 0; --i) dottedSquare.push_back({double(i), 4, 0});
    for (int i = 4; i > 0; --i) dottedSquare.push_back({0, double(i), 0});
    for (const Corners& polygon : {square, ell, dottedSquare}) {
        ExpectFan(Tessellate({polygon}), polygon, polygon.size());
    }
}

TEST(Tessellate3D, CircleRimWithClosingRepeatAndNearDuplicates)
{
    Corners rim = Circle(200, 50.0);
    const Corners distinct = rim;
    rim.insert(rim.begin() + 70, {rim[70].x + 1e-12, rim[70].y, rim[70].z});
    rim.insert(rim.begin() + 20, {rim[20].x, rim[20].y - 1e-12, rim[20].z});
    rim.push_back(rim.front());
    ExpectFan(Tessellate({rim}), rim, 200);

    // The turning sense follows the contour: reversed, every triangle is too.
    const Corners reversed(distinct.rbegin(), distinct.rend());
    const std::vector<Tri> back = Tessellate({reversed});
    ASSERT_EQ(back.size(), 198u);
    for (const Tri& t : back) EXPECT_LT(TwiceArea({t.p[0], t.p[1], t.p[2]}), 0.0);
}

TEST(Tessellate3D, SaddleRimAndJaggedStar)
{
    // Tilted by 45 degrees, this saddle folds over itself seen down any axis.
    const double half = std::sqrt(0.5);
    Corners saddle;
    for (const L_POINT& p : Circle(120, 10.0, 8.0)) saddle.push_back({p.x, half * (p.y - p.z), half * (p.y + p.z)});
    ExpectFan(Tessellate({saddle}), saddle, saddle.size(), {0, -half, half});

    // Star-shaped about its centre, so simple, with about half its corners reflex.
    std::mt19937 random(5);
    std::uniform_real_distribution<double> radius(0.3, 1.0);
    Corners star;
    for (int i = 0; i < 3000; ++i) {
        const double angle = 6.283185307179586 * i / 3000, r = radius(random);
        star.push_back({r * std::cos(angle), r * std::sin(angle), 0.01 * r});
    }
    ExpectFan(Tessellate({star}), star, star.size());
}

TEST(Tessellate3D, RejectedContoursGiveNothingAndSpareTheOthers)
{
    const Corners square = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    const Corners bowTie = {{0, 0, 0}, {2, 0, 0}, {0, 1, 0}, {2, 1.5, 0}};
    const Corners touching = {{0, 0, 0}, {2, 0, 0}, {1, 1, 0}, {2, 2, 0}, {0, 2, 0}, {1, 1, 0}};
    const Corners cornerOnEdge = {{4, 2, 0}, {1, 2, 0}, {6, 1, 0}, {0, 0, 0}, {2, 4, 0}};  // (1, 2) on the 4th edge
    const Corners line = {{0, 0, 0}, {1, 1, 1}, {3, 3, 3}, {2, 2, 2}};
    const Corners twoPoints = {{0, 0, 0}, {1, 0, 0}, {0, 0, 0}, {1e-14, 0, 0}};
    const Corners broken = {{0, 0, 0}, {1, 0, 0}, {0, std::numeric_limits<double>::infinity(), 0}};
    for (const Corners& bad : {bowTie, touching, cornerOnEdge, line, twoPoints, broken}) {
        EXPECT_TRUE(Tessellate({bad}).empty());
        EXPECT_EQ(Tessellate({bad, square}).size(), 2u);
    }
}

void Reenter(double*, double*, double*, void* user)
{
    ++*static_cast<int*>(user);
    GeoLibTessellate3DRelease();
    GeoLibTessellate3DBeginPath(false);
}

TEST(Tessellate3D, CallsOutOfOrderDoNothing)
{
    const Corners square = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    std::vector<Tri> triangles;
    GeoLibTessellate3DSetCbk(Collect, &triangles);  // before Init
    GeoLibTessellate3DBeginPath(false);
    Feed(square);
    GeoLibTessellate3DEndPath();
    EXPECT_TRUE(triangles.empty());

    ASSERT_TRUE(GeoLibTessellate3DInit());
    GeoLibTessellate3DSetCbk(Collect, &triangles);
    Feed(square);                    // outside a path
    GeoLibTessellate3DEndPath();     // without BeginPath
    GeoLibTessellate3DBeginPath(false);
    GeoLibTessellate3DBeginContour();
    GeoLibTessellate3DVertex(nullptr);
    GeoLibTessellate3DEndPath();     // the open contour is dropped
    EXPECT_TRUE(triangles.empty());

    // Calls from inside the callback are ignored: both triangles still come.
    int calls = 0;
    GeoLibTessellate3DSetCbk(Reenter, &calls);
    GeoLibTessellate3DBeginPath(false);
    Feed(square);
    GeoLibTessellate3DEndPath();
    EXPECT_EQ(calls, 2);
    GeoLibTessellate3DRelease();
}

}  // namespace
