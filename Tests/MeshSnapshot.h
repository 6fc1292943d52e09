// Every byte of a mesh, header and all slots, for checking that a refused edit left
// the mesh exactly as it was.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "LMesh.h"

namespace testmesh {

template <class Record>
void AppendRecords(const BaseList<Record>& store, std::vector<uint8_t>& bytes)
{
    for (uint32_t i = 0; i < store.count; ++i) {
        const uint8_t* record = reinterpret_cast<const uint8_t*>(store.Peek(i));
        bytes.insert(bytes.end(), record, record + sizeof(Record));
    }
}

inline std::vector<uint8_t> Snapshot(const L_LUMOMESH& mesh)
{
    const LM_MESH_HEADER header = LMeshGetHeader(mesh);
    std::vector<uint8_t> bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    AppendRecords(mesh.vertices, bytes);
    AppendRecords(mesh.edges, bytes);
    AppendRecords(mesh.facets, bytes);
    return bytes;
}

}  // namespace testmesh
