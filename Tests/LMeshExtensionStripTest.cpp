#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "ExtensionStrips.h"

using namespace extension;

namespace {

const float kPi = float(std::acos(-1.0));

L_LUMOMESH Grid(int nx, int ny, const std::function<bool(int, int)>& skip = nullptr)
{
    return Sheet(nx, ny, [](int i, int j) { return std::array<float, 3>{float(i), float(j), 0.0f}; }, skip);
}

// A vertex position by value: the packed record's floats are not aligned.
std::array<float, 3> PositionOf(const L_LUMOMESH& mesh, uint32_t v)
{
    std::array<float, 3> p;
    std::memcpy(p.data(), mesh.vertices.Peek(v)->position, sizeof p);
    return p;
}

L_LUMOMESH StripOf(const Records& records)
{
    L_LUMOMESH strip;
    EXPECT_EQ(LMeshCreateMeshUsingExtendedEdges(records, strip), 0);
    return strip;
}

// Distance of a point of the plane z = 0 from the rectangle [0, w] x [0, h].
float OutsideRectangle(const float p[3], float w, float h)
{
    const float dx = std::max({0.0f, -p[0], p[0] - w}), dy = std::max({0.0f, -p[1], p[1] - h});
    return std::sqrt(dx * dx + dy * dy);
}

}  // namespace

// A flat 6 x 4 sheet grows in its plane, square to each side and outward, by exactly
// the distance; its four corners are rounded by fans of six 15-degree steps, so the
// strip's area is the perimeter times the distance plus four such fans.
TEST(LMeshExtensionStrip, FlatRectangleGetsAFramedStrip)
{
    L_LUMOMESH sheet = Grid(6, 4);
    const float d = 0.5f;
    std::vector<Records> chains = ExtendedChains(sheet, d);
    ASSERT_EQ(chains.size(), 1u);
    Records& records = chains[0];
    ASSERT_EQ(records.count, 20u);
    for (uint32_t i = 0; i < records.count; ++i) {
        const LM_EXTENDEDGE& r = *records.Peek(i);
        const float edge[3] = {r.endPoint[0] - r.startPoint[0], r.endPoint[1] - r.startPoint[1], 0};
        EXPECT_NEAR(edge[0] * r.direction[0] + edge[1] * r.direction[1], 0.0f, 1e-6f) << i;
        EXPECT_EQ(r.direction[2], 0.0f) << i;
        EXPECT_NEAR(OutsideRectangle(r.extendedStart, 6, 4), d, 1e-6f) << i;
        EXPECT_NEAR(OutsideRectangle(r.extendedEnd, 6, 4), d, 1e-6f) << i;
    }
    CleanUp(records, d);
    ExpectNoGapsBetweenRecords(records);
    L_LUMOMESH strip = StripOf(records);
    LMeshFreeExtensionCornerPoints(records);
    ExpectNoCrossingTriangles(strip);
    for (uint32_t v = 0; v < strip.vertices.count; ++v) {
        const std::array<float, 3> p = PositionOf(strip, v);
        EXPECT_EQ(p[2], 0.0f);
        const float out = OutsideRectangle(p.data(), 6, 4);
        EXPECT_TRUE(out < 1e-6f || std::fabs(out - d) < 1e-5f) << out;
    }
    const float fans = 4 * 6 * 0.5f * d * d * std::sin(15 * kPi / 180);
    EXPECT_NEAR(LMeshComputeArea(strip), 20 * d + fans, 1e-4f);

    // The driver gives the same strip; without its cleanups the corners stay open.
    BaseList<L_LUMOMESH> cleaned, raw;
    EXPECT_EQ(LMeshExtendMesh(sheet, d, cleaned, false, true), 0);
    EXPECT_EQ(LMeshExtendMesh(sheet, d, raw, false, false), 0);
    ASSERT_EQ(cleaned.count, 1u);
    ASSERT_EQ(raw.count, 1u);
    EXPECT_EQ(cleaned.Peek(0)->facetCount, strip.facetCount);
    EXPECT_EQ(raw.Peek(0)->facetCount, 40u);
    EXPECT_NEAR(LMeshComputeArea(*raw.Peek(0)), 20 * d, 1e-4f);
}

