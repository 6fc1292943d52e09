#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

using testmesh::Ids;

constexpr double kPi = 3.14159265358979323846;

// Vertices in z = 0 and edges joining them in list order (closed: back to the first).
L_LUMOMESH ChainMesh(const std::vector<std::pair<double, double>>& points, bool closed)
{
    L_LUMOMESH mesh;
    for (uint32_t i = 0; i < points.size(); ++i) {
        LM_VERTEX* v = mesh.vertices.At(i);
        v->position[0] = float(points[i].first);
        v->position[1] = float(points[i].second);
        v->position[2] = 0.0f;
        v->flags = LM_LIVE;
    }
    const uint32_t n = uint32_t(points.size()), edgeCount = closed ? n : n - 1;
    for (uint32_t i = 0; i < edgeCount; ++i) {
        LM_EDGE* e = mesh.edges.At(i);
        e->vertex[0] = i;
        e->vertex[1] = (i + 1) % n;
        e->facet[0] = e->facet[1] = LM_NONE;
        e->flags = LM_LIVE;
    }
    return mesh;
}

// Corners of a path turning by the same angle at every vertex (a regular polygon's sides).
std::vector<std::pair<double, double>> Turning(const std::vector<double>& turnsDegrees, double side)
{
    std::vector<std::pair<double, double>> points{{0.0, 0.0}};
    double heading = 0.0;
    for (size_t i = 0; i <= turnsDegrees.size(); ++i) {
        if (i > 0) heading += turnsDegrees[i - 1] * kPi / 180.0;
        points.push_back({points.back().first + side * std::cos(heading), points.back().second + side * std::sin(heading)});
    }
    return points;
}

std::vector<std::pair<double, double>> OnCircle(int count, double radius, double sweepDegrees)
{
    std::vector<std::pair<double, double>> points;
    for (int i = 0; i < count; ++i) {
        const double a = sweepDegrees * kPi / 180.0 * i / (sweepDegrees == 360.0 ? count : count - 1);
        points.push_back({radius * std::cos(a), radius * std::sin(a)});
    }
    return points;
}

BaseList<uint32_t> AllEdges(const L_LUMOMESH& mesh)
{
    BaseList<uint32_t> list;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) *list.At(e) = e;
    return list;
}

LM_TOLERANCES Tolerances()
{
    LM_TOLERANCES t{};
    t.turnAngle = 5.0f;
    t.coordinateTolerance = 0.01f;
    return t;
}

struct Classified {
    bool found;
    std::vector<short> types;
    uint32_t paths;
};

Classified Classify(const L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances = Tolerances())
{
    BaseList<uint32_t> edges = AllEdges(mesh);
    BaseList<L_ELEMENT> elements;
    BaseList<BaseList<uint32_t>> paths;
    Classified out{LMeshClassifyConnectedEdgesToElements(mesh, edges, elements, paths, tolerances, false, false),
                   {},
                   paths.count};
    for (uint32_t i = 0; i < elements.count; ++i) out.types.push_back(elements.Peek(i)->TypeGet());
    return out;
}

TEST(LMeshClassifyConnectedEdgesToElements, CutsAtCornersAndAtChangesOfTurn)
{
    const Classified single = Classify(ChainMesh({{0, 0}, {3, 4}}, false));
    EXPECT_TRUE(single.found);
    EXPECT_EQ(single.types, std::vector<short>{L_ELEMENT_LINE});
    EXPECT_EQ(single.paths, 0u);

    // 30-degree turns are one smooth piece, an arc; 50-degree turns cut every edge off.
    const Classified gentle = Classify(ChainMesh(Turning({30, 30, 30, 30}, 2.0), false));
    EXPECT_EQ(gentle.types, std::vector<short>{L_ELEMENT_ARC});
    EXPECT_EQ(gentle.paths, 0u);
    const Classified sharp = Classify(ChainMesh(Turning({50, 50, 50}, 2.0), false));
    EXPECT_EQ(sharp.types, std::vector<short>(4, L_ELEMENT_LINE));

    // Turns 10, 12, 16 with a 5-degree tolerance: the last edge starts a piece of its own.
    const Classified drifting = Classify(ChainMesh(Turning({10, 12, 16}, 2.0), false));
    EXPECT_EQ(drifting.types.size() + drifting.paths, 2u);

    const Classified circle = Classify(ChainMesh(OnCircle(12, 5.0, 360.0), true));
    EXPECT_EQ(circle.types, std::vector<short>{L_ELEMENT_CIRCLE});

    // A zero coordinate tolerance tries the reduction once instead of looping for ever.
    LM_TOLERANCES exact = Tolerances();
    exact.coordinateTolerance = 0.0f;
    EXPECT_EQ(Classify(ChainMesh(Turning({50, 50}, 2.0), false), exact).types.size(), 3u);
}

// The running vector of deviations from the radius, never reset, as the fit sums it.
double RunningMean(const std::vector<L_POINT>& points, const L_CIRCLE& c, double divisor)
{
    L_VECTOR running{0, 0, 0};
    double total = 0.0;
    for (const L_POINT& p : points) {
        const double dx = p.x - c.centre.x, dy = p.y - c.centre.y, length = std::hypot(dx, dy);
        running.x += dx - dx / length * c.radius;
        running.y += dy - dy / length * c.radius;
        total += std::hypot(running.x, running.y);
    }
    return total / divisor;
}

