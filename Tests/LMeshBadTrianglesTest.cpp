#include "LMesh.h"
#include "TestMeshes.h"

namespace {

// The values the cleanup driver uses, with a zero area floor.
LM_TOLERANCES CleanupTolerances()
{
    LM_TOLERANCES t{};
    t.angleBand = 30.0f;
    t.vertexCurvatureChange = 0.05f;
    t.minimumArea = 0.0f;
    t.capAngle = 170.0f;
    t.skinnyAspectRatio = 10.0f;
    t.skinnyEdgeLength = 0.00381f;
    t.coordinateTolerance = 0.00001f;
    return t;
}

uint32_t CountBorderEdges(const L_LUMOMESH& mesh)
{
    uint32_t border = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if ((edge.flags & LM_LIVE) && edge.facet[1] == LM_NONE) ++border;
    }
    return border;
}

// Every live vertex links to a live edge that has it as an end.
void ExpectVertexLinksLive(const L_LUMOMESH& mesh)
{
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX& vertex = *mesh.vertices.Peek(v);
        if (!(vertex.flags & LM_LIVE)) continue;
        const LM_EDGE* edge = mesh.edges.Peek(vertex.edge);
        ASSERT_NE(edge, nullptr) << "vertex " << v;
        EXPECT_TRUE(edge->flags & LM_LIVE) << "vertex " << v;
        EXPECT_TRUE(edge->vertex[0] == v || edge->vertex[1] == v) << "vertex " << v;
    }
}

// A 4 by 4 grid whose inner vertex 12, at (2,2), is pulled to (x,2), next to vertex
// 13 at (3,2): the two facets on edge 12-13 become slivers. All four corners of
// those facets are inner vertices, as a collapse needs whole fans around them.
L_LUMOMESH GridWithSliver(float x)
{
    L_LUMOMESH mesh = testmesh::MakeGrid(4, 4);
    mesh.vertices.At(12)->position[0] = x;
    LMeshRecomputeNormals(mesh);
    return mesh;
}

}  // namespace

TEST(SkinnyTriangles, GoodTrianglesAreLeftAlone)
{
    L_LUMOMESH mesh = testmesh::MakeCube();
    EXPECT_EQ(LMeshRemoveSkinnyTriangles(mesh, CleanupTolerances(), 0.00001f), 0u);
    EXPECT_EQ(mesh.facetCount, 12u);

    L_LUMOMESH empty;
    EXPECT_EQ(LMeshRemoveSkinnyTriangles(empty, CleanupTolerances(), 0.00001f), 0u);
}

TEST(SkinnyTriangles, ShortEdgeOfASliverIsCollapsed)
{
    L_LUMOMESH mesh = GridWithSliver(2.999f);  // side 12-13 below skinnyEdgeLength
    LM_TOLERANCES tolerances = CleanupTolerances();
    tolerances.vertexCurvatureChange = 1000.0f;  // the flat ring's angle sums may move freely
    EXPECT_EQ(LMeshRemoveSkinnyTriangles(mesh, tolerances, 0.00001f), 1u);
    EXPECT_EQ(mesh.facetCount, 30u);
    EXPECT_EQ(mesh.vertexCount, 24u);
    testmesh::ExpectMeshConsistent(mesh);
}

//        C             three facets around V, just above the middle of AB:
//       /|\            (A,B,V) is a cap with an angle of about 174 degrees at V.
//      / V \           Every edge refuses to collapse, as each has a border edge
//     A-----B          beside it, so the fan becomes the one facet A B C.
TEST(CapTriangles, UncollapsibleCapAtAThreeFanBecomesOneFacet)
{
    L_LUMOMESH mesh = testmesh::FromIndexed({0, 0, 0, 2, 0, 0, 1, 2, 0, 1, 0.05f, 0}, {0, 1, 3, 1, 2, 3, 2, 0, 3});
    EXPECT_EQ(LMeshRemoveCapTriangles(mesh, CleanupTolerances()), 1u);
    EXPECT_EQ(mesh.facetCount, 1u);
    EXPECT_EQ(mesh.facets.count, 4u);
    EXPECT_EQ(mesh.vertexCount, 3u);
    EXPECT_EQ(mesh.edgeCount, 3u);
    const LM_FACET& merged = *mesh.facets.Peek(3);
    EXPECT_TRUE(merged.flags & LM_LIVE);
    EXPECT_EQ(merged.vertex[0] + merged.vertex[1] + merged.vertex[2], 0u + 1u + 2u);
    EXPECT_FALSE(mesh.vertices.Peek(3)->flags & LM_LIVE);
    EXPECT_EQ(CountBorderEdges(mesh), 3u);
    testmesh::ExpectMeshConsistent(mesh);
    ExpectVertexLinksLive(mesh);
}

