// Extended-edge records: one per free edge of a boundary chain, given a direction and
// outer points, and turned into the triangles of a strip that continues the surface.
#include "LMeshExtension.h"
#include "LMeshPlane.h"
#include "LMeshRead.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr float kNoLength = 0.0001f;     // edges shorter than this make no record
constexpr float kTinyEdge = 0.015f;      // edges shorter than this may join the record before
constexpr float kLongRecord = 1.0f;      // ... if that record is longer than this
constexpr float kNearMargin = 0.1f;      // how far outside the reach a facet box may lie
constexpr float kClosedChainGap = 0.001f;

float Distance(const float a[3], const float b[3])
{
    const float dx = b[0] - a[0], dy = b[1] - a[1], dz = b[2] - a[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

void Copy(const float from[3], float to[3])
{
    for (int k = 0; k < 3; ++k) to[k] = from[k];
}

// The unit vector from a to b (zero when they coincide).
void UnitBetween(const float a[3], const float b[3], float out[3])
{
    for (int k = 0; k < 3; ++k) out[k] = b[k] - a[k];
    NormalizeVector(out);
}

L_BOUNDSf BoundsOf(std::initializer_list<const float*> points)
{
    L_BOUNDSf bounds;
    for (int k = 0; k < 3; ++k) {
        bounds.min[k] = INFINITY;
        bounds.max[k] = -INFINITY;
    }
    for (const float* p : points)
        for (int k = 0; k < 3; ++k) {
            bounds.min[k] = std::min(bounds.min[k], p[k]);
            bounds.max[k] = std::max(bounds.max[k], p[k]);
        }
    return bounds;
}

// A tiny edge from `start` to `end` continues the record before it when that record is
// long and runs the same way (both taken from end to start).
bool ContinuesRecord(const LM_EXTENDEDGE& record, const float start[3], const float end[3])
{
    if (!(Distance(record.startPoint, record.endPoint) > kLongRecord)) return false;
    float before[3], here[3];
    UnitBetween(record.endPoint, record.startPoint, before);
    UnitBetween(end, start, here);
    return before[0] * here[0] + before[1] * here[1] + before[2] * here[2] > 0.0f;
}

// The facet on the edge: the first link that is a facet id, else -1.
int32_t EdgeFacet(const LM_EDGE& edge)
{
    const int32_t first = int32_t(edge.facet[0]), second = int32_t(edge.facet[1]);
    return first >= 0 ? first : second >= 0 ? second : -1;
}

// The box of every live facet, by id; dead slots and unreadable corners get none.
std::vector<L_BOUNDSf> FacetBoxes(const L_LUMOMESH& mesh)
{
    std::vector<L_BOUNDSf> boxes(mesh.facets.count, BoundsOf({}));
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        const LM_FACET& facet = *mesh.facets.Peek(f);
        float p[3][3];
        if (!(facet.flags & LM_LIVE) || !ReadPosition(mesh, facet.vertex[0], p[0]) ||
            !ReadPosition(mesh, facet.vertex[1], p[1]) || !ReadPosition(mesh, facet.vertex[2], p[2]))
            continue;
        boxes[f] = BoundsOf({p[0], p[1], p[2]});
    }
    return boxes;
}

// A facet box is near unless it lies beyond the reach by more than the margin on an axis.
bool Near(const L_BOUNDSf& reach, const L_BOUNDSf& box)
{
    for (int k = 0; k < 3; ++k)
        if (!(reach.max[k] - box.min[k] >= -kNearMargin && box.max[k] - reach.min[k] >= -kNearMargin)) return false;
    return true;
}

void ListNearFacets(const std::vector<L_BOUNDSf>& boxes, float extensionDistance, LM_EXTENDEDGE& record)
{
    L_BOUNDSf reach = BoundsOf({record.startPoint, record.endPoint});
    for (int k = 0; k < 3; ++k) {
        reach.min[k] -= 2.0f * extensionDistance;
        reach.max[k] += 2.0f * extensionDistance;
    }
    for (uint32_t f = 0; f < boxes.size(); ++f)
        if (Near(reach, boxes[f])) AppendTo(record.nearFacets, f);
}

// The unit normal of the quadrilateral: edge direction across the way to the far end.
void ComputeExtensionNormal(LM_EXTENDEDGE record, float normal[3])
{
    float a[3], b[3];
    UnitBetween(record.startPoint, record.endPoint, a);
    UnitBetween(record.startPoint, record.extendedEnd, b);
    normal[0] = a[1] * b[2] - a[2] * b[1];
    normal[1] = a[2] * b[0] - a[0] * b[2];
    normal[2] = a[0] * b[1] - a[1] * b[0];
    NormalizeVector(normal);
}

void Offset(const float point[3], float distance, const float direction[3], float out[3])
{
    for (int k = 0; k < 3; ++k) out[k] = point[k] + distance * direction[k];
}

// Gives the record its direction and outer points; false when none is found.
bool Extend(L_LUMOMESH& mesh, float extensionDistance, const WholeMeshCut& cut, LM_EXTENDEDGE& record)
{
    LM_EXTENDEDGE copy = record;
    L_VECTOR direction, second;
    bool hasSecond = false;
    if (!FindExtensionDirection(mesh, copy, direction, hasSecond, second, cut)) return false;
    record.direction[0] = float(direction.x);
    record.direction[1] = float(direction.y);
    record.direction[2] = float(direction.z);
    Offset(record.startPoint, extensionDistance, record.direction, record.extendedStart);
    Offset(record.endPoint, extensionDistance, record.direction, record.extendedEnd);
    record.cornerPoints = nullptr;
    record.cornerPointCount = 0;  // no fan without its points
    ComputeExtensionNormal(record, record.extensionNormal);
    Copy(record.extendedStart, record.firstExtendedStart);
    Copy(record.extendedEnd, record.firstExtendedEnd);
    record.bounds = BoundsOf({record.startPoint, record.endPoint, record.extendedStart, record.extendedEnd});
    return true;
}

void AddTriangle(L_LUMOMESH& result, const float* a, const float* b, const float* c)
{
    LMeshAddTriangle(result, a, b, c, 0);
}

// The fan closing the corner between a record's outer end and the next one's outer
// start, around the next record's start.
void AddCornerFan(L_LUMOMESH& result, const LM_EXTENDEDGE& record, const LM_EXTENDEDGE& next)
{
    if (record.cornerPointCount <= 0 || !record.cornerPoints) return;
    const float* apex = next.startPoint;
    const float (*points)[3] = record.cornerPoints;
    const int last = record.cornerPointCount - 1;
    AddTriangle(result, apex, record.extendedEnd, points[0]);
    for (int k = 0; k < last; ++k) AddTriangle(result, apex, points[k], points[k + 1]);
    AddTriangle(result, apex, points[last], next.extendedStart);
}

// The records of one chain, each with its facets near the edge among `boxes`.
void CreateRecords(L_LUMOMESH& mesh, float extensionDistance, const BaseList<uint32_t>& edges,
                   const BaseList<uint32_t>& vertices, const std::vector<L_BOUNDSf>& boxes,
                   BaseList<LM_EXTENDEDGE>& extendedEdges)
{
    const uint32_t firstNew = extendedEdges.count;
    for (uint32_t i = 0; i < edges.count && i + 1 < vertices.count; ++i) {
        const LM_EDGE* edge = mesh.edges.Peek(*edges.Peek(i));
        float start[3], end[3];
        if (!edge || !ReadPosition(mesh, *vertices.Peek(i), start) || !ReadPosition(mesh, *vertices.Peek(i + 1), end))
            continue;  // an id past its store makes no record
        const float length = Distance(start, end);
        if (length < kNoLength) continue;
        if (length < kTinyEdge && extendedEdges.count > 0) {
            LM_EXTENDEDGE& last = *extendedEdges.At(extendedEdges.count - 1);
            if (ContinuesRecord(last, start, end)) {
                Copy(end, last.endPoint);
                continue;
            }
        }
        LM_EXTENDEDGE* record = extendedEdges.At(extendedEdges.count);
        if (!record) return;  // out of memory: the chain stops here
        Copy(start, record->startPoint);
        Copy(end, record->endPoint);
        record->facet = EdgeFacet(*edge);
        record->bounds = BoundsOf({start, end});
    }
    for (uint32_t r = firstNew; r < extendedEdges.count; ++r) ListNearFacets(boxes, extensionDistance, *extendedEdges.At(r));
}

}  // namespace

