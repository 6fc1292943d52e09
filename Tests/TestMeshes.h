// Small meshes shared by every test file, and the consistency check run after
// mutations. All makers build through LMeshCreateFromIndexedTriangles (shared edges,
// vertex[0] < vertex[1]) unless they say otherwise.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "LMesh.h"

namespace testmesh {

inline L_LUMOMESH FromIndexed(const std::vector<float>& coords, const std::vector<int>& indices)
{
    L_LUMOMESH mesh;
    LMeshCreateFromIndexedTriangles(mesh, coords.data(), uint32_t(coords.size() / 3), indices.data(),
                                    uint32_t(indices.size()));
    return mesh;
}

//   2
//   |\  .
//   0--1      one facet (0,1,2) in the z = 0 plane, normal +z
inline L_LUMOMESH MakeTriangle() { return FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}); }

//       3
//      /|\        vertices 0 (0,0,0), 1 (1,0,0), 2 (0,1,0), 3 (0,0,1);
//     / | \       four facets wound outward: (0,2,1) (0,1,3) (1,2,3) (0,3,2)
//    0--|--1
//     \ | /
//       2
inline L_LUMOMESH MakeTetrahedron()
{
    return FromIndexed({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 2, 1, 0, 1, 3, 1, 2, 3, 0, 3, 2});
}

//      7-------6
//     /|      /|     the unit cube [0,1]^3:
//    4-------5 |     0 (0,0,0) 1 (1,0,0) 2 (1,1,0) 3 (0,1,0)
//    | 3-----|-2     4 (0,0,1) 5 (1,0,1) 6 (1,1,1) 7 (0,1,1)
//    |/      |/      twelve facets, two per face, wound outward:
//    0-------1       bottom 0-1, top 2-3, front 4-5, right 6-7, back 8-9, left 10-11
inline L_LUMOMESH MakeCube()
{
    return FromIndexed({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1},
                       {0, 2, 1, 0, 3, 2,  // bottom z = 0
                        4, 5, 6, 4, 6, 7,  // top z = 1
                        0, 1, 5, 0, 5, 4,  // front y = 0
                        1, 2, 6, 1, 6, 5,  // right x = 1
                        2, 3, 7, 2, 7, 6,  // back y = 1
                        3, 0, 4, 3, 4, 7}); // left x = 0
}

//        3   2
//         \ /
//     4 -- 0 -- 1     an open fan of four facets around the centre 0:
//                     (0,1,2) (0,2,3) (0,3,4) (0,4,5); 0 is a boundary vertex
//         5           with edges (0,1) and (0,5) on the boundary
inline L_LUMOMESH MakeOpenFan()
{
    return FromIndexed({0, 0, 0, 2, 0, 0, 1, 2, 0, -1, 2, 0, -2, 0, 0, -1, -2, 0},
                       {0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5});
}

// A flat nx by ny grid of unit squares in z = 0, two facets per square.
//   vertex (i, j) is j * (nx + 1) + i;  square (i, j) gives facets
//   (a, b, c) and (a, c, d) with a = (i, j), b = (i+1, j), c = (i+1, j+1), d = (i, j+1)
inline L_LUMOMESH MakeGrid(int nx, int ny)
{
    std::vector<float> coords;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i) coords.insert(coords.end(), {float(i), float(j), 0.0f});
    std::vector<int> indices;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            const int a = j * (nx + 1) + i, b = a + 1, c = a + nx + 2, d = a + nx + 1;
            indices.insert(indices.end(), {a, b, c, a, c, d});
        }
    return FromIndexed(coords, indices);
}