TEST(LMeshClassifyConnectedEdgesToCircleArc, FitsCirclesAndArcsWithRunningErrors)
{
    const auto points = OnCircle(24, 10.0, 360.0);
    const L_LUMOMESH ring = ChainMesh(points, true);
    BaseList<uint32_t> edges = AllEdges(ring);
    L_ELEMENT element;
    double pointError = -1, midpointError = -1;
    ASSERT_TRUE(LMeshClassifyConnectedEdgesToCircleArc(ring, edges, element, true, &pointError, &midpointError, true));
    ASSERT_EQ(element.TypeGet(), L_ELEMENT_CIRCLE);
    const L_CIRCLE circle = element.Circle();
    EXPECT_NEAR(circle.radius, 10.0, 1e-3);
    EXPECT_NEAR(std::hypot(circle.centre.x, circle.centre.y), 0.0, 2e-3);

    // The sorted loop runs 1, 0, 23, ..., 1 (its first edge kept, walked from vertex 0),
    // so it has 25 points; the figures depend on that order.
    std::vector<L_POINT> corners, midpoints;
    for (int i = 0; i <= 24; ++i) {
        const int k = (25 - i) % 24;
        corners.push_back({float(points[k].first), float(points[k].second), 0.0});  // as stored: in float
    }
    for (int i = 0; i < 24; ++i)
        midpoints.push_back({(corners[i].x + corners[i + 1].x) / 2, (corners[i].y + corners[i + 1].y) / 2, 0.0});
    EXPECT_NEAR(midpointError, RunningMean(midpoints, circle, 25.0), 1e-6);
    EXPECT_NEAR(pointError, RunningMean(corners, circle, 25.0), 1e-6);
    EXPECT_GT(midpointError, 10 * pointError);  // sides sag inside; corners lie on the circle

    const L_LUMOMESH quarter = ChainMesh(OnCircle(7, 10.0, 90.0), false);
    BaseList<uint32_t> arcEdges = AllEdges(quarter);
    ASSERT_TRUE(LMeshClassifyConnectedEdgesToCircleArc(quarter, arcEdges, element, false, nullptr, nullptr, false));
    ASSERT_EQ(element.TypeGet(), L_ELEMENT_ARC);
    // The centre stops moving by 0.001 a step well before it reaches the true centre
    // on a short arc, so the radius is only roughly right.
    EXPECT_NEAR(element.Arc().radius, 10.0, 0.1);
    EXPECT_NEAR(element.Arc().start.x, 10.0, 0.1);
    EXPECT_NEAR(element.Arc().start.y, 0.0, 0.1);
    EXPECT_NEAR(element.Arc().end.y, 10.0, 0.1);

    const L_LUMOMESH twoPoints = ChainMesh({{0, 0}, {1, 0}}, false);
    BaseList<uint32_t> one = AllEdges(twoPoints);
    EXPECT_FALSE(LMeshClassifyConnectedEdgesToCircleArc(twoPoints, one, element, false, nullptr, nullptr, false));
    const L_LUMOMESH repeated = ChainMesh({{0, 0}, {1, 1}, {1, 1}, {2, 0}}, false);
    BaseList<uint32_t> three = AllEdges(repeated);
    EXPECT_FALSE(LMeshClassifyConnectedEdgesToCircleArc(repeated, three, element, false, nullptr, nullptr, false));
}

TEST(LMeshClassifyConnectedEdgesToPaths, BreaksAtBranchesAndCopiesSimpleSets)
{
    // A T: edges 0 (0-1), 1 (1-2), 2 (1-3), 3 (3-4); vertex 1 has three edges.
    L_LUMOMESH mesh = ChainMesh({{0, 0}, {1, 0}, {2, 0}, {1, 1}, {1, 2}}, false);
    mesh.edges.At(2)->vertex[0] = 1;
    BaseList<uint32_t> edges = AllEdges(mesh);
    BaseList<BaseList<uint32_t>> paths;
    *paths.At(0) = edges;  // emptied first
    ASSERT_TRUE(LMeshClassifyConnectedEdgesToPaths(mesh, edges, paths));
    ASSERT_EQ(paths.count, 3u);
    EXPECT_EQ(Ids(*paths.Peek(0)), std::vector<uint32_t>{0});
    EXPECT_EQ(Ids(*paths.Peek(1)), std::vector<uint32_t>{1});
    EXPECT_EQ(Ids(*paths.Peek(2)), (std::vector<uint32_t>{2, 3}));

    const L_LUMOMESH chain = ChainMesh(OnCircle(5, 1.0, 90.0), false);
    BaseList<uint32_t> shuffled;
    for (uint32_t e : {2u, 0u, 3u, 1u}) *shuffled.At(shuffled.count) = e;
    ASSERT_TRUE(LMeshClassifyConnectedEdgesToPaths(chain, shuffled, paths));
    ASSERT_EQ(paths.count, 1u);
    EXPECT_EQ(Ids(*paths.Peek(0)), (std::vector<uint32_t>{2, 0, 3, 1}));
}

}  // namespace
