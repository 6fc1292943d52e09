#include <gtest/gtest.h>

#include "TestMeshes.h"

using testmesh::ExpectMeshConsistent;
using testmesh::FreeEdges;
using testmesh::Ids;

namespace {

std::vector<uint32_t> Corners(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    return {facet.vertex[0], facet.vertex[1], facet.vertex[2]};
}

std::vector<uint32_t> Sides(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    return {facet.edge[0], facet.edge[1], facet.edge[2]};
}

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

}  // namespace

TEST(SplitTriangleByPointOnEdge, RefusesEdgesPastTheStoreOrWithoutFacets)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    const float point[3] = {0.5f, 0.0f, 0.0f};
    EXPECT_EQ(LMeshSplitTriangleByPointOnEdge(mesh, point, 3, 0.0f), -1);
    LM_EDGE& orphan = *mesh.edges.At(0);
    orphan.facet[0] = LM_NONE;
    EXPECT_EQ(LMeshSplitTriangleByPointOnEdge(mesh, point, 0, 0.0f), 0);
    EXPECT_EQ(mesh.vertices.count, 3u);
}

// Triangle (0,1,2), edge 0 = (0,1) split at its middle, vertex 3: the facet's other
// sides (1,2) and (0,2) meet at 2, and each takes the half that shares its other end.
TEST(SplitTriangleByPointOnEdge, BorderEdgeGivesOneFacetAndTwoEdgesMore)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    const float point[3] = {0.5f, 0.0f, 0.0f};
    ASSERT_EQ(LMeshSplitTriangleByPointOnEdge(mesh, point, 0, 0.0f), 1);
    ExpectMeshConsistent(mesh, false);
    EXPECT_EQ(mesh.vertexCount, 4u);
    EXPECT_EQ(mesh.edgeCount, 5u);
    EXPECT_EQ(mesh.facetCount, 2u);
    EXPECT_FALSE(IsLive(mesh.facets.Peek(0)->flags));
    EXPECT_FALSE(IsLive(mesh.edges.Peek(0)->flags));
    EXPECT_EQ(Corners(mesh, 1), (std::vector<uint32_t>{1, 3, 2}));
    EXPECT_EQ(Sides(mesh, 1), (std::vector<uint32_t>{1, 5, 4}));  // o0, E3, t0: not in corner order
    EXPECT_EQ(Corners(mesh, 2), (std::vector<uint32_t>{3, 0, 2}));
    EXPECT_EQ(Sides(mesh, 2), (std::vector<uint32_t>{2, 5, 3}));
    // The old winding is not consulted: both halves face -z here.
    EXPECT_EQ(+mesh.facets.Peek(1)->normal[2], -1.0f);
    EXPECT_EQ(+mesh.facets.Peek(2)->normal[2], -1.0f);
    EXPECT_EQ(+mesh.vertices.Peek(3)->position[0], 0.5f);
    EXPECT_EQ(+mesh.edges.Peek(5)->facet[0], 1u);
    EXPECT_EQ(+mesh.edges.Peek(5)->facet[1], 2u);
}

// The diagonal (0,2) of a unit square: its second facet keeps the whole edge, which is
// left a T-junction, and the junction repair then splits that facet too.
TEST(SplitTriangleByPointOnEdge, InnerEdgeKeepsItsOtherFacetUntilTheJunctionIsMended)
{
    L_LUMOMESH mesh = testmesh::MakeGrid(1, 1);
    const float middle[3] = {0.5f, 0.5f, 0.0f};
    ASSERT_EQ(LMeshSplitTriangleByPointOnEdge(mesh, middle, 2, 0.01f), 1);
    ExpectMeshConsistent(mesh, false);
    EXPECT_EQ(mesh.facetCount, 3u);
    EXPECT_EQ(mesh.edgeCount, 8u);
    EXPECT_EQ(+mesh.edges.Peek(2)->facet[0], LM_NONE);
    EXPECT_EQ(+mesh.edges.Peek(2)->facet[1], 1u);

    EXPECT_EQ(LMeshRepairVertexEdgeDisjoints(mesh, nullptr, 0.01f, 0.01f, 0.0f), 1u);
    ExpectMeshConsistent(mesh, false);
    EXPECT_EQ(mesh.facetCount, 4u);
    EXPECT_EQ(mesh.vertexCount, 5u);
    EXPECT_EQ(FreeEdges(mesh).size(), 4u);
}

