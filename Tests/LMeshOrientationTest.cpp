#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using Vec = std::vector<uint32_t>;
using Normal = std::vector<float>;

namespace {

constexpr float kTolerance = 1e-4f;

Vec Corners(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    return {facet.vertex[0], facet.vertex[1], facet.vertex[2]};
}

std::vector<Vec> AllCorners(const L_LUMOMESH& mesh)
{
    std::vector<Vec> corners;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) corners.push_back(Corners(mesh, f));
    return corners;
}

Normal NormalOf(const L_LUMOMESH& mesh, uint32_t f)
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    return {facet.normal[0], facet.normal[1], facet.normal[2]};
}

// Six times the signed volume of facets [first, last): exact on integer corners, and
// of opposite sign for a shell wound inward.
double SixfoldVolume(const L_LUMOMESH& mesh, uint32_t first, uint32_t last)
{
    double volume = 0;
    for (uint32_t f = first; f < last; ++f) {
        double p[3][3];
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) p[i][k] = mesh.vertices.Peek(Corners(mesh, f)[i])->position[k];
        volume += p[0][0] * (p[1][1] * p[2][2] - p[1][2] * p[2][1]) + p[0][1] * (p[1][2] * p[2][0] - p[1][0] * p[2][2]) +
                  p[0][2] * (p[1][0] * p[2][1] - p[1][1] * p[2][0]);
    }
    return volume;
}

}  // namespace

// Facet 11 of the dead-slot cube is dead; 1 is on the bottom, 2 on the top.
TEST(FacetNormals, ListFormsActOnLiveSlotsOncePerEntry)
{
    L_LUMOMESH mesh = testmesh::MakeMeshWithDeadSlots();
    for (uint32_t f = 0; f < mesh.facets.count; ++f) mesh.facets.At(f)->normal[2] = 9;
    LMeshRecomputeNormals(mesh);
    EXPECT_EQ(NormalOf(mesh, 2), (Normal{0, 0, 1}));
    EXPECT_EQ(NormalOf(mesh, 11)[2], 9.0f);

    BaseList<uint32_t> list;
    for (uint32_t f : {1u, 1u, 2u, 11u, 5000u}) *list.At(list.count) = f;
    const std::vector<Vec> before = AllCorners(mesh);
    LMeshReverseNormals(mesh, &list);
    EXPECT_EQ(NormalOf(mesh, 1), (Normal{0, 0, -1})) << "negated twice";
    EXPECT_EQ(NormalOf(mesh, 2), (Normal{0, 0, -1}));
    LMeshReverseFacets(mesh, &list);
    EXPECT_EQ(Corners(mesh, 1), before[1]);
    EXPECT_EQ(Corners(mesh, 2), (Vec{4, 6, 5}));
    LMeshReverseNormals(mesh, nullptr);
    EXPECT_EQ(NormalOf(mesh, 2), (Normal{0, 0, 1})) << "recomputed on reversal, then negated";
    EXPECT_EQ(NormalOf(mesh, 11)[2], 9.0f);
    EXPECT_EQ(Corners(mesh, 11), before[11]);
    EXPECT_EQ(mesh.facets.count, 13u) << "an id past the slots must not grow the store";

    // The single form takes dead slots too.
    EXPECT_TRUE(LMeshReverseFacet(mesh, 11));
    EXPECT_EQ(Corners(mesh, 11), (Vec{before[11][0], before[11][2], before[11][1]}));
    EXPECT_FALSE(LMeshReverseFacet(mesh, 13));
}

// A neighbour already wound right may still have its corners rotated: that counts
// as a change, while reversing a seed alone does not. MakeCube is wound outward, but
// some facets start at another corner than the propagation puts first.
TEST(OrientFacets, ChangedMeansNeighbourCornersWereTouched)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    EXPECT_TRUE(LMeshOrientFacets(cube, kTolerance, 1));
    EXPECT_EQ(SixfoldVolume(cube, 0, 12), 6.0);
    EXPECT_EQ(Corners(cube, 2), (Vec{5, 6, 4}));
    const std::vector<Vec> settled = AllCorners(cube);
    for (uint32_t broken : {0u, 7u, LM_NONE}) {
        L_LUMOMESH mesh = cube;
        LMeshReverseFacet(mesh, broken);
        EXPECT_EQ(LMeshOrientFacets(mesh, kTolerance, 1), broken == 7) << "facet 0 is the seed";
        EXPECT_EQ(AllCorners(mesh), settled) << "reversed facet " << broken;
    }
    // Corners match by position strictly within the tolerance, so 0 matches nothing.
    LMeshReverseFacet(cube, 7);
    EXPECT_FALSE(LMeshOrientFacets(cube, 0.0f, 2));
    EXPECT_EQ(Corners(cube, 7), (Vec{settled[7][0], settled[7][2], settled[7][1]}));
}

