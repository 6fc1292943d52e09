// LMesh: a triangle-mesh library for engineering software.
//
// One mesh class, L_LUMOMESH, holds a header and three paged stores of packed
// records (vertices, edges, facets). Every operation is a free function that takes
// the mesh by reference and names entities by 32-bit index. Removed entities stay in
// their slots with LM_LIVE cleared until compaction.
//
// Callers compile with -I Include -I Support and include this header only.
#pragma once

#include <cfloat>
#include <cstdint>
#include <cstdio>

#include "GeoLib.h"
#include "GeoLibElements.h"
#include "GeoLibTriangles.h"
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

// ---- Small geometry and rigid transforms -------------------------------------------

// Heron's formula on the three float points widened to double; not-a-number when
// rounding makes the product negative (a needle), which callers rely on.
float HeronTriangleArea(const float* p0, const float* p1, const float* p2);
// Mean of the facet's three corners, in float.
void ComputeFacetCentroid(const L_LUMOMESH& mesh, uint32_t facet, float* centroid);
// Min and max of the facet's three corners, widened to double.
void ComputeFacetBounds(const L_LUMOMESH& mesh, const LM_FACET& facet, L_BOUNDS& bounds);
// Scales v to unit length in place; 0, or -1 (and v zeroed) when shorter than 1e-11.
int NormalizeVector(float* v);
// Whether p lies in the triangle a b c, by barycentric coordinates in the first
// coordinate plane whose determinant reaches the tolerance.
bool PointInTriangleBarycentric(const float* p, const float* a, const float* b, const float* c, float tolerance);
// Whether point, projected on the triangle's plane, lies inside it or no further than
// zefatoll.length outside a side (so sides and corners count). False with no area.
bool LMeshPointInsideTriangle(const L_POINT& point, const L_POINT& a, const L_POINT& b, const L_POINT& c);
// The point where the segment crosses the facet, if it does.
bool LMeshIntersectSegmFacet(const L_LUMOMESH& mesh, const L_SEGM& segment, uint32_t facet, L_POINT3f* point);
// Moves every vertex slot, or the corners of the listed facets once each. Always 0.
short LMeshTranslate(L_LUMOMESH& mesh, const float* vector, const BaseList<uint32_t>* facets);
// Transforms every vertex and normal slot and rebuilds the stored box; a mirroring
// matrix swaps the first two corners of every facet. False for an empty store.
bool LMeshTransform(L_LUMOMESH& mesh, L_MATRIX& matrix, bool* mirrored);

// ---- Curvature -----------------------------------------------------------------------
// Degrees. Edge: the angle between its facets' normals; -1 (result 1) on a boundary
// edge, -1000 (result -1) on an edge with no facet. Vertex: the sum of the angles
// between consecutive edges around it (360 when flat); result 1 with no edges.

short LMeshComputeEdgeMeanCurvature(const L_LUMOMESH& mesh, const uint32_t& edge, double* curvature);
short LMeshComputeEdgeMeanCurvature(const L_LUMOMESH& mesh, const uint32_t& edge, float* curvature);
short LMeshComputeVertexCurvature(const L_LUMOMESH& mesh, const uint32_t& vertex, double* curvature);
short LMeshComputeVertexCurvature(const L_LUMOMESH& mesh, const uint32_t& vertex, float* curvature);

// ---- Orientation and normals ---------------------------------------------------------

// Recomputes the stored normal of every live facet from its corners.
void LMeshRecomputeNormals(L_LUMOMESH& mesh);
// Swaps a facet's second and third corners and recomputes its normal; false for an
// id past the facet slots. Edge ids are not rewritten.
bool LMeshReverseFacet(L_LUMOMESH& mesh, uint32_t facet);
// Reverses the listed live facets, or every live facet for a null list.
void LMeshReverseFacets(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets);
// Negates the stored normals of the listed live facets (all for null); the winding stays.
void LMeshReverseNormals(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets);
// Makes the winding of each edge-connected piece consistent from its lowest live facet,
// which ray parity turns outward (direction 1) or inward (0); other directions only
// propagate. True when some facet's corner order was touched by the propagation.
bool LMeshOrientFacets(L_LUMOMESH& mesh, float tolerance, short direction);

// ---- STL and PLY ---------------------------------------------------------------------

// Adds the facets of a binary or ASCII STL file to the mesh, welding as
// LMeshReadVertexListIntoLumoMesh does. False for an unreadable file, a binary file
// with no facets, or a file shorter than its count (the facets read stay).
bool LMeshLoadFromSTL(const wchar_t* path, float tolerance, L_LUMOMESH* mesh);
// Adds the triangles of a PLY file, welded within `tolerance` whole units. 0 on success.
short LMeshReadPlyFile(const wchar_t* path, L_LUMOMESH& mesh, short tolerance);

// Binary STL of the live facets (or of the listed ones), with the normal rotated and
// corners transformed by the optional matrix, and corners scaled unless scale is 0.
bool LMeshSaveToStlBin(const L_LUMOMESH& mesh, const wchar_t* path, const L_MATRIX* matrix, float scale,
                       const BaseList<uint32_t>* facets);
// Appends the live facets as binary STL records at the file's position; count is set
// to the number written. The file's header and count are left to the caller.
bool LMeshAppendFacetsToStlBin(FILE* file, const L_LUMOMESH& mesh, const L_MATRIX* matrix, float scale,
                               uint32_t& count);
// Converts a native mesh file straight to binary STL (new file, or appended to an
// existing STL), through stdio or a mapping. These routes write the stored normals
// and take corners only through the matrix: pass an identity for a plain conversion.
bool LMeshFileToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix, float scale);
bool LMeshFileAppendToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix, float scale);
bool LMeshFileMapToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix, float scale);
bool LMeshFileMapAppendToStlBin(const wchar_t* meshPath, const wchar_t* stlPath, const L_MATRIX* matrix,
                                float scale);

