// Shapes and checks the extension tests share: sheets made from a placement of grid
// vertices, the chains of records a driver would build, and the geometric check of a
// strip (no two triangles crossing, no gap between consecutive records).
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <vector>

#include "LMeshExtension.h"
#include "LMeshIntersections.h"
#include "TestMeshes.h"

namespace extension {

using Place = std::function<std::array<float, 3>(int i, int j)>;
using Records = BaseList<LM_EXTENDEDGE>;

// An nx by ny grid of quads, two facets each, with vertex (i, j) at place(i, j); cells
// for which `skip` (if given) holds are left out.
inline L_LUMOMESH Sheet(int nx, int ny, const Place& place, const std::function<bool(int, int)>& skip = nullptr)
{
    std::vector<float> coords;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i)
            for (float c : place(i, j)) coords.push_back(c);
    std::vector<int> indices;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            if (skip && skip(i, j)) continue;
            const int a = j * (nx + 1) + i, b = a + 1, c = a + nx + 2, d = a + nx + 1;
            indices.insert(indices.end(), {a, b, c, a, c, d});
        }
    return testmesh::FromIndexed(coords, indices);
}

// The records of each free chain with their directions, before any cleanup, as the
// drivers make them.
inline std::vector<Records> ExtendedChains(L_LUMOMESH& mesh, float distance)
{
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(mesh, -1.0f, 1e-6f, edgeChains, vertexChains);
    std::vector<Records> chains;
    for (uint32_t c = 0; c < edgeChains.count; ++c) {
        Records records(16, 4096);
        LMeshCreateExtensionStructureBeforeExtend(mesh, distance, *edgeChains.Peek(c), *vertexChains.Peek(c), records);
        LMeshExtendFreeEdgeFacets(mesh, distance, records, nullptr);
        chains.push_back(records);
    }
    return chains;
}

// The cleanups in the drivers' order.
inline void CleanUp(Records& records, float distance)
{
    LMeshSimpleCleanupAfterExtension(records, distance, 0.1f);
    LMeshFillGapsAfterExtension(records, distance, 0.1f);
    LMeshComplexCleanupAfterExtension(records, distance, nullptr, 0.1f);
    RelieveExtensionKinks(records);
}

inline float Gap(const float a[3], const float b[3])
{
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

// Consecutive records whose edges meet share their outer point, or the first has a fan
// (which runs from its outer end to the next outer start by construction).
inline void ExpectNoGapsBetweenRecords(const Records& records)
{
    const uint32_t n = records.count;
    const bool closed = n > 1 && Gap(records.Peek(0)->startPoint, records.Peek(n - 1)->endPoint) < 0.001f;
    for (uint32_t i = 0; i < n; ++i) {
        if (i + 1 == n && !closed) break;
        const LM_EXTENDEDGE& record = *records.Peek(i);
        const LM_EXTENDEDGE& next = *records.Peek((i + 1) % n);
        if (Gap(record.endPoint, next.startPoint) >= 0.001f || record.cornerPointCount > 0) continue;
        EXPECT_LT(Gap(record.extendedEnd, next.extendedStart), 1e-4f) << "gap after record " << i << " of " << n;
    }
}

// No two triangles of the strip cross or overlap: each is shrunk a little towards its
// centroid so that neighbours sharing an edge or a corner no longer touch.
inline void ExpectNoCrossingTriangles(const L_LUMOMESH& strip)
{
    std::vector<std::array<std::array<float, 3>, 3>> triangles;
    for (uint32_t f = 0; f < strip.facets.count; ++f) {
        const LM_FACET facet = *strip.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        std::array<std::array<float, 3>, 3> t;
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k) t[c][k] = strip.vertices.Peek(facet.vertex[c])->position[k];
        for (int k = 0; k < 3; ++k) {
            const float centre = (t[0][k] + t[1][k] + t[2][k]) / 3.0f;
            for (int c = 0; c < 3; ++c) t[c][k] = centre + (t[c][k] - centre) * 0.999f;
        }
        triangles.push_back(t);
    }
    int crossings = 0;
    for (size_t a = 0; a < triangles.size(); ++a)
        for (size_t b = a + 1; b < triangles.size(); ++b) {
            const auto &s = triangles[a], &t = triangles[b];
            if (!CrossTriangles(s[0].data(), s[1].data(), s[2].data(), t[0].data(), t[1].data(), t[2].data(), 1e-6)
                     .intersect)
                continue;
            if (++crossings <= 3) ADD_FAILURE() << "strip triangles " << a << " and " << b << " cross";
        }
    EXPECT_EQ(crossings, 0);
}

}  // namespace extension
