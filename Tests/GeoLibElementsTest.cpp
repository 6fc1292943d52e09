#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "LMesh.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<double> Of(const L_POINT& p) { return {p.x, p.y, p.z}; }

Polyline PolylineOf(const std::vector<L_POINT>& points)
{
    Polyline polyline;
    for (const L_POINT& p : points) polyline.Append(&p);
    return polyline;
}

// `count` points on a circle in the z = 0 plane, counter-clockwise from angle `from`.
std::vector<L_POINT> ArcPoints(L_POINT centre, double radius, double from, double sweep, int count)
{
    std::vector<L_POINT> points;
    for (int k = 0; k < count; ++k) {
        const double a = from + sweep * k / (count - 1);
        points.push_back({centre.x + radius * std::cos(a), centre.y + radius * std::sin(a), centre.z});
    }
    return points;
}

// Points along the element, closely enough that chords between them stand for it.
std::vector<L_POINT> Sample(const L_ELEMENT& element)
{
    if (element.TypeGet() == L_ELEMENT_LINE) return {element.Segment().start, element.Segment().end};
    const L_ARC& arc = element.Arc();
    L_VECTOR axis = arc.axis, u, v, toEnd;
    normalise(&axis);
    vector_PP(&arc.centre, &arc.start, &u);
    vector_PP(&arc.centre, &arc.end, &toEnd);
    naXb(&axis, &u, &v);
    const double sweep = real_vector_angle(u, toEnd, &axis);
    normalise(&u);
    std::vector<L_POINT> points;
    for (int k = 0; k <= 2000; ++k) {
        const double a = sweep * k / 2000, c = arc.radius * std::cos(a), s = arc.radius * std::sin(a);
        points.push_back({arc.centre.x + c * u.x + s * v.x, arc.centre.y + c * u.y + s * v.y,
                          arc.centre.z + c * u.z + s * v.z});
    }
    return points;
}

double DistanceToChords(const L_POINT& p, const std::vector<L_POINT>& chain)
{
    double nearest = HUGE_VAL;
    for (size_t k = 1; k < chain.size(); ++k) nearest = std::min(nearest, real_dist_PS(p, {chain[k - 1], chain[k]}));
    return nearest;
}

// The elements run end to start, and every polyline point lies within tolerance of
// them.
void ExpectFollows(const std::vector<L_POINT>& polyline, const List<L_ELEMENT>& elements, double tolerance)
{
    std::vector<L_POINT> all;
    for (uint32_t i = 1; i <= elements.Size(); ++i) {
        L_POINT start, end, previousEnd;
        ASSERT_EQ(elements.Get(i)->get_start_end_point(&start, &end), 0);
        if (i > 1) {
            elements.Get(i - 1)->get_start_end_point(nullptr, &previousEnd);
            EXPECT_EQ(Of(start), Of(previousEnd)) << "element " << i;
        }
        const std::vector<L_POINT> sample = Sample(*elements.Get(i));
        all.insert(all.end(), sample.begin(), sample.end());
    }
    for (const L_POINT& p : polyline) EXPECT_LE(DistanceToChords(p, all), tolerance * 1.001);
}

List<L_ELEMENT> LinesOf(const std::vector<L_SEGM>& segments)
{
    List<L_ELEMENT> elements;
    for (const L_SEGM& s : segments) {
        L_ELEMENT element;
        element.SetSegment(s);
        elements.Append(element);
    }
    return elements;
}

std::vector<short> TypesOf(const List<L_ELEMENT>& elements)
{
    std::vector<short> types;
    for (uint32_t i = 1; i <= elements.Size(); ++i) types.push_back(elements.Get(i)->TypeGet());
    return types;
}

