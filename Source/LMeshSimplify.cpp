// Simplification by edge collapse under fixed gates.
//
// There is no cost function and no priority queue: candidates are taken once, in id or
// list order, and each goes through one collapse trial. The trial makes the collapse
// (the same topological edit as LMeshCollapseEdge), then measures what it did to the
// neighbourhood: facet areas must stay above a minimum, the curvature of the vertices
// around the removed one must barely change, and no facet may turn by a right angle.
// A refused trial writes back the records it saved, so the mesh is as it was. The
// result depends on edge numbering by design; the price of that is paid for a run
// time of one pass with no global structure to keep up.
#include <cmath>
#include <vector>

#include "LMeshEdit.h"

namespace {

constexpr double kRadiansPerDegree = 0.0174532925199433;
constexpr double kRightAngle = 90.0;
constexpr double kShortestVector = 1e-11;
constexpr float kRightAngleF = 90.0f;

enum class Placement { AtKept, AtMidpoint };

struct SimplifyOptions {
    const LM_TOLERANCES& tolerances;
    bool ignoreArea;
    bool protectRightAngles;
    Placement placement;
    bool mirrorAfterCurvature;  // try K = B when the curvature gate refuses K = A
};

enum class Trial { Collapsed, Refused, RefusedByCurvature, CurvatureFailed };
enum class EdgeOutcome { Direct, Mirrored, Refused, CurvatureFailed };

struct DoubleVector {
    double v[3];
};

// The working lists of the trial, allocated once per call and emptied per trial, so
// that a pass over a large mesh allocates nothing that grows with it.
struct TrialLists {
    BaseList<uint32_t> facets;  // around both apexes and both ends, with repeats
    BaseList<uint32_t> edgesAtApex[2];
    BaseList<uint32_t> edgesAtKept;
    BaseList<uint32_t> edgesAtRemoved;
    BaseList<uint32_t> ring;  // neighbours of the removed vertex, then that vertex
    BaseList<uint32_t> facetsForEdit;
    BaseList<uint32_t> edgesForEdit;
    std::vector<float> curvatures;
    std::vector<DoubleVector> oldNormals;
    RecordBackup undo;

