// LMesh: a triangle-mesh library for engineering software.
//
// One mesh class, L_LUMOMESH, holds a header and three paged stores of packed
// records (vertices, edges, facets). Every operation is a free function that takes
// the mesh by reference and names entities by 32-bit index. Removed entities stay in
// their slots with LM_LIVE cleared until compaction.
//
// Callers compile with -I Include -I Support and include this header only.
#pragma once

#include <cstdint>
#include <cstdio>

#include "GeoLib.h"
#include "LscUtils.h"

constexpr uint32_t LM_NONE = 0xFFFFFFFFu;  // "no entity" in every index field
constexpr uint8_t LM_LIVE = 1;             // bit 0 of flags; the only bit with meaning
constexpr uint32_t LM_MESH_MAGIC = 31012008;

#pragma pack(push, 1)
struct LM_VERTEX {
    float position[3];
    uint32_t edge;  // one edge touching the vertex, or LM_NONE
    uint8_t flags;
};

struct LM_EDGE {
    uint32_t vertex[2];
    uint32_t facet[2];  // facet[1] is LM_NONE on a boundary edge
    uint8_t flags;
};

struct LM_FACET {
    uint32_t vertex[3];  // corners in winding order
    uint32_t edge[3];    // edge[k] joins corner k and corner (k + 1) % 3
    float normal[3];
    uint32_t groupId;  // 0: no group
    uint8_t flags;
};

// The head of the native file, and the leading fields of L_LUMOMESH.
struct LM_MESH_HEADER {
    uint32_t magic, vertexSlots, vertexCount, facetSlots, facetCount, edgeSlots, edgeCount;
    float bboxMin[3];
    float bboxMax[3];
    uint32_t groupCount;
};
#pragma pack(pop)

static_assert(sizeof(LM_VERTEX) == 17, "LM_VERTEX is a 17-byte file record");
static_assert(sizeof(LM_EDGE) == 17, "LM_EDGE is a 17-byte file record");
static_assert(sizeof(LM_FACET) == 41, "LM_FACET is a 41-byte file record");
static_assert(sizeof(LM_MESH_HEADER) == 56, "LM_MESH_HEADER is the 56-byte file header");

// The mesh. Slot counts include dead records; live counts do not. The bounding box
// only grows as vertices are added (LMesh measures recompute it).
class L_LUMOMESH {
public:
    uint32_t magic;
    uint32_t vertexSlots;
    uint32_t vertexCount;
    uint32_t facetSlots;
    uint32_t facetCount;
    uint32_t edgeSlots;
    uint32_t edgeCount;
    float bboxMin[3];
    float bboxMax[3];
    uint32_t groupCount;
    BaseList<LM_VERTEX> vertices;
    BaseList<LM_EDGE> edges;
    BaseList<LM_FACET> facets;

    L_LUMOMESH();
    L_LUMOMESH(const L_LUMOMESH& other);
    L_LUMOMESH(L_LUMOMESH&& other) noexcept;
    L_LUMOMESH& operator=(const L_LUMOMESH& other);
    // Not guarded against self-move: a mesh moved onto itself ends empty.
    L_LUMOMESH& operator=(L_LUMOMESH&& other) noexcept;
    ~L_LUMOMESH();

    // Frees the stores and restores the empty header.
    void Reset();
    // Sets groupId to 0 in every facet slot, dead ones included.
    void ResetGroupIds();
    // Sets groupId to 0 in every facet slot whose groupId is id.
    void ResetPatchGroupId(uint32_t id);
};

// ---- Header access -----------------------------------------------------------

// The 56 header bytes of a mesh, and their replacement.
LM_MESH_HEADER LMeshGetHeader(const L_LUMOMESH& mesh);
void LMeshSetHeader(L_LUMOMESH& mesh, const LM_MESH_HEADER& header);

// ---- Small shared helpers ----------------------------------------------------

// Unit normal of the triangle p0 p1 p2 (each three floats), computed in float32
// with the length's root taken in double. For a degenerate triangle the normal is
// left as the zero cross product and the result is false.
bool ComputeFacetNormal(const float* p0, const float* p1, const float* p2, float* normal);

// Sets facetSlots to the facet store's count and facetCount to its live slots.
void RecountFacets(L_LUMOMESH& mesh);

// ---- Building ----------------------------------------------------------------

// Appends a facet on three existing vertices, with three new private edges in
// winding order. Vertex ids are not checked; the box and vertex counts are left
// alone. Returns the new facet's index.
uint32_t LMeshAddTriangle(L_LUMOMESH& mesh, uint32_t p, uint32_t q, uint32_t r, uint32_t groupId);

// Appends a facet on three new vertices (each three floats), with three private
// edges. Nothing is merged. Returns the new facet's index.
uint32_t LMeshAddTriangle(L_LUMOMESH& mesh, const float* p0, const float* p1, const float* p2,
                          uint32_t groupId);