// A 40 x 20 rectangle with corners rounded to radius 5, counter-clockwise, starting
// halfway along the bottom side, closed.
std::vector<L_POINT> RoundedRectangle()
{
    const L_POINT corners[4] = {{35, 5, 0}, {35, 15, 0}, {5, 15, 0}, {5, 5, 0}};
    std::vector<L_POINT> points;
    for (int c = 0; c < 4; ++c) {
        const std::vector<L_POINT> arc = ArcPoints(corners[c], 5.0, -kPi / 2 + c * kPi / 2, kPi / 2, 12);
        const L_POINT& from = c == 0 ? L_POINT{20, 0, 0} : points.back();
        for (int k = 1; k <= 5; ++k) {  // the straight side up to the arc
            const double t = k / 6.0;
            points.push_back({from.x + t * (arc[0].x - from.x), from.y + t * (arc[0].y - from.y), 0});
        }
        points.insert(points.end(), arc.begin(), arc.end());
    }
    for (int k = 1; k <= 6; ++k) points.push_back({5 + 15.0 * k / 6, 0, 0});
    points.insert(points.begin(), L_POINT{20, 0, 0});
    return points;
}

}  // namespace

TEST(GeoPolyline, PointsLengthClosureAndParameter)
{
    List<L_POINT> list;
    for (L_POINT p : {L_POINT{0, 0, 0}, L_POINT{9, 9, 9}, L_POINT{3, 0, 0}, L_POINT{3, 4, 0}}) list.Append(p);
    list.Invalidate(2);
    Polyline polyline;
    ASSERT_EQ(polyline.Create(&list), 0);
    L_POINT p;
    EXPECT_EQ(polyline.N_Points(), 3u);
    EXPECT_EQ(polyline.Get_Point(0, &p), 1);
    ASSERT_EQ(polyline.Get_Point(3, &p), 0);
    EXPECT_EQ(Of(p), (std::vector<double>{3, 4, 0}));
    EXPECT_EQ(polyline.Length(), 7.0);
    ASSERT_EQ(polyline.Get_Parametric_Point(5.0 / 7.0, &p), 0);
    EXPECT_NEAR(p.y, 2.0, 1e-12);  // 5/7 * 7 is 5 only up to rounding
    EXPECT_EQ(polyline.Get_Parametric_Point(1.5, &p), 1);

    short closed = 1;
    polyline.Is_Closed(&closed);
    EXPECT_EQ(closed, 0);
    const Polyline copy = polyline;
    polyline.Append(&copy.Points()[0]);
    polyline.Is_Closed(&closed);
    EXPECT_EQ(closed, 1);
    polyline.Reverse();
    L_POINT start, end;
    polyline.Get_Start_End_Points(&start, &end);
    EXPECT_EQ(Of(start), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(copy.N_Points(), 3u);
    ASSERT_EQ(polyline.Get_Point(2, &p), 0);
    EXPECT_EQ(Of(p), (std::vector<double>{3, 4, 0}));
}

TEST(GeoElement, ReverseKeepsTheCurveAndReadersMatchTheType)
{
    L_ELEMENT none;
    EXPECT_EQ(none.get_start_end_point(nullptr, nullptr), 1);
    EXPECT_EQ(none.reverse(), 1);

    L_ELEMENT arc;
    arc.SetArc({{0, 0, 0}, 1.0, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}});
    const std::vector<L_POINT> before = Sample(arc);
    ASSERT_EQ(arc.reverse(), 0);
    std::vector<L_POINT> after = Sample(arc);
    std::reverse(after.begin(), after.end());
    for (size_t k = 0; k < before.size(); k += 100) EXPECT_LT(dist_PP(&before[k], &after[k]), 1e-12);
    EXPECT_EQ(arc.Segment().start.x, 0.0);  // not a line: the zeroed record

    List<L_POINT> points;
    for (L_POINT p : {L_POINT{1, 2, 3}, L_POINT{4, 5, 6}}) points.Append(p);
    L_ELEMENT polyline;
    ASSERT_EQ(polyline.SetPolyline(points), 0);
    L_ELEMENT copy = polyline;
    ASSERT_EQ(copy.reverse(), 0);
    L_POINT start, end;
    copy.get_start_end_point(&start, &end);
    EXPECT_EQ(Of(start), (std::vector<double>{4, 5, 6}));
    polyline.get_start_end_point(&start, nullptr);
    EXPECT_EQ(Of(start), (std::vector<double>{1, 2, 3}));
    copy.TypeSet(L_ELEMENT_LINE);
    EXPECT_EQ(copy.GetPolyline().N_Points(), 0u);
}