// ---- Global measures -----------------------------------------------------------------

// Sum of live facet areas (all slots, or the listed ids), accumulated in float.
float LMeshComputeArea(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets = nullptr);
// Absolute enclosed volume, relative to the middle of the stored box, in float.
float LMeshComputeVolume(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets = nullptr);
// Lowest z of a live vertex; FLT_MAX for none.
float LMeshComputeZMin(const L_LUMOMESH& mesh);
// Rebuilds the stored float box from the live vertices.
void LMeshComputeAbsoluteBoundingBox(L_LUMOMESH& mesh);
// Double box of every vertex slot, dead ones included.
void LMeshComputeAbsoluteBoundingBox(const L_LUMOMESH& mesh, L_BOUNDS& bounds);
// Double box of every vertex slot in work-plane terms (translation scaled by 1000).
void LMeshComputeRelativeBoundingBox(const L_WORKPLANE& plane, const L_LUMOMESH& mesh, L_BOUNDS& bounds);
float LMeshEdgeLength(const L_LUMOMESH& mesh, uint32_t edge);
// The facet's longest or shortest side; ties go to the later side.
float LMeshLongestEdgeLength(const L_LUMOMESH& mesh, uint32_t facet, uint32_t& edge);
float LMeshShortestEdgeLength(const L_LUMOMESH& mesh, uint32_t facet, uint32_t& edge);
// Mean length of the live edges (not-a-number with none). Always 0.
short LMeshComputeAverageEdgeLength(const L_LUMOMESH& mesh, float& average);

// ---- Triangle quality ----------------------------------------------------------------

float LMeshTriangleArea(const L_LUMOMESH& mesh, const uint32_t& facet);
short LMeshTriangleAltitudes(const L_LUMOMESH& mesh, const uint32_t& facet, float* altitudes);
float LMeshTriangleAspectRatio(const L_LUMOMESH& mesh, const uint32_t& facet);
float LMeshTriangleLengthAreaRatio(const L_LUMOMESH& mesh, const uint32_t& facet);
// The corner with the smallest (largest) inner angle, in radians: its vertex id is
// returned, the angle and the corner index 0..2 written, and all three angles stored.
uint32_t LMeshSmallestInnerAngleOfTriangle(const L_LUMOMESH& mesh, const uint32_t& facet, float& angle,
                                           uint32_t& index, float* angles);
uint32_t LMeshLargestInnerAngleOfTriangle(const L_LUMOMESH& mesh, const uint32_t& facet, float& angle,
                                          uint32_t& index, float* angles);
// Clears the list and lists the live facets whose shape factor lies in [min, max].
bool LMeshFindFacetsByShapeFactorRange(const L_LUMOMESH& mesh, float min, float max, BaseList<uint32_t>* facets);
// Counts live facets per shape-factor bin of the given width.
bool LMeshCalculateShapeFactorDistrib(const L_LUMOMESH& mesh, float width, BaseList<uint32_t>* bins);

// ---- Box grids -----------------------------------------------------------------------

// One box of a facet set: its walls and the ids of the facets that touch it. Ids of
// dead facets may appear: test the live flag of every id read out of a box.
struct LM_BOX {
    L_BOUNDS bounds{{DBL_MAX, DBL_MAX, DBL_MAX}, {-DBL_MAX, -DBL_MAX, -DBL_MAX}};
    BaseList<uint32_t> facets;
};

// Regular nx by ny by nz grid over the mesh's box, written from index 0 of `boxes`.
void LMeshBoxFacets(const L_LUMOMESH& mesh, int nx, int ny, int nz, BaseList<LM_BOX>& boxes);
// Adaptive boxes by halving until each holds at most `limit` facets (or halving stops helping).
void LMeshBoxFacetsNonUniform(const L_LUMOMESH& mesh, BaseList<LM_BOX>& boxes, uint32_t limit);
// Per facet id, the ascending list of boxes that hold it. Always 0.
short LMeshBoxFacetsIndexTable(const L_LUMOMESH& mesh, const BaseList<LM_BOX>& boxes, BaseList<LM_BOX>& table);
// n*n*n cells over a float box, listing the live vertices or edges in each.
bool LMeshBoxVertices(const L_LUMOMESH& mesh, uint32_t n, const L_BOUNDSf& bounds,
                      BaseList<BaseList<uint32_t>>& cells);
bool LMeshBoxEdges(const L_LUMOMESH& mesh, uint32_t n, const L_BOUNDSf& bounds, BaseList<BaseList<uint32_t>>& cells);
// The cell of a vertex, and the facets and/or edges around the vertices listed there.
bool LMeshQueryVertexBox(const L_LUMOMESH& mesh, const L_BOUNDSf& bounds, uint32_t vertex, uint32_t n,
                         const BaseList<BaseList<uint32_t>>& cells, uint32_t& cell, BaseList<uint32_t>* facets,
                         BaseList<uint32_t>* edges);
// The cell of a vertex and a copy of the edges listed in it.
bool LMeshQueryEdgeBox(const L_LUMOMESH& mesh, const L_BOUNDSf& bounds, uint32_t vertex, uint32_t n,
                       const BaseList<BaseList<uint32_t>>& cells, uint32_t& cell, BaseList<uint32_t>& edges);

// ---- Compaction ----------------------------------------------------------------------

// Renumbers the live entities down to 0 .. n - 1 in their old order, dropping every
// vertex and edge that no live facet uses, and rewrites all links. A mesh without dead
// slots is left exactly as it is (box and groupCount included).
void LMeshCompact(L_LUMOMESH& mesh);
// Writes the compacted form of a native file to `target` without loading it. A source
// without dead slots sets alreadyCompact and creates no target. `source` never changes;
// one shorter than its header says, or a target that is the source itself, gives false.
bool LMeshCompactToFile(const wchar_t* source, const wchar_t* target, bool& alreadyCompact);
// The same from a mesh in memory; a mesh without dead slots is written as it is.
bool LMeshCompactToFile(const L_LUMOMESH& mesh, const wchar_t* target);

