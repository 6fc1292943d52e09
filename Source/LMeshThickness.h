// Shared between the inscribed-ball search of thickness analysis and its filter stages.
#pragma once

#include <vector>

#include "LMesh.h"

// Per facet id of the analysed copy: the ball radius (-1 none, 0 rejected by a
// filter), the facet that stops it, the distance from the centroid to the contact,
// and whether the facet takes part.
struct ThicknessResults {
    std::vector<float> radius;
    std::vector<float> contactDistance;
    std::vector<uint32_t> opposite;
    std::vector<uint8_t> selected;

    bool IsFacet(uint32_t id) const { return id < radius.size(); }
};

// A facet's stored normal, widened to double; false for an id past the store.
bool ReadFacetNormal(const L_LUMOMESH& mesh, uint32_t facet, L_VECTOR& normal);

// The filter stages of the full analysis on the inward copy, as params ask: with
// applyFilter the histogram cleaning (with applyHistogram), the angle filter with its
// clamps and the smoothing; then, with applyGapFill, the gap fill.
void ApplyThicknessFilters(const L_LUMOMESH& copy, const LM_THICKNESS_PARAMS& params, ThicknessResults& results);
