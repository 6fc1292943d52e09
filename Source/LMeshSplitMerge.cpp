// Splitting facets and merging meshes: a point inserted on an edge splits the facet on
// that side in two, a mesh is appended to another slot for slot, and facets are copied
// as loose triangles. None of them joins the new pieces to their neighbours itself:
// the edge welder, LMeshOptimizeEdges, does that afterwards.
//
// The two facets of a split get their sides in the library's pairing, edge[k] joining
// corner k and corner k + 1, so that every later walk and edit can rely on it.
#include "LMeshEdit.h"
#include "LMeshRead.h"
#include "LMeshSplit.h"

namespace {

bool IsLive(uint8_t flags) { return (flags & LM_LIVE) != 0; }

// Clears the live bit; an id past the store (LM_NONE among them) is passed over.
template <class Record>
void Kill(BaseList<Record>& store, uint32_t id)
{
    if (id < store.count) store.At(id)->flags &= uint8_t(~LM_LIVE);
}

bool HasEnd(const LM_EDGE& edge, uint32_t v) { return edge.vertex[0] == v || edge.vertex[1] == v; }

// The end of `a` that `b` also has, vertex[0] first; LM_NONE when they share none.
uint32_t CommonEnd(const LM_EDGE& a, const LM_EDGE& b)
{
    if (HasEnd(b, a.vertex[0])) return a.vertex[0];
    if (HasEnd(b, a.vertex[1])) return a.vertex[1];
    return LM_NONE;
}

// The facet's two sides other than `edge`, in slot order; false unless exactly two
// slots hold another edge.
bool OtherSides(const LM_FACET& facet, uint32_t edge, uint32_t sides[2])
{
    uint32_t found = 0;
    for (int k = 0; k < 3; ++k) {
        if (facet.edge[k] == edge) continue;
        if (found == 2) return false;
        sides[found++] = facet.edge[k];
    }
    return found == 2;
}

void ReplaceFacetLink(LM_EDGE& edge, uint32_t from, uint32_t to)
{
    for (int k = 0; k < 2; ++k)
        if (edge.facet[k] == from) edge.facet[k] = to;
}

// A facet record at the end of the store, still dead; LM_NONE when memory runs out.
uint32_t ReserveFacet(L_LUMOMESH& mesh)
{
    const uint32_t id = mesh.facets.count;
    return mesh.facets.At(id) ? id : LM_NONE;
}

// Makes the reserved facet live on three existing corners, with its sides in pairing order.
void WriteFacet(L_LUMOMESH& mesh, uint32_t id, const uint32_t corners[3], const uint32_t sides[3])
{
    float p[3][3] = {};
    for (int k = 0; k < 3; ++k) ReadPosition(mesh, corners[k], p[k]);
    float normal[3];
    ComputeFacetNormal(p[0], p[1], p[2], normal);
    LM_FACET& facet = *mesh.facets.At(id);
    for (int k = 0; k < 3; ++k) {
        facet.vertex[k] = corners[k];
        facet.edge[k] = sides[k];
        facet.normal[k] = normal[k];
    }
    facet.groupId = 0;
    facet.flags |= LM_LIVE;
}

// The half (E1 tried first) that shares an end with `side`, and that end.
bool MatchHalf(const L_LUMOMESH& mesh, uint32_t side, const uint32_t halves[2], uint32_t& half, uint32_t& corner)
{
    const LM_EDGE& sideRecord = *mesh.edges.Peek(side);
    for (int h = 0; h < 2; ++h) {
        corner = CommonEnd(*mesh.edges.Peek(halves[h]), sideRecord);
        if (corner != LM_NONE) {
            half = halves[h];
            return true;
        }
    }
    return false;
}

bool VerticesExist(const L_LUMOMESH& mesh, const uint32_t* ids, int n)
{
    for (int k = 0; k < n; ++k)
        if (ids[k] >= mesh.vertices.count) return false;
    return true;
}

// The split side, once the facet is gone: a border side dies, an inner side keeps its
// other facet and is joined up again by the closing weld.
void RetireSplitSide(L_LUMOMESH& mesh, uint32_t edge, uint32_t facet)
{
    LM_EDGE& side = *mesh.edges.At(edge);
    mesh.edgeSlots += 3;
    mesh.edgeCount += 2;
    if (side.facet[0] != LM_NONE && side.facet[1] != LM_NONE) {
        ReplaceFacetLink(side, facet, LM_NONE);  // in place: facet[1] is not moved down
        ++mesh.edgeCount;
    } else {
        side.flags &= uint8_t(~LM_LIVE);
    }
}

uint32_t AppendUncountedVertex(L_LUMOMESH& mesh, const float* point)
{
    const uint32_t id = mesh.vertices.count;
    LM_VERTEX* vertex = mesh.vertices.At(id);
    if (!vertex) return LM_NONE;
    for (int k = 0; k < 3; ++k) vertex->position[k] = point[k];
    vertex->edge = LM_NONE;  // linked by the split once it succeeds
    vertex->flags |= LM_LIVE;
    return id;
}

// Where a merged mesh's slots and groups start in the destination.
struct MergeOffsets {
    uint32_t vertex, edge, facet, group;
};

uint32_t ShiftUnlessNone(uint32_t id, uint32_t offset) { return id == LM_NONE ? id : id + offset; }

void WidenBoxBy(L_LUMOMESH& mesh, const float* p)
{
    for (int k = 0; k < 3; ++k) {
        if (p[k] < mesh.bboxMin[k]) mesh.bboxMin[k] = p[k];
        if (p[k] > mesh.bboxMax[k]) mesh.bboxMax[k] = p[k];
    }
}

// Copies the first `count` slots of one store to `at` onwards in another, each record
// adjusted by `shift`, and advances the destination's slot and live counts.
template <class Record, class Shift>
void AppendShifted(const BaseList<Record>& from, uint32_t count, BaseList<Record>& to, uint32_t at, uint32_t& slots,
                   uint32_t& live, Shift shift)
{
    for (uint32_t i = 0; i < count; ++i) {
        const Record record = *from.Peek(i);
        Record* copy = to.At(at + i);
        if (!copy) return;  // out of memory: the merge stops short
        *copy = record;
        shift(*copy);
        ++slots;
        if (IsLive(record.flags)) ++live;
    }
}

bool ReadCorners(const L_LUMOMESH& mesh, uint32_t facet, float corners[3][3])
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    for (int k = 0; k < 3; ++k)
        if (!ReadPosition(mesh, record->vertex[k], corners[k])) return false;
    return true;
}

}  // namespace