// ---- Facet groups ----------------------------------------------------------------------
// A group is the number in a facet's groupId (0: none); groupCount is one above the
// highest number handed out. Ids at or above groupCount are refused, and so is a list
// naming a facet past the slots, before anything changes. The path forms edit a native
// file in place without loading it, and return false on a file that cannot be opened,
// has a bad header, or is shorter than its header says.

bool LMeshCreateGroup(L_LUMOMESH& mesh, BaseList<uint32_t>& facets, uint32_t* id);
bool LMeshCreateGroup(const wchar_t* path, BaseList<uint32_t>& facets, uint32_t* id);
bool LMeshAddToGroup(L_LUMOMESH& mesh, uint32_t id, BaseList<uint32_t>& facets);
bool LMeshAddToGroup(const wchar_t* path, uint32_t id, BaseList<uint32_t>& facets);
// Sets the id on every facet slot and groupCount to id + 1.
bool LMeshSetGroup(L_LUMOMESH& mesh, uint32_t id);
bool LMeshSetGroup(const wchar_t* path, uint32_t id);
// Lists the live facets of a group in slot order (the memory form clears the list first).
bool LMeshGetGroup(const L_LUMOMESH& mesh, uint32_t id, BaseList<uint32_t>* facets);
bool LMeshGetGroup(const wchar_t* path, uint32_t id, BaseList<uint32_t>* facets, bool clear);
// Clears the id from every slot and lowers groupCount to one above the highest id left
// on a live facet.
bool LMeshDeleteGroup(L_LUMOMESH& mesh, uint32_t id);
bool LMeshDeleteGroup(const wchar_t* path, uint32_t id);
// The distinct groups of the listed facets, ascending; or group -> facet pairs.
bool LMeshGetGroups(const wchar_t* path, BaseList<uint32_t>& facets, BaseList<uint32_t>* groups);
bool LMeshGetGroups(const wchar_t* path, BaseList<uint32_t>& facets, LTreeRCollect* groups);
// The distinct non-zero groups of live facets, ascending.
bool LMeshGetValidGroups(const wchar_t* path, BaseList<uint32_t>* groups);

// ---- ZPR export ----------------------------------------------------------------------

// Writes live vertices and live facets (slot ids, three colour bytes from the low bytes
// of colours[f], or 0 past the list's end) as a binary ZPR file. Reverses, in the mesh,
// every facet whose stored normal differs from its computed one. 0 written, -1 cannot
// open, -2 an empty store.
short LMeshSaveToZPRFormat(L_LUMOMESH& mesh, const wchar_t* path, const BaseList<uint32_t>& colours);

// ---- Local edits -----------------------------------------------------------------------

// Kills the listed facets, then rebuilds from the live facets alone every live flag of
// vertices and edges, every vertex link and all counts (also with an empty list). False
// if an id was past the facet slots; the other ids are still deleted.
bool LMeshDeleteFacets(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets);
// Collapses an inner edge onto its first end, removing the second end, the edge and its
// two facets. Refused when the first end or an apex lies on a border, or a side of the
// two facets is a border edge. All or nothing: a refusal leaves the mesh bit for bit as
// it was. Normals and the box are not updated.
bool LMeshCollapseEdge(L_LUMOMESH& mesh, uint32_t edge);
// Merges two corners of a facet (the ends of a free side survive); LMeshMergeVertices' result.
bool LMeshCollapseFacet(L_LUMOMESH& mesh, uint32_t facet);
// Moves everything at `dropped` onto `kept`, deletes facets that collapse, and zips
// border edges that come to join the same two vertices. False, with nothing done, when
// either vertex is dead or past the store, or both are one.
bool LMeshMergeVertices(L_LUMOMESH& mesh, uint32_t kept, uint32_t dropped);

// ---- Degenerate and duplicate facets ---------------------------------------------------

// Lists live facets whose Heron area is at or below the tolerance (a needle whose Heron
// product rounds negative is not listed). True if any was listed.
bool LMeshFindAreaZeroFacets(const L_LUMOMESH& mesh, float tolerance, BaseList<uint32_t>* facets);
bool LMeshDeleteAreaZeroFacets(L_LUMOMESH& mesh, float tolerance);
// Lists all but one of each set of facets with the same corners within the tolerance,
// in any order or orientation; the one with most live neighbours survives.
bool LMeshFindEqualFacets(L_LUMOMESH& mesh, float tolerance, BaseList<uint32_t>* facets);
bool LMeshDeleteEqualFacets(L_LUMOMESH& mesh, float tolerance);
// Deletes facets with two border edges that hang on the rest of the mesh by the vertex
// between those edges; returns how many were listed.
uint32_t LMeshDeleteLoopingTriangles(L_LUMOMESH& mesh);

// ---- Simplification ------------------------------------------------------------------

// The library's tolerance record. Angles are in degrees.
struct LM_TOLERANCES {
    float flatAngle, edgeLengthFactor, angleBand, featureAngleBand, areaFactor, turnAngle, vertexCurvatureChange,
        reorganizeDistance, minimumArea, capAngle, skinnyAspectRatio, skinnyEdgeLength, coordinateTolerance,
        reservedTolerance1, reservedTolerance2;
    int16_t slicesX, slicesY, slicesZ;
};

// The record LMeshCleanup uses for its skinny facets (20 slices per axis), with the
// caller's minimum area: the usual values for a part in millimetres.
LM_TOLERANCES LMeshCleanupTolerances(float minimumArea);