TEST(GeoSimplify, OneLineArcOrCircleWhenOneFollowsThePolyline)
{
    L_ELEMENT element;
    short status = -1;
    PolylineOf({{0, 0, 0}, {0, 0, 0}}).Simplify(0.01, &element, &status);
    EXPECT_EQ(status, L_SIMPLIFY_DEGENERATE);

    PolylineOf({{0, 0, 0}, {1, 0.005, 0}, {2, 0, 0}, {5, 0, 0}}).Simplify(0.01, &element, &status);
    ASSERT_EQ(status, L_SIMPLIFY_DONE);
    ASSERT_EQ(element.TypeGet(), L_ELEMENT_LINE);
    EXPECT_EQ(Of(element.Segment().end), (std::vector<double>{5, 0, 0}));

    // Clockwise seen from +z: the arc's axis must point down for it to run start to end.
    std::vector<L_POINT> arc = ArcPoints({2, 3, 1}, 4.0, 0.0, 2.0, 9);
    std::reverse(arc.begin(), arc.end());
    PolylineOf(arc).Simplify(1e-6, &element, &status);
    ASSERT_EQ(status, L_SIMPLIFY_DONE);
    ASSERT_EQ(element.TypeGet(), L_ELEMENT_ARC);
    EXPECT_NEAR(element.Arc().radius, 4.0, 1e-9);
    EXPECT_NEAR(element.Arc().axis.z, -1.0, 1e-9);
    EXPECT_EQ(Of(element.Arc().start), Of(arc.front()));
    EXPECT_EQ(Of(element.Arc().end), Of(arc.back()));

    std::vector<L_POINT> circle = ArcPoints({2, 3, 1}, 4.0, 0.0, 2 * kPi, 25);
    circle.back() = circle.front();
    PolylineOf(circle).Simplify(1e-6, &element, &status);
    ASSERT_EQ(status, L_SIMPLIFY_DONE);
    ASSERT_EQ(element.TypeGet(), L_ELEMENT_CIRCLE);
    EXPECT_NEAR(element.Circle().radius, 4.0, 1e-9);
    EXPECT_NEAR(element.Circle().axis.z, 1.0, 1e-9);

    // Three points always lie on a circle, but a right-angled corner is no arc.
    PolylineOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}).Simplify(0.01, &element, &status);
    EXPECT_EQ(status, L_SIMPLIFY_NO_FIT);
    PolylineOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 0}}).Simplify(0.01, &element, &status);
    EXPECT_EQ(status, L_SIMPLIFY_NO_FIT);
    EXPECT_EQ(element.TypeGet(), L_ELEMENT_CIRCLE);  // unchanged on failure
}

