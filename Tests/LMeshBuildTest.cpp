#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

using testmesh::ExpectMeshConsistent;
using testmesh::FromIndexed;

namespace {

// The twelve cube facets as soup, nine floats each, corners in winding order.
std::vector<float> CubeSoup()
{
    L_LUMOMESH cube = testmesh::MakeCube();
    std::vector<float> soup;
    for (uint32_t f = 0; f < cube.facets.count; ++f)
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c) soup.push_back(+cube.vertices.Peek(cube.facets.Peek(f)->vertex[k])->position[c]);
    return soup;
}

const LM_EDGE& Edge(const L_LUMOMESH& mesh, uint32_t e) { return *mesh.edges.Peek(e); }

}  // namespace

TEST(CreateFromIndexed, CubeHasSharedEdgesAndExactNormals)
{
    L_LUMOMESH cube = testmesh::MakeCube();
    EXPECT_EQ(cube.vertexCount, 8u);
    EXPECT_EQ(cube.edgeCount, 18u);
    EXPECT_EQ(cube.facetCount, 12u);
    ExpectMeshConsistent(cube);
    for (uint32_t e = 0; e < cube.edges.count; ++e) {
        EXPECT_LT(+Edge(cube, e).vertex[0], +Edge(cube, e).vertex[1]);
        EXPECT_NE(+Edge(cube, e).facet[1], LM_NONE) << "closed: every edge has two facets";
    }
    const LM_FACET& bottom = *cube.facets.Peek(0);
    EXPECT_EQ(bottom.normal[2], -1.0f);
    EXPECT_EQ(bottom.groupId, 0u);
    EXPECT_EQ(cube.bboxMax[1], 1.0f);
    // The last facet to touch a vertex names its edge: vertex 7 last appears as corner 2 of (3,4,7).
    EXPECT_EQ(+cube.vertices.Peek(7)->edge, +cube.facets.Peek(11)->edge[2]);
}

TEST(CreateFromIndexed, EmptyInputResetsAndTrailingOrBadIndicesAreSkipped)
{
    L_LUMOMESH mesh = testmesh::MakeCube();
    EXPECT_TRUE(LMeshCreateFromIndexedTriangles(mesh, static_cast<const float*>(nullptr), 0, nullptr, 0));
    EXPECT_EQ(mesh.facets.count, 0u);
    EXPECT_EQ(mesh.vertices.count, 0u);
    EXPECT_EQ(mesh.groupCount, 1u);

    const std::vector<float> coords = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    EXPECT_EQ(FromIndexed(coords, {0, 1, 2, 0, 2, 3, 1}).facetCount, 2u);

    L_LUMOMESH bad = FromIndexed(coords, {0, 1, 2, 0, 2, -1, 0, 2, 4, 0, 2, 3});
    EXPECT_EQ(bad.facetCount, 2u);
    EXPECT_EQ(bad.vertices.count, 4u) << "a bad index must not grow the vertex store";
    ExpectMeshConsistent(bad);
}

TEST(CreateFromIndexed, DoubleFormMatchesFloatForm)
{
    const std::vector<float> coords = {0, 0, 0, 1.5f, 0, 0, 0, 2.25f, 0};
    const std::vector<double> wide(coords.begin(), coords.end());
    const int indices[] = {0, 1, 2};
    L_LUMOMESH a, b;
    LMeshCreateFromIndexedTriangles(a, coords.data(), 3, indices, 3);
    LMeshCreateFromIndexedTriangles(b, wide.data(), 3, indices, 3);
    ASSERT_EQ(a.facets.count, b.facets.count);
    EXPECT_EQ(0, std::memcmp(a.facets.Peek(0), b.facets.Peek(0), sizeof(LM_FACET)));
    EXPECT_EQ(0, std::memcmp(a.vertices.Peek(2), b.vertices.Peek(2), sizeof(LM_VERTEX)));
}

TEST(CreateFromIndexed, ThirdFacetOnAnEdgeOverwritesTheSecond)
{
    // Three facets on the edge (0,1): the last one claims facet[1].
    const std::vector<float> coords = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 1};
    L_LUMOMESH mesh = FromIndexed(coords, {0, 1, 2, 1, 0, 3, 0, 1, 4});
    const LM_EDGE& shared = Edge(mesh, mesh.facets.Peek(0)->edge[0]);
    EXPECT_EQ(+mesh.facets.Peek(1)->edge[0], +mesh.facets.Peek(0)->edge[0]);
    EXPECT_EQ(shared.facet[0], 0u);
    EXPECT_EQ(shared.facet[1], 2u);
    EXPECT_EQ(mesh.edgeCount, 7u);
}