// One pass of edge collapses in edge id order, each kept only if facet areas stay above
// minimumArea (unless ignoreArea), vertex curvatures change by less than
// vertexCurvatureChange and no facet turns by a right angle or more; when only the
// curvature refuses, the edge is tried the other way round. `removed` counts edges (3 per
// collapse of the first try only). 0, or -1 if a vertex curvature could not be computed.
// Accepted collapses leave fresh normals around them; the box is not updated.
short LMeshSimplify(L_LUMOMESH& mesh, uint32_t& removed, const LM_TOLERANCES& tolerances, bool ignoreArea,
                    bool protectRightAngles);
// The same, with each survivor moved to the midpoint of its edge and no second try.
short LMeshSimplifyFullEdgeCollapse(L_LUMOMESH& mesh, uint32_t& removed, const LM_TOLERANCES& tolerances,
                                    bool ignoreArea, bool protectRightAngles);
// One edge, with the second try: 0 collapsed (either way round), -1 refused.
short LMeshSimplifyEdge(L_LUMOMESH& mesh, const uint32_t& edge, const LM_TOLERANCES& tolerances, bool ignoreArea,
                        bool protectRightAngles);
// The listed edges in list order, with the second try; returns the collapses made on the
// first try. Ids past the store are passed over.
uint32_t LMeshSimplifyEdges(L_LUMOMESH& mesh, const BaseList<uint32_t>& edges, const LM_TOLERANCES& tolerances,
                            bool ignoreArea, bool protectRightAngles);

// ---- Welding edges, skinny and cap triangles -------------------------------------------

// Welds pairs of edges whose ends lie within the tolerance of each other (border edges
// only when mode is non-zero), merging their end vertices at their mean. Candidates are
// all edges, or those of the listed facets. True if anything was merged.
bool LMeshOptimizeEdges(L_LUMOMESH& mesh, float tolerance, const BaseList<uint32_t>* facets, uint32_t* candidates,
                        uint32_t* unmatched, short mode);
// Collapses the shortest edge of degenerate (an angle within angleTolerance degrees of
// 0 or 180), skinny and small facets, shortest first; returns collapses made.
uint32_t LMeshRemoveSkinnyTriangles(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances, float angleTolerance);
// Removes facets whose largest angle exceeds capAngle, by an edge collapse or, failing
// that, by merging the three facets around the obtuse corner into one appended facet
// (normal left zero). Returns the facets dealt with.
uint32_t LMeshRemoveCapTriangles(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances);
// Collapses the shortest side of facets whose shape factor lies in [min, max] where no
// neighbouring facet turns by more than the angle limit (radians) and the moved end has
// no border edge. True if anything was collapsed.
bool LMeshRemoveFacetsByShapeFactorRange(L_LUMOMESH& mesh, float min, float max, float angle);

// ---- Connected edges and their classification ------------------------------------------

// Grows a chain from the seed: every edge reachable through neighbouring edges whose
// mean curvature differs from the seed's by strictly less than tolerance, appended
// breadth-first after what `edges` held (the walk also expands those entries). Sorted
// by LMeshSortEdges when asked. 0 done, -1 for an LM_NONE seed, -2 when a listed edge
// has no neighbours (the chain stays as far as it got).
short LMeshGetConnectedEdges(const L_LUMOMESH& mesh, uint32_t seed, float tolerance, BaseList<uint32_t>& edges,
                             bool sort, BaseList<uint32_t>* vertices);
// Reorders the list into a walk: first the first edge with an end no other listed edge
// touches (for a closed loop the first edge stays), then at each step the lowest
// remaining position continuing from the current vertex. Unreached edges follow in
// their own order; ids past the store touch nothing. The walk's vertices are appended
// to `vertices` if given (a loop of n edges gives n + 1, the last equal to the first).
void LMeshSortEdges(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges, BaseList<uint32_t>* vertices);
// Appends every chain of live edges whose mean curvature lies strictly within tolerance
// of value, or of free edges when value is -1 (within tolerance), cut into simple paths
// and sorted, with one vertex chain per edge chain (a path with no readable edge, and
// so fewer than two vertices, is dropped).
void LMeshGetConnectedEdgesBatch(L_LUMOMESH& mesh, float value, float tolerance,
                                 BaseList<BaseList<uint32_t>>& edgeChains,
                                 BaseList<BaseList<uint32_t>>& vertexChains);
// Joins open chains (as the batch delivers them) whose end vertices lie within tolerance
// of each other in every coordinate: each chain in turn grows at its end, then at its
// start, by the first open chain meeting there, reversed where needed; where the two
// end vertices differ, the growing chain's vertex stands for both, so a chain of n
// edges keeps n + 1 vertices. The lists are replaced by the joined chains, in order of
// their first chain. Cost: quadratic in the number of chains.
void LMeshConnectConnectedEdgesBatch(L_LUMOMESH mesh, BaseList<BaseList<uint32_t>>& edgeChains,
                                     BaseList<BaseList<uint32_t>>& vertexChains, float tolerance);

// Cuts a chain at corners (turns above 45 degrees) and where the turn angle departs by
// tolerances.turnAngle from the piece's first turn, and reduces each piece to a line,
// arc or circle where one follows it; other pieces go to remainingPaths. `edges` is
// sorted in place; a single edge becomes a line stored as elements[0]. With
// filterLongEdges, edges longer than the chain's typical length cut too;
// widenSimplification lets the reduction tolerance grow to 100 times
// coordinateTolerance. True if `elements` holds an element; false also when memory
// runs out (elements found until then stay).
bool LMeshClassifyConnectedEdgesToElements(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges,
                                           BaseList<L_ELEMENT>& elements,
                                           BaseList<BaseList<uint32_t>>& remainingPaths,
                                           const LM_TOLERANCES& tolerances, bool filterLongEdges,
                                           bool widenSimplification);