void LMeshCreateExtensionStructureBeforeExtend(L_LUMOMESH& mesh, float extensionDistance, BaseList<uint32_t> edges,
                                               BaseList<uint32_t> vertices, BaseList<LM_EXTENDEDGE>& extendedEdges)
{
    CreateRecords(mesh, extensionDistance, edges, vertices, FacetBoxes(mesh), extendedEdges);
}

namespace {

// The records' directions and outer points. nearRadius is how far around its edge each
// record's near facets are known to be complete (0 when they may not be).
void ExtendRecords(L_LUMOMESH& mesh, float extensionDistance, BaseList<LM_EXTENDEDGE>& extendedEdges,
                   const int* cancel, const WholeMeshCut& cut)
{
    for (uint32_t i = 0; i < extendedEdges.count; ++i) {
        if (cancel && *cancel == 1) break;
        LM_EXTENDEDGE& record = *extendedEdges.At(i);
        const float length = Distance(record.startPoint, record.endPoint);
        if (length < kNoLength) continue;
        if (length < kTinyEdge && i > 0) {
            LM_EXTENDEDGE& before = *extendedEdges.At(i - 1);
            if (ContinuesRecord(before, record.startPoint, record.endPoint)) {
                Copy(record.endPoint, before.endPoint);
                Offset(record.endPoint, extensionDistance, before.direction, before.extendedEnd);
                Copy(before.extendedEnd, before.firstExtendedEnd);
                continue;  // this record keeps no direction of its own
            }
        }
        Extend(mesh, extensionDistance, cut, record);
    }
}

}  // namespace

