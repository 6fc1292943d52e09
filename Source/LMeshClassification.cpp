// Edge classification: recovering the curve behind a chain of mesh edges. The chain is
// cut where its turn angle jumps (corners, and changes from straight to curved), so
// each piece turns by a constant angle per edge, and each piece is then reduced to a
// line, arc or circle by polyline simplification, with an iterated circle fit as the
// fallback. A separate splitter breaks a branching edge set into simple paths.
//
// The circle fit moves the centre to the mean of the points pulled in by the current
// radius, which converges from any start inside the arc's half-plane; its error
// figures sum a running vector on purpose, so they weigh a one-sided drift (the fit
// sitting off-centre) far more than scatter that cancels out.
#include <cmath>
#include <map>
#include <vector>

#include "LMesh.h"

namespace {

constexpr double kRadiansPerDegree = 0.0174532925199433;
constexpr double kPi = 3.14159265358979323846;
constexpr double kZeroVectorLength = 1e-11;
constexpr double kCornerAngle = 45.0;
constexpr double kUnreachableSmoothAngle = 225.0;  // kept as tuned; a turn never exceeds 180
constexpr double kStdDevForMeshAverage = 0.5;
constexpr double kCentreShiftLimit = 0.001;
// The centre iteration settles in a few dozen steps; this only stops a runaway.
constexpr uint32_t kMaxCentreSteps = 100000;
constexpr float kWideningFactor = 100.0f;
constexpr float kToleranceStep = 10.0f;

bool ReadPoint(const L_LUMOMESH& mesh, uint32_t v, L_POINT& p)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    if (!vertex) return false;
    p = {vertex->position[0], vertex->position[1], vertex->position[2]};
    return true;
}