// Fits the sorted chain as one arc (open) or circle (closed) by iterated centre
// averaging. With withErrors, writes the mean running-vector deviations of the points
// and of the chord midpoints from the circle. False for no fit.
bool LMeshClassifyConnectedEdgesToCircleArc(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges,
                                            L_ELEMENT& element, bool withErrors, double* pointError,
                                            double* midpointError, bool requireCoplanar);
// Splits an edge set into simple paths, breaking at vertices of three or more edges;
// `paths` is emptied first. A set with no branch becomes one path, in its own order.
// True when any path was made (false for an empty set or when memory runs out).
bool LMeshClassifyConnectedEdgesToPaths(const L_LUMOMESH& mesh, const BaseList<uint32_t>& edges,
                                        BaseList<BaseList<uint32_t>>& paths);

// ---- Plane section ---------------------------------------------------------------------

// Cuts every facet record (dead ones too) by the plane, standing as a triangle 3.75
// times the stored box's largest extent about the box's middle (so refresh a stale
// box first). Appends one line per crossed facet in id order, dropping pieces no longer
// than 1000 times zefatoll.length, and the id of every crossed facet to `facets` (if
// not null), dropped pieces included. With chain non-zero, the lines are joined within
// tolerance and each chain reduced to lines and arcs within tolerance (the raw lines
// stay if joining fails). False when the list is empty after the cut, or for a zero normal.
bool LMeshPlaneSection(const L_LUMOMESH& mesh, const L_PLANE& plane, List<L_ELEMENT>& elements, short chain,
                       double tolerance, BaseList<uint32_t>* facets);

// ---- Hole filling ----------------------------------------------------------------------

// Closes the boundary loop through `edge` (found among edges whose mean curvature stays
// within angleTolerance of the edge's own) with tessellated facets of group 0, added to
// the mesh or, with `separate`, to *target; then welds the target within weldTolerance.
// Returns the facets added, or -1 (no loop through the edge, fewer than 3 corners, a
// null target with `separate`).
int32_t LMeshFillHole(L_LUMOMESH& mesh, uint32_t edge, float angleTolerance, float weldTolerance, bool separate,
                      L_LUMOMESH* target);
// Fills every chain of LMeshGetConnectedEdgesBatch(curvature, curvatureTolerance), so
// -1 with a small tolerance fills all boundary loops; keepLongest leaves the chain of
// most vertices open. Welds the target when anything was filled. Returns the loops
// filled, or -1 for a null target with `separate`.
int32_t LMeshFillHolesInBatch(L_LUMOMESH& mesh, float curvature, float curvatureTolerance, float weldTolerance,
                              bool keepLongest, bool separate, L_LUMOMESH* target);

// ---- Imprint and cut -------------------------------------------------------------------

// Splits every facet the plane crosses into triangles that end on it, then rebuilds the
// mesh from its facets (merging within 0.001), so the section runs along mesh edges.
// The plane is sized from the stored box, which must be fresh. The tolerance compares
// with the unnormalised plane function (33.75 L^2 per unit of length, L the stored
// box's largest extent); a corner up to that far below the plane counts as above it.
// Split facets' groups are not kept (replacements get group 0), and every entity is
// renumbered, even when nothing was split. The path is not read.
// 0, or -2 for a zero normal (mesh untouched) or no memory for the rebuild.
short LMeshImprintPlane(L_LUMOMESH& mesh, L_PLANE& plane, const wchar_t* path, float splitTolerance);
// Imprints the plane, leaving the imprinted mesh in `mesh`, and divides it: `first`
// keeps the facets strictly on the negative side, `second` those strictly on the
// positive side, towards which the plane's normal points (facets in the plane go to
// neither); each half's border edges are welded within edgeTolerance and its box
// recomputed. 0, or -2 as for the imprint, with both outputs untouched.
short LMeshCutByPlane(L_LUMOMESH& mesh, L_PLANE& plane, L_LUMOMESH& first, L_LUMOMESH& second, const wchar_t* path,
                      float edgeTolerance, float splitTolerance);

// ---- Patches and components ------------------------------------------------------------

// Whether a flood fill may cross from one facet to its neighbour.
typedef bool (*LM_FACET_FILTER)(const L_LUMOMESH& mesh, uint32_t fromFacet, uint32_t toFacet, const void* data);

// Floods from the seed across the sides of each facet (found corner pair by corner
// pair) to the facet across, among live facets only, where the filter (if any) allows
// the crossing; a refused neighbour can still be reached across another side. The list
// (if given) is cleared and receives the seed and then each facet as it is reached,
// breadth-first or, with depthFirst, from a stack. The seed is not tested for being
// live. True when the fill ran to its end; false for a seed past the store (list
// untouched) or when memory runs out (the facets reached so far stay).
bool LMeshFindNeighborFacets(const L_LUMOMESH& mesh, uint32_t seed, LM_FACET_FILTER filter, const void* data,
                             BaseList<uint32_t>* facets, bool depthFirst);
// The depth-first fill that crosses only where the stored normals of the two
// neighbours differ by strictly less than `limit` (radians), so a patch may curve away
// from the seed by small steps. The fill's result.
bool LMeshFindFacetsByAngularDeviation(const L_LUMOMESH& mesh, uint32_t seed, float limit,
                                       BaseList<uint32_t>* facets);