// Resets the mesh and builds it from a vertex table (x, y, z per vertex) and
// corner indices, three per facet; one or two trailing indices are ignored. Edges
// are shared (vertex[0] < vertex[1]). A triangle naming a vertex outside the table
// is skipped. Always true.
bool LMeshCreateFromIndexedTriangles(L_LUMOMESH& mesh, const float* coords, uint32_t vertexCount,
                                     const int* indices, uint32_t indexCount);
bool LMeshCreateFromIndexedTriangles(L_LUMOMESH& mesh, const double* coords, uint32_t vertexCount,
                                     const int* indices, uint32_t indexCount);

// Adds a triangle soup (nine floats per triangle) to the mesh, welding corners that
// lie closer than `tolerance` (and equal corners at tolerance 0) and sharing edges.
// Existing vertices are not welded to. With units 1 coordinates are scaled from
// inches to millimetres first. Always 0.
short LMeshReadVertexListIntoLumoMesh(const float* triangles, int triangleCount, L_LUMOMESH& mesh,
                                      float tolerance, short units);

// ---- Entity relations ----------------------------------------------------------

// Re-derives the links that facets imply: refills an edge's facet[0] from the first
// live facet naming it, clears facet[1] where it repeats facet[0], and points every
// vertex on an open or broken fan at an edge of the last live facet touching it.
// Creates and removes nothing. Always 0.
uint32_t LMeshRebuildEntityRelations(L_LUMOMESH& mesh);

// ---- Neighbourhood queries ---------------------------------------------------
// Walks append to the caller's list and never clear it. They return 0 for a closed
// fan, 1 for an open fan (a boundary vertex) and -1 on failure, including a vertex,
// edge or facet id at or past its store's count.

short LMeshGetEdgesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& edges);
short LMeshGetFacetsAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& facets);
short LMeshGetFacetsAndEdgesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v,
                                         BaseList<uint32_t>& facets, BaseList<uint32_t>& edges);
short LMeshGetVerticesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v, BaseList<uint32_t>& vertices);
short LMeshGetEdgesAndVerticesAroundVertex(const L_LUMOMESH& mesh, const uint32_t& v,
                                           BaseList<uint32_t>& edges, BaseList<uint32_t>& vertices);
short LMeshGetEdgesAroundEdge(const L_LUMOMESH& mesh, const uint32_t& e, BaseList<uint32_t>& edges);
short LMeshGetFacetsAroundFacetByVertices(const L_LUMOMESH& mesh, const uint32_t& f,
                                          BaseList<uint32_t>& facets);
// Lists the facets across the three sides of f; 1 if a side is free, else 0.
short LMeshGetFacetsAroundFacetByEdges(const L_LUMOMESH& mesh, const uint32_t& f, BaseList<uint32_t>& facets);

// Process-wide navigation tables: a snapshot of (vertex, edge) or (vertex, facet)
// pairs sorted by vertex, answering in logarithmic time even where links are broken.
// Not thread-safe; one navigation of each kind at a time.
void LMeshStartEdgeByVertexNavigation(const L_LUMOMESH& mesh);
bool LMeshGetFirstEdgeByVertex(uint32_t v, uint32_t* e);
bool LMeshGetNextEdgeByVertex(uint32_t v, uint32_t* e);
void LMeshStopEdgeByVertexNavigation();
void LMeshStartFacetByVertexNavigation(const L_LUMOMESH& mesh);
bool LMeshGetFirstFacetByVertex(uint32_t v, uint32_t* f);
bool LMeshGetNextFacetByVertex(uint32_t v, uint32_t* f);
void LMeshStopFacetByVertexNavigation();

// ---- Native file ---------------------------------------------------------------
// The native file is the memory image of a mesh: the 56-byte header, then vertex,
// facet and edge records, dead ones included. Path functions try a memory-mapped
// route first and fall back to stdio; a fallback's success is still reported as
// false, so false means "the mapped route failed" and the file or mesh may be whole.
// A read that fails outright (unopenable path, wrong magic, a file shorter than its
// counts say) leaves the mesh empty; a null path or FILE* leaves it untouched.

bool LMeshWriteToFile(const wchar_t* path, const L_LUMOMESH& mesh);
bool LMeshWriteToFile(FILE* file, const L_LUMOMESH& mesh);
bool LMeshReadFromFile(const wchar_t* path, L_LUMOMESH& mesh);
bool LMeshReadFromFile(FILE* file, L_LUMOMESH& mesh);
bool LMeshReadFileHeader(const wchar_t* path, LM_MESH_HEADER* header);
// Note: only the maximum x comes from bboxMax; maximum y and z repeat the minimum's.
bool LMeshReadFileBBox(const wchar_t* path, L_BOUNDS& bounds);
// Vertex coordinates of every slot, and the corner triples of live facets packed at
// the front of `facets` (whose size still says three per facet slot). False for a
// file with no vertex or no facet slots, as the arrays would have no data.
bool LMeshReadMeshDataFromFile(const wchar_t* path, LM_MESH_HEADER& header, TObjArray<float>& vertices,
                               TObjArray<uint32_t>& facets);