// An L-shaped sheet has one concave corner, where the strips of its two sides overlap:
// the cleanup cuts them where their outer lines cross, also when the distance is longer
// than the edges, so the crossing lies several records away.
TEST(LMeshExtensionStrip, ConcaveCornerOfAnLShapedSheetIsTrimmed)
{
    L_LUMOMESH sheet = Grid(6, 6, [](int i, int j) { return i >= 3 && j >= 3; });
    for (float d : {0.5f, 2.0f}) {
        std::vector<Records> chains = ExtendedChains(sheet, d);
        ASSERT_EQ(chains.size(), 1u);
        Records& records = chains[0];
        CleanUp(records, d);
        ExpectNoGapsBetweenRecords(records);
        // The records meeting at (3, 3) now share the point (3 + d, 3 + d).
        int atCorner = 0;
        for (uint32_t i = 0; i < records.count; ++i) {
            const LM_EXTENDEDGE& r = *records.Peek(i);
            if (std::fabs(r.extendedEnd[0] - (3 + d)) < 1e-5f && std::fabs(r.extendedEnd[1] - (3 + d)) < 1e-5f)
                ++atCorner;
        }
        EXPECT_GE(atCorner, 1) << d;
        L_LUMOMESH strip = StripOf(records);
        LMeshFreeExtensionCornerPoints(records);
        ExpectNoCrossingTriangles(strip);
    }
}

// A disc's circular rim is one closed chain of gently turning corners: the outer lines
// of neighbours are joined where they meet, so the strip is a ring of quadrilaterals
// with neither gaps nor overlaps.
TEST(LMeshExtensionStrip, DiscRimGivesAClosedRing)
{
    const int steps = 48, rings = 4;
    const float radius = 5.0f, d = 1.0f;
    L_LUMOMESH disc = Sheet(steps, rings, [&](int i, int j) {
        const float angle = 2 * kPi * float(i % steps) / steps, r = radius * float(j + 1) / (rings + 1);
        return std::array<float, 3>{r * std::cos(angle), r * std::sin(angle), 0.0f};
    });
    LMeshOptimizeEdges(disc, 1e-4f, nullptr, nullptr, nullptr, 1);  // close the seam at angle 0
    std::vector<Records> chains = ExtendedChains(disc, d);
    ASSERT_EQ(chains.size(), 2u);  // the rim and the small hole in the middle
    for (Records& records : chains) {
        const LM_EXTENDEDGE& first = *records.Peek(0);
        if (std::hypot(first.startPoint[0], first.startPoint[1]) < radius - 0.01f) continue;  // the hole
        ASSERT_EQ(records.count, uint32_t(steps));
        EXPECT_LT(Gap(first.startPoint, records.Peek(records.count - 1)->endPoint), 1e-4f);
        CleanUp(records, d);
        ExpectNoGapsBetweenRecords(records);
        L_LUMOMESH strip = StripOf(records);
        LMeshFreeExtensionCornerPoints(records);
        ExpectNoCrossingTriangles(strip);
        const float ring = kPi * ((radius + d) * (radius + d) - radius * radius);
        EXPECT_NEAR(LMeshComputeArea(strip), ring, 0.02f * ring);
    }
}

// A quarter cylinder whose top is cut by an oblique plane: every side of its boundary,
// the two arcs and the two straight sides, continues along the surface's tangent, so the
// strip stays on or outside the cylinder and the top strip rises above the cut.
TEST(LMeshExtensionStrip, ObliquelyCutQuarterCylinderContinuesItsSurface)
{
    const int steps = 18, rows = 6;
    const float radius = 10.0f, d = 1.0f;
    auto top = [](float x) { return 8.0f + 0.4f * x; };  // the cutting plane z = 8 + 0.4 x
    L_LUMOMESH shell = Sheet(steps, rows, [&](int i, int j) {
        const float angle = 0.5f * kPi * float(i) / steps, x = radius * std::cos(angle);
        return std::array<float, 3>{x, radius * std::sin(angle), top(x) * float(j) / rows};
    });
    std::vector<Records> chains = ExtendedChains(shell, d);
    ASSERT_EQ(chains.size(), 1u);
    Records& records = chains[0];
    ASSERT_EQ(records.count, uint32_t(2 * steps + 2 * rows));
    CleanUp(records, d);
    ExpectNoGapsBetweenRecords(records);
    L_LUMOMESH strip = StripOf(records);
    LMeshFreeExtensionCornerPoints(records);
    ExpectNoCrossingTriangles(strip);
    int aboveTheCut = 0;
    for (uint32_t v = 0; v < strip.vertices.count; ++v) {
        const std::array<float, 3> p = PositionOf(strip, v);
        EXPECT_GT(std::hypot(p[0], p[1]), radius - 1e-3f);
        if (p[2] > top(p[0]) + 0.5f * d) ++aboveTheCut;
    }
    EXPECT_GE(aboveTheCut, steps);
}