L_VECTOR Minus(const L_POINT& a, const L_POINT& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double Length(const L_VECTOR& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

// Unit vector from a to b, zero when shorter than 1e-11.
L_VECTOR UnitFromTo(const L_POINT& a, const L_POINT& b)
{
    L_VECTOR v = Minus(b, a);
    const double length = Length(v);
    if (length < kZeroVectorLength) return {0, 0, 0};
    return {v.x / length, v.y / length, v.z / length};
}

// Turn angle in degrees at the vertex shared by two consecutive edges (0: straight
// on). Edges that share no vertex count as a full reversal, i.e. a corner.
double TurnAngle(const L_LUMOMESH& mesh, uint32_t first, uint32_t second)
{
    const LM_EDGE* a = mesh.edges.Peek(first);
    const LM_EDGE* b = mesh.edges.Peek(second);
    if (!a || !b) return 180.0;
    const uint32_t a0 = a->vertex[0], a1 = a->vertex[1], b0 = b->vertex[0], b1 = b->vertex[1];
    uint32_t from, shared, to;
    if (a1 == b0) from = a0, shared = a1, to = b1;
    else if (a1 == b1) from = a0, shared = a1, to = b0;
    else if (a0 == b0) from = a1, shared = a0, to = b1;
    else if (a0 == b1) from = a1, shared = a0, to = b0;
    else return 180.0;
    L_POINT p0, p1, p2;
    if (!ReadPoint(mesh, from, p0) || !ReadPoint(mesh, shared, p1) || !ReadPoint(mesh, to, p2)) return 180.0;
    const L_VECTOR in = UnitFromTo(p0, p1), out = UnitFromTo(p1, p2);
    double dot = in.x * out.x + in.y * out.y + in.z * out.z;
    dot = dot < -1.0 ? -1.0 : (dot > 1.0 ? 1.0 : dot);
    return std::acos(dot) / kRadiansPerDegree;
}

// Length above which an edge counts as a corner: the chain's mean edge length, or the
// mesh's when the chain's lengths hardly vary.
float LongEdgeLimit(const L_LUMOMESH& mesh, const BaseList<uint32_t>& edges)
{
    double sum = 0.0;
    for (uint32_t i = 0; i < edges.count; ++i) sum += LMeshEdgeLength(mesh, *edges.Peek(i));
    const double mean = sum / edges.count;
    double squares = 0.0;
    for (uint32_t i = 0; i < edges.count; ++i) {
        const double d = LMeshEdgeLength(mesh, *edges.Peek(i)) - mean;
        squares += d * d;
    }
    float limit = float(mean);
    if (std::sqrt(squares / edges.count) < kStdDevForMeshAverage) LMeshComputeAverageEdgeLength(mesh, limit);
    return limit;
}

// Labels each edge of the sorted chain with its piece number (from 1); returns the
// last number used.
uint32_t LabelPieces(const L_LUMOMESH& mesh, const BaseList<uint32_t>& edges, const LM_TOLERANCES& tolerances,
                     bool filterLongEdges, float lengthLimit, std::vector<uint32_t>& labels)
{
    const uint32_t n = edges.count;
    labels.assign(n, 0);
    auto edge = [&edges](uint32_t i) { return *edges.Peek(i); };
    auto turn = [&](uint32_t i) { return TurnAngle(mesh, edge(i), edge(i + 1)); };
    auto isLong = [&](uint32_t i) { return LMeshEdgeLength(mesh, edge(i)) > lengthLimit; };
    uint32_t piece = 1;
    uint32_t i = 0;
    while (i + 2 <= n) {
        const double a = turn(i);
        bool smooth = a <= kCornerAngle || a >= kUnreachableSmoothAngle;
        if (smooth && filterLongEdges && (isLong(i) || isLong(i + 1))) smooth = false;
        if (!smooth) {
            labels[i] = piece;
            labels[i + 1] = ++piece;
            ++i;
            continue;
        }
        labels[i] = labels[i + 1] = piece;
        uint32_t j = i + 1;
        for (; j + 1 < n; ++j) {
            if (std::fabs(a - turn(j)) >= tolerances.turnAngle) {
                labels[j + 1] = ++piece;
                break;
            }
            labels[j + 1] = piece;
        }
        i = j + 1 < n ? j + 1 : j;
    }
    return piece;
}

// The positions of the listed vertices, in order; false when memory runs out.
bool BuildPolyline(const L_LUMOMESH& mesh, const BaseList<uint32_t>& vertices, Polyline& polyline)
{
    if (polyline.Allocate(vertices.count) != 0) return false;
    for (uint32_t i = 0; i < vertices.count; ++i) {
        L_POINT p;
        if (ReadPoint(mesh, *vertices.Peek(i), p) && polyline.Append(&p) != 0) return false;
    }
    return true;
}

struct FitErrors {
    double* point;
    double* midpoint;
};

bool FindPlane(const Polyline& polyline, bool requireCoplanar, L_PLANE& plane)
{
    const uint32_t n = polyline.N_Points();
    if (requireCoplanar) {
        short coplanar = 0;
        if (coplanar_points(n, polyline.Points(), zefatoll.length, &plane, &coplanar) != 0 || !coplanar) return false;
    } else if (least_squares_plane(n, polyline.Points(), &plane) != 0) {
        return false;
    }
    return normalise(&plane.normal) == 0;
}

bool HasRepeatedNeighbour(const Polyline& polyline)
{
    const L_POINT* p = polyline.Points();
    for (uint32_t i = 0; i + 1 < polyline.N_Points(); ++i)
        if (std::fabs(p[i].x - p[i + 1].x) < zefatoll.length && std::fabs(p[i].y - p[i + 1].y) < zefatoll.length &&
            std::fabs(p[i].z - p[i + 1].z) < zefatoll.length)
            return true;
    return false;
}

double MeanDistance(const Polyline& polyline, const L_POINT& centre)
{
    double sum = 0.0;
    for (uint32_t i = 0; i < polyline.N_Points(); ++i) sum += Length(Minus(polyline.Points()[i], centre));
    return sum / polyline.N_Points();
}

// Moves the centre to the mean of the points pulled towards it by the mean radius,
// until it settles. False when it does not (non-finite input).
bool IterateCentre(const Polyline& polyline, L_POINT& centre)
{
    const uint32_t n = polyline.N_Points();
    for (uint32_t step = 0; step < kMaxCentreSteps; ++step) {
        const double r = MeanDistance(polyline, centre);
        L_POINT next{0, 0, 0};
        for (uint32_t i = 0; i < n; ++i) {
            const L_POINT& p = polyline.Points()[i];
            const L_VECTOR u = UnitFromTo(centre, p);
            next.x += (p.x - r * u.x) / n;
            next.y += (p.y - r * u.y) / n;
            next.z += (p.z - r * u.z) / n;
        }
        const double shift = Length(Minus(next, centre));
        centre = next;
        if (shift <= kCentreShiftLimit) return true;
    }
    return false;
}

// The open chain's arc: the one of the two arcs between its ends that every point lies on.
bool ChooseArc(const Polyline& polyline, const L_CIRCLE& circle, L_ARC& chosen)
{
    L_POINT start, end;
    polyline.Get_Start_End_Points(&start, &end);
    if (project_point_onto_circle(&start, &circle, &start) != 0 || project_point_onto_circle(&end, &circle, &end) != 0)
        return false;
    const L_ARC forward{circle.centre, circle.radius, circle.axis, start, end};
    const L_ARC backward{circle.centre, circle.radius, circle.axis, end, start};
    for (uint32_t i = 0; i < polyline.N_Points(); ++i) {
        L_POINT onCircle;
        if (project_point_onto_circle(&polyline.Points()[i], &circle, &onCircle) != 0) return false;
        if (point_on_arc(onCircle, forward, zefatoll.length) != 0) {
            chosen = backward;
            return true;
        }
        if (point_on_arc(onCircle, backward, zefatoll.length) != 0) {
            chosen = forward;
            return true;
        }
    }
    return false;
}

// Deviation of q (relative to the centre) from the radius, added to the running vector.
double AddToRunningVector(L_VECTOR& running, const L_VECTOR& q, double r)
{
    const double length = Length(q);
    const L_VECTOR u = length < kZeroVectorLength ? L_VECTOR{0, 0, 0} : L_VECTOR{q.x / length, q.y / length, q.z / length};
    running = {running.x + q.x - u.x * r, running.y + q.y - u.y * r, running.z + q.z - u.z * r};
    return Length(running);
}

void ComputeFitErrors(const Polyline& polyline, const L_CIRCLE& circle, bool closed, const FitErrors& errors)
{
    const uint32_t n = polyline.N_Points();
    const L_POINT* p = polyline.Points();
    L_VECTOR running{0, 0, 0};
    double total = 0.0;
    for (uint32_t i = 0; i + 1 < n; ++i) {
        L_POINT mid;
        mean_point(p[i], p[i + 1], &mid);
        total += AddToRunningVector(running, Minus(mid, circle.centre), circle.radius);
    }
    if (errors.midpoint) *errors.midpoint = total / (closed ? n : n - 1);
    running = {0, 0, 0};
    total = 0.0;
    for (uint32_t i = 0; i < n; ++i) total += AddToRunningVector(running, Minus(p[i], circle.centre), circle.radius);
    if (errors.point) *errors.point = total / n;
}

bool FitCircleArc(const Polyline& polyline, bool requireCoplanar, const FitErrors* errors, L_ELEMENT& element)
{
    if (polyline.N_Points() < 3) return false;
    L_PLANE plane;
    if (!FindPlane(polyline, requireCoplanar, plane) || HasRepeatedNeighbour(polyline)) return false;
    L_POINT centre;
    polyline.Get_Start_End_Points(&centre, nullptr);
    if (!IterateCentre(polyline, centre)) return false;
    L_CIRCLE circle{centre, MeanDistance(polyline, centre), plane.normal};
    project_point_onto_plane(&centre, &plane, &circle.centre);

    short closed = 0;
    polyline.Is_Closed(&closed);
    if (closed) {
        if (polyline.Length() <= circle.radius * kPi) return false;  // less than half a turn
        element.TypeSet(L_ELEMENT_CIRCLE);
        element.SetCircle(circle);
    } else {
        L_ARC arc;
        if (!ChooseArc(polyline, circle, arc)) return false;
        element.TypeSet(L_ELEMENT_ARC);
        element.SetArc(arc);
    }
    if (errors) ComputeFitErrors(polyline, circle, closed != 0, *errors);
    return true;
}

// Simplifies with a tolerance growing tenfold from coordinateTolerance up to its limit.
bool SimplifyPiece(const Polyline& polyline, const LM_TOLERANCES& tolerances, bool widen, L_ELEMENT& element)
{
    const float first = tolerances.coordinateTolerance;
    const float limit = widen ? first * kWideningFactor : first;
    for (float t = first; t <= limit;) {
        short status = L_SIMPLIFY_NO_FIT;
        polyline.Simplify(t, &element, &status);
        if (status == L_SIMPLIFY_DONE) return true;
        const float next = t * kToleranceStep;
        if (!(next > t)) return false;  // a tolerance of 0 or below would never grow past the limit
        t = next;
    }
    return false;
}

bool MakeLine(const L_LUMOMESH& mesh, uint32_t e, L_ELEMENT& element)
{
    const LM_EDGE* edge = mesh.edges.Peek(e);
    L_SEGM segment;
    if (!edge || !ReadPoint(mesh, edge->vertex[0], segment.start) || !ReadPoint(mesh, edge->vertex[1], segment.end))
        return false;
    element.TypeSet(L_ELEMENT_LINE);
    element.SetSegment(segment);
    return true;
}

// Fits one piece; false only when memory runs out.
bool ClassifyPiece(const L_LUMOMESH& mesh, BaseList<uint32_t>& piece, BaseList<L_ELEMENT>& elements,
                   BaseList<BaseList<uint32_t>>& remainingPaths, const LM_TOLERANCES& tolerances, bool widen)
{
    BaseList<uint32_t> vertices(16, 128);
    LMeshSortEdges(mesh, piece, &vertices);
    Polyline polyline;
    if (!BuildPolyline(mesh, vertices, polyline)) return false;
    L_ELEMENT element;
    if (SimplifyPiece(polyline, tolerances, widen, element) || FitCircleArc(polyline, true, nullptr, element)) {
        return AppendTo(elements, element);
    }
    BaseList<uint32_t>* slot = remainingPaths.At(remainingPaths.count);
    if (slot) *slot = piece;
    return slot != nullptr;
}

// ---- Paths ----

using EdgesByVertex = std::map<uint32_t, std::vector<uint32_t>>;

EdgesByVertex CollectEdgesByVertex(const L_LUMOMESH& mesh, const BaseList<uint32_t>& edges)
{
    EdgesByVertex byVertex;
    for (uint32_t i = 0; i < edges.count; ++i) {
        const uint32_t e = *edges.Peek(i);
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!edge) continue;
        const uint32_t start = edge->vertex[0], end = edge->vertex[1];  // packed: read by value
        byVertex[start].push_back(e);
        byVertex[end].push_back(e);
    }
    return byVertex;
}

bool HasBranch(const EdgesByVertex& byVertex)
{
    for (const auto& entry : byVertex)
        if (entry.second.size() > 2) return true;
    return false;
}

uint32_t OtherEnd(const L_LUMOMESH& mesh, uint32_t e, uint32_t v)
{
    const LM_EDGE* edge = mesh.edges.Peek(e);
    return edge->vertex[0] == v ? edge->vertex[1] : edge->vertex[0];
}

// Used vertices and edges while paths are drawn.
struct PathState {
    std::map<uint32_t, bool> usedVertex;
    std::map<uint32_t, bool> usedEdge;
};

// Lowest unused edge at the first unused vertex of fewer than three edges, or LM_NONE.
uint32_t FindPathStart(const EdgesByVertex& byVertex, PathState& state)
{
    for (const auto& entry : byVertex) {
        if (state.usedVertex[entry.first] || entry.second.size() >= 3) continue;
        uint32_t lowest = LM_NONE;
        for (uint32_t e : entry.second)
            if (!state.usedEdge[e] && e < lowest) lowest = e;
        if (lowest != LM_NONE) return lowest;
        state.usedVertex[entry.first] = true;
    }
    return LM_NONE;
}

// Extends the path from vertex v, away from the first edge, through vertices of two edges.
void WalkOutward(const L_LUMOMESH& mesh, const EdgesByVertex& byVertex, PathState& state, uint32_t first,
                 uint32_t v, BaseList<uint32_t>& path)
{
    uint32_t came = first;
    while (!state.usedVertex[v]) {
        state.usedVertex[v] = true;
        const std::vector<uint32_t>& around = byVertex.at(v);
        if (around.size() != 2) return;
        const uint32_t next = around[0] != came && around[0] != first ? around[0] : around[1];
        if (next == came || next == first) return;
        AppendTo(path, next);
        state.usedEdge[next] = true;
        came = next;
        v = OtherEnd(mesh, next, v);
    }
}

BaseList<uint32_t>* NewPath(BaseList<BaseList<uint32_t>>& paths) { return paths.At(paths.count); }

}  // namespace