TEST(GeoSimplify, SuperSimplifyFollowsWithLinesAndArcs)
{
    List<L_ELEMENT> elements;
    short status = -1;
    const std::vector<L_POINT> two = {{0, 0, 0}, {1, 1, 1}};
    PolylineOf(two).SuperSimplify(0.01, &elements, &status);
    EXPECT_EQ(status, L_SIMPLIFY_DONE);
    EXPECT_EQ(TypesOf(elements), (std::vector<short>{L_ELEMENT_LINE}));

    const std::vector<L_POINT> straight = {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {2, 0.001, 0}, {3, 0, 0}};
    PolylineOf(straight).SuperSimplify(0.01, &elements, &status);
    EXPECT_EQ(TypesOf(elements), (std::vector<short>{L_ELEMENT_LINE}));

    const std::vector<L_POINT> arc = ArcPoints({0, 0, 0}, 10.0, 0.3, 2.5, 40);
    PolylineOf(arc).SuperSimplify(0.01, &elements, &status);
    EXPECT_EQ(TypesOf(elements), (std::vector<short>{L_ELEMENT_ARC}));
    ExpectFollows(arc, elements, 0.01);

    std::vector<L_POINT> circle = ArcPoints({0, 0, 0}, 10.0, 0.0, 2 * kPi, 61);
    circle.back() = circle.front();
    PolylineOf(circle).SuperSimplify(0.01, &elements, &status);
    EXPECT_EQ(TypesOf(elements), (std::vector<short>{L_ELEMENT_ARC, L_ELEMENT_ARC}));
    ExpectFollows(circle, elements, 0.01);

    // Starting mid-side, the seam is joined: four lines, not five.
    const std::vector<L_POINT> square = {{1, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}, {0, 0, 0}, {1, 0, 0}};
    PolylineOf(square).SuperSimplify(0.01, &elements, &status);
    EXPECT_EQ(TypesOf(elements), std::vector<short>(4, L_ELEMENT_LINE));
    ExpectFollows(square, elements, 0.01);

    const std::vector<L_POINT> rounded = RoundedRectangle();
    PolylineOf(rounded).SuperSimplify(0.05, &elements, &status);
    EXPECT_EQ(status, L_SIMPLIFY_DONE);
    ExpectFollows(rounded, elements, 0.05);
    const std::vector<short> types = TypesOf(elements);
    EXPECT_EQ(std::count(types.begin(), types.end(), L_ELEMENT_ARC), 4);
    EXPECT_EQ(std::count(types.begin(), types.end(), L_ELEMENT_LINE), 4);

    PolylineOf({{1, 1, 1}}).SuperSimplify(0.01, &elements, &status);
    EXPECT_EQ(status, L_SIMPLIFY_DEGENERATE);
    EXPECT_EQ(elements.Size(), 0u);
}

TEST(GeoChains, ShuffledReversedSegmentsChainIntoOrderedSets)
{
    // Two closed squares and an open zigzag, as segments in shuffled order, some reversed.
    std::vector<L_SEGM> segments;
    for (double offset : {0.0, 10.0}) {
        const L_POINT c[4] = {{offset, 0, 0}, {offset + 1, 0, 0}, {offset + 1, 1, 0}, {offset, 1, 0}};
        for (int k = 0; k < 4; ++k) segments.push_back({c[k], c[(k + 1) % 4]});
    }
    for (int k = 0; k < 5; ++k) segments.push_back({{20.0 + k, double(k % 2), 0}, {21.0 + k, double((k + 1) % 2), 0}});
    std::shuffle(segments.begin(), segments.end(), std::mt19937(7));
    for (size_t k = 0; k < segments.size(); ++k) {
        if (k % 3 == 0) std::swap(segments[k].start, segments[k].end);
        segments[k].start.z += 1e-4;  // a gap below the tolerance still joins
    }
    const List<L_ELEMENT> elements = LinesOf(segments);
    List<Connected_Set_Of_Elements> sets;
    ASSERT_EQ(create_connected_sets_of_elements(elements, 1e-3, &sets), 0);
    ASSERT_EQ(sets.Size(), 3u);
    std::vector<std::pair<uint32_t, short>> shapes;
    for (uint32_t i = 1; i <= sets.Size(); ++i) {
        const List<L_ELEMENT>& chain = sets.Get(i)->elements;
        shapes.push_back({chain.Size(), sets.Get(i)->closed});
        for (uint32_t k = 2; k <= chain.Size(); ++k) {
            L_POINT end, start;
            chain.Get(k - 1)->get_start_end_point(nullptr, &end);
            chain.Get(k)->get_start_end_point(&start, nullptr);
            EXPECT_TRUE(coincident_points(&end, &start, 1e-3)) << "set " << i << " element " << k;
        }
    }
    std::sort(shapes.begin(), shapes.end());
    EXPECT_EQ(shapes, (std::vector<std::pair<uint32_t, short>>{{4, 1}, {4, 1}, {5, 0}}));
    EXPECT_EQ(create_connected_sets_of_elements(elements, 1e-3, nullptr), 1);
}