// A real open part: its free boundary, extended by a small distance, gives strips
// without gaps between records or crossing triangles.
TEST(LMeshExtensionStrip, RealOpenPart)
{
    const wchar_t* path = L"../shared/data/meshes/conveyor_holes_ascii.stl";
    L_LUMOMESH part;
    if (!LMeshLoadFromSTL(path, 0.0f, &part)) GTEST_SKIP() << "the shared mesh corpus is not available";
    LMeshComputeAbsoluteBoundingBox(part);
    const float d = 0.02f * std::max({part.bboxMax[0] - part.bboxMin[0], part.bboxMax[1] - part.bboxMin[1],
                                      part.bboxMax[2] - part.bboxMin[2]});
    std::vector<Records> chains = ExtendedChains(part, d);
    ASSERT_EQ(chains.size(), 1u);
    Records& records = chains[0];
    CleanUp(records, d);
    ExpectNoGapsBetweenRecords(records);
    L_LUMOMESH strip = StripOf(records);
    LMeshFreeExtensionCornerPoints(records);
    EXPECT_GE(strip.facetCount, 2 * records.count);
    ExpectNoCrossingTriangles(strip);
}

namespace {

LM_EXTENDEDGE Quad(float x0, float x1, float outStart[2], float outEnd[2])
{
    LM_EXTENDEDGE record;
    const float start[3] = {x0, 0, 0}, end[3] = {x1, 0, 0};
    for (int k = 0; k < 3; ++k) {
        record.startPoint[k] = start[k];
        record.endPoint[k] = end[k];
        record.extendedStart[k] = k < 2 ? outStart[k] : 0.0f;
        record.extendedEnd[k] = k < 2 ? outEnd[k] : 0.0f;
    }
    record.direction[1] = -1.0f;
    return record;
}

Records Chain(std::initializer_list<LM_EXTENDEDGE> list)
{
    Records records(16, 4096);
    for (const LM_EXTENDEDGE& record : list) *records.At(records.count) = record;
    return records;
}

}  // namespace

// Outer points less than the tolerance apart are snapped; a wider gap on a straight run
// is joined half way.
TEST(LMeshExtensionCleanup, SnapsSmallGapsAndJoinsStraightRunsHalfWay)
{
    for (float gap : {0.09f, 0.1f}) {
        float a0[2] = {0, -1}, a1[2] = {1, -1}, b0[2] = {1 + gap, -1}, b1[2] = {2, -1};
        Records records = Chain({Quad(0, 1, a0, a1), Quad(1, 2, b0, b1)});
        EXPECT_TRUE(LMeshSimpleCleanupAfterExtension(records, 1.0f, 0.1f));
        const float joined = gap < 0.1f ? 1.0f : 1.0f + gap / 2;
        EXPECT_FLOAT_EQ(records.Peek(0)->extendedEnd[0], joined) << gap;
        EXPECT_FLOAT_EQ(records.Peek(1)->extendedStart[0], joined) << gap;
    }
}

// A zigzag of the outer line where the boundary runs straight is cut back at both
// corners of the kinked record, and two bridging records close the cuts.
TEST(LMeshExtensionCleanup, KinkIsRelievedWithTwoBridges)
{
    float a0[2] = {0, -1}, a1[2] = {1, -1}, b0[2] = {1, -1}, b1[2] = {2, -1.5f}, c0[2] = {2, -1.5f},
          c1[2] = {3.5f, -1};
    Records records = Chain({Quad(0, 1, a0, a1), Quad(1, 2, b0, b1), Quad(2, 3.5f, c0, c1)});
    RelieveExtensionKinks(records);
    ASSERT_EQ(records.count, 5u);
    EXPECT_EQ(records.Peek(1)->facet, -1);
    EXPECT_FLOAT_EQ(records.Peek(1)->startPoint[0], records.Peek(1)->endPoint[0]);
    EXPECT_FLOAT_EQ(records.Peek(1)->extendedStart[0], records.Peek(0)->extendedEnd[0]);
    EXPECT_FLOAT_EQ(records.Peek(1)->extendedEnd[0], records.Peek(2)->extendedStart[0]);
    EXPECT_LT(records.Peek(0)->extendedEnd[0], 1.0f);
    ExpectNoCrossingTriangles(StripOf(records));
}