    void Empty()
    {
        // A count of 0 keeps the pages for the next trial.
        for (BaseList<uint32_t>* list :
             {&facets, &edgesAtApex[0], &edgesAtApex[1], &edgesAtKept, &edgesAtRemoved, &ring, &facetsForEdit,
              &edgesForEdit})
            list->count = 0;
        curvatures.clear();
        oldNormals.clear();
        undo.Clear();
    }
};

void Append(BaseList<uint32_t>& list, uint32_t id) { *list.At(list.count) = id; }

bool IsCandidate(const L_LUMOMESH& mesh, uint32_t e, const SimplifyOptions& options)
{
    const LM_EDGE* edge = mesh.edges.Peek(e);
    if (!edge || !(edge->flags & LM_LIVE) || edge->facet[0] == LM_NONE || edge->facet[1] == LM_NONE) return false;
    if (!options.protectRightAngles) return true;
    float angle = 0.0f;
    if (LMeshComputeEdgeMeanCurvature(mesh, e, &angle) < 0) return false;
    return std::fabs(angle - kRightAngleF) >= options.tolerances.angleBand;
}

// The fans of both apexes and both ends, all into one facet list. Only whole closed
// fans will do: a vertex on a border refuses the trial.
bool WalkNeighbourhood(const L_LUMOMESH& mesh, const EdgeCollapse& collapse, TrialLists& lists)
{
    const uint32_t centres[4] = {collapse.apexes[0], collapse.apexes[1], collapse.kept, collapse.removed};
    BaseList<uint32_t>* edgeLists[4] = {&lists.edgesAtApex[0], &lists.edgesAtApex[1], &lists.edgesAtKept,
                                        &lists.edgesAtRemoved};
    for (int i = 0; i < 4; ++i) {
        if (LMeshGetFacetsAndEdgesAroundVertex(mesh, centres[i], lists.facets, *edgeLists[i]) != 0) return false;
        if (edgeLists[i]->count == 0) return false;
    }
    return true;
}

void BuildRing(const L_LUMOMESH& mesh, uint32_t removed, TrialLists& lists)
{
    for (uint32_t i = 0; i < lists.edgesAtRemoved.count; ++i) {
        const LM_EDGE& edge = *mesh.edges.Peek(*lists.edgesAtRemoved.Peek(i));
        Append(lists.ring, edge.vertex[0] != removed ? edge.vertex[0] : edge.vertex[1]);
    }
    Append(lists.ring, removed);
}

// False when a curvature cannot be had, which ends the whole operation.
bool MeasureRing(const L_LUMOMESH& mesh, TrialLists& lists)
{
    for (uint32_t i = 0; i < lists.ring.count; ++i) {
        float curvature = 0.0f;
        if (LMeshComputeVertexCurvature(mesh, *lists.ring.Peek(i), &curvature) < 0) return false;
        lists.curvatures.push_back(curvature);
    }
    return true;
}

// The stored normals of the neighbourhood are what the normal gate compares against;
// the facets themselves are saved because that gate rewrites their normals, and the
// kept vertex because a midpoint collapse moves it. The edit saves what it changes.
void SaveNeighbourhood(const L_LUMOMESH& mesh, uint32_t kept, TrialLists& lists)
{
    for (uint32_t i = 0; i < lists.facets.count; ++i) {
        const uint32_t f = *lists.facets.Peek(i);
        const LM_FACET& facet = *mesh.facets.Peek(f);
        lists.oldNormals.push_back({{facet.normal[0], facet.normal[1], facet.normal[2]}});
        lists.undo.SaveFacet(mesh, f);
    }
    lists.undo.SaveVertex(mesh, kept);
}

void MoveKeptToMidpoint(L_LUMOMESH& mesh, uint32_t kept, uint32_t removed)
{
    if (kept >= mesh.vertices.count || removed >= mesh.vertices.count) return;  // stale end: left in place
    LM_VERTEX& k = *mesh.vertices.At(kept);
    const LM_VERTEX& r = *mesh.vertices.Peek(removed);
    for (int c = 0; c < 3; ++c) k.position[c] = (k.position[c] + r.position[c]) * 0.5f;
}

// The facet's corners widened to double; false for a corner past the store.
bool CornersOf(const L_LUMOMESH& mesh, uint32_t f, DoubleVector corners[3])
{
    const LM_FACET& facet = *mesh.facets.Peek(f);
    for (int k = 0; k < 3; ++k) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(facet.vertex[k]);
        if (!vertex) return false;
        for (int c = 0; c < 3; ++c) corners[k].v[c] = vertex->position[c];
    }
    return true;
}