SideSplit SplitFacetAtVertex(L_LUMOMESH& mesh, uint32_t facet, uint32_t edge, uint32_t vertex, SplitPieces& pieces)
{
    const LM_FACET* split = mesh.facets.Peek(facet);
    const LM_EDGE* side = mesh.edges.Peek(edge);
    uint32_t others[2];
    if (!split || !side || !OtherSides(*split, edge, others)) return SideSplit::NoApex;
    if (others[0] >= mesh.edges.count || others[1] >= mesh.edges.count) return SideSplit::NoApex;
    const uint32_t apex = CommonEnd(*mesh.edges.Peek(others[0]), *mesh.edges.Peek(others[1]));
    const uint32_t corners[4] = {side->vertex[0], side->vertex[1], vertex, apex};
    // A link past the vertex store would make us write there: refuse before writing.
    if (apex == LM_NONE || !VerticesExist(mesh, corners, 4)) return SideSplit::NoApex;
    pieces.apex = apex;

    const uint32_t halves[2] = {AppendEdgeRecord(mesh, corners[0], vertex, LM_NONE, LM_NONE),
                                 AppendEdgeRecord(mesh, corners[1], vertex, LM_NONE, LM_NONE)};
    pieces.edges[0] = halves[0];
    pieces.edges[1] = halves[1];
    uint32_t t0 = LM_NONE, t1 = LM_NONE, p0 = LM_NONE, p1 = LM_NONE;
    const bool matched = halves[0] != LM_NONE && halves[1] != LM_NONE && MatchHalf(mesh, others[0], halves, t0, p0) &&
                         MatchHalf(mesh, others[1], halves, t1, p1);
    const uint32_t e3 = matched ? AppendEdgeRecord(mesh, vertex, apex, LM_NONE, LM_NONE) : LM_NONE;
    const uint32_t fa = e3 != LM_NONE ? ReserveFacet(mesh) : LM_NONE;
    const uint32_t fb = fa != LM_NONE ? ReserveFacet(mesh) : LM_NONE;
    if (fb == LM_NONE) {  // no match, or memory ran out: what was written stays dead
        for (uint32_t e : {halves[0], halves[1], e3}) Kill(mesh.edges, e);
        return SideSplit::Unmatched;
    }
    pieces.edges[2] = e3;

    // Sides as documented: the old side first, not in corner order.
    const uint32_t cornersA[3] = {p0, vertex, apex}, sidesA[3] = {others[0], e3, t0};
    const uint32_t cornersB[3] = {vertex, p1, apex}, sidesB[3] = {others[1], e3, t1};
    WriteFacet(mesh, fa, cornersA, sidesA);
    WriteFacet(mesh, fb, cornersB, sidesB);

    ReplaceFacetLink(*mesh.edges.At(others[0]), facet, fa);
    ReplaceFacetLink(*mesh.edges.At(others[1]), facet, fb);
    LM_EDGE& middle = *mesh.edges.At(e3);
    middle.facet[0] = fa;
    middle.facet[1] = fb;
    mesh.edges.At(t0)->facet[0] = fa;
    mesh.edges.At(t1)->facet[0] = fb;
    mesh.vertices.At(p0)->edge = others[0];
    mesh.vertices.At(p1)->edge = others[1];
    mesh.vertices.At(vertex)->edge = t0;
    return SideSplit::Done;
}

