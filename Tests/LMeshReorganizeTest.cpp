#include <gtest/gtest.h>

#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

std::vector<float> Positions(const L_LUMOMESH& mesh)
{
    std::vector<float> positions;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v)
        for (int k = 0; k < 3; ++k) positions.push_back(+mesh.vertices.Peek(v)->position[k]);
    return positions;
}

// The closed fan with its centre pushed off the middle of the hexagon.
L_LUMOMESH OffCentreFan()
{
    L_LUMOMESH mesh = testmesh::MakeClosedFan();
    LM_VERTEX* centre = mesh.vertices.At(0);
    centre->position[0] = 0.5f;
    centre->position[1] = 0.25f;
    return mesh;
}

TEST(ReorganizeVertices, MovesInnerVertexToNeighbourCentroidInFloat)
{
    L_LUMOMESH mesh = OffCentreFan();
    const std::vector<float> before = Positions(mesh);
    float expected[3] = {0.0f, 0.0f, 0.0f};
    for (uint32_t v = 1; v <= 6; ++v)
        for (int k = 0; k < 3; ++k) expected[k] += before[3 * v + k];
    for (float& c : expected) c /= 6.0f;

    LMeshReorganizeVertices(mesh, 1000.0f);
    std::vector<float> after = Positions(mesh);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(after[k], expected[k]);
    // The hexagon's corners lie on the border and stay.
    EXPECT_EQ(std::vector<float>(after.begin() + 3, after.end()), std::vector<float>(before.begin() + 3, before.end()));
    testmesh::ExpectMeshConsistent(mesh);
}

TEST(ReorganizeVertices, PutsBackMovesThatBendNeighbours)
{
    // Any change is at or above a tolerance of 0.
    L_LUMOMESH fan = OffCentreFan();
    const std::vector<float> fanBefore = Positions(fan);
    LMeshReorganizeVertices(fan, 0.0f);
    EXPECT_EQ(Positions(fan), fanBefore);

    L_LUMOMESH cube = testmesh::MakeCube();
    const std::vector<float> cubeBefore = Positions(cube);
    LMeshReorganizeVertices(cube, 0.0f);
    EXPECT_EQ(Positions(cube), cubeBefore);
}

TEST(ReorganizeVertices, SkipsUnlinkedAndDeadVertices)
{
    L_LUMOMESH mesh = OffCentreFan();
    const std::vector<float> before = Positions(mesh);
    mesh.vertices.At(0)->edge = LM_NONE;
    LMeshReorganizeVertices(mesh, 1000.0f);
    EXPECT_EQ(Positions(mesh), before);

    L_LUMOMESH dead = OffCentreFan();
    dead.vertices.At(0)->flags = 0;
    LMeshReorganizeVertices(dead, 1000.0f);
    EXPECT_EQ(Positions(dead), before);

    L_LUMOMESH empty;
    LMeshReorganizeVertices(empty, 1.0f);
    EXPECT_EQ(empty.vertices.count, 0u);
}

}  // namespace