// The cube with dead slots of all three kinds:
// - facet 11 is dead, and its three edges still name it (links linger, as after a
//   removal that has not yet been tidied);
// - an extra triangle was added on three new vertices (8, 9, 10) with private edges
//   (18, 19, 20) as facet 12, then killed together with its vertices and edges.
inline L_LUMOMESH MakeMeshWithDeadSlots()
{
    L_LUMOMESH mesh = MakeCube();
    const float p0[3] = {5, 5, 5}, p1[3] = {6, 5, 5}, p2[3] = {5, 6, 5};
    const uint32_t extra = LMeshAddTriangle(mesh, p0, p1, p2, 0);
    for (uint32_t k = 0; k < 3; ++k) {
        mesh.vertices.At(mesh.facets.At(extra)->vertex[k])->flags &= 254;
        mesh.edges.At(mesh.facets.At(extra)->edge[k])->flags &= 254;
    }
    mesh.facets.At(extra)->flags &= 254;
    mesh.facets.At(11)->flags &= 254;
    mesh.vertexCount -= 3;
    mesh.edgeCount -= 3;
    mesh.facetCount -= 2;
    return mesh;
}

// Live records name only slots inside their stores, live facets name live corners
// and edges, and each facet's edge k joins its corners k and k + 1 (or, where an edit
// lists sides in another order, some two of its corners, each pair once).
inline void ExpectMeshConsistent(const L_LUMOMESH& mesh, bool sidesInCornerOrder = true)
{
    ASSERT_EQ(mesh.vertexSlots, mesh.vertices.count);
    ASSERT_EQ(mesh.edgeSlots, mesh.edges.count);
    ASSERT_EQ(mesh.facetSlots, mesh.facets.count);
    uint32_t liveFacets = 0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        ++liveFacets;
        for (int k = 0; k < 3; ++k) {
            const uint32_t v = facet.vertex[k], e = facet.edge[k], w = facet.vertex[(k + 1) % 3];
            ASSERT_LT(v, mesh.vertices.count) << "facet " << f;
            ASSERT_LT(e, mesh.edges.count) << "facet " << f;
            EXPECT_TRUE(mesh.vertices.Peek(v)->flags & LM_LIVE) << "facet " << f;
            const LM_EDGE& edge = *mesh.edges.Peek(e);
            EXPECT_TRUE(edge.flags & LM_LIVE) << "facet " << f;
            const bool joins = (edge.vertex[0] == v && edge.vertex[1] == w) || (edge.vertex[0] == w && edge.vertex[1] == v);
            if (sidesInCornerOrder) {
                EXPECT_TRUE(joins) << "facet " << f << " side " << k;
            }
        }
        if (!sidesInCornerOrder) {
            int pairs = 0;  // bit j: the side joining corners j and j + 1 is listed
            for (int k = 0; k < 3; ++k) {
                const LM_EDGE& edge = *mesh.edges.Peek(facet.edge[k]);
                for (int j = 0; j < 3; ++j) {
                    const uint32_t v = facet.vertex[j], w = facet.vertex[(j + 1) % 3];
                    if ((edge.vertex[0] == v && edge.vertex[1] == w) || (edge.vertex[0] == w && edge.vertex[1] == v))
                        pairs |= 1 << j;
                }
            }
            EXPECT_EQ(pairs, 7) << "facet " << f;
        }
    }
    EXPECT_EQ(liveFacets, mesh.facetCount);
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if (!(edge.flags & LM_LIVE)) continue;
        for (int k = 0; k < 2; ++k) {
            const uint32_t facet = edge.facet[k];
            if (facet == LM_NONE) continue;
            EXPECT_LT(facet, mesh.facets.count) << "edge " << e;
        }
    }
}

// The ids listed in a BaseList, as a vector for whole-list comparison.
inline std::vector<uint32_t> Ids(const BaseList<uint32_t>& list)
{
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < list.count; ++i) ids.push_back(*list.Peek(i));
    return ids;
}

// Live edges with a missing facet on either side.
inline std::vector<uint32_t> FreeEdges(const L_LUMOMESH& mesh)
{
    std::vector<uint32_t> free;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if ((edge->flags & LM_LIVE) && (edge->facet[0] == LM_NONE || edge->facet[1] == LM_NONE)) free.push_back(e);
    }
    return free;
}