// The new vertex is appended before the facet is examined and stays, uncounted, when
// the split is refused; so do E1 and E2, dead, when the halves cannot be matched.
short LMeshSplitTriangleByPointOnEdge(L_LUMOMESH& mesh, const float* point, uint32_t edge, float tolerance)
{
    if (edge >= mesh.edgeSlots || edge >= mesh.edges.count) return -1;
    const LM_EDGE side = *mesh.edges.Peek(edge);
    const uint32_t facet = side.facet[0] != LM_NONE ? side.facet[0] : side.facet[1];
    if (facet == LM_NONE || !point) return 0;
    const uint32_t vertex = AppendUncountedVertex(mesh, point);
    SplitPieces pieces;
    if (vertex == LM_NONE || SplitFacetAtVertex(mesh, facet, edge, vertex, pieces) != SideSplit::Done) return 0;

    BaseList<uint32_t> aroundApex;
    LMeshGetFacetsAroundVertex(mesh, pieces.apex, aroundApex);
    RetireSplitSide(mesh, edge, facet);
    Kill(mesh.facets, facet);
    mesh.facetSlots += 2;
    mesh.facetCount += 1;
    mesh.vertexSlots += 1;
    mesh.vertexCount += 1;
    LMeshOptimizeEdges(mesh, tolerance, &aroundApex, nullptr, nullptr, 1);
    return 1;
}

bool LMeshMerge(const L_LUMOMESH& source, L_LUMOMESH& destination, float tolerance, bool optimise)
{
    // Taken first: source may be destination itself, whose stores grow below.
    const MergeOffsets at{destination.vertexSlots, destination.edgeSlots, destination.facetSlots,
                          destination.groupCount - 1};
    const uint32_t sourceGroups = source.groupCount;
    const uint32_t vertexCount = source.vertices.count, edgeCount = source.edges.count;
    const uint32_t facetCount = source.facets.count;
    AppendShifted(source.vertices, vertexCount, destination.vertices, at.vertex, destination.vertexSlots,
                  destination.vertexCount, [&](LM_VERTEX& vertex) {
                      // LM_NONE is shifted too, with no test: a vertex without edges comes
                      // out linked to an unrelated edge until LMeshDeleteFacets relinks it.
                      vertex.edge += at.edge;
                      const float p[3] = {vertex.position[0], vertex.position[1], vertex.position[2]};
                      WidenBoxBy(destination, p);
                  });
    AppendShifted(source.edges, edgeCount, destination.edges, at.edge, destination.edgeSlots, destination.edgeCount,
                  [&](LM_EDGE& edge) {
                      for (int k = 0; k < 2; ++k) {
                          edge.vertex[k] += at.vertex;
                          edge.facet[k] = ShiftUnlessNone(edge.facet[k], at.facet);
                      }
                  });
    AppendShifted(source.facets, facetCount, destination.facets, at.facet, destination.facetSlots,
                  destination.facetCount, [&](LM_FACET& facet) {
                      for (int k = 0; k < 3; ++k) {
                          facet.vertex[k] += at.vertex;
                          facet.edge[k] += at.edge;
                      }
                      // Group 0 means no group in both meshes; the others must stay apart.
                      if (facet.groupId != 0) facet.groupId += at.group;
                  });
    destination.groupCount += sourceGroups - 1;
    if (optimise) LMeshOptimizeEdges(destination, tolerance, nullptr, nullptr, nullptr, 1);
    return true;
}

void LMeshCopyFacets(L_LUMOMESH& source, BaseList<uint32_t>& facets, float tolerance, L_LUMOMESH* destination)
{
    L_LUMOMESH& target = destination ? *destination : source;
    for (uint32_t i = 0; i < facets.count; ++i) {
        uint32_t& id = *facets.At(i);
        float corners[3][3];
        // A facet or corner past its store has nothing to copy: its entry says so.
        id = ReadCorners(source, id, corners) ? LMeshAddTriangle(target, corners[0], corners[1], corners[2], 0)
                                             : LM_NONE;
    }
    LMeshOptimizeEdges(target, tolerance, nullptr, nullptr, nullptr, 1);
}
