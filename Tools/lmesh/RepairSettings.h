// The settings of `lmesh repair`, with their defaults in one place: the command reads
// its options into them and the corpus test runs the same defaults. Also the signed
// volume by which both judge the outcome.
#pragma once

#include <algorithm>
#include <cstdint>

#include "LMesh.h"

// What to repair and with what tolerances. The defaults made by DefaultRepairSettings
// scale with the mesh, so that they suit a part in millimetres and one in metres alike.
struct RepairSettings {
    float tolerance = 0.0f;
    bool removeEqual = true;
    bool removeNonManifold = true;
    bool removeZeroArea = true;
    float area = 0.0f;
    bool removeSkinny = false;
    float aspectRatio = 1000.0f;
    bool fillHoles = false;
    bool repairDisjoints = false;
    float disjointDistance = 0.0f;
    bool orient = true;
    bool removeOverhangs = false;
};

// The weld tolerance as a share of the largest extent: 1e-3 on a part 100 mm across.
// Seams that failed to meet lie far closer, while real edges are far longer. The same
// value bounds the ray test of the orientation in square units, so it must stay well
// below twice the area of the smallest facets that matter, which a share of the size
// does for parts of any unit.
constexpr double kToleranceShare = 1e-5;

// Defaults for this mesh (its stored box is refreshed): the tolerance above, facets of
// at most its square in area counted as flat (slivers whose corners only just miss
// each other).
inline RepairSettings DefaultRepairSettings(L_LUMOMESH& mesh)
{
    LMeshComputeAbsoluteBoundingBox(mesh);
    float extent = 0.0f;
    for (int k = 0; k < 3; ++k) extent = std::max(extent, mesh.bboxMax[k] - mesh.bboxMin[k]);
    RepairSettings settings;
    settings.tolerance = float(extent * kToleranceShare);
    settings.area = settings.tolerance * settings.tolerance;
    return settings;
}

// The seven counts of LMeshCleanup, by name.
struct RepairResults {
    uint32_t equalFacets = 0;
    uint32_t nonManifoldFacets = 0;
    uint32_t zeroAreaFacets = 0;
    uint32_t skinnyCollapses = 0;
    int32_t holesFilled = 0;  // -1 when the hole filling failed
    uint32_t splitAtTJunctions = 0;
    bool orientationChanged = false;
};

inline RepairResults RepairMesh(L_LUMOMESH& mesh, const RepairSettings& settings)
{
    uint32_t counts[7];
    LMeshCleanup(mesh, settings.tolerance, counts, settings.removeEqual, settings.removeNonManifold,
                 settings.removeZeroArea, settings.area, settings.removeSkinny, settings.aspectRatio,
                 settings.fillHoles, settings.repairDisjoints, settings.disjointDistance, settings.orient,
                 settings.removeOverhangs);
    RepairResults results;
    results.equalFacets = counts[0];
    results.nonManifoldFacets = counts[1];
    results.zeroAreaFacets = counts[2];
    results.skinnyCollapses = counts[3];
    results.holesFilled = int32_t(counts[4]);
    results.splitAtTJunctions = counts[5];
    results.orientationChanged = counts[6] != 0;
    return results;
}

// Signed volume of the live facets about the origin, in double: negative when the
// surface faces inward. A facet with a corner past the vertex store adds nothing.
inline double SignedVolume(const L_LUMOMESH& mesh)
{
    double volume = 0.0;
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        if (!(facet.flags & LM_LIVE)) continue;
        const LM_VERTEX* corners[3] = {mesh.vertices.Peek(facet.vertex[0]), mesh.vertices.Peek(facet.vertex[1]),
                                       mesh.vertices.Peek(facet.vertex[2])};
        if (!corners[0] || !corners[1] || !corners[2]) continue;
        double p[3][3];
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c) p[k][c] = corners[k]->position[c];
        volume += (p[0][0] * (p[1][1] * p[2][2] - p[1][2] * p[2][1]) - p[0][1] * (p[1][0] * p[2][2] - p[1][2] * p[2][0]) +
                   p[0][2] * (p[1][0] * p[2][1] - p[1][1] * p[2][0])) /
                  6.0;
    }
    return volume;
}