TEST(GeoChains, GrowsBackwardAndTakesTheLowestIndexAtABranch)
{
    // Three segments meet at the origin; the first seeds a chain that can only grow
    // backward, where the second and third tie and the second wins.
    const List<L_ELEMENT> elements = LinesOf({{{0, 0, 0}, {1, 0, 0}}, {{-1, 0, 0}, {0, 0, 0}}, {{0, 0, 0}, {0, 1, 0}}});
    List<Connected_Set_Of_Elements> sets;
    ASSERT_EQ(create_connected_sets_of_elements(elements, 1e-6, &sets), 0);
    ASSERT_EQ(sets.Size(), 2u);
    const List<L_ELEMENT>& first = sets.Get(1)->elements;
    ASSERT_EQ(first.Size(), 2u);
    EXPECT_EQ(Of(first.Get(1)->Segment().start), (std::vector<double>{-1, 0, 0}));
    EXPECT_EQ(Of(first.Get(2)->Segment().end), (std::vector<double>{1, 0, 0}));
    EXPECT_EQ(Of(sets.Get(2)->elements.Get(1)->Segment().end), (std::vector<double>{0, 1, 0}));
}

TEST(GeoChains, LongShuffledLoopChainsAsOneClosedSet)
{
    // Quadratic matching would take minutes here.
    const int n = 60000;
    std::vector<L_POINT> ring = ArcPoints({0, 0, 0}, 500.0, 0.0, 2 * kPi, n + 1);
    ring.back() = ring.front();
    std::vector<L_SEGM> segments;
    for (int k = 0; k < n; ++k) segments.push_back({ring[k], ring[k + 1]});
    std::shuffle(segments.begin(), segments.end(), std::mt19937(3));
    List<Connected_Set_Of_Elements> sets;
    ASSERT_EQ(create_connected_sets_of_elements(LinesOf(segments), 1e-6, &sets), 0);
    ASSERT_EQ(sets.Size(), 1u);
    EXPECT_EQ(sets.Get(1)->elements.Size(), uint32_t(n));
    EXPECT_EQ(sets.Get(1)->closed, 1);
}

TEST(GeoFits, PlanesOfNoisyPointsAndColinearity)
{
    // Points on z = 0.5 x + 2, counter-clockwise seen from above, with noise of 1e-6.
    std::vector<L_POINT> points;
    for (int k = 0; k < 30; ++k) {
        const double x = 10 * std::cos(k * 0.2), y = 10 * std::sin(k * 0.2), noise = (k % 3 - 1) * 1e-6;
        points.push_back({x, y, 0.5 * x + 2 + noise});
    }
    L_PLANE plane;
    short coplanar = -1;
    ASSERT_EQ(coplanar_points(uint32_t(points.size()), points.data(), 1e-5, &plane, &coplanar), 0);
    EXPECT_EQ(coplanar, 1);
    const double s = std::sqrt(1.25);
    EXPECT_NEAR(plane.normal.x, -0.5 / s, 1e-7);
    EXPECT_NEAR(plane.normal.z, 1.0 / s, 1e-7);
    ASSERT_EQ(coplanar_points(uint32_t(points.size()), points.data(), 1e-7, &plane, &coplanar), 0);
    EXPECT_EQ(coplanar, 0);

    List<L_POINT> line;
    for (int k = 0; k < 5; ++k) line.Append({double(k), 2.0 * k, 0});
    EXPECT_EQ(least_squares_plane(line, &plane), 1);

    L_LINE through;
    short colinear = -1;
    EXPECT_EQ(colinear_points({5, 0, 0}, {0, 0, 0}, {10, 0.001, 0}, 0.01, &through, &colinear), 0);
    EXPECT_EQ(colinear, 1);
    EXPECT_EQ(colinear_points({5, 1, 0}, {0, 0, 0}, {10, 0, 0}, 0.01, &through, &colinear), 0);
    EXPECT_EQ(colinear, 0);
    EXPECT_EQ(real_dist_PL({5, 1, 0}, through, {0, 0, 0}), 1.0);
    EXPECT_EQ(real_dist_PL({5, 1, 7}, through, {0, 0, 1}), 1.0);
    EXPECT_EQ(colinear_points({1, 1, 1}, {1, 1, 1}, {1, 1, 1}, 0.01, &through, &colinear), 1);
}