TEST(CreateFromIndexed, TriangleWithRepeatedCornerIsStored)
{
    L_LUMOMESH mesh = FromIndexed({0, 0, 0, 1, 0, 0}, {0, 1, 1});
    EXPECT_EQ(mesh.facetCount, 1u);
    const LM_FACET& facet = *mesh.facets.Peek(0);
    EXPECT_EQ(facet.edge[0], facet.edge[2]) << "(0,1) and (1,0) are one edge";
    EXPECT_EQ(+Edge(mesh, facet.edge[1]).vertex[0], 1u);
    EXPECT_EQ(+Edge(mesh, facet.edge[1]).vertex[1], 1u);
    EXPECT_EQ(+Edge(mesh, facet.edge[0]).facet[1], 0u) << "the same facet claims its edge twice";
}

TEST(AddTriangle, ByIdsMakesPrivateEdgesAndKeepsVertexLinks)
{
    L_LUMOMESH mesh = testmesh::MakeTriangle();
    const float minY = mesh.bboxMin[1];
    const uint32_t f = LMeshAddTriangle(mesh, 2, 1, 0, 7);
    EXPECT_EQ(f, 1u);
    EXPECT_EQ(mesh.edgeCount, 6u);
    EXPECT_EQ(mesh.groupCount, 8u);
    EXPECT_EQ(+mesh.facets.Peek(1)->groupId, 7u);
    EXPECT_EQ(+mesh.facets.Peek(1)->normal[2], -1.0f);
    EXPECT_EQ(+Edge(mesh, 3).vertex[0], 2u) << "edges follow the winding";
    EXPECT_EQ(+Edge(mesh, 3).vertex[1], 1u);
    EXPECT_EQ(+Edge(mesh, 3).facet[0], 1u);
    EXPECT_EQ(+Edge(mesh, 3).facet[1], LM_NONE);
    EXPECT_EQ(+mesh.vertices.Peek(0)->edge, 0u) << "a vertex that has an edge keeps it";
    EXPECT_EQ(mesh.bboxMin[1], minY);
    ExpectMeshConsistent(mesh);

    EXPECT_EQ(LMeshAddTriangle(mesh, 0, 1, 99, 0), LM_NONE) << "unknown vertex";
    EXPECT_EQ(mesh.facets.count, 2u);
}

TEST(AddTriangle, ByPointsAddsThreeVerticesAndWidensTheBox)
{
    L_LUMOMESH mesh;
    const float p0[3] = {1, 2, 3}, p1[3] = {4, 2, 3}, p2[3] = {1, 6, -3};
    EXPECT_EQ(LMeshAddTriangle(mesh, p0, p1, p2, 0), 0u);
    EXPECT_EQ(mesh.vertexCount, 3u);
    EXPECT_EQ(mesh.edgeCount, 3u);
    EXPECT_EQ(+mesh.vertices.Peek(2)->edge, 2u);
    EXPECT_EQ(mesh.bboxMin[2], -3.0f);
    EXPECT_EQ(mesh.bboxMax[1], 6.0f);
    ExpectMeshConsistent(mesh);
}

TEST(VertexListBuild, SoupCubeWeldsToTheIndexedCube)
{
    const std::vector<float> soup = CubeSoup();
    for (float tolerance : {0.0f, 1e-4f}) {
        L_LUMOMESH mesh;
        EXPECT_EQ(LMeshReadVertexListIntoLumoMesh(soup.data(), 12, mesh, tolerance, 0), 0);
        EXPECT_EQ(mesh.vertexCount, 8u) << tolerance;
        EXPECT_EQ(mesh.edgeCount, 18u) << tolerance;
        EXPECT_EQ(mesh.facetCount, 12u) << tolerance;
        ExpectMeshConsistent(mesh);
        for (uint32_t e = 0; e < mesh.edges.count; ++e) EXPECT_NE(+Edge(mesh, e).facet[1], LM_NONE);
    }
}