bool LMeshClassifyConnectedEdgesToElements(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges,
                                           BaseList<L_ELEMENT>& elements,
                                           BaseList<BaseList<uint32_t>>& remainingPaths,
                                           const LM_TOLERANCES& tolerances, bool filterLongEdges,
                                           bool widenSimplification)
{
    if (edges.count == 0) return false;
    if (edges.count == 1) {
        L_ELEMENT line;
        if (!MakeLine(mesh, *edges.Peek(0), line)) return false;
        L_ELEMENT* slot = elements.At(0);
        if (slot) *slot = line;
        return slot != nullptr;
    }
    const float lengthLimit = filterLongEdges ? LongEdgeLimit(mesh, edges) : 0.0f;
    LMeshSortEdges(mesh, edges, nullptr);
    std::vector<uint32_t> labels;
    const uint32_t pieces = LabelPieces(mesh, edges, tolerances, filterLongEdges, lengthLimit, labels);
    for (uint32_t number = 1; number <= pieces; ++number) {
        BaseList<uint32_t> piece(16, 128);
        for (uint32_t i = 0; i < edges.count; ++i)
            if (labels[i] == number) AppendTo(piece, *edges.Peek(i));
        if (!ClassifyPiece(mesh, piece, elements, remainingPaths, tolerances, widenSimplification)) return false;
    }
    return elements.count > 0;
}