TEST(ShapeFactorRange, SliverInAGridIsCollapsedAndTheSeamZipped)
{
    L_LUMOMESH mesh = GridWithSliver(2.9f);
    EXPECT_TRUE(LMeshRemoveFacetsByShapeFactorRange(mesh, 0.0f, 0.2f, 0.1f));
    EXPECT_EQ(mesh.facetCount, 30u);
    EXPECT_EQ(mesh.vertexCount, 24u);
    // The two edges each sliver folded together are one inner edge again.
    EXPECT_EQ(CountBorderEdges(mesh), 16u);
    EXPECT_EQ(mesh.edgeCount, 56u - 3u);
    testmesh::ExpectMeshConsistent(mesh);
    ExpectVertexLinksLive(mesh);
}

TEST(ShapeFactorRange, BorderVertexIsNotMoved)
{
    // Inner vertex 6 pulled to (1,0.1), next to border vertex 1 at (1,0). The side's
    // first end, 1, has border edges and stays; 6 goes onto it instead.
    L_LUMOMESH mesh = testmesh::MakeGrid(4, 4);
    mesh.vertices.At(6)->position[1] = 0.1f;
    LMeshRecomputeNormals(mesh);
    EXPECT_TRUE(LMeshRemoveFacetsByShapeFactorRange(mesh, 0.0f, 0.2f, 0.1f));
    EXPECT_TRUE(mesh.vertices.Peek(1)->flags & LM_LIVE);
    EXPECT_FALSE(mesh.vertices.Peek(6)->flags & LM_LIVE);
    EXPECT_EQ(CountBorderEdges(mesh), 16u);
    testmesh::ExpectMeshConsistent(mesh);
}

TEST(ShapeFactorRange, RefusedWhereANeighbourWouldTurn)
{
    L_LUMOMESH mesh = GridWithSliver(2.9f);
    mesh.vertices.At(18)->position[2] = 1.0f;  // (3,3) lifted: either move tilts a facet at 18
    LMeshRecomputeNormals(mesh);
    EXPECT_FALSE(LMeshRemoveFacetsByShapeFactorRange(mesh, 0.0f, 0.2f, 0.01f));
    EXPECT_EQ(mesh.facetCount, 32u);

    L_LUMOMESH cube = testmesh::MakeCube();
    EXPECT_FALSE(LMeshRemoveFacetsByShapeFactorRange(cube, 0.0f, 0.1f, 1.0f));
}

// Many collapses, some onto vertices that earlier collapses moved: the result must
// still be one flat disc, stitched and unfolded, with its whole outline.
TEST(ShapeFactorRange, JitteredGridStaysAStitchedDisc)
{
    const int n = 8;
    L_LUMOMESH mesh = testmesh::MakeGrid(n, n);
    uint32_t seed = 12345;
    auto jitter = [&seed]() {
        seed = seed * 1103515245u + 12345u;
        return (float((seed >> 8) % 1000) / 1000.0f - 0.5f) * 0.6f;
    };
    // Inner vertices move freely, border vertices along the border; corners stay.
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            LM_VERTEX& vertex = *mesh.vertices.At(uint32_t(j * (n + 1) + i));
            const float dx = jitter(), dy = jitter();
            if (j > 0 && j < n) vertex.position[1] += dy;
            if (i > 0 && i < n) vertex.position[0] += dx;
        }
    LMeshRecomputeNormals(mesh);
    EXPECT_TRUE(LMeshRemoveFacetsByShapeFactorRange(mesh, 0.0f, 0.6f, 0.5f));
    testmesh::ExpectMeshConsistent(mesh);
    ExpectVertexLinksLive(mesh);
    EXPECT_LT(mesh.facetCount, uint32_t(2 * n * n));
    EXPECT_EQ(CountBorderEdges(mesh), uint32_t(4 * n));
    // A disc: V - E + F = 1, and every inner edge has two facets.
    EXPECT_EQ(int(mesh.vertexCount) - int(mesh.edgeCount) + int(mesh.facetCount), 1);
    EXPECT_EQ(3 * mesh.facetCount, 2 * mesh.edgeCount - 4 * n);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        float p[3][3], normal[3];
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c) p[k][c] = mesh.vertices.Peek(facet.vertex[k])->position[c];
        ASSERT_TRUE(ComputeFacetNormal(p[0], p[1], p[2], normal)) << "facet " << f;
        EXPECT_GT(normal[2], 0.0f) << "facet " << f;
    }
}