TEST(OrientFacets, DirectionChoosesOutwardInwardOrKeepsTheSeed)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    LMeshOrientFacets(cube, kTolerance, 0);
    EXPECT_EQ(SixfoldVolume(cube, 0, 12), -6.0);
    LMeshReverseFacet(cube, 5);
    LMeshOrientFacets(cube, kTolerance, 2);
    EXPECT_EQ(SixfoldVolume(cube, 0, 12), -6.0) << "every facet follows the seed as found";
}

// Each piece casts against every live facet, so the inner shell ([1,2]^3 in [0,3]^3)
// sees one crossing and faces the other way.
TEST(OrientFacets, InnerShellFacesTheOtherWay)
{
    const L_LUMOMESH cube = testmesh::MakeCube();
    std::vector<float> coords;
    std::vector<int> indices;
    for (int inner : {0, 1}) {
        for (uint32_t v = 0; v < 24; ++v)
            coords.push_back(cube.vertices.Peek(v / 3)->position[v % 3] * (3 - 2 * inner) + inner);
        for (uint32_t f = 0; f < 12; ++f)
            for (uint32_t v : Corners(cube, f)) indices.push_back(int(v) + 8 * inner);
    }
    for (short direction : {0, 1}) {
        L_LUMOMESH mesh = testmesh::FromIndexed(coords, indices);
        LMeshOrientFacets(mesh, kTolerance, direction);
        const double sign = direction == 1 ? 1 : -1;
        EXPECT_EQ(SixfoldVolume(mesh, 0, 12), 162 * sign);
        EXPECT_EQ(SixfoldVolume(mesh, 12, 24), -6 * sign);
    }
    // A dead facet is no obstacle: with the outer bottom facet under its ray gone, the
    // inner shell sees no crossing.
    L_LUMOMESH mesh = testmesh::FromIndexed(coords, indices);
    mesh.facets.At(0)->flags &= 254;
    --mesh.facetCount;
    LMeshOrientFacets(mesh, kTolerance, 1);
    EXPECT_EQ(SixfoldVolume(mesh, 12, 24), 6.0);
}

// A 3 x 1 grid is the chain 1 - 0 - 3 - 2 - 5 - 4. Facets 2..5 start reversed and
// facet 3 loses its side {1,6}, to an unrelated edge or to an id past the store: 3 is
// still turned from 0 but spreads no further, so 2 seeds the rest as it stands.
// Stale links elsewhere are not followed and grow no store.
TEST(OrientFacets, UnmatchedSideStopsPropagationAtItsFacet)
{
    for (uint32_t side : {0u, 1000000u}) {
        L_LUMOMESH grid = testmesh::MakeGrid(3, 1);
        for (uint32_t f = 2; f < 6; ++f) LMeshReverseFacet(grid, f);
        grid.facets.At(3)->edge[0] = side == 0 ? uint32_t{grid.facets.Peek(0)->edge[0]} : side;
        grid.facets.At(4)->vertex[1] = 2000000;
        grid.edges.At(0)->facet[1] = 3000000;
        EXPECT_TRUE(LMeshOrientFacets(grid, kTolerance, 2));
        Vec up;
        for (uint32_t f = 0; f < 6; ++f)
            if (NormalOf(grid, f)[2] > 0) up.push_back(f);
        EXPECT_EQ(up, (Vec{0, 1, 3})) << "side " << side;
        EXPECT_EQ(grid.vertices.count + grid.facets.count, 8u + 6u);
    }
}

// Many pieces spread over the grid the rays are traced through: a 5 x 5 x 5 block of
// separate unit cubes, every one wound inward. Each cube's ray runs on through other
// cubes, two crossings each; all come out facing outward.
TEST(OrientFacets, ManyPiecesAcrossTheRayGrid)
{
    L_LUMOMESH block;
    const L_LUMOMESH cube = testmesh::MakeCube();
    for (int x = 0; x < 5; ++x)
        for (int y = 0; y < 5; ++y)
            for (int z = 0; z < 5; ++z)
                for (uint32_t f = 0; f < cube.facets.count; ++f) {
                    const LM_FACET facet = *cube.facets.Peek(f);
                    float p[3][3];
                    for (int c = 0; c < 3; ++c) {
                        std::memcpy(p[c], cube.vertices.Peek(facet.vertex[c])->position, sizeof p[c]);
                        p[c][0] += 2.0f * x;
                        p[c][1] += 2.0f * y;
                        p[c][2] += 2.0f * z;
                    }
                    LMeshAddTriangle(block, p[0], p[2], p[1], 0);  // wound inward
                }
    LMeshOptimizeEdges(block, 1e-5f, nullptr, nullptr, nullptr, 1);
    LMeshOrientFacets(block, 1e-5f, 1);
    EXPECT_NEAR(LMeshComputeVolume(block), 125.0f, 1e-3f);
    for (uint32_t f = 0; f < block.facets.count; f += 12) {
        BaseList<uint32_t> one;
        for (uint32_t k = f; k < f + 12; ++k) *one.At(one.count) = k;
        EXPECT_NEAR(LMeshComputeVolume(block, &one), 1.0f, 1e-4f) << f / 12;
    }
}
