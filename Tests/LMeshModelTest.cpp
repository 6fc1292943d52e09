#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

uint32_t Bits(float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

void ExpectEmpty(const L_LUMOMESH& mesh)
{
    EXPECT_EQ(mesh.magic, LM_MESH_MAGIC);
    EXPECT_EQ(mesh.vertexSlots + mesh.vertexCount + mesh.facetSlots + mesh.facetCount, 0u);
    EXPECT_EQ(mesh.edgeSlots + mesh.edgeCount, 0u);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(Bits(mesh.bboxMin[k]), 0x7F7FFFFFu);
        EXPECT_EQ(Bits(mesh.bboxMax[k]), 0xFF7FFFFFu);
    }
    EXPECT_EQ(mesh.groupCount, 1u);
    EXPECT_EQ(mesh.vertices.count + mesh.edges.count + mesh.facets.count, 0u);
    EXPECT_EQ(mesh.vertices.pageSize, 4096u);
    EXPECT_EQ(mesh.facets.tableGrowth, 256u);
}

}  // namespace

TEST(MeshLifecycle, NewAndResetMeshesAreEmpty)
{
    L_LUMOMESH mesh;
    ExpectEmpty(mesh);
    mesh = testmesh::MakeCube();
    mesh.Reset();
    ExpectEmpty(mesh);
}

TEST(MeshLifecycle, CopyIsDeep)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    L_LUMOMESH copy(cube);
    EXPECT_EQ(copy.facetCount, 12u);
    EXPECT_NE(copy.facets.firstPage, cube.facets.firstPage);
    copy.facets.At(0)->groupId = 5;
    EXPECT_EQ(+cube.facets.At(0)->groupId, 0u);

    L_LUMOMESH& alias = copy;
    copy = alias;
    EXPECT_EQ(copy.facets.count, 12u) << "self-assignment by copy keeps the stores";
    EXPECT_EQ(+copy.facets.At(0)->groupId, 5u);
}

TEST(MeshLifecycle, MoveLeavesAValidEmptySource)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    L_LUMOMESH moved(std::move(cube));
    EXPECT_EQ(moved.facetCount, 12u);
    EXPECT_EQ(moved.facets.count, 12u);
    ExpectEmpty(cube);
    cube = testmesh::MakeTriangle();
    EXPECT_EQ(cube.facetCount, 1u);
}

TEST(MeshLifecycle, MoveOntoItselfLosesTheStores)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    L_LUMOMESH& alias = cube;
    cube = std::move(alias);
    EXPECT_EQ(cube.facets.count, 0u);
    EXPECT_EQ(cube.vertices.count, 0u);
}

TEST(MeshGroups, ResetsTouchDeadSlotsAndKeepGroupCount)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    for (uint32_t f = 0; f < mesh.facets.count; ++f) mesh.facets.At(f)->groupId = f % 3;
    mesh.groupCount = 3;
    mesh.ResetPatchGroupId(2);
    EXPECT_EQ(+mesh.facets.At(11)->groupId, 0u) << "dead facet 11 had group 2";
    EXPECT_EQ(+mesh.facets.At(10)->groupId, 1u);
    mesh.ResetGroupIds();
    EXPECT_EQ(+mesh.facets.At(12)->groupId, 0u);
    EXPECT_EQ(mesh.groupCount, 3u);
}

TEST(FacetNormal, UnitCrossProductOrZero)
{
    const float o[3] = {0, 0, 0}, x[3] = {3, 0, 0}, y[3] = {0, 4, 0}, far[3] = {6, 0, 0};
    float n[3] = {9, 9, 9};
    EXPECT_TRUE(ComputeFacetNormal(o, x, y, n));
    EXPECT_EQ(n[0], 0.0f);
    EXPECT_EQ(n[1], 0.0f);
    EXPECT_EQ(n[2], 1.0f);
    EXPECT_FALSE(ComputeFacetNormal(o, x, far, n)) << "collinear points";
    EXPECT_EQ(n[0], 0.0f);
    EXPECT_EQ(n[1], 0.0f);
    EXPECT_EQ(n[2], 0.0f);
}

TEST(FacetNormal, RecountFacetsCountsLiveSlots)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    mesh.facetSlots = 0;
    mesh.facetCount = 0;
    RecountFacets(mesh);
    EXPECT_EQ(mesh.facetSlots, 13u);
    EXPECT_EQ(mesh.facetCount, 11u);
}
