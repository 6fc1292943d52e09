#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "LMesh.h"
#include "MeshSnapshot.h"
#include "TestMeshes.h"

namespace {

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

uint32_t EdgeBetween(const L_LUMOMESH& mesh, uint32_t a, uint32_t b)
{
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if (IsLive(edge.flags) &&
            ((edge.vertex[0] == a && edge.vertex[1] == b) || (edge.vertex[0] == b && edge.vertex[1] == a)))
            return e;
    }
    return LM_NONE;
}

uint32_t BorderEdgeCount(const L_LUMOMESH& mesh)
{
    uint32_t border = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e)
        if (IsLive(mesh.edges.Peek(e)->flags) && mesh.edges.Peek(e)->facet[1] == LM_NONE) ++border;
    return border;
}

// On MakeGrid(4, 4), vertex (i, j) is 5 j + i. The edge from (1,2) to (2,2) has the
// apexes (1,1) and (2,3): all four vertices are inner, each with six edges.
constexpr uint32_t kA = 11, kB = 12;

}  // namespace

// An empty list rebuilds flags, links and counts: scrambling them and calling again
// gives back the same bytes.
TEST(DeleteFacets, EmptyListRebuildsFlagsLinksAndCounts)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    EXPECT_TRUE(LMeshDeleteFacets(mesh, BaseList<uint32_t>()));
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_EQ(mesh.vertexCount, 8u);
    EXPECT_EQ(mesh.edgeCount, 18u);
    EXPECT_EQ(mesh.facetCount, 11u);
    const std::vector<uint8_t> rebuilt = testmesh::Snapshot(mesh);
    // Dead vertices keep whatever link they had, so only live ones lose theirs here.
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        if (IsLive(mesh.vertices.Peek(v)->flags)) mesh.vertices.At(v)->edge = LM_NONE;
        mesh.vertices.At(v)->flags |= LM_LIVE;
    }
    for (uint32_t e = 0; e < mesh.edges.count; ++e) mesh.edges.At(e)->flags ^= LM_LIVE;
    mesh.vertexCount = mesh.edgeCount = mesh.facetCount = 0;
    EXPECT_TRUE(LMeshDeleteFacets(mesh, BaseList<uint32_t>()));
    EXPECT_EQ(testmesh::Snapshot(mesh), rebuilt);
    EXPECT_EQ(+mesh.vertices.Peek(0)->edge, 12u);  // the highest of its edges 0, 2, 3, 11, 12
}

TEST(DeleteFacets, LastFacetTakesItsVerticesAndBadIdsAreReported)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    const uint32_t link = mesh.vertices.Peek(2)->edge;
    BaseList<uint32_t> ids;
    *ids.At(0) = 7;  // past the store: reported, the next id still deleted
    *ids.At(1) = 0;
    EXPECT_FALSE(LMeshDeleteFacets(mesh, ids));
    EXPECT_EQ(mesh.facetCount + mesh.vertexCount + mesh.edgeCount, 0u);
    EXPECT_FALSE(IsLive(mesh.vertices.Peek(2)->flags));
    EXPECT_EQ(+mesh.vertices.Peek(2)->edge, link);  // a dead vertex keeps its stale link
    EXPECT_EQ(mesh.facets.count, 1u);
}

TEST(CollapseEdge, InnerEdgeMovesSecondEndOntoFirst)
{
    L_LUMOMESH mesh = testmesh::MakeGrid(4, 4);
    const LM_VERTEX before = *mesh.vertices.Peek(kA);
    ASSERT_TRUE(LMeshCollapseEdge(mesh, EdgeBetween(mesh, kA, kB)));
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_EQ(mesh.vertexCount, 24u);
    EXPECT_EQ(mesh.edgeCount, 56u - 3u);
    EXPECT_EQ(mesh.facetCount, 30u);
    EXPECT_FALSE(IsLive(mesh.vertices.Peek(kB)->flags));
    EXPECT_EQ(std::memcmp(mesh.vertices.Peek(kA)->position, before.position, sizeof before.position), 0);
    EXPECT_EQ(BorderEdgeCount(mesh), 16u);
    // Links must lead the walks round whole fans: A gains B's neighbours but the
    // apexes 6 and 17, which lose their edge to B.
    BaseList<uint32_t> atA, atApexes;
    EXPECT_EQ(LMeshGetEdgesAroundVertex(mesh, kA, atA) + LMeshGetEdgesAroundVertex(mesh, 6, atApexes) +
                  LMeshGetEdgesAroundVertex(mesh, 17, atApexes),
              0);
    EXPECT_EQ(atA.count, 8u);
    EXPECT_EQ(atApexes.count, 10u);
}