double Distance(const DoubleVector& a, const DoubleVector& b)
{
    const double dx = a.v[0] - b.v[0], dy = a.v[1] - b.v[1], dz = a.v[2] - b.v[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

// Heron's formula kept in double. No clamp: a needle whose product rounds negative
// gives not-a-number, which fails the gate.
double HeronAreaDouble(const DoubleVector p[3])
{
    const double a = Distance(p[0], p[1]), b = Distance(p[1], p[2]), c = Distance(p[2], p[0]);
    const double s = (a + b + c) * 0.5;
    return std::sqrt((s - a) * s * (s - b) * (s - c));
}

// Gate 1. The two collapsing facets still hold their old corners, so they too must
// be above the minimum: callers that want small facets gone set ignoreArea.
bool AreasStayAbove(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, float minimumArea)
{
    for (uint32_t i = 0; i < facets.count; ++i) {
        DoubleVector corners[3];
        if (!CornersOf(mesh, *facets.Peek(i), corners)) return false;
        if (!(HeronAreaDouble(corners) > minimumArea)) return false;
    }
    return true;
}

// Gate 2: every vertex around the removed one keeps its angle sum within the change.
bool CurvaturesStay(const L_LUMOMESH& mesh, const TrialLists& lists, uint32_t removed, float change)
{
    for (uint32_t i = 0; i < lists.ring.count; ++i) {
        const uint32_t v = *lists.ring.Peek(i);
        if (v == removed) continue;
        float after = 0.0f;
        LMeshComputeVertexCurvature(mesh, v, &after);
        if (!(std::fabs(lists.curvatures[i] - after) < change)) return false;
    }
    return true;
}

// The length is taken in double but divided by as a float.
void Normalize(DoubleVector& vector)
{
    double* v = vector.v;
    const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (length < kShortestVector) {
        v[0] = v[1] = v[2] = 0.0;
        return;
    }
    const double rounded = float(length);
    for (int c = 0; c < 3; ++c) v[c] /= rounded;
}

// Unit normal from the normalised sides p0 p1 and p1 p2; zero for a degenerate facet.
DoubleVector NormalOf(const DoubleVector p[3])
{
    DoubleVector u{{p[1].v[0] - p[0].v[0], p[1].v[1] - p[0].v[1], p[1].v[2] - p[0].v[2]}};
    DoubleVector w{{p[2].v[0] - p[1].v[0], p[2].v[1] - p[1].v[1], p[2].v[2] - p[1].v[2]}};
    Normalize(u);
    Normalize(w);
    DoubleVector n{{u.v[1] * w.v[2] - u.v[2] * w.v[1], u.v[2] * w.v[0] - u.v[0] * w.v[2],
                    u.v[0] * w.v[1] - u.v[1] * w.v[0]}};
    Normalize(n);
    return n;
}

double AngleDegrees(const DoubleVector& a, const DoubleVector& b)
{
    double dot = a.v[0] * b.v[0] + a.v[1] * b.v[1] + a.v[2] * b.v[2];
    if (dot < -1.0) dot = -1.0;
    if (dot > 1.0) dot = 1.0;
    return std::acos(dot) / kRadiansPerDegree;
}

// Gate 3: no facet may turn by a right angle or more. A degenerate facet has a zero
// normal, so an angle of exactly 90, and refuses. Passing facets get the new normal.
bool NormalsTurnLessThanRightAngle(L_LUMOMESH& mesh, const TrialLists& lists)
{
    for (uint32_t i = 0; i < lists.facets.count; ++i) {
        const uint32_t f = *lists.facets.Peek(i);
        DoubleVector corners[3];
        if (!CornersOf(mesh, f, corners)) return false;
        const DoubleVector n = NormalOf(corners);
        DoubleVector old = lists.oldNormals[i];
        Normalize(old);
        if (!(AngleDegrees(old, n) < kRightAngle)) return false;
        LM_FACET& facet = *mesh.facets.At(f);
        for (int c = 0; c < 3; ++c) facet.normal[c] = float(n.v[c]);
    }
    return true;
}

// The walks of the removed end, taken again once the kept end may have moved.
bool MakeEdit(L_LUMOMESH& mesh, EdgeCollapse& collapse, TrialLists& lists)
{
    LMeshGetFacetsAndEdgesAroundVertex(mesh, collapse.removed, lists.facetsForEdit, lists.edgesForEdit);
    collapse.facetsAtRemoved = &lists.facetsForEdit;
    collapse.edgesAtRemoved = &lists.edgesForEdit;
    collapse.edgesAtKept = &lists.edgesAtKept;
    collapse.edgesAtApex[0] = &lists.edgesAtApex[0];
    collapse.edgesAtApex[1] = &lists.edgesAtApex[1];
    return RelinkEdgeCollapse(mesh, collapse, lists.undo);
}

Trial RunGates(L_LUMOMESH& mesh, uint32_t removed, const SimplifyOptions& options, const TrialLists& lists)
{
    const LM_TOLERANCES& tolerances = options.tolerances;
    if (!options.ignoreArea && !AreasStayAbove(mesh, lists.facets, tolerances.minimumArea)) return Trial::Refused;
    if (!CurvaturesStay(mesh, lists, removed, tolerances.vertexCurvatureChange)) return Trial::RefusedByCurvature;
    if (!NormalsTurnLessThanRightAngle(mesh, lists)) return Trial::Refused;
    return Trial::Collapsed;
}

// Collapses `edge` keeping `kept` and removing `removed`, or leaves the mesh as it was.
Trial TryCollapse(L_LUMOMESH& mesh, uint32_t edge, uint32_t kept, uint32_t removed, const SimplifyOptions& options,
                  TrialLists& lists)
{
    lists.Empty();
    EdgeCollapse collapse;
    if (!PrepareEdgeCollapse(mesh, edge, kept, removed, collapse)) return Trial::Refused;
    if (!WalkNeighbourhood(mesh, collapse, lists)) return Trial::Refused;
    BuildRing(mesh, removed, lists);
    if (!MeasureRing(mesh, lists)) return Trial::CurvatureFailed;
    SaveNeighbourhood(mesh, kept, lists);
    if (options.placement == Placement::AtMidpoint) MoveKeptToMidpoint(mesh, kept, removed);
    const Trial trial = MakeEdit(mesh, collapse, lists) ? RunGates(mesh, removed, options, lists) : Trial::Refused;
    if (trial == Trial::Collapsed) {
        RetireEdgeCollapse(mesh, collapse);
    } else {
        lists.undo.Restore(mesh);
    }
    return trial;
}

// The candidate test and the direct trial, then the mirrored one where it applies.
EdgeOutcome SimplifyOneEdge(L_LUMOMESH& mesh, uint32_t e, const SimplifyOptions& options, TrialLists& lists)
{
    if (!IsCandidate(mesh, e, options)) return EdgeOutcome::Refused;
    const uint32_t a = mesh.edges.Peek(e)->vertex[0], b = mesh.edges.Peek(e)->vertex[1];
    const Trial direct = TryCollapse(mesh, e, a, b, options, lists);
    if (direct == Trial::Collapsed) return EdgeOutcome::Direct;
    if (direct == Trial::CurvatureFailed) return EdgeOutcome::CurvatureFailed;
    if (direct != Trial::RefusedByCurvature || !options.mirrorAfterCurvature) return EdgeOutcome::Refused;
    if (!IsCandidate(mesh, e, options)) return EdgeOutcome::Refused;
    switch (TryCollapse(mesh, e, b, a, options, lists)) {
    case Trial::Collapsed: return EdgeOutcome::Mirrored;
    case Trial::CurvatureFailed: return EdgeOutcome::CurvatureFailed;
    default: return EdgeOutcome::Refused;
    }
}

// One pass over the edge slots that exist at entry; `removed` counts 3 edges per
// direct collapse.
short SimplifyAllEdges(L_LUMOMESH& mesh, uint32_t& removed, const SimplifyOptions& options)
{
    removed = 0;
    // A header that claims more slots than the store holds is bounded by the store.
    const uint32_t slots = mesh.edgeSlots < mesh.edges.count ? mesh.edgeSlots : mesh.edges.count;
    if (slots == 0) return 0;
    TrialLists lists;
    for (uint32_t e = 0; e < slots; ++e) {
        const EdgeOutcome outcome = SimplifyOneEdge(mesh, e, options, lists);
        if (outcome == EdgeOutcome::CurvatureFailed) return -1;
        if (outcome == EdgeOutcome::Direct) removed += 3;
    }
    return 0;
}

}  // namespace

short LMeshSimplify(L_LUMOMESH& mesh, uint32_t& removed, const LM_TOLERANCES& tolerances, bool ignoreArea,
                    bool protectRightAngles)
{
    const SimplifyOptions options{tolerances, ignoreArea, protectRightAngles, Placement::AtKept, true};
    return SimplifyAllEdges(mesh, removed, options);
}

short LMeshSimplifyFullEdgeCollapse(L_LUMOMESH& mesh, uint32_t& removed, const LM_TOLERANCES& tolerances,
                                    bool ignoreArea, bool protectRightAngles)
{
    const SimplifyOptions options{tolerances, ignoreArea, protectRightAngles, Placement::AtMidpoint, false};
    return SimplifyAllEdges(mesh, removed, options);
}

short LMeshSimplifyEdge(L_LUMOMESH& mesh, const uint32_t& edge, const LM_TOLERANCES& tolerances, bool ignoreArea,
                        bool protectRightAngles)
{
    const SimplifyOptions options{tolerances, ignoreArea, protectRightAngles, Placement::AtKept, true};
    TrialLists lists;
    const EdgeOutcome outcome = SimplifyOneEdge(mesh, edge, options, lists);
    return outcome == EdgeOutcome::Direct || outcome == EdgeOutcome::Mirrored ? 0 : -1;
}

uint32_t LMeshSimplifyEdges(L_LUMOMESH& mesh, const BaseList<uint32_t>& edges, const LM_TOLERANCES& tolerances,
                            bool ignoreArea, bool protectRightAngles)
{
    const SimplifyOptions options{tolerances, ignoreArea, protectRightAngles, Placement::AtKept, true};
    TrialLists lists;
    uint32_t collapsed = 0;
    for (uint32_t i = 0; i < edges.count; ++i) {
        const EdgeOutcome outcome = SimplifyOneEdge(mesh, *edges.Peek(i), options, lists);
        if (outcome == EdgeOutcome::CurvatureFailed) break;  // no curvature: the pass stops
        if (outcome == EdgeOutcome::Direct) ++collapsed;
    }
    return collapsed;
}
