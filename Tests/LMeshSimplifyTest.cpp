#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "LMesh.h"
#include "MeshSnapshot.h"
#include "TestMeshes.h"

namespace {

using Bytes = std::vector<uint8_t>;

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

// The values the cleanup driver uses, with the trial's three fields chosen per test.
LM_TOLERANCES Tolerances(float minimumArea, float curvatureChange, float angleBand = 30.0f)
{
    return {1e-6f, 1.5f, angleBand, 2.0f, 2.0f, 0.001f, curvatureChange, 0.25f, minimumArea, 170.0f, 10.0f,
            0.00381f, 1e-5f, 0.1f, 1e-6f, 20, 20, 20};
}

// A closed torus of n by m quads (radii 3 and 1), two facets each, every corner moved
// by up to `noise` along each axis.
L_LUMOMESH MakeNoisyTorus(int n, int m, float noise, std::mt19937& rng)
{
    std::uniform_real_distribution<float> jitter(-noise, noise);
    std::vector<float> coords;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            const double u = 2 * M_PI * i / n, v = 2 * M_PI * j / m, r = 3 + std::cos(v);
            coords.insert(coords.end(), {float(r * std::cos(u)) + jitter(rng), float(r * std::sin(u)) + jitter(rng),
                                         float(std::sin(v)) + jitter(rng)});
        }
    std::vector<int> indices;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            const int a = i * m + j, b = ((i + 1) % n) * m + j, c = ((i + 1) % n) * m + (j + 1) % m,
                      d = i * m + (j + 1) % m;
            indices.insert(indices.end(), {a, b, c, a, c, d});
        }
    return testmesh::FromIndexed(coords, indices);
}

L_LUMOMESH MakeNoisyGrid(int size, float noise, std::mt19937& rng)
{
    std::uniform_real_distribution<float> jitter(-noise, noise);
    L_LUMOMESH mesh = testmesh::MakeGrid(size, size);
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) mesh.vertices.At(v)->position[2] = jitter(rng);
    LMeshRecomputeNormals(mesh);
    return mesh;
}

// Stale ids of the kinds a broken mesh holds: links past the stores, and a vertex linked
// to an edge that does not touch it.
void BreakLinks(L_LUMOMESH& mesh, std::mt19937& rng)
{
    std::uniform_int_distribution<uint32_t> pick(0, 1000);
    const uint32_t e = pick(rng) % mesh.edges.count, f = pick(rng) % mesh.facets.count;
    switch (pick(rng) % 4) {
    case 0: mesh.edges.At(e)->facet[pick(rng) % 2] = mesh.facets.count + 3; break;
    case 1: mesh.facets.At(f)->edge[pick(rng) % 3] = mesh.edges.count + pick(rng); break;
    case 2: mesh.facets.At(f)->vertex[pick(rng) % 3] = mesh.vertices.count + 1; break;
    default: mesh.vertices.At(pick(rng) % mesh.vertices.count)->edge = pick(rng) % mesh.edges.count; break;
    }
}

}  // namespace

// Random meshes, tolerances and edges, some with broken links: whatever a refused
// collapse or trial met, the mesh keeps every byte, header and dead slots included.
TEST(CollapseTrial, RefusalLeavesEveryByte)
{
    uint32_t refused = 0, accepted = 0;
    for (uint32_t seed = 0; seed < 60; ++seed) {
        std::mt19937 rng(seed);
        const bool broken = seed % 3 == 2;
        L_LUMOMESH mesh = seed % 2 ? MakeNoisyTorus(8, 6, 0.2f, rng) : MakeNoisyGrid(6, 0.3f, rng);
        if (broken)
            for (int k = 0; k < 3; ++k) BreakLinks(mesh, rng);
        const float changes[] = {0.01f, 2.0f, 30.0f, 720.0f}, areas[] = {0.0f, 0.01f, 0.3f};
        const LM_TOLERANCES tolerances = Tolerances(areas[rng() % 3], changes[rng() % 4], float(rng() % 60));
        const bool ignoreArea = rng() % 2, protect = rng() % 4 == 0;
        for (int trial = 0; trial < 40; ++trial) {
            const uint32_t edge = uint32_t(rng() % (mesh.edges.count + 2));
            const Bytes before = testmesh::Snapshot(mesh);
            const bool done = trial % 2 ? LMeshSimplifyEdge(mesh, edge, tolerances, ignoreArea, protect) == 0
                                        : LMeshCollapseEdge(mesh, edge);
            if (!done) {
                ++refused;
                ASSERT_EQ(testmesh::Snapshot(mesh), before) << "seed " << seed << " edge " << edge;
            } else {
                ++accepted;
                if (!broken) testmesh::ExpectMeshConsistent(mesh);
            }
        }
    }
    EXPECT_GT(refused, 1000u);
    EXPECT_GT(accepted, 100u);
}