int LMeshExtendFreeEdgeFacets(L_LUMOMESH& mesh, float extensionDistance, BaseList<LM_EXTENDEDGE>& extendedEdges,
                              const int* cancel)
{
    // The records may come from anywhere: their near facets are not relied on.
    const FacetBlockSection blocks(mesh);
    ExtendRecords(mesh, extensionDistance, extendedEdges, cancel, WholeMeshCut{&blocks, 0.0});
    return 0;
}

int LMeshCreateMeshUsingExtendedEdges(BaseList<LM_EXTENDEDGE> extendedEdges, L_LUMOMESH& result)
{
    if (extendedEdges.count == 0) return -1;
    const uint32_t count = extendedEdges.count;
    const bool closed =
        Distance(extendedEdges.Peek(0)->startPoint, extendedEdges.Peek(count - 1)->endPoint) < kClosedChainGap;
    for (uint32_t i = 0; i < count; ++i) {
        const LM_EXTENDEDGE& record = *extendedEdges.Peek(i);
        AddTriangle(result, record.startPoint, record.endPoint, record.extendedEnd);
        AddTriangle(result, record.startPoint, record.extendedEnd, record.extendedStart);
        if (i + 1 < count) {
            AddCornerFan(result, record, *extendedEdges.Peek(i + 1));
        } else if (closed) {
            AddCornerFan(result, record, *extendedEdges.Peek(0));
        }
    }
    LMeshOrientFacets(result, 1e-5f, 1);
    return 0;
}

namespace {

constexpr float kCleanupGap = 0.1f;  // the gap tolerance the drivers give the cleanups

// What every chain of a mesh reads: the facets' boxes and one whole-mesh cutter. Built
// once, so that many chains do not cost chains times facets.
struct MeshReach {
    explicit MeshReach(L_LUMOMESH& mesh) : boxes(FacetBoxes(mesh)), blocks(mesh) {}
    const std::vector<L_BOUNDSf> boxes;
    const FacetBlockSection blocks;
};

// Records for one chain, given their directions and outer points, then cleaned up.
void ExtendChain(L_LUMOMESH& mesh, float extensionDistance, const BaseList<uint32_t>& edges,
                 const BaseList<uint32_t>& vertices, bool cleanup, const MeshReach& reach,
                 BaseList<LM_EXTENDEDGE>& records)
{
    CreateRecords(mesh, extensionDistance, edges, vertices, reach.boxes, records);
    // Near facets reach twice the distance around each edge (a hair less, for rounding).
    const WholeMeshCut cut{&reach.blocks, 2.0 * extensionDistance * (1.0 - 1e-5)};
    ExtendRecords(mesh, extensionDistance, records, nullptr, cut);
    if (!cleanup) return;
    LMeshSimpleCleanupAfterExtension(records, extensionDistance, kCleanupGap);
    LMeshFillGapsAfterExtension(records, extensionDistance, kCleanupGap);
    LMeshComplexCleanupAfterExtension(records, extensionDistance, nullptr, kCleanupGap);
    RelieveExtensionKinks(records);
}

// The chain of most vertices; of equals the first.
uint32_t LongestChain(const BaseList<BaseList<uint32_t>>& vertexChains)
{
    uint32_t longest = 0;
    for (uint32_t i = 1; i < vertexChains.count; ++i)
        if (vertexChains.Peek(i)->count > vertexChains.Peek(longest)->count) longest = i;
    return longest;
}

}  // namespace

int LMeshExtendMesh(L_LUMOMESH& mesh, float extensionDistance, BaseList<L_LUMOMESH>& results, bool longestChainOnly,
                    bool cleanup)
{
    BaseList<BaseList<uint32_t>> edgeChains, vertexChains;
    LMeshGetConnectedEdgesBatch(mesh, -1.0f, 1e-6f, edgeChains, vertexChains);
    const uint32_t chains = std::min(edgeChains.count, vertexChains.count);
    const uint32_t first = longestChainOnly && chains > 1 ? LongestChain(vertexChains) : 0;
    const uint32_t end = longestChainOnly && chains > 1 ? first + 1 : chains;
    if (first >= end) return 0;
    const MeshReach reach(mesh);
    for (uint32_t c = first; c < end; ++c) {
        L_LUMOMESH* result = results.At(c - first);
        if (!result) break;  // out of memory: the strips made so far stay
        BaseList<LM_EXTENDEDGE> records(16, 4096);
        ExtendChain(mesh, extensionDistance, *edgeChains.Peek(c), *vertexChains.Peek(c), cleanup, reach, records);
        LMeshCreateMeshUsingExtendedEdges(records, *result);
        LMeshFreeExtensionCornerPoints(records);
    }
    return 0;
}

int LMeshExtendBoundary(L_LUMOMESH& mesh, float extensionDistance, const BaseList<uint32_t>& edges,
                        const BaseList<uint32_t>& vertices, L_LUMOMESH& result)
{
    BaseList<LM_EXTENDEDGE> records(16, 4096);
    ExtendChain(mesh, extensionDistance, edges, vertices, true, MeshReach(mesh), records);
    LMeshCreateMeshUsingExtendedEdges(records, result);
    LMeshFreeExtensionCornerPoints(records);
    return 0;
}
