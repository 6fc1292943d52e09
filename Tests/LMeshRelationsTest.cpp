#include <gtest/gtest.h>

#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using Vec = std::vector<uint32_t>;

namespace {

Vec VertexEdges(const L_LUMOMESH& mesh)
{
    Vec edges;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) edges.push_back(uint32_t{mesh.vertices.Peek(v)->edge});
    return edges;
}

Vec EdgeFacets(const L_LUMOMESH& mesh, uint32_t e)
{
    return {mesh.edges.Peek(e)->facet[0], mesh.edges.Peek(e)->facet[1]};
}

}  // namespace

// Open-fan edge 2 (0,2) lies between facets 0 and 1.
TEST(EntityRelations, EdgeFacetsAreRefilledAndCleaned)
{
    L_LUMOMESH empty;
    EXPECT_EQ(LMeshRebuildEntityRelations(empty), 0u);

    L_LUMOMESH fan = testmesh::MakeOpenFan();
    fan.edges.At(2)->facet[0] = LM_NONE;
    LMeshRebuildEntityRelations(fan);
    EXPECT_EQ(EdgeFacets(fan, 2), (Vec{0, 1}));
    // Facet 0 removed with facet[1] left in place: facet 1, the first live facet
    // naming the edge, takes facet[0], and the repeat in facet[1] is cleared.
    fan.facets.At(0)->flags &= 254;
    --fan.facetCount;
    fan.edges.At(2)->facet[0] = LM_NONE;
    LMeshRebuildEntityRelations(fan);
    EXPECT_EQ(EdgeFacets(fan, 2), (Vec{1, LM_NONE}));

    L_LUMOMESH cube = testmesh::MakeCube();
    cube.edges.At(0)->facet[0] = cube.edges.At(0)->facet[1] = 1;
    LMeshRebuildEntityRelations(cube);
    EXPECT_EQ(EdgeFacets(cube, 0), (Vec{1, LM_NONE}));
    testmesh::ExpectMeshConsistent(cube);
}

// Each open corner takes the first side of the last live facet touching it,
// whatever it held before (LM_NONE included). Triangle edges: 0 (0,1), 1 (1,2), 2 (0,2).
TEST(EntityRelations, BoundaryVerticesEndOnTheirLastFacet)
{
    L_LUMOMESH triangle = testmesh::MakeTriangle();
    EXPECT_EQ(VertexEdges(triangle), (Vec{0, 1, 2}));
    LMeshRebuildEntityRelations(triangle);
    EXPECT_EQ(VertexEdges(triangle), (Vec{0, 0, 1}));

    L_LUMOMESH fan = testmesh::MakeOpenFan();
    fan.vertices.At(0)->edge = LM_NONE;
    LMeshRebuildEntityRelations(fan);
    EXPECT_EQ(VertexEdges(fan), (Vec{6, 0, 2, 4, 6, 7}));
}

TEST(EntityRelations, ClosedFansKeepTheirEdges)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    const Vec before = VertexEdges(cube);
    LMeshRebuildEntityRelations(cube);
    EXPECT_EQ(VertexEdges(cube), before);

    // Dead facets are skipped: the dead triangle's corners 9 and 10 would otherwise
    // move to its edge 18, and walks through dead facet 11 still close.
    L_LUMOMESH holed = testmesh::MakeMeshWithDeadSlots();
    const Vec holedBefore = VertexEdges(holed);
    LMeshRebuildEntityRelations(holed);
    EXPECT_EQ(VertexEdges(holed), holedBefore);
    testmesh::ExpectMeshConsistent(holed);
}

// The three corner walks of a facet share one list, and the walk limit counts what
// is in it: on the tetrahedron (6 edges) each facet's third corner starts at the
// limit, counts as broken, and takes the first side of the facet touching it.
// Vertex 2 thus moves from edge 0 (0,2) to edge 5 (2,3), both its own.
TEST(EntityRelations, SmallClosedMeshReanchorsThirdCorners)
{
    L_LUMOMESH tetrahedron = testmesh::MakeTetrahedron();
    EXPECT_EQ(VertexEdges(tetrahedron), (Vec{4, 1, 0, 5}));
    LMeshRebuildEntityRelations(tetrahedron);
    EXPECT_EQ(VertexEdges(tetrahedron), (Vec{4, 1, 5, 5}));
}
