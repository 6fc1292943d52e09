// Cleanup after offset: the facets that pass through one another at inward corners
// are cut along their crossings, the parts behind the other sheet are dropped, and the
// topology is rebuilt by a round trip through a binary STL file, whose load welds the
// loose pieces to the rest of the surface.
//
// The walk goes out breadth first from seed facets. A neighbour that crosses nothing
// is walked through; one that crosses some facet is cut and not walked through. The
// cut keeps the facet's part on the outer side of the facets crossing it: the corners
// there, with the crossing segments (the seam) in between, make polygons in the
// facet's winding, which are triangulated into the mesh. Taking every crossing of the
// facet into its seam, not just one, puts on the seam the points that its crossing
// partners are cut at, so the pieces of both sheets share their seam vertices and
// weld into a closed surface. A seed itself is never tested, only its neighbours.
//
// Also here: the intermediate mesh, positions between two states of one mesh.
#include "LMesh.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "GeoLibTriangles.h"
#include "LMeshIntersections.h"
#include "LscFiles.h"

namespace {

constexpr float kOrientTolerance = 1e-5f;
constexpr uint32_t kFacetsPerBox = 500;
constexpr double kCrossTolerance = 1e-5;  // plane snap of the triangle test; points this close are one
constexpr float kStlMergeTolerance = 0.001f;
constexpr float kWeldTolerance = 1e-6f;
constexpr float kEqualTolerance = 1e-6f;
const wchar_t kTemporaryName[] = L"_templmeshoffsetcleanup28092009_.stl";

// ---- Small geometry --------------------------------------------------------------------

L_POINT Minus(const L_POINT& a, const L_POINT& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double Dot(const L_POINT& a, const L_POINT& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
L_POINT Cross(const L_POINT& a, const L_POINT& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double Length(const L_POINT& v) { return std::sqrt(Dot(v, v)); }

bool Coincide(const L_POINT& a, const L_POINT& b) { return Length(Minus(a, b)) <= kCrossTolerance; }

// Distance from p to the line through a and b (to a itself when a and b coincide).
double DistanceToLine(const L_POINT& p, const L_POINT& a, const L_POINT& b)
{
    const L_POINT direction = Minus(b, a);
    const double length = Length(direction);
    if (!(length > 0.0)) return Length(Minus(p, a));
    return Length(Cross(direction, Minus(p, a))) / length;
}

// Segments p0 p1 and q0 q1 cross at parameters strictly inside (tolerance, 1 -
// tolerance) on both, by the closest points of their lines.
bool SidesCross(const L_POINT& p0, const L_POINT& p1, const L_POINT& q0, const L_POINT& q1)
{
    const L_POINT d1 = Minus(p1, p0), d2 = Minus(q1, q0), r = Minus(q0, p0);
    const L_POINT c = Cross(d1, d2);
    const double divisor = Dot(c, c);
    if (divisor < kCrossTolerance) return false;
    const double s = Dot(Cross(r, d2), c) / divisor, t = Dot(Cross(r, d1), c) / divisor;
    const double low = kCrossTolerance, high = 1.0 - kCrossTolerance;
    return low < s && s < high && low < t && t < high;
}

// ---- Facet reading ---------------------------------------------------------------------

struct Triangle {
    float p[3][3];

    L_POINT Corner(int k) const { return {p[k][0], p[k][1], p[k][2]}; }
};

bool IsLive(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    return record && (record->flags & LM_LIVE);
}

bool ReadTriangle(const L_LUMOMESH& mesh, uint32_t facet, Triangle& triangle)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    for (int k = 0; k < 3; ++k) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(record->vertex[k]);
        if (!vertex) return false;  // corner past the vertex store: the facet is passed over
        for (int c = 0; c < 3; ++c) triangle.p[k][c] = vertex->position[c];
    }
    return true;
}

int SharedCornerCount(const LM_FACET& a, const LM_FACET& b)
{
    int shared = 0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) shared += a.vertex[i] == b.vertex[j];  // by index: the fields are packed
    return shared;
}

// ---- Finding crossings -----------------------------------------------------------------

struct Crossing {
    uint32_t other;
    L_POINT start, end;
};

struct Bounds {
    float low[3], high[3];
};

// The adaptive boxes with their facet table, and each facet's bounds widened by the
// plane tolerance, so that pairs whose bounds lie apart skip the triangle test.
class FacetGrid {
public:
    FacetGrid(const L_LUMOMESH& mesh, double planeTolerance) : mesh_(mesh), planeTolerance_(planeTolerance)
    {
        LMeshBoxFacetsNonUniform(mesh, boxes_, kFacetsPerBox);
        LMeshBoxFacetsIndexTable(mesh, boxes_, table_);
        bounds_.resize(mesh.facets.count);
        for (uint32_t f = 0; f < mesh.facets.count; ++f) bounds_[f] = BoundsOf(f);
    }

