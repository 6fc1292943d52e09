// Small edits on the linked stores that several families finish with: unlinking a
// facet from an edge, zipping two border edges into one inner edge, and the edge
// collapse shared by LMeshCollapseEdge and the simplification's collapse trial.
#pragma once

#include <vector>

#include "LMesh.h"

// A live edge from `from` to `to` with the given facet links, at the end of the store.
// Its id, or LM_NONE when the store cannot grow.
inline uint32_t AppendEdgeRecord(L_LUMOMESH& mesh, uint32_t from, uint32_t to, uint32_t facet0, uint32_t facet1)
{
    const uint32_t id = mesh.edges.count;
    LM_EDGE* edge = mesh.edges.At(id);
    if (!edge) return LM_NONE;
    edge->vertex[0] = from;
    edge->vertex[1] = to;
    edge->facet[0] = facet0;
    edge->facet[1] = facet1;
    edge->flags = LM_LIVE;
    return id;
}

// Removes `facet` from the edge's facet links, keeping facet[0] filled when one remains.
void UnlinkFacetFromEdge(LM_EDGE& edge, uint32_t facet);

// Makes `kept` the inner edge of both facets when `kept` and `moved` are live border
// edges joining the same two vertices: kept takes moved's facet, moved dies, and the
// links that named moved name kept. False, with nothing changed, otherwise.
bool ZipBorderEdges(L_LUMOMESH& mesh, uint32_t kept, uint32_t moved);

// Copies of records taken just before an edit changes them, so that a refused edit
// can put every byte back. Clearing keeps the capacity: one backup serves many trials.
class RecordBackup {
public:
    void Clear();
    // Ids past their store are not saved: nothing is ever written there.
    void SaveVertex(const L_LUMOMESH& mesh, uint32_t id);
    void SaveEdge(const L_LUMOMESH& mesh, uint32_t id);
    void SaveFacet(const L_LUMOMESH& mesh, uint32_t id);
    // Writes the copies back, latest first, so that a record saved twice ends as it
    // was at its first save. Counts are not touched.
    void Restore(L_LUMOMESH& mesh) const;

private:
    template <class Record>
    struct Saved {
        uint32_t id;
        Record record;
    };
    std::vector<Saved<LM_VERTEX>> vertices_;
    std::vector<Saved<LM_EDGE>> edges_;
    std::vector<Saved<LM_FACET>> facets_;
};

// One collapse of an inner edge: everything at `removed` moves onto `kept`, and the
// edge's two facets close up. The walks are taken by the caller before the edit.
struct EdgeCollapse {
    uint32_t edge = LM_NONE;
    uint32_t kept = LM_NONE;
    uint32_t removed = LM_NONE;
    uint32_t facets[2] = {LM_NONE, LM_NONE};  // the edge's facet[0] and facet[1]
    uint32_t apexes[2] = {LM_NONE, LM_NONE};  // the corner of each facet off the other
    const BaseList<uint32_t>* facetsAtRemoved = nullptr;
    const BaseList<uint32_t>* edgesAtRemoved = nullptr;
    const BaseList<uint32_t>* edgesAtKept = nullptr;
    const BaseList<uint32_t>* edgesAtApex[2] = {nullptr, nullptr};
    // Set by the edit: the side at `removed` of each facet, which dies with it.
    uint32_t removedSides[2] = {LM_NONE, LM_NONE};
};

// Fills edge, kept, removed, facets and apexes for the edge. False when the edge or a
// facet link lies past its store, the edge has fewer than two facets, or a facet has
// no corner off the other.
bool PrepareEdgeCollapse(const L_LUMOMESH& mesh, uint32_t edge, uint32_t kept, uint32_t removed,
                         EdgeCollapse& collapse);

// The topological edit: facets and edges at `removed` move onto `kept`, the facets
// beyond the two sides at `removed` take the sides at `kept` instead, and the links of
// kept and of both apexes leave the dying edges. Every record is saved to `undo`
// before it changes. False when a side at either end is a border edge or has no facet
// beyond it; the caller then restores `undo`. Flags and counts are not touched.
bool RelinkEdgeCollapse(L_LUMOMESH& mesh, EdgeCollapse& collapse, RecordBackup& undo);

// Kills the edge, the two sides at `removed`, both facets and `removed`, and lowers the
// live counts by 3 edges, 2 facets and 1 vertex.
void RetireEdgeCollapse(L_LUMOMESH& mesh, const EdgeCollapse& collapse);
