// Finding the vertex that a new triangle corner welds to, for the merging insert.
#pragma once

#include <cstdint>
#include <memory>

#include "LMesh.h"

// Knows the vertices it was given (numbered from firstVertex on, in order) and finds
// the one a corner welds to: an exactly equal position first (-0 equals +0), and with
// a tolerance above 0 otherwise the lowest-numbered vertex whose squared distance,
// dy^2 + dx^2 + dz^2 in float, is below tolerance^2. Lookups cost a hash probe and,
// with a tolerance, the few grid cells within reach of the corner.
class VertexWelder {
public:
    // Reads positions from the store; vertices from firstVertex on are the ones it knows.
    VertexWelder(const BaseList<LM_VERTEX>& vertices, uint32_t firstVertex, float tolerance,
                 uint32_t expectedVertices);
    ~VertexWelder();
    VertexWelder(const VertexWelder&) = delete;
    VertexWelder& operator=(const VertexWelder&) = delete;

    // The vertex the corner welds to, or LM_NONE (0xFFFFFFFF).
    uint32_t Find(const float* p);
    // Enters the vertex just appended to the store, at the position of the Find that
    // missed. Throws std::bad_alloc when memory runs out.
    void Add();

private:
    class ExactTable;
    class ToleranceGrid;

    static constexpr uint32_t kRecent = 8;
    struct Recent {
        uint32_t id = 0xFFFFFFFFu;  // numbered from firstVertex, like the tables
        float p[3] = {0, 0, 0};
    };
    void Remember(uint32_t i, const float* p);

    uint32_t firstVertex_;
    uint32_t known_ = 0;  // vertices entered so far
    Recent recent_[kRecent];  // the corners met last and their vertices, in a ring
    uint32_t nextRecent_ = 0;
    std::unique_ptr<class KnownPositions> positions_;
    std::unique_ptr<ExactTable> exact_;
    std::unique_ptr<ToleranceGrid> grid_;  // above tolerance 0
};