// An outline pulls the outer points back to where it runs; an empty one does nothing.
TEST(LMeshExtensionCleanup, SilhouetteHoldsTheStripWithinIt)
{
    L_LUMOMESH sheet = Grid(6, 4);
    Records records = ExtendedChains(sheet, 0.5f)[0];
    BaseList<BaseList<float>> outline, none;
    BaseList<float>& line = *outline.At(0);
    for (float c : {-0.25f, -0.25f, 0.0f, 6.25f, -0.25f, 0.0f, 6.25f, 4.25f, 0.0f, -0.25f, 4.25f, 0.0f, -0.25f,
                    -0.25f, 0.0f})
        *line.At(line.count) = c;
    BaseList<uint32_t> pulled;
    int first = -1, second = -1;
    L_LUMOMESH strip;
    EXPECT_FALSE(LMeshCleanupAfterExtensionUsingSilhouette(records, 0.5f, strip, none, nullptr, none, pulled, first,
                                                           second, 1e-4f));
    EXPECT_EQ(strip.facetCount, 0u);
    EXPECT_TRUE(LMeshCleanupAfterExtensionUsingSilhouette(records, 0.5f, strip, outline, nullptr, none, pulled, first,
                                                          second, 1e-4f));
    EXPECT_EQ(first, 20);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(pulled.count, 20u);
    ASSERT_GT(strip.facetCount, 0u);
    for (uint32_t v = 0; v < strip.vertices.count; ++v)
        EXPECT_LE(OutsideRectangle(PositionOf(strip, v).data(), 6, 4), 0.25f + 1e-5f);
    LMeshFreeExtensionCornerPoints(records);
}

// With the longest chain only, of two chains of equal length the first is extended.
TEST(LMeshExtensionCleanup, LongestOnlyTakesTheFirstOfEquals)
{
    L_LUMOMESH twoSquares = Grid(7, 2, [](int i, int) { return i >= 2 && i < 5; });
    std::vector<Records> chains = ExtendedChains(twoSquares, 0.5f);
    ASSERT_EQ(chains.size(), 2u);
    BaseList<L_LUMOMESH> results;
    EXPECT_EQ(LMeshExtendMesh(twoSquares, 0.5f, results, true, true), 0);
    ASSERT_EQ(results.count, 1u);
    const bool firstOnLeft = chains[0].Peek(0)->startPoint[0] < 3.0f;
    for (uint32_t v = 0; v < results.Peek(0)->vertices.count; ++v)
        EXPECT_EQ(PositionOf(*results.Peek(0), v)[0] < 3.0f, firstOnLeft);
}

// On a tube of facets far smaller than the search's reach every edge needs the
// whole-mesh cut, which the drivers take from the near facets where that is bound to
// give the same point: their strips equal those of the public steps, point for point.
TEST(LMeshExtensionStrip, DriversCutFromNearFacetsWithTheSameResult)
{
    const int around = 80, along = 24;
    const float step = 0.05f, radius = around * step / (2 * kPi);
    L_LUMOMESH tube = Sheet(around, along, [&](int i, int j) {
        const float angle = 2 * kPi * float(i % around) / around;
        return std::array<float, 3>{radius * std::cos(angle), radius * std::sin(angle), j * step};
    });
    LMeshOptimizeEdges(tube, 1e-5f, nullptr, nullptr, nullptr, 1);
    LMeshComputeAbsoluteBoundingBox(tube);
    for (float d : {1.0f, 0.3f}) {  // 0.3 reaches too short a way for the near facets to decide
        BaseList<L_LUMOMESH> results;
        LMeshExtendMesh(tube, d, results, false, false);
        std::vector<Records> chains = ExtendedChains(tube, d);
        ASSERT_EQ(results.count, chains.size());
        for (size_t c = 0; c < chains.size(); ++c) {
            const L_LUMOMESH strip = StripOf(chains[c]);
            const L_LUMOMESH& driven = *results.Peek(uint32_t(c));
            ASSERT_EQ(driven.vertices.count, strip.vertices.count);
            for (uint32_t v = 0; v < strip.vertices.count; ++v)
                ASSERT_EQ(PositionOf(driven, v), PositionOf(strip, v)) << d << " " << v;
        }
    }
}
