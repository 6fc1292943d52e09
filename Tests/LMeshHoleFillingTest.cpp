#include <gtest/gtest.h>

#include <initializer_list>

#include "LMesh.h"
#include "MeshSnapshot.h"
#include "TestMeshes.h"

namespace {

constexpr float kWeld = 1e-4f;

BaseList<uint32_t> ListOf(std::initializer_list<uint32_t> ids)
{
    BaseList<uint32_t> list;
    for (uint32_t id : ids) *list.At(list.count) = id;
    return list;
}

uint32_t CountBorderEdges(const L_LUMOMESH& mesh) { return uint32_t(testmesh::FreeEdges(mesh).size()); }

uint32_t FirstBorderEdge(const L_LUMOMESH& mesh)
{
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE edge = *mesh.edges.Peek(e);
        if ((edge.flags & LM_LIVE) && edge.facet[1] == LM_NONE) return e;
    }
    return LM_NONE;
}

// The unit cube without its bottom face: one square hole of four edges.
L_LUMOMESH OpenBox()
{
    L_LUMOMESH cube = testmesh::MakeCube();
    LMeshDeleteFacets(cube, ListOf({0, 1}));
    return cube;
}

// A 6 x 6 grid with two one-square holes, at squares (1, 1) and (4, 3).
L_LUMOMESH GridWithTwoHoles()
{
    L_LUMOMESH grid = testmesh::MakeGrid(6, 6);
    LMeshDeleteFacets(grid, ListOf({14, 15, 44, 45}));
    return grid;
}

}  // namespace

TEST(LMeshFillHolesInBatch, ClosesEveryLoopAndLeavesAClosedMeshAlone)
{
    L_LUMOMESH box = OpenBox();
    EXPECT_EQ(LMeshFillHolesInBatch(box, -1.0f, 1e-3f, kWeld, false, false, nullptr), 1);
    EXPECT_EQ(box.facetCount, 12u);
    EXPECT_EQ(CountBorderEdges(box), 0u);
    testmesh::ExpectMeshConsistent(box);
    for (uint32_t f = 0; f < box.facets.count; ++f) {
        if (!(box.facets.Peek(f)->flags & LM_LIVE)) continue;
        EXPECT_EQ(+box.facets.Peek(f)->groupId, 0u);
    }

    L_LUMOMESH cube = testmesh::MakeCube();
    const std::vector<uint8_t> before = testmesh::Snapshot(cube);
    EXPECT_EQ(LMeshFillHolesInBatch(cube, -1.0f, 1e-3f, kWeld, false, false, nullptr), 0);
    EXPECT_EQ(testmesh::Snapshot(cube), before);
}

TEST(LMeshFillHolesInBatch, KeepLongestLeavesTheOuterRimOpen)
{
    L_LUMOMESH grid = GridWithTwoHoles();
    EXPECT_EQ(LMeshFillHolesInBatch(grid, -1.0f, 1e-3f, kWeld, true, false, nullptr), 2);
    EXPECT_EQ(CountBorderEdges(grid), 24u);
    testmesh::ExpectMeshConsistent(grid);

    L_LUMOMESH sheet = testmesh::MakeGrid(3, 3);
    EXPECT_EQ(LMeshFillHolesInBatch(sheet, -1.0f, 1e-3f, kWeld, true, false, nullptr), 0);
    EXPECT_EQ(sheet.facetCount, 18u);
}

TEST(LMeshFillHolesInBatch, SeparatePatchesGoToTheTargetOnly)
{
    L_LUMOMESH grid = GridWithTwoHoles();
    const std::vector<uint8_t> before = testmesh::Snapshot(grid);
    EXPECT_EQ(LMeshFillHolesInBatch(grid, -1.0f, 1e-3f, kWeld, false, true, nullptr), -1);
    EXPECT_EQ(testmesh::Snapshot(grid), before);

    // Both holes and the outer rim: the patches weld among themselves only.
    L_LUMOMESH patches;
    EXPECT_EQ(LMeshFillHolesInBatch(grid, -1.0f, 1e-3f, kWeld, false, true, &patches), 3);
    EXPECT_EQ(testmesh::Snapshot(grid), before);
    EXPECT_EQ(patches.facetCount, 2u + 2u + 22u);
    EXPECT_EQ(CountBorderEdges(patches), 4u + 4u + 24u);
    testmesh::ExpectMeshConsistent(patches);
}

TEST(LMeshFillHole, ClosesTheLoopThroughTheEdge)
{
    L_LUMOMESH tetrahedron = testmesh::MakeTetrahedron();
    LMeshDeleteFacets(tetrahedron, ListOf({2}));
    EXPECT_EQ(LMeshFillHole(tetrahedron, FirstBorderEdge(tetrahedron), 1e-3f, kWeld, false, nullptr), 1);
    EXPECT_EQ(CountBorderEdges(tetrahedron), 0u);
    testmesh::ExpectMeshConsistent(tetrahedron);

    // One hole of two, into a separate mesh; the source stays as it was.
    L_LUMOMESH grid = GridWithTwoHoles();
    const std::vector<uint8_t> before = testmesh::Snapshot(grid);
    const uint32_t holeEdge = grid.facets.Peek(14)->edge[0];  // bottom side of square (1, 1)
    L_LUMOMESH patch;
    EXPECT_EQ(LMeshFillHole(grid, holeEdge, 1e-3f, kWeld, true, &patch), 2);
    EXPECT_EQ(testmesh::Snapshot(grid), before);
    EXPECT_EQ(CountBorderEdges(patch), 4u);

    EXPECT_EQ(LMeshFillHole(grid, LM_NONE, 1e-3f, kWeld, false, nullptr), -1);
    EXPECT_EQ(LMeshFillHole(grid, holeEdge, 1e-3f, kWeld, true, nullptr), -1);
    EXPECT_EQ(testmesh::Snapshot(grid), before);
}
