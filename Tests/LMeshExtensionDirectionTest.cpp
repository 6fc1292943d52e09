#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "ExtensionStrips.h"

namespace {

using extension::Sheet;

L_LUMOMESH FlatSheet(int cells, float step)
{
    return Sheet(cells, cells, [step](int i, int j) { return std::array<float, 3>{i * step, j * step, 0.0f}; });
}

// The record of the edge from p to q, with the facet holding both (or -1) and, when
// asked, every facet of the mesh as near.
LM_EXTENDEDGE RecordFor(const L_LUMOMESH& mesh, const std::array<float, 3>& p, const std::array<float, 3>& q,
                        bool allNear)
{
    LM_EXTENDEDGE record;
    for (int k = 0; k < 3; ++k) {
        record.startPoint[k] = p[k];
        record.endPoint[k] = q[k];
    }
    auto at = [&](uint32_t v, const std::array<float, 3>& x) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(v);
        return vertex->position[0] == x[0] && vertex->position[1] == x[1] && vertex->position[2] == x[2];
    };
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET* facet = mesh.facets.Peek(f);
        bool hasP = false, hasQ = false;
        for (int k = 0; k < 3; ++k) {
            hasP = hasP || at(facet->vertex[k], p);
            hasQ = hasQ || at(facet->vertex[k], q);
        }
        if (hasP && hasQ && record.facet < 0) record.facet = int32_t(f);
        if (allNear) *record.nearFacets.At(record.nearFacets.count) = f;
    }
    return record;
}

void ExpectDirection(L_LUMOMESH& mesh, LM_EXTENDEDGE& record, const L_VECTOR& expected, double minDot)
{
    L_VECTOR direction{}, second{};
    bool hasSecond = true;
    ASSERT_TRUE(FindExtensionDirection(mesh, record, direction, hasSecond, second));
    EXPECT_FALSE(hasSecond);
    EXPECT_NEAR(std::sqrt(direction.x * direction.x + direction.y * direction.y + direction.z * direction.z), 1.0, 1e-9);
    EXPECT_GT(direction.x * expected.x + direction.y * expected.y + direction.z * expected.z, minDot)
        << direction.x << " " << direction.y << " " << direction.z;
}

}  // namespace

// Every side of a flat sheet extends within its plane, square to the edge and outward,
// whichever stage finds it: the edge's own facet, or the whole mesh when the record
// names no facet or a bad one.
TEST(LMeshExtensionDirection, FlatSheetExtendsOutwardInItsPlane)
{
    L_LUMOMESH mesh = FlatSheet(4, 2.0f);
    struct Side {
        std::array<float, 3> p, q;
        L_VECTOR out;
    };
    const Side sides[] = {{{2, 0, 0}, {4, 0, 0}, {0, -1, 0}},
                          {{8, 2, 0}, {8, 4, 0}, {1, 0, 0}},
                          {{6, 8, 0}, {4, 8, 0}, {0, 1, 0}},
                          {{0, 6, 0}, {0, 4, 0}, {-1, 0, 0}}};
    for (const Side& side : sides) {
        LM_EXTENDEDGE record = RecordFor(mesh, side.p, side.q, true);
        ASSERT_GE(record.facet, 0);
        ExpectDirection(mesh, record, side.out, 1.0 - 1e-9);
        record.facet = -1;
        ExpectDirection(mesh, record, side.out, 1.0 - 1e-9);
        record.facet = 99999;
        ExpectDirection(mesh, record, side.out, 1.0 - 1e-9);
    }
    LM_EXTENDEDGE point = RecordFor(mesh, {2, 0, 0}, {2, 0, 0}, true);
    L_VECTOR direction{}, second{};
    bool hasSecond = false;
    EXPECT_FALSE(FindExtensionDirection(mesh, point, direction, hasSecond, second));
}

// On a half cylinder whose top is cut by an oblique plane, the direction follows the
// surface's tangent square to each edge, leaning well away from the axis where the
// cut is steep.
TEST(LMeshExtensionDirection, ObliquelyCutCylinderFollowsTheSurface)
{
    const int steps = 36, rows = 4;
    const double radius = 5.0, height = 8.0, slope = 3.0, pi = std::acos(-1.0);
    auto place = [&](int i, int j) {
        const double angle = pi * i / steps;
        const double top = height + slope * std::cos(angle);
        return std::array<float, 3>{float(radius * std::cos(angle)), float(radius * std::sin(angle)),
                                    float(top * j / rows)};
    };
    L_LUMOMESH mesh = Sheet(steps, rows, place);
    for (int i : {3, 17, 30}) {
        const std::array<float, 3> p = place(i, rows), q = place(i + 1, rows);
        LM_EXTENDEDGE record = RecordFor(mesh, p, q, false);
        // Tangent square to the edge: the cylinder's normal crossed with the edge.
        const double mid = pi * (i + 0.5) / steps;
        const L_VECTOR normal{std::cos(mid), std::sin(mid), 0.0};
        const L_VECTOR edge{double(q[0]) - p[0], double(q[1]) - p[1], double(q[2]) - p[2]};
        L_VECTOR expected;
        naXb(&normal, &edge, &expected);
        if (expected.z < 0) expected = {-expected.x, -expected.y, -expected.z};
        ExpectDirection(mesh, record, expected, 0.995);
        if (i == 17) {
            EXPECT_LT(expected.z, 0.9);  // the steep middle really leans off the axis
        }
    }
}

// A sheet narrower than the sampling reach fails every stage but the last, which takes
// the farthest point it walks to; the direction is still square to the edge.
TEST(LMeshExtensionDirection, ShortSurfaceFallsBackToTheFarthestPoint)
{
    L_LUMOMESH mesh = FlatSheet(2, 0.3f);
    LM_EXTENDEDGE record = RecordFor(mesh, {0.3f, 0, 0}, {0, 0, 0}, true);
    ExpectDirection(mesh, record, {0, -1, 0}, 1.0 - 1e-9);
}

// With no facet named, an edge inside the sheet is cut through: the section runs on at
// both sides of it, so the search gives both ways, square to the edge.
TEST(LMeshExtensionDirection, EdgeInsideTheSheetGivesBothWays)
{
    L_LUMOMESH mesh = FlatSheet(4, 2.0f);
    LM_EXTENDEDGE record = RecordFor(mesh, {2, 4, 0}, {4, 4, 0}, true);
    record.facet = -1;
    L_VECTOR direction{}, second{};
    bool hasSecond = false;
    ASSERT_TRUE(FindExtensionDirection(mesh, record, direction, hasSecond, second));
    ASSERT_TRUE(hasSecond);
    EXPECT_NEAR(std::fabs(direction.y), 1.0, 1e-9);
    EXPECT_NEAR(direction.y + second.y, 0.0, 1e-9);
}