TEST(GeoFits, ArcsCirclesLinesBoxesAndPlanes)
{
    const L_ARC quarter = {{0, 0, 0}, 2.0, {0, 0, 1}, {2, 0, 0}, {0, 2, 0}};
    const double r = std::sqrt(2.0);
    EXPECT_EQ(point_on_arc({r, r, 0}, quarter, 1e-9), 0);
    EXPECT_EQ(point_on_arc({-r, -r, 0}, quarter, 1e-9), 1);
    EXPECT_EQ(point_on_arc({r, r, 0.1}, quarter, 0.05), 1);
    EXPECT_EQ(point_on_arc({2, -0.01, 0}, quarter, 0.02), 0);  // just before the start
    const L_ARC rest = {{0, 0, 0}, 2.0, {0, 0, -1}, {2, 0, 0}, {0, 2, 0}};
    EXPECT_EQ(point_on_arc({-r, -r, 0}, rest, 1e-9), 0);

    L_CIRCLE circle;
    convert_A_C(&quarter, &circle);
    L_POINT p{3, 4, 9};
    ASSERT_EQ(project_point_onto_circle(&p, &circle, &p), 0);
    EXPECT_EQ(Of(p), (std::vector<double>{1.2, 1.6, 0}));
    p = {0, 0, 5};
    EXPECT_EQ(project_point_onto_circle(&p, &circle, &p), 1);

    const L_SEGM diagonal = {{-1, -1, -1}, {1, 1, 1}};
    L_LINE line;
    ASSERT_EQ(convert_S_L(&diagonal, &line), 0);
    const L_BOUNDS box = {{0, 0, 0}, {2, 2, 2}};
    L_POINT meets[2];
    ASSERT_EQ(intersect_LB(&line, &box, meets, 0.0), 2);
    EXPECT_NEAR(meets[0].x, 0.0, 1e-15);
    EXPECT_NEAR(meets[1].z, 2.0, 1e-15);
    const L_LINE beside = {{3, 0, 0}, {0, 1, 0}};
    EXPECT_EQ(intersect_LB(&beside, &box, meets, 0.5), 0);
    EXPECT_EQ(intersect_LB(&beside, &box, meets, 1.0), 2);
    const L_SEGM dot = {{1, 1, 1}, {1, 1, 1}};
    EXPECT_EQ(convert_S_L(&dot, &line), 1);

    const L_PLANE floor = {{0, 0, 1}, {0, 0, 2}};
    const L_LINE slanted = {{0, 0, 0}, {0.6, 0, 0.8}};
    ASSERT_EQ(intersect_LPl(&slanted, &floor, &p), 1);
    EXPECT_NEAR(p.x, 0.75, 1e-15);
    EXPECT_EQ(intersect_LPl(&beside, &floor, &p), 0);
    const L_LINE inside = {{0, 0, 1}, {1, 0, 0}};
    EXPECT_EQ(intersect_LPl(&inside, &floor, &p), 2);
}
