// Reading records that a link may name past their store.
#pragma once

#include "LMesh.h"

// Position of a vertex; false, with nothing written, for an id past the vertex store.
inline bool ReadPosition(const L_LUMOMESH& mesh, uint32_t vertex, float out[3])
{
    const LM_VERTEX* record = mesh.vertices.Peek(vertex);
    if (!record) return false;
    for (int k = 0; k < 3; ++k) out[k] = record->position[k];
    return true;
}