// True at the first live edge whose facet[1] is LM_NONE; an edge that kept only
// facet[1] does not count.
bool LMeshHasBoundaryEdges(const L_LUMOMESH& mesh);
// Appends (never clears) each live facet with a side that has LM_NONE in either facet
// link, once, in ascending id. True if a facet was appended.
bool LMeshFindBorderFacets(const L_LUMOMESH& mesh, BaseList<uint32_t>* facets);
// Replaces the table by tableSize entries, entry g listing the live facets of group g
// in ascending id (facets of a group past the table are left out). With the mesh's
// group count, one list per group.
void LMeshConstructFacetHashTable(const L_LUMOMESH& mesh, uint32_t tableSize, BaseList<BaseList<uint32_t>>& table);
// The border of a patch: the listed facets, else the group's entry of the table, else
// the live facets of the group. A side is on the border when it has a free link or the
// facet across belongs to another group than the patch's (the group given, or that of
// the first listed facet). The border edges, each once, are cut into paths that
// replace edgeChains; each path is sorted by LMeshSortEdges, its vertices appended to
// the same entry of vertexChains (pass it empty).
void LMeshGetBoundaryEdgesOfAPatch(const L_LUMOMESH& mesh, const uint32_t* groupId, const BaseList<uint32_t>* facets,
                                   BaseList<BaseList<uint32_t>>& edgeChains,
                                   BaseList<BaseList<uint32_t>>& vertexChains,
                                   const BaseList<BaseList<uint32_t>>* table);
// Appends each live facet of the group's table entry once for every neighbour across
// its sides whose group differs from its own, so a corner facet may stand twice.
void LMeshGetBoundaryFacetsOfAPatch(const L_LUMOMESH& mesh, uint32_t groupId, BaseList<uint32_t>& facets,
                                    const BaseList<BaseList<uint32_t>>& table);
// Appends one mesh per component (facets joined across live edges), in ascending order
// of their lowest live facet. Each keeps the input's slot layout: the input with the
// earlier components and then all other facets removed by LMeshDeleteFacets, not
// compacted; a mesh of one component yields a plain copy. False, adding nothing, when
// the header's facet count is 0 or no facet slot is live. Every component costs a
// copy of the whole stores.
bool LMeshSplitIntoConnectedMeshes(const L_LUMOMESH& mesh, BaseList<L_LUMOMESH>& meshes);

// ---- Intersections and overlaps ----------------------------------------------------------

// Pairs of facets (f, g) that cross each other: they meet in a segment longer than
// minimumLength whose midpoint lies in f or in g, share no edge (ends near within
// tolerance per coordinate) and are not coplanar. Each such g is appended to `found`
// (not cleared; a facet of a pair not deleted is listed from both sides), and with
// deleteFound taken out of later tests and deleted at the end. Candidates: the listed
// facets against each other, or each facet's neighbours in adaptive boxes of 500.
// Returns the facets deleted.
uint32_t LMeshDeleteIntersections(L_LUMOMESH& mesh, float minimumLength, float tolerance,
                                  const BaseList<uint32_t>* facets, BaseList<uint32_t>* found, bool deleteFound);
// The same search for coplanar pairs whose edges properly cross (crossing parameters
// inside (tolerance, 1 - tolerance)); with a facet list also a g one of whose corners,
// dropped along g's normal onto f's plane, lands in f. Always ends with
// LMeshDeleteFacets (an empty list when nothing is deleted), refreshing counts.
uint32_t LMeshDeletePartialOverlaps(L_LUMOMESH& mesh, float tolerance, const BaseList<uint32_t>* facets,
                                   BaseList<uint32_t>* found, bool deleteFound);

// ---- Offset ------------------------------------------------------------------------------

// Moves each candidate vertex (ids below vertexCount, or the corners of the listed live
// facets) by offsetDistance along the mean of the directions of the planes around it:
// the bisectors of edges whose facets meet within rightAngleTolerance degrees of 90,
// or else the facet normals, one per run of parallel neighbours. The move is
// lengthened by 1 / cos(mean, first direction), at most up to maxStretchPercent.
// Topology is unchanged; normals are recomputed, the stored box is not. Always 0.
short LMeshOffset(L_LUMOMESH& mesh, float offsetDistance, float rightAngleTolerance, float maxStretchPercent,
                  const BaseList<uint32_t>* facets);

// ---- Wall thickness ------------------------------------------------------------------------

// The caller's settings of the full thickness analysis, fields in their documented order.
struct LM_THICKNESS_PARAMS {
    L_LUMOMESH mesh;                // second mesh: with facets, balls stop on it as well
    BaseList<float> rayThickness;   // out: the ray measure, per facet visited
    double minDistance = 0.0;       // corners must rise above a facet's plane by more than this
    double percentage = -1.0;       // share of results verified by ray parity; -1 none
    float maxEdgeLength = -1.0f;    // longest edge of the mesh, for a quick reject; -1 unknown
    uint8_t useRay = 0;             // also take the ray measure
    wchar_t progressFile[512] = {}; // empty: no progress file
    float minThickness = 0.0f;      // lower clamp, stored divided by 1000
    float maxThickness = 1e30f;     // upper clamp, stored divided by 1000 (default: none)
    double angle = 90.0;            // degrees: a pair closer than this in direction does not face
    double smoothAngle = 30.0;      // degrees: smoothing and gap-fill angle limit
    uint8_t applyFilter = 0;
    uint8_t applyGapFill = 0;
    uint8_t applyHistogram = 0;     // inside the filter stages, drop rare small patches first
};

// Inscribed-ball thickness of the listed facets of a closed mesh. Works on a private
// copy welded within 0.001 and turned to face inward; the mesh is not touched. Writes
// position i of each output for the facet listed at i: the radius of the largest ball
// touching the facet's centroid from inside (half the wall thickness; -1 when none
// within 0.51 of the box's smallest extent), the facet that stops it (LM_NONE when
// none was ever found), and the distance from the centroid to where the ball touches
// it (0 with no ball). Returns how many cubes of the smallest extent fill the box
// (the product of the per-axis counts), a size figure rather than a status.
int LMeshComputeThickness(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, BaseList<float>& radius,
                          BaseList<uint32_t>& opposite, BaseList<float>& contactDistance, double minDistance);