// Each chain walks its vertex list, and all chains together hold every free edge once
// (or, with `once` false, at least once: a walk stopped at a non-manifold vertex is
// found again from a later seed).
inline void ExpectFreeBoundaryChains(const L_LUMOMESH& mesh, const BaseList<BaseList<uint32_t>>& edgeChains,
                                     const BaseList<BaseList<uint32_t>>& vertexChains, bool once = true)
{
    ASSERT_EQ(edgeChains.count, vertexChains.count);
    std::vector<uint32_t> seen;
    for (uint32_t c = 0; c < edgeChains.count; ++c) {
        const std::vector<uint32_t> edges = Ids(*edgeChains.Peek(c)), vertices = Ids(*vertexChains.Peek(c));
        ASSERT_EQ(vertices.size(), edges.size() + 1);
        for (size_t i = 0; i < edges.size(); ++i) {
            const LM_EDGE* edge = mesh.edges.Peek(edges[i]);
            const uint32_t a = edge->vertex[0], b = edge->vertex[1];
            EXPECT_TRUE((a == vertices[i] && b == vertices[i + 1]) || (b == vertices[i] && a == vertices[i + 1]));
            seen.push_back(edges[i]);
        }
    }
    std::sort(seen.begin(), seen.end());
    if (!once) seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(seen, FreeEdges(mesh));
}

// Closed and consistently wound: every side of a live facet is walked once each way,
// never twice the same way, and no live edge is free.
inline void ExpectClosedAndConsistent(const L_LUMOMESH& mesh)
{
    std::vector<uint64_t> sides;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        for (int k = 0; k < 3; ++k) sides.push_back(uint64_t(facet.vertex[k]) << 32 | facet.vertex[(k + 1) % 3]);
    }
    std::sort(sides.begin(), sides.end());
    uint32_t unpaired = 0, repeated = 0;
    for (size_t i = 0; i < sides.size(); ++i) {
        if (i > 0 && sides[i] == sides[i - 1]) ++repeated;
        if (!std::binary_search(sides.begin(), sides.end(), sides[i] << 32 | sides[i] >> 32)) ++unpaired;
    }
    EXPECT_EQ(unpaired, 0u) << "sides with no partner walked the other way";
    EXPECT_EQ(repeated, 0u) << "sides walked twice the same way";
    EXPECT_TRUE(FreeEdges(mesh).empty());
}

//      3---2
//     / \ / \       a closed fan of six facets around the centre 0, a regular
//    4---0---1      hexagon of radius 2 in z = 0: (0,1,2) (0,2,3) (0,3,4) (0,4,5)
//     \ / \ /       (0,5,6) (0,6,1); 0 is an interior vertex, 1..6 lie on the
//      5---6        boundary. Coordinates are rounded: only the topology matters.
inline L_LUMOMESH MakeClosedFan()
{
    const float h = 1.732f;
    return FromIndexed({0, 0, 0, 2, 0, 0, 1, h, 0, -1, h, 0, -2, 0, 0, -1, -h, 0, 1, -h, 0},
                       {0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5, 0, 5, 6, 0, 6, 1});
}

// A soup of small triangles in a 10-unit cube with long slivers across its whole x
// range among them: the slivers lie in every box the small ones are split into.
inline L_LUMOMESH MakeSliverSoup(int slivers, int smalls)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<float> place(0.0f, 10.0f), offset(-0.3f, 0.3f);
    L_LUMOMESH soup;
    for (int t = 0; t < slivers + smalls; ++t) {
        const float c[3] = {place(random), place(random), place(random)};
        float p[3][3];
        for (auto& corner : p)
            for (int k = 0; k < 3; ++k) corner[k] = c[k] + offset(random);
        if (t < slivers) p[0][0] = 0.0f, p[1][0] = 10.0f;
        LMeshAddTriangle(soup, p[0], p[1], p[2], 0);
    }
    return soup;
}

}  // namespace testmesh