// Destination: triangle (0,0) (1,0) (0,1) in group 1. Source: the triangle across its
// diagonal in group 2, and a far one in group 0.
TEST(Merge, AppendsEverySlotShiftingIdsAndGroupsOtherThanZero)
{
    L_LUMOMESH destination = testmesh::MakeTriangle();
    destination.facets.At(0)->groupId = 1;
    destination.groupCount = 2;
    L_LUMOMESH source = testmesh::FromIndexed({1, 0, 0, 1, 1, 0, 0, 1, 0, 5, 5, 5, 6, 5, 5, 5, 6, 5}, {0, 1, 2, 3, 4, 5});
    source.facets.At(0)->groupId = 2;
    source.groupCount = 3;

    L_LUMOMESH raw = destination;
    EXPECT_TRUE(LMeshMerge(source, raw, 0.01f, false));
    ExpectMeshConsistent(raw, false);
    EXPECT_EQ(raw.vertexCount, 9u);
    EXPECT_EQ(Corners(raw, 1), (std::vector<uint32_t>{3, 4, 5}));
    EXPECT_EQ(Sides(raw, 2), (std::vector<uint32_t>{6, 7, 8}));
    EXPECT_EQ(+raw.edges.Peek(3)->facet[0], 1u);
    EXPECT_EQ(+raw.vertices.Peek(3)->edge, 3u + source.vertices.Peek(0)->edge);
    EXPECT_EQ(+raw.facets.Peek(1)->groupId, 3u);
    EXPECT_EQ(+raw.facets.Peek(2)->groupId, 0u);
    EXPECT_EQ(raw.groupCount, 4u);
    EXPECT_EQ(+raw.bboxMax[2], 5.0f);

    EXPECT_TRUE(LMeshMerge(source, destination, 0.01f, true));
    ExpectMeshConsistent(destination, false);
    EXPECT_EQ(destination.vertexCount, 7u);
    EXPECT_EQ(destination.edgeCount, 8u);
    EXPECT_EQ(FreeEdges(destination).size(), 7u);
}

TEST(Merge, CarriesDeadSlotsAlong)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    const L_LUMOMESH holed = testmesh::MakeMeshWithDeadSlots();
    EXPECT_TRUE(LMeshMerge(holed, mesh, 0.0f, false));
    EXPECT_EQ(mesh.vertexSlots, 3u + holed.vertexSlots);
    EXPECT_EQ(mesh.vertexCount, 3u + holed.vertexCount);
    EXPECT_EQ(mesh.edgeSlots, 3u + holed.edgeSlots);
    EXPECT_EQ(mesh.facetSlots, 1u + holed.facetSlots);
    EXPECT_EQ(mesh.facetCount, 1u + holed.facetCount);
    EXPECT_FALSE(IsLive(mesh.facets.Peek(12)->flags));
    ExpectMeshConsistent(mesh, false);
}

TEST(CopyFacets, CopiesIntoTheSourceOrAnotherMeshAndRewritesTheList)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    BaseList<uint32_t> listed;
    for (uint32_t f : {0u, 5u}) AppendTo(listed, f);
    LMeshCopyFacets(cube, listed, 0.0f, nullptr);
    EXPECT_EQ(Ids(listed), (std::vector<uint32_t>{12, 13}));
    EXPECT_EQ(cube.facetCount, 14u);
    ExpectMeshConsistent(cube, false);
    const LM_FACET& copy = *cube.facets.Peek(13);
    const LM_FACET& original = *cube.facets.Peek(5);
    for (int k = 0; k < 3; ++k)
        for (int a = 0; a < 3; ++a)
            EXPECT_EQ(+cube.vertices.Peek(copy.vertex[k])->position[a],
                      +cube.vertices.Peek(original.vertex[k])->position[a]);

    L_LUMOMESH other;
    BaseList<uint32_t> withBadId;
    for (uint32_t f : {3u, 99u}) AppendTo(withBadId, f);
    LMeshCopyFacets(cube, withBadId, 0.0f, &other);
    EXPECT_EQ(Ids(withBadId), (std::vector<uint32_t>{0, LM_NONE}));
    EXPECT_EQ(other.facetCount, 1u);
    EXPECT_EQ(cube.facetCount, 14u);
}
