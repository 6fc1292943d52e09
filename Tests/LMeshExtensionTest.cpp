#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

BaseList<LM_EXTENDEDGE> NewRecords() { return BaseList<LM_EXTENDEDGE>(16, 4096); }

// A strip of facets over the bottom row x = xs[0] .. xs[n-1] at y = 0 and a top row at
// y = 1, with the bottom edges as a free chain from left to right.
struct Strip {
    L_LUMOMESH mesh;
    BaseList<uint32_t> edges, vertices;
};

Strip MakeStrip(const std::vector<float>& xs)
{
    const int n = int(xs.size());
    std::vector<float> coords;
    for (float x : xs) coords.insert(coords.end(), {x, 0, 0});
    for (float x : xs) coords.insert(coords.end(), {x, 1, 0});
    std::vector<int> indices;
    for (int i = 0; i + 1 < n; ++i) indices.insert(indices.end(), {i, i + 1, n + i + 1, i, n + i + 1, n + i});
    Strip strip{testmesh::FromIndexed(coords, indices), {}, {}};
    for (int i = 0; i + 1 < n; ++i) {
        *strip.vertices.At(strip.vertices.count) = uint32_t(i);
        const LM_FACET& facet = *strip.mesh.facets.Peek(uint32_t(2 * i));
        *strip.edges.At(strip.edges.count) = facet.edge[0];  // corners i, i + 1
    }
    *strip.vertices.At(strip.vertices.count) = uint32_t(n - 1);
    return strip;
}

LM_EXTENDEDGE Record(std::vector<float> start, std::vector<float> end, std::vector<float> outStart,
                     std::vector<float> outEnd)
{
    LM_EXTENDEDGE record;
    for (int k = 0; k < 3; ++k) {
        record.startPoint[k] = start[k];
        record.endPoint[k] = end[k];
        record.extendedStart[k] = outStart[k];
        record.extendedEnd[k] = outEnd[k];
    }
    return record;
}

}  // namespace

TEST(ExtensionRecords, TinyEdgesJoinALongRecordRunningTheSameWay)
{
    // 2.0 then 0.01 the same way: one record reaching x = 2.01.
    Strip joined = MakeStrip({0, 2, 2.01f, 4});
    BaseList<LM_EXTENDEDGE> records = NewRecords();
    LMeshCreateExtensionStructureBeforeExtend(joined.mesh, 0.5f, joined.edges, joined.vertices, records);
    ASSERT_EQ(records.count, 2u);
    EXPECT_FLOAT_EQ(records.Peek(0)->endPoint[0], 2.01f);
    EXPECT_FLOAT_EQ(records.Peek(1)->startPoint[0], 2.01f);
    EXPECT_EQ(records.Peek(0)->facet, 0);
    EXPECT_EQ(records.Peek(0)->cornerPointCount, 0);

    // After a 0.5 edge the tiny one keeps a record; one shorter than 0.0001 makes none,
    // even first in the chain.
    Strip separate = MakeStrip({0, 0.00005f, 0.5f, 0.51f, 2});
    BaseList<LM_EXTENDEDGE> kept = NewRecords();
    LMeshCreateExtensionStructureBeforeExtend(separate.mesh, 0.5f, separate.edges, separate.vertices, kept);
    ASSERT_EQ(kept.count, 3u);
    EXPECT_FLOAT_EQ(kept.Peek(0)->startPoint[0], 0.00005f);
    EXPECT_FLOAT_EQ(kept.Peek(1)->startPoint[0], 0.5f);
    EXPECT_FLOAT_EQ(kept.Peek(1)->endPoint[0], 0.51f);
}

TEST(ExtensionRecords, NearFacetsReachTwiceTheDistanceAndAMargin)
{
    // Extension distance 0: the reach is the edge's own box, x in [0, 2] at y = z = 0.
    Strip strip = MakeStrip({0, 2});
    const float a[3] = {2.05f, 0, 0}, b[3] = {3, 0, 0}, c[3] = {3, 1, 0};
    const float d[3] = {2.2f, 0, 0}, e[3] = {3, 0, 1}, f[3] = {3, 1, 1};
    LMeshAddTriangle(strip.mesh, a, b, c, 0);  // facet 2: 0.05 beyond
    LMeshAddTriangle(strip.mesh, d, e, f, 0);  // facet 3: 0.2 beyond
    BaseList<LM_EXTENDEDGE> records = NewRecords();
    LMeshCreateExtensionStructureBeforeExtend(strip.mesh, 0.0f, strip.edges, strip.vertices, records);
    ASSERT_EQ(records.count, 1u);
    EXPECT_EQ(testmesh::Ids(records.Peek(0)->nearFacets), (std::vector<uint32_t>{0, 1, 2}));
}

