// The merging insert shared by the soup builder and the file importers.
#pragma once

#include <cstdint>
#include <memory>

#include "LMesh.h"

// Welds the corners of incoming triangles to the vertices this inserter created
// before (exactly equal corners at tolerance 0, corners closer than the tolerance
// otherwise; see VertexWelder), and shares edges between the facets it adds.
// Vertices and edges that were in the mesh before it was made are never matched.
class MergingInserter {
public:
    // expectedTriangles sizes the lookup structures; it is a hint, not a limit.
    MergingInserter(L_LUMOMESH& mesh, float tolerance, uint32_t expectedTriangles);
    ~MergingInserter();
    MergingInserter(const MergingInserter&) = delete;
    MergingInserter& operator=(const MergingInserter&) = delete;

    // Adds one triangle from nine floats, corner by corner. False only when memory
    // runs out, and the mesh then holds the facets added so far.
    bool AddMergedFacet(const float* corners);

private:
    struct State;
    std::unique_ptr<State> state_;
};