// On MakeGrid(4, 4), edge 21, from vertex 7 to 12, is the first whose ends and apexes
// all have closed fans. With no curvature limit it is the first collapsed.
TEST(Simplify, FlatGridCollapsesInIdOrderOntoFirstEndOrMidpoint)
{
    const L_LUMOMESH grid = testmesh::MakeGrid(4, 4);
    const LM_TOLERANCES tolerances = Tolerances(0.0f, 1000.0f);
    ASSERT_EQ(+grid.edges.Peek(21)->vertex[0], 7u);
    ASSERT_EQ(+grid.edges.Peek(21)->vertex[1], 12u);
    const LM_VERTEX a = *grid.vertices.Peek(7), b = *grid.vertices.Peek(12);

    L_LUMOMESH mesh = grid, oneByOne = grid, midpoints = grid;
    uint32_t removed = 99;
    EXPECT_EQ(LMeshSimplify(mesh, removed, tolerances, false, false), 0);
    testmesh::ExpectMeshConsistent(mesh);
    EXPECT_GT(removed, 0u);
    EXPECT_EQ(removed, 3 * (grid.vertexCount - mesh.vertexCount));
    EXPECT_FALSE(IsLive(mesh.vertices.Peek(12)->flags));
    EXPECT_EQ(std::memcmp(mesh.vertices.Peek(7)->position, a.position, sizeof a.position), 0);
    for (uint32_t e = 0; e < grid.edgeSlots; ++e) LMeshSimplifyEdge(oneByOne, e, tolerances, false, false);
    EXPECT_EQ(testmesh::Snapshot(oneByOne), testmesh::Snapshot(mesh));

    EXPECT_EQ(LMeshSimplifyFullEdgeCollapse(midpoints, removed, tolerances, false, false), 0);
    testmesh::ExpectMeshConsistent(midpoints);
    EXPECT_EQ(removed, 3 * (grid.vertexCount - midpoints.vertexCount));
    for (int c = 0; c < 3; ++c)
        EXPECT_EQ(+midpoints.vertices.Peek(7)->position[c], (a.position[c] + b.position[c]) * 0.5f);
}

TEST(Simplify, GatesThatNoTrialPassesLeaveTheMeshAlone)
{
    // Squares of 3 by 4 make facets of area 6 exactly (sides 3, 4, 5), and the area
    // must stay above the minimum; so must the curvature change stay below 0.
    for (const LM_TOLERANCES& tolerances : {Tolerances(6.0f, 1000.0f), Tolerances(0.0f, 0.0f)}) {
        L_LUMOMESH mesh = testmesh::MakeGrid(4, 4);
        for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
            mesh.vertices.At(v)->position[0] *= 3;
            mesh.vertices.At(v)->position[1] *= 4;
        }
        const Bytes before = testmesh::Snapshot(mesh);
        uint32_t removed = 99;
        EXPECT_EQ(LMeshSimplify(mesh, removed, tolerances, false, false), 0);
        EXPECT_EQ(removed, 0u);
        EXPECT_EQ(LMeshSimplifyFullEdgeCollapse(mesh, removed, tolerances, false, false), 0);
        BaseList<uint32_t> all;
        for (uint32_t e = 0; e < mesh.edges.count; ++e) *all.At(e) = e;
        EXPECT_EQ(LMeshSimplifyEdges(mesh, all, tolerances, false, false), 0u);
        EXPECT_EQ(testmesh::Snapshot(mesh), before);
    }
    L_LUMOMESH empty;
    uint32_t removed = 99;
    EXPECT_EQ(LMeshSimplify(empty, removed, Tolerances(0.0f, 1.0f), false, false), 0);
    EXPECT_EQ(removed, 0u);
}

TEST(Simplify, AcceptedCollapsesLeaveFreshNormals)
{
    std::mt19937 rng(7);
    L_LUMOMESH mesh = MakeNoisyTorus(16, 10, 0.05f, rng);
    uint32_t removed = 0;
    ASSERT_EQ(LMeshSimplify(mesh, removed, Tolerances(0.0f, 8.0f), true, false), 0);
    ASSERT_GT(removed, 0u);
    testmesh::ExpectMeshConsistent(mesh);
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!IsLive(facet.flags)) continue;
        float corners[3][3], expected[3];
        for (int k = 0; k < 3; ++k)
            std::memcpy(corners[k], mesh.vertices.Peek(facet.vertex[k])->position, sizeof corners[k]);
        ComputeFacetNormal(corners[0], corners[1], corners[2], expected);
        // The trial's normal is worked in double, the reference in float.
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(+facet.normal[c], expected[c], 1e-5) << "facet " << f;
    }
}

// A collapse that only the mirrored trial makes removes the edge's first end and is
// not counted.
TEST(Simplify, MirroredCollapseIsNotCounted)
{
    std::mt19937 rng(3);
    const L_LUMOMESH torus = MakeNoisyTorus(12, 8, 0.15f, rng);
    const LM_TOLERANCES tolerances = Tolerances(0.0f, 4.0f);
    uint32_t mirrored = LM_NONE;
    for (uint32_t e = 0; e < torus.edges.count && mirrored == LM_NONE; ++e) {
        L_LUMOMESH probe = torus;
        if (LMeshSimplifyEdge(probe, e, tolerances, true, false) == 0 &&
            !IsLive(probe.vertices.Peek(torus.edges.Peek(e)->vertex[0])->flags))
            mirrored = e;
    }
    ASSERT_NE(mirrored, LM_NONE);
    L_LUMOMESH mesh = torus;
    BaseList<uint32_t> list;
    *list.At(0) = mirrored;
    EXPECT_EQ(LMeshSimplifyEdges(mesh, list, tolerances, true, false), 0u);
    EXPECT_EQ(mesh.vertexCount, torus.vertexCount - 1);
    EXPECT_TRUE(IsLive(mesh.vertices.Peek(torus.edges.Peek(mirrored)->vertex[1])->flags));
    testmesh::ExpectMeshConsistent(mesh);
}