TEST(ExtensionRecords, StripsAndCornerFans)
{
    L_LUMOMESH none;
    EXPECT_EQ(LMeshCreateMeshUsingExtendedEdges(NewRecords(), none), -1);
    EXPECT_EQ(none.facetCount, 0u);

    BaseList<LM_EXTENDEDGE> one = NewRecords();
    *one.At(0) = Record({0, 0, 0}, {1, 0, 0}, {0, -1, 0}, {1, -1, 0});
    L_LUMOMESH single;
    EXPECT_EQ(LMeshCreateMeshUsingExtendedEdges(one, single), 0);
    EXPECT_EQ(single.facetCount, 2u);

    // A closed square chain whose last record has two corner points: its fan of three
    // triangles closes the corner towards the first record.
    float corner[2][3] = {{-0.7f, -0.3f, 0}, {-0.3f, -0.7f, 0}};
    BaseList<LM_EXTENDEDGE> square = NewRecords();
    *square.At(0) = Record({0, 0, 0}, {1, 0, 0}, {0, -1, 0}, {1, -1, 0});
    *square.At(1) = Record({1, 0, 0}, {1, 1, 0}, {2, 0, 0}, {2, 1, 0});
    *square.At(2) = Record({1, 1, 0}, {0, 1, 0}, {1, 2, 0}, {0, 2, 0});
    *square.At(3) = Record({0, 1, 0}, {0, 0, 0}, {-1, 1, 0}, {-1, 0, 0});
    square.At(3)->cornerPointCount = 2;
    square.At(3)->cornerPoints = corner;
    L_LUMOMESH ring;
    EXPECT_EQ(LMeshCreateMeshUsingExtendedEdges(square, ring), 0);
    EXPECT_EQ(ring.facetCount, 8u + 3u);
}

TEST(ExtensionRecords, CancelStopsBeforeTheFirstRecord)
{
    Strip strip = MakeStrip({0, 2, 4});
    BaseList<LM_EXTENDEDGE> records = NewRecords();
    LMeshCreateExtensionStructureBeforeExtend(strip.mesh, 0.5f, strip.edges, strip.vertices, records);
    const int cancel = 1;
    EXPECT_EQ(LMeshExtendFreeEdgeFacets(strip.mesh, 0.5f, records, &cancel), 0);
    for (uint32_t i = 0; i < records.count; ++i) EXPECT_FLOAT_EQ(records.Peek(i)->direction[1], 0.0f);
}

TEST(ExtensionRecords, AFlatSheetGrowsInItsPlaneAwayFromTheEdge)
{
    Strip strip = MakeStrip({0, 2, 4});
    BaseList<LM_EXTENDEDGE> records = NewRecords();
    LMeshCreateExtensionStructureBeforeExtend(strip.mesh, 0.5f, strip.edges, strip.vertices, records);
    EXPECT_EQ(LMeshExtendFreeEdgeFacets(strip.mesh, 0.5f, records, nullptr), 0);
    ASSERT_EQ(records.count, 2u);
    for (uint32_t i = 0; i < records.count; ++i) {
        const LM_EXTENDEDGE& record = *records.Peek(i);
        EXPECT_NEAR(record.direction[1], -1.0f, 1e-6f) << i;  // out of the sheet, square to the edge
        EXPECT_NEAR(record.extendedStart[1], -0.5f, 1e-6f) << i;
        EXPECT_NEAR(record.extendedEnd[2], 0.0f, 1e-6f) << i;
        EXPECT_NEAR(std::fabs(record.extensionNormal[2]), 1.0f, 1e-6f) << i;
        EXPECT_FLOAT_EQ(record.firstExtendedEnd[1], record.extendedEnd[1]) << i;
    }
    L_LUMOMESH band;
    EXPECT_EQ(LMeshCreateMeshUsingExtendedEdges(records, band), 0);
    EXPECT_EQ(band.facetCount, 4u);
}