TEST(CollapseEdge, RefusalsChangeNothing)
{
    L_LUMOMESH mesh = testmesh::MakeGrid(4, 4);
    const std::vector<uint8_t> before = testmesh::Snapshot(mesh);
    EXPECT_FALSE(LMeshCollapseEdge(mesh, EdgeBetween(mesh, 0, 1)));    // a border edge
    EXPECT_FALSE(LMeshCollapseEdge(mesh, EdgeBetween(mesh, 16, 21)));  // inner; its side (21,22) is not
    EXPECT_FALSE(LMeshCollapseEdge(mesh, mesh.edges.count));           // past the store
    EXPECT_EQ(testmesh::Snapshot(mesh), before);
}

TEST(CollapseFacet, OneFreeSideKeepsItsEnds)
{
    // Facet 2 is (1, 2, 6) with the free side (1, 2); 6 is nearer to 1.
    L_LUMOMESH mesh = testmesh::MakeGrid(3, 3);
    ASSERT_TRUE(LMeshCollapseFacet(mesh, 2));
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_TRUE(IsLive(mesh.vertices.Peek(1)->flags));
    EXPECT_TRUE(IsLive(mesh.vertices.Peek(2)->flags));
    EXPECT_FALSE(IsLive(mesh.vertices.Peek(6)->flags));
    EXPECT_FALSE(LMeshCollapseFacet(mesh, 2));  // now dead
    EXPECT_FALSE(LMeshCollapseFacet(mesh, mesh.facets.count));
}

TEST(CollapseFacet, WithoutFreeSideTheTieOfShortestSidesKeepsTheMiddleCorner)
{
    // Cube facet 0 is (0, 2, 1): the diagonal (0, 2) and two unit sides. With the sides
    // equal, corner 1 (vertex 2) is kept and corner 2 (vertex 1) dropped.
    L_LUMOMESH mesh = testmesh::MakeCube();
    ASSERT_TRUE(LMeshCollapseFacet(mesh, 0));
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_FALSE(IsLive(mesh.vertices.Peek(1)->flags));
    EXPECT_EQ(mesh.facetCount, 10u);
    const LM_FACET& front = *mesh.facets.Peek(4);  // was (0, 1, 5)
    EXPECT_EQ(std::vector<uint32_t>({front.vertex[0], front.vertex[1], front.vertex[2]}),
              (std::vector<uint32_t>{0, 2, 5}));
}

// The two facets of the edge are deleted, which leaves the sides at A and at B as
// border edges joining the same vertices: they are zipped.
TEST(MergeVertices, EndsOfAnInnerEdgeDeleteItsFacetsAndZipTheSides)
{
    L_LUMOMESH mesh = testmesh::MakeGrid(4, 4);
    ASSERT_TRUE(LMeshMergeVertices(mesh, kA, kB));
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_EQ(mesh.facetCount, 30u);
    EXPECT_EQ(mesh.edgeCount, 53u);
    EXPECT_EQ(BorderEdgeCount(mesh), 16u);
    EXPECT_EQ(mesh.vertexCount, 24u);
    BaseList<uint32_t> atA;
    EXPECT_EQ(LMeshGetEdgesAroundVertex(mesh, kA, atA), 0);
    EXPECT_EQ(atA.count, 8u);
    EXPECT_FALSE(LMeshMergeVertices(mesh, kA, kB));  // B is dead now
    EXPECT_FALSE(LMeshMergeVertices(mesh, kA, kA));
}