TEST(VertexListBuild, ToleranceAndUnitsDecideWhichCornersWeld)
{
    const struct {
        const char* what;
        std::vector<float> soup;
        float tolerance;
        int units;
        uint32_t vertices;
    } cases[] = {
        // Two triangles whose shared corners differ by 1e-5 in x.
        {"1e-5 apart, exact", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1.00001f, 0, 0, 1, 1, 0, 0, 1, 0}, 0.0f, 0, 5},
        {"1e-5 apart, welded", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1.00001f, 0, 0, 1, 1, 0, 0, 1, 0}, 1e-4f, 0, 4},
        {"signed zeros are one position", {0, 0, 0, 1, 0, 0, 0, 1, 0, -0.0f, -0.0f, 0, 0, -1, 0, 1, 0, -0.0f}, 0.0f, 0, 4},
        // 0.004 in (0.1016 mm) beyond vertex 1 in x, sorting past every vertex so any tree finds it.
        {"inches, loose", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1.004f, 0, 0, 2, 1, 0, 0, 1, 0}, 0.2f, 1, 4},
        {"inches, tight", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1.004f, 0, 0, 2, 1, 0, 0, 1, 0}, 0.05f, 1, 5},
        {"a negative tolerance welds like its magnitude",
         {0, 0, 0, 1, 0, 0, 0, 1, 0, 0.01f, 0, 0, 50, 50, 50, -1e18f, 0, 0}, -0.1f, 0, 5},
        {"a tolerance whose square overflows welds every finite corner",
         {0, 0, 0, 1, 0, 0, 0, 1, 0, 0.01f, 0, 0, 50, 50, 50, -1e18f, 0, 0}, 1e30f, 0, 1},
    };
    for (const auto& c : cases) {
        L_LUMOMESH mesh;
        LMeshReadVertexListIntoLumoMesh(c.soup.data(), int(c.soup.size() / 9), mesh, c.tolerance, c.units);
        EXPECT_EQ(mesh.vertexCount, c.vertices) << c.what;
        if (c.units == 1) {
            EXPECT_EQ(+mesh.vertices.Peek(1)->position[0], 1.0f * 25.4f) << "scaled before welding";
        }
    }
}

TEST(VertexListBuild, AddsToAMeshWithoutWeldingToIt)
{
    const std::vector<float> soup = CubeSoup();
    L_LUMOMESH mesh = testmesh::MakeCube();
    LMeshReadVertexListIntoLumoMesh(soup.data(), 12, mesh, 0.0f, 0);
    EXPECT_EQ(mesh.vertexCount, 16u);
    EXPECT_EQ(mesh.edgeCount, 36u);
    EXPECT_EQ(mesh.facetCount, 24u);
    EXPECT_EQ(+mesh.facets.Peek(12)->vertex[0], 8u);
    ExpectMeshConsistent(mesh);
    EXPECT_EQ(LMeshReadVertexListIntoLumoMesh(nullptr, 5, mesh, 0.0f, 0), 0);
    EXPECT_EQ(LMeshReadVertexListIntoLumoMesh(soup.data(), -1, mesh, 0.0f, 0), 0);
    EXPECT_EQ(mesh.facetCount, 24u);
}

TEST(VertexListBuild, CornerInReachOfSeveralWeldsToTheLowestNumbered)
{
    // Vertices 0 (0,0,0) and 3 (0.3,0,0); the last corner, at 0.16, is within 0.2 of
    // both, and takes 0. An exact twin of vertex 3 takes 3 although 0 is in reach too.
    const float soup[27] = {0, 0, 0, 5, 0, 0, 0, 5, 0,   0.3f, 0, 0, 0.3f, 9, 0, 9, 9, 0,
                            0.3f, 0, 0, 9, 0, 9, 0.16f, 0, 0};
    L_LUMOMESH mesh;
    LMeshReadVertexListIntoLumoMesh(soup, 3, mesh, 0.2f, 0);
    const LM_FACET& last = *mesh.facets.Peek(2);
    EXPECT_EQ(+last.vertex[0], 3u);
    EXPECT_EQ(+last.vertex[2], 0u);
    EXPECT_EQ(mesh.vertexCount, 7u);
}

TEST(VertexListBuild, RepeatedSoupWeldsWhateverTheSizeHint)
{
    // 600 separate triangles, then the same 600 again: the lookup grows while welding.
    std::vector<float> soup;
    for (int t = 0; t < 600; ++t)
        soup.insert(soup.end(), {float(t), 0, 0, float(t), 1, 0, float(t), 0, 1});
    soup.insert(soup.end(), soup.begin(), soup.end());
    L_LUMOMESH mesh;
    LMeshReadVertexListIntoLumoMesh(soup.data(), 1200, mesh, 0.0f, 0);
    EXPECT_EQ(mesh.vertexCount, 1800u);
    EXPECT_EQ(mesh.edgeCount, 1800u);
}

TEST(VertexListBuild, NaNCornersAreKeptAsData)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float soup[9] = {nan, 0, 0, 1, 0, 0, 0, 1, 0};
    for (float tolerance : {0.0f, 1e-3f}) {
        L_LUMOMESH mesh;
        LMeshReadVertexListIntoLumoMesh(soup, 1, mesh, tolerance, 0);
        EXPECT_EQ(mesh.facetCount, 1u);
        ExpectMeshConsistent(mesh);
    }
}