// The full analysis with the settings of params: a second mesh to stop on, the ray
// measure, parity verification, a progress file, and the filter stages (histogram
// cleaning, angle filter and clamps, smoothing, gap fill). The copy is welded within
// 1e-5. With no facet list the outputs are replaced by one entry per facet slot;
// with one, they are written by list position. boxes (if given) receives the copy's
// box set. Always 1.
int LMeshComputeThickness(const L_LUMOMESH& mesh, BaseList<float>& radius, BaseList<uint32_t>& opposite,
                          BaseList<float>& contactDistance, LM_THICKNESS_PARAMS& params, BaseList<uint32_t>* facets,
                          BaseList<LM_BOX>* boxes);

// ---- Cleanup after offset --------------------------------------------------------------------

// Cuts away what an offset made pass through itself. Walks breadth first from each live
// seed over neighbours by vertices; a neighbour that crosses another facet (adaptive
// boxes of 500) is replaced by triangles over its part on the outer side of the facets
// it crosses, with their crossing segments as its new border, and is not walked
// through; a seed itself is walked, never cut. Then the mesh goes through the binary
// STL file "_templmeshoffsetcleanup28092009_.stl" appended directly to `folder` (end it
// with a separator to name a directory), loaded back merged within 0.001, and is welded,
// oriented outward and cleared of repeated facets. Normals are recomputed and facets
// oriented first, even with no seeds. 0 done; -1 when the file cannot be written or
// read back (the cut pieces then stay in the mesh unwelded) or `folder` is null
// (nothing done). The file is removed in every case.
short LMeshCleanUpAfterOffset(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, const wchar_t* folder);
// Positions between two states of one mesh (same vertex ids), for showing an offset
// step by step. Start records the corners of the listed facets of `first` with their
// way to `second`; 1 on success, 0 if memory runs out. Get moves those vertices of
// `mesh` to step / steps of the way (float division); 0, with nothing moved, when no
// state is held or `mesh` has another facet count than `first` had. End releases the
// state. Process-wide state: one caller at a time.
short LMeshStartIntermediateMesh(const L_LUMOMESH& first, const L_LUMOMESH& second, const BaseList<uint32_t>& facets);
short LMeshGetIntermediateMesh(int step, int steps, L_LUMOMESH& mesh);
void LMeshEndIntermediateMesh();

// ---- Extension past the free boundary ------------------------------------------------------

// One free edge of a chain and the quadrilateral that grows from it. Copies share
// cornerPoints (the pointer is copied as it stands); nearFacets is copied deeply.
struct LM_EXTENDEDGE {
    float startPoint[3] = {};
    float endPoint[3] = {};
    float direction[3] = {};           // unit direction of extension
    float firstExtendedStart[3] = {};  // extendedStart as first computed
    float firstExtendedEnd[3] = {};
    float extendedStart[3] = {};       // outer point of startPoint; the cleanups move it
    float extendedEnd[3] = {};
    float extensionNormal[3] = {};     // unit normal of the new quadrilateral
    int32_t facet = -1;                // the mesh's facet on the edge, or -1
    L_BOUNDSf bounds = {};
    BaseList<uint32_t> nearFacets;     // facets whose boxes come near the edge
    int32_t cornerPointCount = 0;
    float (*cornerPoints)[3] = nullptr;  // fan filling the corner to the next record
};

// Appends one record per free edge of the chain (vertices: one more than edges), merging
// an edge shorter than 0.015 into a long record before it that runs the same way and
// skipping edges shorter than 0.0001; then lists each record's near facets.
void LMeshCreateExtensionStructureBeforeExtend(L_LUMOMESH& mesh, float extensionDistance, BaseList<uint32_t> edges,
                                               BaseList<uint32_t> vertices, BaseList<LM_EXTENDEDGE>& extendedEdges);
// Gives each record its direction and extended points (a record with no direction
// found stays as it was). Stops before a record when *cancel is 1. Always 0.
int LMeshExtendFreeEdgeFacets(L_LUMOMESH& mesh, float extensionDistance, BaseList<LM_EXTENDEDGE>& extendedEdges,
                              const int* cancel);
// Adds two triangles per record and the corner fans to `result`, then orients it.
// 0, or -1 for an empty list.
int LMeshCreateMeshUsingExtendedEdges(BaseList<LM_EXTENDEDGE> extendedEdges, L_LUMOMESH& result);

// The cleanups repair a chain of records in place, before any triangle exists, so that
// neighbouring quadrilaterals neither leave gaps nor overlap at corners. Each returns
// whether a record changed. The list owns the corner points they allocate: release them
// once with LMeshFreeExtensionCornerPoints (copies of a list share them).
//
// Snaps outer points less than gapTolerance apart, gives records with no direction the
// outer points of their neighbours, and joins the outer lines of gently turning corners
// at their meeting point.
bool LMeshSimpleCleanupAfterExtension(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                      float gapTolerance);
// Gives each open corner that is not an overlap a fan of corner points at the extension
// distance around the corner, about one per 15 degrees of the turn.
bool LMeshFillGapsAfterExtension(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                 float gapTolerance);
// Trims overlapping corners: where the outer lines on either side of a corner cross,
// possibly several records away, they are cut at the crossing and the records between
// are drawn to it. Stops before a corner when *cancel is 1.
bool LMeshComplexCleanupAfterExtension(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                       const int* cancel, float gapTolerance);
// For callers with an outline to stay within: the outer points are pulled back to the
// first outline (and then the second, if not empty) wherever the way out from the edge
// crosses it, in the plane that `transform` (4x4, row vectors, model to outline
// coordinates; null for none) takes to z = 0. Outlines are polylines of x, y, z floats.
// Then open corners get fans, overlapping ones are trimmed, and the strip is added to
// `result`. `edges` receives the indices of the records pulled back, `first` and `second`
// how many each outline pulled back. Points within tolerance of an outline count as on
// it. False (and nothing done) for an empty first outline.
bool LMeshCleanupAfterExtensionUsingSilhouette(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                               L_LUMOMESH& result, BaseList<BaseList<float>>& silhouette,
                                               double (*transform)[4], BaseList<BaseList<float>>& secondSilhouette,
                                               BaseList<uint32_t>& edges, int& first, int& second, float tolerance);
