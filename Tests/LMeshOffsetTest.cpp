#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "LMesh.h"
#include "TestMeshes.h"

namespace {

// Two unit squares folded at right angles along the y axis: A in z = 0 (normal +z)
// towards +x, B in x = 0 (normal +x) towards +z. Vertex 0 is the fold's end at the
// origin, where the fan is open.
L_LUMOMESH Fold()
{
    return testmesh::FromIndexed({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1},
                                 {0, 1, 2, 0, 2, 3, 0, 3, 5, 0, 5, 4});
}

std::vector<float> Position(const L_LUMOMESH& mesh, uint32_t v)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    return {vertex->position[0], vertex->position[1], vertex->position[2]};
}

// A latitude-longitude sphere of radius r about the origin, wound outward.
L_LUMOMESH Sphere(float r, int rings, int segments)
{
    const double pi = 3.14159265358979323846;
    std::vector<float> coords = {0, 0, r};
    for (int i = 1; i < rings; ++i)
        for (int j = 0; j < segments; ++j) {
            const double t = pi * i / rings, p = 2 * pi * j / segments;
            coords.insert(coords.end(), {float(r * std::sin(t) * std::cos(p)), float(r * std::sin(t) * std::sin(p)),
                                         float(r * std::cos(t))});
        }
    coords.insert(coords.end(), {0, 0, -r});
    const int south = 1 + (rings - 1) * segments;
    std::vector<int> indices;
    const auto at = [&](int ring, int j) { return 1 + (ring - 1) * segments + (j % segments); };
    for (int j = 0; j < segments; ++j) {
        indices.insert(indices.end(), {0, at(1, j), at(1, j + 1)});
        indices.insert(indices.end(), {south, at(rings - 1, j + 1), at(rings - 1, j)});
        for (int i = 1; i < rings - 1; ++i)
            indices.insert(indices.end(), {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j), at(i + 1, j + 1), at(i, j + 1)});
    }
    return testmesh::FromIndexed(coords, indices);
}

}  // namespace

TEST(LMeshOffset, FlatPatchMovesAlongItsNormalByTheDistance)
{
    L_LUMOMESH grid = testmesh::MakeGrid(3, 3);
    EXPECT_EQ(LMeshOffset(grid, 0.25f, 1.0f, 100.0f, nullptr), 0);
    for (uint32_t v = 0; v < grid.vertices.count; ++v) EXPECT_FLOAT_EQ(Position(grid, v)[2], 0.25f);
    testmesh::ExpectMeshConsistent(grid);

    // A given list moves its corners only, each once however often it is listed;
    // an empty list moves nothing.
    L_LUMOMESH listed = testmesh::MakeGrid(3, 3);
    BaseList<uint32_t> facets;
    for (uint32_t f : {0u, 0u, 1u}) *facets.At(facets.count) = f;
    LMeshOffset(listed, 0.25f, 1.0f, 100.0f, &facets);
    EXPECT_FLOAT_EQ(Position(listed, 0)[2], 0.25f);
    EXPECT_FLOAT_EQ(Position(listed, 15)[2], 0.0f);
    L_LUMOMESH untouched = testmesh::MakeGrid(3, 3);
    BaseList<uint32_t> empty;
    LMeshOffset(untouched, 0.25f, 1.0f, 100.0f, &empty);
    EXPECT_FLOAT_EQ(Position(untouched, 0)[2], 0.0f);
}

TEST(LMeshOffset, RightAngleFoldBisectsOrStretchesWithinTheLimit)
{
    // A right-angle edge at the vertex: one direction, its bisector, moved by d.
    L_LUMOMESH bisected = Fold();
    LMeshOffset(bisected, 1.0f, 1.0f, 100.0f, nullptr);
    EXPECT_NEAR(Position(bisected, 0)[0], 0.70710678, 1e-6);
    EXPECT_NEAR(Position(bisected, 0)[2], 0.70710678, 1e-6);

    // Tolerance 0: two plane normals, mean at 45 degrees, the move stretched by sqrt 2
    // so both planes move by d...
    L_LUMOMESH stretched = Fold();
    LMeshOffset(stretched, 1.0f, 0.0f, 100.0f, nullptr);
    EXPECT_NEAR(Position(stretched, 0)[0], 1.0, 1e-6);
    EXPECT_NEAR(Position(stretched, 0)[2], 1.0, 1e-6);
    // ...unless the stretch (29.3 %) passes the limit: then d / 0.8.
    L_LUMOMESH limited = Fold();
    LMeshOffset(limited, 1.0f, 0.0f, 20.0f, nullptr);
    EXPECT_NEAR(Position(limited, 0)[0], 1.25 * 0.70710678, 1e-6);
}

TEST(LMeshOffset, SphereRadiusGrowsByTheDistance)
{
    L_LUMOMESH sphere = Sphere(10.0f, 40, 80);
    LMeshOffset(sphere, 0.5f, 1.0f, 100.0f, nullptr);
    for (uint32_t v = 0; v < sphere.vertices.count; ++v) {
        const std::vector<float> p = Position(sphere, v);
        EXPECT_NEAR(std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]), 10.5, 0.5 * 0.01) << "vertex " << v;
    }
    L_LUMOMESH shrunk = Sphere(10.0f, 40, 80);
    LMeshOffset(shrunk, -0.5f, 1.0f, 100.0f, nullptr);
    const std::vector<float> p = Position(shrunk, 100);
    EXPECT_NEAR(std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]), 9.5, 0.5 * 0.01);
}