    // Facets that cross f along a segment longer than the tolerance, in ascending id.
    void CollectCrossings(uint32_t f, std::vector<Crossing>& crossings)
    {
        crossings.clear();
        Triangle tf;
        if (f >= bounds_.size() || !ReadTriangle(mesh_, f, tf)) return;
        CollectCandidates(f);
        for (uint32_t g : candidates_) {
            Triangle tg;
            if (!IsLive(mesh_, g) || !Overlap(bounds_[f], bounds_[g]) || !ReadTriangle(mesh_, g, tg)) continue;
            // Neighbours across an edge touch along it; that is no crossing.
            if (SharedCornerCount(*mesh_.facets.Peek(f), *mesh_.facets.Peek(g)) >= 2) continue;
            const TriangleCrossing crossing =
                CrossTriangles(tf.p[0], tf.p[1], tf.p[2], tg.p[0], tg.p[1], tg.p[2], planeTolerance_);
            if (!crossing.intersect || crossing.coplanar || Coincide(crossing.start, crossing.end)) continue;
            crossings.push_back({g, crossing.start, crossing.end});
        }
    }

private:
    Bounds BoundsOf(uint32_t f) const
    {
        Bounds bounds{{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
        Triangle t;
        if (!ReadTriangle(mesh_, f, t)) return bounds;
        const float margin = float(planeTolerance_);
        for (const float* p : t.p)
            for (int c = 0; c < 3; ++c) {
                bounds.low[c] = std::min(bounds.low[c], p[c] - margin);
                bounds.high[c] = std::max(bounds.high[c], p[c] + margin);
            }
        return bounds;
    }

    static bool Overlap(const Bounds& a, const Bounds& b)
    {
        for (int c = 0; c < 3; ++c)
            if (a.low[c] > b.high[c] || b.low[c] > a.high[c]) return false;
        return true;
    }

    // The facets of f's boxes, each once, f itself left out.
    void CollectCandidates(uint32_t f)
    {
        candidates_.clear();
        const LM_BOX* cells = table_.Peek(f);
        if (!cells) return;
        for (uint32_t c = 0; c < cells->facets.count; ++c) {
            const LM_BOX* box = boxes_.Peek(*cells->facets.Peek(c));
            if (!box) continue;  // box id past the grid
            for (uint32_t i = 0; i < box->facets.count; ++i) {
                const uint32_t g = *box->facets.Peek(i);
                if (g != f && g < bounds_.size()) candidates_.push_back(g);
            }
        }
        std::sort(candidates_.begin(), candidates_.end());
        candidates_.erase(std::unique(candidates_.begin(), candidates_.end()), candidates_.end());
    }

    const L_LUMOMESH& mesh_;
    double planeTolerance_;
    BaseList<LM_BOX> boxes_, table_;
    std::vector<Bounds> bounds_;
    std::vector<uint32_t> candidates_;
};

// ---- Cutting a facet -------------------------------------------------------------------
//
// The triangle test gives each segment running along n x g (the normals of the cut
// facet and of the facet crossing it). The positive side of g's plane, the side it
// faces and the one that is kept, then lies on the right of the segment seen from
// n's front. So the crossings chained head to tail make a seam with the kept part on
// its right, even where the seam bends over several facets of the other sheet; this
// decides the same sides as g's plane function where one plane is concerned.

struct NewTriangle {
    float p[3][3];
    uint32_t groupId;
};

using Polygon = std::vector<L_POINT>;

// The side of the facet (k runs from corner k to k + 1) that p lies on, or nearest to.
int NearestSide(const Triangle& facet, const L_POINT& p)
{
    int nearest = 0;
    for (int k = 1; k < 3; ++k)
        if (DistanceToLine(p, facet.Corner(k), facet.Corner((k + 1) % 3)) <
            DistanceToLine(p, facet.Corner(nearest), facet.Corner((nearest + 1) % 3)))
            nearest = k;
    return nearest;
}

// The crossings head to tail, as pieces of seam: from the start nearest the facet's
// border, each step takes the unused segment that starts where the last one ended;
// where none does, a new piece begins. A facet that the other sheet's border passes
// in and out of more than once has several pieces.
std::vector<Polygon> ChainSeams(const Triangle& facet, const std::vector<Crossing>& crossings)
{
    const auto border = [&](const L_POINT& p) {
        const int side = NearestSide(facet, p);
        return DistanceToLine(p, facet.Corner(side), facet.Corner((side + 1) % 3));
    };
    const size_t none = crossings.size();
    std::vector<bool> used(crossings.size(), false);
    std::vector<Polygon> seams;
    for (size_t left = crossings.size(); left > 0;) {
        size_t current = none;
        for (size_t i = 0; i < crossings.size(); ++i)
            if (!used[i] && (current == none || border(crossings[i].start) < border(crossings[current].start)))
                current = i;
        Polygon seam{crossings[current].start};
        while (current != none) {
            used[current] = true;
            --left;
            const L_POINT& end = crossings[current].end;
            seam.push_back(end);
            current = none;
            for (size_t i = 0; i < crossings.size(); ++i)
                if (!used[i] && Coincide(crossings[i].start, end)) current = i;
            // A piece ends on the border; one that stops inside goes on from the nearest start.
            if (current != none || left == 0 || border(end) <= kCrossTolerance) continue;
            for (size_t i = 0; i < crossings.size(); ++i)
                if (!used[i] && (current == none || Length(Minus(crossings[i].start, end)) <
                                                        Length(Minus(crossings[current].start, end))))
                    current = i;
            seam.push_back(crossings[current].start);
        }
        seams.push_back(seam);
    }
    return seams;
}

// Where p lies on the facet's border, counted in the winding from corner 0: side k
// covers [k, k + 1].
double BorderPosition(const Triangle& facet, const L_POINT& p)
{
    const int k = NearestSide(facet, p);
    const L_POINT a = facet.Corner(k), direction = Minus(facet.Corner((k + 1) % 3), a);
    const double squared = Dot(direction, direction);
    const double along = squared > 0.0 ? Dot(Minus(p, a), direction) / squared : 0.0;
    return k + std::min(std::max(along, 0.0), 1.0);
}

// How far the border runs in the winding from position `from` to `to`, in (0, 3].
double BorderRun(double from, double to)
{
    const double run = std::fmod(to - from + 3.0, 3.0);
    return run > 0.0 ? run : 3.0;
}

void AppendDistinct(Polygon& polygon, const L_POINT& p)
{
    if (polygon.empty() || !Coincide(polygon.back(), p)) polygon.push_back(p);
}

// The kept parts in the facet's winding. Each part runs along a seam backwards, from
// where it leaves the facet to where it enters, then along the border past the corners
// to where the first seam after that leaves, and so on until it closes. Corners come
// before the next seam, so a fan from point 0 of a part of four never spans three
// seam points, which may lie in a line.
std::vector<Polygon> BuildKeptPolygons(const Triangle& facet, const std::vector<Polygon>& seams)
{
    std::vector<double> entry, exit;
    for (const Polygon& seam : seams) {
        entry.push_back(BorderPosition(facet, seam.front()));
        exit.push_back(BorderPosition(facet, seam.back()));
    }
    std::vector<bool> used(seams.size(), false);
    std::vector<Polygon> parts;
    for (size_t first = 0; first < seams.size(); ++first) {
        Polygon part;
        for (size_t s = first; !used[s];) {
            used[s] = true;
            size_t next = s;  // the seam that leaves first after this one enters
            for (size_t t = 0; t < seams.size(); ++t)
                if (BorderRun(entry[s], exit[t]) < BorderRun(entry[s], exit[next])) next = t;
            const double run = BorderRun(entry[s], exit[next]);
            for (int step = 1; step <= 3; ++step) {
                const int corner = (int(std::floor(entry[s])) + step) % 3;
                if (BorderRun(entry[s], corner) < run) AppendDistinct(part, facet.Corner(corner));
            }
            for (auto p = seams[next].rbegin(); p != seams[next].rend(); ++p) AppendDistinct(part, *p);
            s = next;
        }
        while (part.size() > 1 && Coincide(part.front(), part.back())) part.pop_back();
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

class TriangleSink {
public:
    TriangleSink(std::vector<NewTriangle>& triangles, uint32_t groupId) : triangles_(triangles), groupId_(groupId) {}

    void Add(const L_POINT& a, const L_POINT& b, const L_POINT& c)
    {
        triangles_.push_back({{{float(a.x), float(a.y), float(a.z)},
                               {float(b.x), float(b.y), float(b.z)},
                               {float(c.x), float(c.y), float(c.z)}},
                              groupId_});
    }

    static void FromTessellator(double* p0, double* p1, double* p2, void* user)
    {
        static_cast<TriangleSink*>(user)->Add({p0[0], p0[1], p0[2]}, {p1[0], p1[1], p1[2]}, {p2[0], p2[1], p2[2]});
    }

private:
    std::vector<NewTriangle>& triangles_;
    uint32_t groupId_;
};

// Larger polygons go to the tessellator as one contour; it keeps their winding.
void Tessellate(const Polygon& polygon, TriangleSink& sink)
{
    GeoLibTessellate3DSetCbk(TriangleSink::FromTessellator, &sink);
    GeoLibTessellate3DBeginPath(false);
    GeoLibTessellate3DBeginContour();
    for (const L_POINT& p : polygon) {
        double xyz[3] = {p.x, p.y, p.z};
        GeoLibTessellate3DVertex(xyz);
    }
    GeoLibTessellate3DEndContour();
    GeoLibTessellate3DEndPath();
    GeoLibTessellate3DSetCbk(nullptr, nullptr);
}

void Triangulate(Polygon polygon, TriangleSink& sink)
{
    if (polygon.size() < 3) return;
    if (polygon.size() == 3) {
        sink.Add(polygon[0], polygon[1], polygon[2]);
    } else if (polygon.size() == 4) {
        // Seam ends put in the wrong order make a bow tie; swapping them undoes it.
        if (SidesCross(polygon[1], polygon[2], polygon[0], polygon[3])) std::swap(polygon[2], polygon[3]);
        sink.Add(polygon[0], polygon[1], polygon[2]);
        sink.Add(polygon[0], polygon[2], polygon[3]);
    } else {
        Tessellate(polygon, sink);
    }
}

// Replaces facet f by triangles over its part on the kept side of its crossings.
void CutFacet(const L_LUMOMESH& mesh, uint32_t f, const std::vector<Crossing>& crossings,
              std::vector<NewTriangle>& added)
{
    Triangle facet;
    if (!ReadTriangle(mesh, f, facet)) return;
    TriangleSink sink(added, mesh.facets.Peek(f)->groupId);
    for (Polygon& part : BuildKeptPolygons(facet, ChainSeams(facet, crossings))) Triangulate(part, sink);
}

// ---- The walk --------------------------------------------------------------------------

enum class Visit : uint8_t { Unseen, Walked, Cut };

// Breadth first from the seed; neighbours that cross something are cut, the others
// walked through. Marks are shared between seeds, so no facet is visited twice.
void WalkFromSeed(const L_LUMOMESH& mesh, uint32_t seed, FacetGrid& grid, std::vector<Visit>& visits,
                  BaseList<uint32_t>& cut, std::vector<NewTriangle>& added)
{
    std::vector<uint32_t> frontier{seed};
    visits[seed] = Visit::Walked;
    BaseList<uint32_t> neighbours;
    std::vector<Crossing> crossings;
    for (size_t next = 0; next < frontier.size(); ++next) {
        neighbours.Clear();
        LMeshGetFacetsAroundFacetByVertices(mesh, frontier[next], neighbours);
        for (uint32_t i = 0; i < neighbours.count; ++i) {
            const uint32_t n = *neighbours.Peek(i);
            if (n >= visits.size() || visits[n] != Visit::Unseen || !IsLive(mesh, n)) continue;
            grid.CollectCrossings(n, crossings);
            if (crossings.empty()) {
                visits[n] = Visit::Walked;
                frontier.push_back(n);
                continue;
            }
            visits[n] = Visit::Cut;
            CutFacet(mesh, n, crossings, added);
            uint32_t* slot = cut.At(cut.count);
            if (slot) *slot = n;  // out of memory: the facet stays beside its pieces
        }
    }
}

// Keeps the tessellator's process-wide state for the length of one cleanup.
class TessellatorSession {
public:
    TessellatorSession() { GeoLibTessellate3DInit(); }
    ~TessellatorSession() { GeoLibTessellate3DRelease(); }
    TessellatorSession(const TessellatorSession&) = delete;
    TessellatorSession& operator=(const TessellatorSession&) = delete;
};

void CutCrossingFacets(L_LUMOMESH& mesh, const BaseList<uint32_t>& seeds)
{
    FacetGrid grid(mesh, std::max(kCrossTolerance, PlaneToleranceOf(mesh)));
    std::vector<Visit> visits(mesh.facets.count, Visit::Unseen);
    BaseList<uint32_t> cut;
    std::vector<NewTriangle> added;
    {
        TessellatorSession session;
        for (uint32_t i = 0; i < seeds.count; ++i) {
            const uint32_t seed = *seeds.Peek(i);
            if (!IsLive(mesh, seed) || visits[seed] != Visit::Unseen) continue;  // dead, or reached already
            WalkFromSeed(mesh, seed, grid, visits, cut, added);
        }
    }
    for (const NewTriangle& t : added) LMeshAddTriangle(mesh, t.p[0], t.p[1], t.p[2], t.groupId);
    LMeshDeleteFacets(mesh, cut);
}

// ---- The round trip through the file ---------------------------------------------------

void RemoveFile(const std::wstring& path)
{
    std::string narrow;
    if (LscWideToUtf8(path.c_str(), narrow)) std::remove(narrow.c_str());
}

// Saved and loaded back with a merge, which welds the pieces to their surroundings.
bool WeldThroughStlFile(L_LUMOMESH& mesh, const wchar_t* folder)
{
    const std::wstring path = std::wstring(folder) + kTemporaryName;
    if (!LMeshSaveToStlBin(mesh, path.c_str(), nullptr, 1.0f, nullptr)) {
        RemoveFile(path);
        return false;
    }
    L_LUMOMESH loaded;
    const bool read = LMeshLoadFromSTL(path.c_str(), kStlMergeTolerance, &loaded);
    RemoveFile(path);
    if (!read) return false;
    mesh = std::move(loaded);
    return true;
}

}  // namespace

short LMeshCleanUpAfterOffset(L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, const wchar_t* folder)
{
    if (!folder) return -1;  // no place for the file: nothing is done
    LMeshRecomputeNormals(mesh);
    LMeshOrientFacets(mesh, kOrientTolerance, 1);
    CutCrossingFacets(mesh, facets);
    if (!WeldThroughStlFile(mesh, folder)) return -1;
    LMeshOptimizeEdges(mesh, kWeldTolerance, nullptr, nullptr, nullptr, 1);
    LMeshOrientFacets(mesh, kOrientTolerance, 1);
    LMeshDeleteEqualFacets(mesh, kEqualTolerance);
    return 0;
}

// ---- Intermediate mesh -----------------------------------------------------------------

namespace {

struct IntermediateVertex {
    float start[3];
    float displacement[3];
    float weight;  // positive for a vertex that moves
};

// Process-wide by design, like the navigation tables: one caller at a time.
struct IntermediateState {
    BaseList<IntermediateVertex> vertices;
    bool valid = false;
    uint32_t facetCount = 0;
};

IntermediateState& Intermediate()
{
    static IntermediateState state;
    return state;
}

// The corners of one facet of `first` with their way to `second`; corners that either
// mesh cannot name are passed over.
void RecordFacetCorners(const L_LUMOMESH& first, const L_LUMOMESH& second, uint32_t facet,
                        BaseList<IntermediateVertex>& records)
{
    const LM_FACET* record = first.facets.Peek(facet);
    if (!record) return;  // facet id past the store
    for (int k = 0; k < 3; ++k) {
        const uint32_t v = record->vertex[k];  // copied: the field is packed
        const LM_VERTEX* from = first.vertices.Peek(v);
        const LM_VERTEX* to = second.vertices.Peek(v);
        if (!from || !to || v >= records.count) continue;
        IntermediateVertex* out = records.At(v);
        for (int c = 0; c < 3; ++c) {
            out->start[c] = from->position[c];
            out->displacement[c] = to->position[c] - from->position[c];
        }
        out->weight = 1.0f;
    }
}

}  // namespace

short LMeshStartIntermediateMesh(const L_LUMOMESH& first, const L_LUMOMESH& second, const BaseList<uint32_t>& facets)
{
    IntermediateState& state = Intermediate();
    state.valid = false;
    state.vertices.Clear();  // fresh pages read as zero: no vertex moves until recorded
    if (!state.vertices.SetSize(first.vertices.count)) return 0;
    for (uint32_t i = 0; i < facets.count; ++i) RecordFacetCorners(first, second, *facets.Peek(i), state.vertices);
    state.facetCount = first.facetCount;
    state.valid = true;
    return 1;
}

short LMeshGetIntermediateMesh(int step, int steps, L_LUMOMESH& mesh)
{
    const IntermediateState& state = Intermediate();
    if (!state.valid || mesh.facetCount != state.facetCount) return 0;
    const float t = float(step) / float(steps);
    for (uint32_t v = 0; v < state.vertices.count && v < mesh.vertices.count; ++v) {
        const IntermediateVertex& record = *state.vertices.Peek(v);
        if (!(record.weight > 0.0f)) continue;
        LM_VERTEX* vertex = mesh.vertices.At(v);
        for (int c = 0; c < 3; ++c) vertex->position[c] = record.start[c] + t * record.displacement[c];
    }
    return 1;
}

void LMeshEndIntermediateMesh()
{
    IntermediateState& state = Intermediate();
    state.valid = false;
    state.facetCount = 0;
    state.vertices.Clear();
}