bool LMeshClassifyConnectedEdgesToCircleArc(const L_LUMOMESH& mesh, BaseList<uint32_t>& edges, L_ELEMENT& element,
                                            bool withErrors, double* pointError, double* midpointError,
                                            bool requireCoplanar)
{
    if (edges.count == 0) return false;
    BaseList<uint32_t> vertices(16, 128);
    LMeshSortEdges(mesh, edges, &vertices);
    Polyline polyline;
    if (!BuildPolyline(mesh, vertices, polyline)) return false;
    const FitErrors errors{pointError, midpointError};
    return FitCircleArc(polyline, requireCoplanar, withErrors ? &errors : nullptr, element);
}

bool LMeshClassifyConnectedEdgesToPaths(const L_LUMOMESH& mesh, const BaseList<uint32_t>& edges,
                                        BaseList<BaseList<uint32_t>>& paths)
{
    paths.Clear();
    if (edges.count == 0) return false;
    const EdgesByVertex byVertex = CollectEdgesByVertex(mesh, edges);
    if (!HasBranch(byVertex)) {
        BaseList<uint32_t>* only = NewPath(paths);
        if (only) *only = edges;
        return only != nullptr;
    }
    PathState state;
    for (uint32_t first = FindPathStart(byVertex, state); first != LM_NONE; first = FindPathStart(byVertex, state)) {
        BaseList<uint32_t>* path = NewPath(paths);
        if (!path) return false;
        AppendTo(*path, first);
        state.usedEdge[first] = true;
        const LM_EDGE* edge = mesh.edges.Peek(first);
        const uint32_t ends[2] = {edge->vertex[0], edge->vertex[1]};
        WalkOutward(mesh, byVertex, state, first, ends[0], *path);
        WalkOutward(mesh, byVertex, state, first, ends[1], *path);
    }
    for (uint32_t i = 0; i < edges.count; ++i) {
        const uint32_t e = *edges.Peek(i);
        if (state.usedEdge[e]) continue;
        state.usedEdge[e] = true;
        BaseList<uint32_t>* path = NewPath(paths);
        if (!path) return false;
        AppendTo(*path, e);
    }
    return true;
}