// Releases the corner points of the list's records, each block once, and clears them.
void LMeshFreeExtensionCornerPoints(BaseList<LM_EXTENDEDGE>& extendedEdges);

// Extends every chain of free edges (only the one of most vertices with
// longestChainOnly): the strip of chain i is added to results[i], after the cleanups
// when asked. The mesh is not changed. Always 0.
int LMeshExtendMesh(L_LUMOMESH& mesh, float extensionDistance, BaseList<L_LUMOMESH>& results, bool longestChainOnly,
                    bool cleanup);
// Extends one chain of free edges (vertices: one more than edges) into `result`, with
// every cleanup. Always 0.
int LMeshExtendBoundary(L_LUMOMESH& mesh, float extensionDistance, const BaseList<uint32_t>& edges,
                        const BaseList<uint32_t>& vertices, L_LUMOMESH& result);

// ---- Vertex reorganisation ------------------------------------------------------------------

// Moves each vertex with a closed fan, in slot order, to the centroid of its neighbours,
// and puts it back if some neighbour's curvature changes by tolerance or more. Facet
// normals and the box are not refreshed.
void LMeshReorganizeVertices(L_LUMOMESH& mesh, float tolerance);

// ---- Splitting facets and merging meshes ----------------------------------------------------

// Splits the facet on the edge (facet[0], else facet[1]) in two at the point, then welds
// around the new facets within tolerance. 1 done, 0 refused, -1 for an edge id past the store.
short LMeshSplitTriangleByPointOnEdge(L_LUMOMESH& mesh, const float* point, uint32_t edge, float tolerance);
// Appends every slot of source (dead ones too) after destination's, shifting ids and the
// groups other than 0; welds border edges within tolerance when optimise is set. True.
bool LMeshMerge(const L_LUMOMESH& source, L_LUMOMESH& destination, float tolerance, bool optimise);
// Adds a copy of each listed facet to destination (the source itself when null),
// rewriting the list to the copies' ids (LM_NONE for an id or corner past its store),
// then welds border edges within tolerance.
void LMeshCopyFacets(L_LUMOMESH& source, BaseList<uint32_t>& facets, float tolerance, L_LUMOMESH* destination);

// ---- Subdivision and FEM remeshing ----------------------------------------------------------

// Cuts the listed facets (all when null) into four at their edge midpoints, welds, deletes
// the old facets and orients. newFacets counts 4 per split. 0.
short LMeshRemesh1to4Subdivision(L_LUMOMESH& mesh, float tolerance, uint32_t& newFacets,
                                 const BaseList<uint32_t>* facets);
// Cuts facets larger than the smallest into three at their centroids (again while a piece
// exceeds the smallest by reorganizeDistance, with repeat). The pieces wind the other
// way. 0, or -1 for a facet whose edges do not match its corners (splits made stay).
short LMeshRemeshCentroidSubdivision(L_LUMOMESH& mesh, bool repeat, uint32_t& newFacets,
                                     const LM_TOLERANCES& tolerances);
// Slices the mesh by slicesY, slicesX and slicesZ axis planes over its stored box, then
// rebuilds and cleans it for finite-element use. The path is not read. 0.
short LMeshRemeshFEMAnalysis(L_LUMOMESH& mesh, const LM_TOLERANCES& tolerances, const wchar_t* path);

// ---- Non-manifold repair ----------------------------------------------------------------------

// Deletes facets with no neighbour and facets with a border edge that two or more edges
// of other facets lie on (ends nearer than tolerance per axis). Returns the facets deleted.
uint32_t LMeshDeleteNonManifoldFacets(L_LUMOMESH& mesh, float tolerance);
// Splits each facet whose border edge passes within distance of a vertex that is not its
// corner (T-junctions), among the listed facets or the whole mesh, then deletes zero-area
// facets and welds border edges within endTolerance. Returns the facets split.
uint32_t LMeshRepairVertexEdgeDisjoints(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets, float distance,
                                        float endTolerance, float area);

// ---- Cleanup driver ---------------------------------------------------------------------------

// Removes flaps: facets with two free sides that hang by their third side from a facet
// of the surface (one with another inner side), folded back against it: seen along
// that side, the two apexes lie within 30 degrees of each other (with consistent
// winding, normals more than 150 degrees apart), whichever way either is wound. Judged
// on the mesh at entry; deletes through LMeshDeleteFacets. Returns the facets deleted.
uint32_t LMeshRemoveOverhangs(L_LUMOMESH& mesh);
// Runs the repairs in a fixed order, each behind its flag: weld, zero-area facets, equal
// facets and partial overlaps, non-manifold facets, weld again, overhangs, skinny facets,
// T-junctions, holes, orientation. results[0..6]: equal and overlapping facets,
// non-manifold facets, zero-area facets, skinny edges collapsed, holes filled (or -1),
// facets split at T-junctions, 1 if the orientation touched a facet. Steps switched off
// give 0; a null results pointer runs the steps all the same.
void LMeshCleanup(L_LUMOMESH& mesh, float tolerance, uint32_t* results, bool removeEqual, bool removeNonManifold,
                  bool removeZeroArea, float areaTolerance, bool removeSkinny, float aspectRatioLimit, bool fillHoles,
                  bool repairDisjoints, float disjointTolerance, bool orient, bool removeOverhangs);
