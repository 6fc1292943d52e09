// The native file's layout, private to the library: its readers and the STL
// conversion, which works on a saved file without building a mesh, share it.
#pragma once

#include <cstdint>
#include <cstdio>

#include "LMesh.h"

// Bytes of a file with these slot counts; 64-bit, so no count can wrap it. With
// vertexSlots V and edgeSlots 0 it is also where facet record facetSlots starts,
// and with the other two 0 where vertex record vertexSlots starts.
uint64_t FileBytesFor(uint64_t vertexSlots, uint64_t facetSlots, uint64_t edgeSlots);
uint64_t FileBytesFor(const LM_MESH_HEADER& header);

// Reads the 56-byte header at the stream's position; true only when it was read
// whole and its magic is right.
bool ReadMeshHeader(FILE* file, LM_MESH_HEADER& header);
// Writes the 56-byte header at the stream's position; true when it was written whole.
bool WriteMeshHeader(FILE* file, const LM_MESH_HEADER& header);
// Copies the header of a mapped file; true only when the mapping holds one and its
// magic is right. The records behind it are not checked.
bool ReadMappedHeader(const LscMemoryMappedFile& map, LM_MESH_HEADER& header);
