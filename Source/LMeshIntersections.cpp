// Intersections and overlaps: facets of one mesh that pass through each other, or lie
// over each other in one plane, found pair by pair and optionally deleted.
//
// Without a facet list, the candidates of a facet are the facets of its adaptive
// boxes. A pair can only be reported when the two triangles meet, so candidates whose
// bounds lie apart (by more than the plane tolerance allows) are left out before the
// pair test: the reports, their order and the deletions are those of testing every
// candidate, at the cost of a bounds check for most of them.
#include "LMeshIntersections.h"
#include "LMeshRead.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>
#include <utility>
#include <vector>

#include "LMeshOrientation.h"

namespace {

// ---- The triangle test -------------------------------------------------------------

struct Vec {
    double x, y, z;
};

Vec Minus(const Vec& a, const Vec& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec Cross(const Vec& a, const Vec& b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double Dot(const Vec& a, const Vec& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec Widen(const float p[3]) { return {p[0], p[1], p[2]}; }
double Get(const Vec& v, int axis) { return axis == 0 ? v.x : axis == 1 ? v.y : v.z; }

int Sign(double value) { return (value > 0.0) - (value < 0.0); }

// Orientation of r against the line p q in the plane of axes i, j.
double Orient2D(const Vec& p, const Vec& q, const Vec& r, int i, int j)
{
    return (Get(q, i) - Get(p, i)) * (Get(r, j) - Get(p, j)) - (Get(q, j) - Get(p, j)) * (Get(r, i) - Get(p, i));
}

bool WithinSpan(const Vec& p, const Vec& q, const Vec& r, int i, int j)
{
    return std::min(Get(p, i), Get(q, i)) <= Get(r, i) && Get(r, i) <= std::max(Get(p, i), Get(q, i)) &&
           std::min(Get(p, j), Get(q, j)) <= Get(r, j) && Get(r, j) <= std::max(Get(p, j), Get(q, j));
}

// Closed segments p q and r s meet in the plane of axes i, j.
bool SegmentsMeet2D(const Vec& p, const Vec& q, const Vec& r, const Vec& s, int i, int j)
{
    const int o1 = Sign(Orient2D(p, q, r, i, j)), o2 = Sign(Orient2D(p, q, s, i, j));
    const int o3 = Sign(Orient2D(r, s, p, i, j)), o4 = Sign(Orient2D(r, s, q, i, j));
    if (o1 * o2 < 0 && o3 * o4 < 0) return true;
    return (o1 == 0 && WithinSpan(p, q, r, i, j)) || (o2 == 0 && WithinSpan(p, q, s, i, j)) ||
           (o3 == 0 && WithinSpan(r, s, p, i, j)) || (o4 == 0 && WithinSpan(r, s, q, i, j));
}

// Point inside or on the triangle in the plane of axes i, j.
bool InsideTriangle2D(const Vec t[3], const Vec& p, int i, int j)
{
    const int a = Sign(Orient2D(t[0], t[1], p, i, j)), b = Sign(Orient2D(t[1], t[2], p, i, j)),
              c = Sign(Orient2D(t[2], t[0], p, i, j));
    return !((a < 0 || b < 0 || c < 0) && (a > 0 || b > 0 || c > 0));
}

// Two triangles of one plane overlap, seen along the axis nearest to its normal.
bool CoplanarOverlap(const Vec a[3], const Vec b[3], const Vec& normal)
{
    const double nx = std::fabs(normal.x), ny = std::fabs(normal.y), nz = std::fabs(normal.z);
    const int dropped = (nx >= ny && nx >= nz) ? 0 : (ny >= nz ? 1 : 2);
    const int i = (dropped + 1) % 3, j = (dropped + 2) % 3;
    for (int k = 0; k < 3; ++k)
        for (int m = 0; m < 3; ++m)
            if (SegmentsMeet2D(a[k], a[(k + 1) % 3], b[m], b[(m + 1) % 3], i, j)) return true;
    return InsideTriangle2D(b, a[0], i, j) || InsideTriangle2D(a, b[0], i, j);
}

// Where a triangle meets the other's plane, from its corners' signed distances: its
// corners on the plane and the crossings of its edges whose ends lie on opposite
// sides. Two points at most (one when it only touches the plane at a corner).
int PiecePoints(const Vec t[3], const double distance[3], Vec points[2])
{
    int count = 0;
    for (int k = 0; k < 3 && count < 2; ++k) {
        const int m = (k + 1) % 3;
        if (distance[k] == 0.0) points[count++] = t[k];
        if (count < 2 && Sign(distance[k]) * Sign(distance[m]) < 0) {
            const double s = distance[k] / (distance[k] - distance[m]);
            points[count++] = {t[k].x + (t[m].x - t[k].x) * s, t[k].y + (t[m].y - t[k].y) * s,
                               t[k].z + (t[m].z - t[k].z) * s};
        }
    }
    return count;
}

struct Interval {
    double low, high;
    Vec lowPoint, highPoint;
};

Interval AlongLine(const Vec points[2], int count, const Vec& direction)
{
    const Vec& first = points[0];
    const Vec& second = points[count > 1 ? 1 : 0];
    const double t0 = Dot(direction, first), t1 = Dot(direction, second);
    if (t0 <= t1) return {t0, t1, first, second};
    return {t1, t0, second, first};
}

bool IsCornerOf(const Vec& p, const Vec t[3])
{
    for (int k = 0; k < 3; ++k)
        if (p.x == t[k].x && p.y == t[k].y && p.z == t[k].z) return true;
    return false;
}

bool Finite(const float p[3]) { return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]); }

}  // namespace

TriangleCrossing CrossTriangles(const float a0[3], const float a1[3], const float a2[3], const float b0[3],
                                const float b1[3], const float b2[3], double planeTolerance)
{
    TriangleCrossing crossing;
    if (!Finite(a0) || !Finite(a1) || !Finite(a2) || !Finite(b0) || !Finite(b1) || !Finite(b2)) return crossing;
    const Vec a[3] = {Widen(a0), Widen(a1), Widen(a2)};
    const Vec b[3] = {Widen(b0), Widen(b1), Widen(b2)};
    const Vec na = Cross(Minus(a[1], a[0]), Minus(a[2], a[0]));
    const Vec nb = Cross(Minus(b[1], b[0]), Minus(b[2], b[0]));
    const double squaredA = Dot(na, na), squaredB = Dot(nb, nb);
    if (!(squaredA > 0.0) || !(squaredB > 0.0)) return crossing;

    // Distances scaled by the other normal's length: only their signs and ratios are
    // used, and the tolerance is held against them squared, so no root is taken.
    double fromB[3], fromA[3];  // a's corners from b's plane, b's from a's
    bool aFlat = true, bFlat = true;
    const double tolerance2 = planeTolerance * planeTolerance;
    for (int k = 0; k < 3; ++k) {
        // A corner the triangles share lies in both planes: exactly, not as rounded,
        // so neighbours meeting at a corner touch in a point instead of a sliver.
        fromB[k] = IsCornerOf(a[k], b) ? 0.0 : Dot(nb, Minus(a[k], b[0]));
        fromA[k] = IsCornerOf(b[k], a) ? 0.0 : Dot(na, Minus(b[k], a[0]));
        aFlat = aFlat && fromB[k] * fromB[k] <= tolerance2 * squaredB;
        bFlat = bFlat && fromA[k] * fromA[k] <= tolerance2 * squaredA;
    }
    if (aFlat || bFlat) {
        crossing.coplanar = true;
        crossing.intersect = CoplanarOverlap(a, b, na);
        return crossing;
    }
    // Beyond the tolerance the signs decide as computed, so pieces lie on the planes.
    const auto oneSide = [](const double d[3]) {
        return (d[0] > 0.0 && d[1] > 0.0 && d[2] > 0.0) || (d[0] < 0.0 && d[1] < 0.0 && d[2] < 0.0);
    };
    if (oneSide(fromB) || oneSide(fromA)) return crossing;
    Vec pieceA[2], pieceB[2];
    const int countA = PiecePoints(a, fromB, pieceA), countB = PiecePoints(b, fromA, pieceB);
    if (countA == 0 || countB == 0) return crossing;
    const Vec direction = Cross(na, nb);
    const Interval onA = AlongLine(pieceA, countA, direction), onB = AlongLine(pieceB, countB, direction);
    if (std::max(onA.low, onB.low) > std::min(onA.high, onB.high)) return crossing;
    const Vec& start = onA.low >= onB.low ? onA.lowPoint : onB.lowPoint;
    const Vec& end = onA.high <= onB.high ? onA.highPoint : onB.highPoint;
    crossing.intersect = true;
    crossing.start = {start.x, start.y, start.z};
    crossing.end = {end.x, end.y, end.z};
    return crossing;
}

double PlaneToleranceOf(const L_LUMOMESH& mesh)
{
    // Four roundings of a float at the mesh's largest coordinate.
    constexpr double kRoundings = 4.0 * 1.1920928955078125e-07;
    L_BOUNDS bounds;
    LMeshComputeAbsoluteBoundingBox(mesh, bounds);
    double largest = 0.0;
    for (int k = 0; k < 3; ++k) largest = std::max({largest, std::fabs(bounds.min[k]), std::fabs(bounds.max[k])});
    return std::isfinite(largest) ? largest * kRoundings : 0.0;
}

namespace {

// ---- The pair tests ------------------------------------------------------------------

struct Corners {
    float p[3][3];
};

bool ReadCorners(const L_LUMOMESH& mesh, const LM_FACET& facet, Corners& corners)
{
    return ReadPosition(mesh, facet.vertex[0], corners.p[0]) && ReadPosition(mesh, facet.vertex[1], corners.p[1]) &&
           ReadPosition(mesh, facet.vertex[2], corners.p[2]);
}

bool Near(const float a[3], const float b[3], float tolerance)
{
    return std::fabs(a[0] - b[0]) < tolerance && std::fabs(a[1] - b[1]) < tolerance &&
           std::fabs(a[2] - b[2]) < tolerance;
}

bool ReadEdgeEnds(const L_LUMOMESH& mesh, uint32_t edge, float ends[2][3])
{
    const LM_EDGE* record = mesh.edges.Peek(edge);
    return record && ReadPosition(mesh, record->vertex[0], ends[0]) && ReadPosition(mesh, record->vertex[1], ends[1]);
}

// An edge record both facets name is a common edge whenever the tolerance admits
// equal (finite) positions: the cheap answer for neighbours.
bool ShareEdgeRecord(const L_LUMOMESH& mesh, const LM_FACET& f, const LM_FACET& g, float tolerance)
{
    if (!(tolerance > 0.0f)) return false;
    for (int k = 0; k < 3; ++k) {
        const uint32_t e = f.edge[k];
        float ends[2][3];
        if ((e == g.edge[0] || e == g.edge[1] || e == g.edge[2]) && ReadEdgeEnds(mesh, e, ends) &&
            Near(ends[0], ends[0], tolerance) && Near(ends[1], ends[1], tolerance))
            return true;
    }
    return false;
}

// Some edge of f and some edge of g have their ends near each other pairwise, in
// either direction.
bool HaveCommonEdge(const L_LUMOMESH& mesh, const LM_FACET& f, const LM_FACET& g, float tolerance)
{
    for (int k = 0; k < 3; ++k) {
        float p[2][3];
        if (!ReadEdgeEnds(mesh, f.edge[k], p)) continue;
        for (int m = 0; m < 3; ++m) {
            float q[2][3];
            if (!ReadEdgeEnds(mesh, g.edge[m], q)) continue;
            if ((Near(p[0], q[0], tolerance) && Near(p[1], q[1], tolerance)) ||
                (Near(p[0], q[1], tolerance) && Near(p[1], q[0], tolerance)))
                return true;
        }
    }
    return false;
}

// The lower id's triangle goes first, so a pair met from either side gives the same
// crossing to the last bit and every pair test is symmetric.
TriangleCrossing Cross(uint32_t f, const Corners& fc, uint32_t g, const Corners& gc, double planeTolerance)
{
    const Corners& a = f < g ? fc : gc;
    const Corners& b = f < g ? gc : fc;
    return CrossTriangles(a.p[0], a.p[1], a.p[2], b.p[0], b.p[1], b.p[2], planeTolerance);
}

struct IntersectionTest {
    const L_LUMOMESH& mesh;
    float minimumLength, tolerance;
    double planeTolerance;

    bool operator()(uint32_t fid, const LM_FACET& f, const Corners& fc, uint32_t gid, const LM_FACET& g,
                    const Corners& gc) const
    {
        // All conditions must hold; the cheap ones go first (neighbours that share
        // an edge record, then those touching at a corner: no length).
        if (ShareEdgeRecord(mesh, f, g, tolerance)) return false;
        const TriangleCrossing crossing = Cross(fid, fc, gid, gc, planeTolerance);
        if (!crossing.intersect || crossing.coplanar) return false;
        const float s[3] = {float(crossing.start.x), float(crossing.start.y), float(crossing.start.z)};
        const float e[3] = {float(crossing.end.x), float(crossing.end.y), float(crossing.end.z)};
        const float dx = e[0] - s[0], dy = e[1] - s[1], dz = e[2] - s[2];
        const float squared = dx * dx + dy * dy + dz * dz;
        if (!(float(std::sqrt(double(squared))) > minimumLength)) return false;
        const float middle[3] = {(s[0] + e[0]) * 0.5f, (s[1] + e[1]) * 0.5f, (s[2] + e[2]) * 0.5f};
        if (!PointInTriangle(middle, fc.p[0], fc.p[1], fc.p[2], tolerance) &&
            !PointInTriangle(middle, gc.p[0], gc.p[1], gc.p[2], tolerance))
            return false;
        return !HaveCommonEdge(mesh, f, g, tolerance);
    }
};

// The crossing parameters of the two lines lie strictly inside (tolerance, 1 -
// tolerance) on both edges; nearly parallel edges never cross.
bool EdgesCrossProperly(const float p0[3], const float p1[3], const float q0[3], const float q1[3], float tolerance)
{
    const Vec d1 = Minus(Widen(p1), Widen(p0)), d2 = Minus(Widen(q1), Widen(q0)), r = Minus(Widen(q0), Widen(p0));
    const Vec c = Cross(d1, d2);
    const double divisor = Dot(c, c);
    if (divisor < tolerance) return false;
    const double s = Dot(Cross(r, d2), c) / divisor, t = Dot(Cross(r, d1), c) / divisor;
    const double low = tolerance, high = 1.0 - double(tolerance);
    return low < s && s < high && low < t && t < high;
}

bool AnyEdgesCrossProperly(const Corners& f, const Corners& g, float tolerance)
{
    for (int k = 0; k < 3; ++k)
        for (int m = 0; m < 3; ++m)
            if (EdgesCrossProperly(f.p[k], f.p[(k + 1) % 3], g.p[m], g.p[(m + 1) % 3], tolerance)) return true;
    return false;
}

// A corner of g dropped along g's normal onto f's plane lands in f. Where the
// normals are nearly at right angles the previous landing point stands (the origin
// at first).
bool CornerLandsInFacet(const LM_FACET& f, const Corners& fc, const LM_FACET& g, const Corners& gc, float tolerance)
{
    const float m[3] = {g.normal[0], g.normal[1], g.normal[2]};
    const float n[3] = {f.normal[0], f.normal[1], f.normal[2]};
    const float mn = m[0] * n[0] + m[1] * n[1] + m[2] * n[2];
    float h[3] = {0.0f, 0.0f, 0.0f};
    for (int k = 0; k < 3; ++k) {
        const float* p = gc.p[k];
        if (std::fabs(mn) >= tolerance) {
            const float* q = fc.p[0];
            const float along = ((q[0] - p[0]) * n[0] + (q[1] - p[1]) * n[1] + (q[2] - p[2]) * n[2]) / mn;
            for (int c = 0; c < 3; ++c) h[c] = p[c] + m[c] * along;
        }
        if (PointInTriangle(h, fc.p[0], fc.p[1], fc.p[2], tolerance)) return true;
    }
    return false;
}

struct OverlapTest {
    float tolerance;
    double planeTolerance;
    bool listGiven;

    bool operator()(uint32_t fid, const LM_FACET& f, const Corners& fc, uint32_t gid, const LM_FACET& g,
                    const Corners& gc) const
    {
        const TriangleCrossing crossing = Cross(fid, fc, gid, gc, planeTolerance);
        if (crossing.intersect && AnyEdgesCrossProperly(fc, gc, tolerance)) return crossing.coplanar;
        return listGiven && CornerLandsInFacet(f, fc, g, gc, tolerance);
    }
};

// ---- The search frame ------------------------------------------------------------------

struct Bounds {
    float low[3], high[3];
};

bool Overlap(const Bounds& a, const Bounds& b)
{
    return a.low[0] <= b.high[0] && b.low[0] <= a.high[0] && a.low[1] <= b.high[1] && b.low[1] <= a.high[1] &&
           a.low[2] <= b.high[2] && b.low[2] <= a.high[2];
}

// The corners' bounds widened by the margin on every side; nothing for a facet
// whose corners cannot be read.
Bounds BoundsOf(const Corners* corners, float margin)
{
    Bounds bounds;
    for (int k = 0; k < 3; ++k) {
        bounds.low[k] = INFINITY;
        bounds.high[k] = -INFINITY;
    }
    if (!corners) return bounds;
    for (const float* p : corners->p)
        for (int k = 0; k < 3; ++k) {
            bounds.low[k] = std::min(bounds.low[k], p[k] - margin);
            bounds.high[k] = std::max(bounds.high[k], p[k] + margin);
        }
    return bounds;
}

struct Member {
    Bounds bounds;
    uint32_t facet;
};

// The facets of one box in strips across its second-longest axis, each strip by the
// low end of its facets' ranges along the longest axis. A facet reaching f's range
// lies in a strip f's range crosses, and starts no further down than f's low end less
// the strip's widest facet, and no further up than f's high end: only those runs are
// scanned. The few facets far wider than most are kept apart, so that they do not
// widen every scan.
class BoxMembers {
public:
    void Fill(const BaseList<uint32_t>& ids, const std::vector<Bounds>& bounds)
    {
        std::vector<Member> members;
        Bounds all = BoundsOf(nullptr, 0.0f);
        for (uint32_t i = 0; i < ids.count; ++i) {
            const uint32_t id = *ids.Peek(i);
            if (id >= bounds.size() || !(bounds[id].low[0] <= bounds[id].high[0])) continue;  // unreadable: empty
            members.push_back({bounds[id], id});
            for (int k = 0; k < 3; ++k) {
                all.low[k] = std::min(all.low[k], bounds[id].low[k]);
                all.high[k] = std::max(all.high[k], bounds[id].high[k]);
            }
        }
        ChooseAxes(all);
        const float limit = kWideFactor * MedianWidth(members);
        std::vector<Member> narrow;
        for (const Member& member : members) (Width(member) > limit ? wide_ : narrow).push_back(member);
        ChooseStrips(all, narrow.size());
        for (const Member& member : narrow) {
            const int first = StripOf(member.bounds.low[across_]), last = StripOf(member.bounds.high[across_]);
            for (int k = first; k <= last; ++k) strips_[k].Add(member, Width(member));
        }
        for (Strip& strip : strips_) strip.Sort(along_);
    }

    void CollectOverlapping(const Bounds& range, uint32_t self, std::vector<uint32_t>& out) const
    {
        if (!strips_.empty()) {
            const int first = StripOf(range.low[across_]), last = StripOf(range.high[across_]);
            for (int k = first; k <= last; ++k) strips_[k].Collect(range, self, along_, out);
        }
        for (const Member& wide : wide_)
            if (wide.facet != self && Overlap(wide.bounds, range)) out.push_back(wide.facet);
    }

private:
    static constexpr float kWideFactor = 4.0f;
    static constexpr size_t kMembersPerStrip = 40;

    class Strip {
    public:
        void Add(const Member& member, float width)
        {
            members_.push_back(member);
            widest_ = std::max(widest_, width);
        }

        void Sort(int along)
        {
            std::sort(members_.begin(), members_.end(),
                      [along](const Member& x, const Member& y) { return x.bounds.low[along] < y.bounds.low[along]; });
        }

        void Collect(const Bounds& range, uint32_t self, int along, std::vector<uint32_t>& out) const
        {
            const float from = range.low[along] - widest_;
            auto member = std::lower_bound(members_.begin(), members_.end(), from,
                                           [along](const Member& m, float x) { return m.bounds.low[along] < x; });
            for (; member != members_.end() && member->bounds.low[along] <= range.high[along]; ++member)
                if (member->facet != self && Overlap(member->bounds, range)) out.push_back(member->facet);
        }

    private:
        std::vector<Member> members_;
        float widest_ = 0.0f;
    };

    void ChooseAxes(const Bounds& all)
    {
        int order[3] = {0, 1, 2};
        std::sort(order, order + 3, [&all](int a, int b) { return all.high[a] - all.low[a] > all.high[b] - all.low[b]; });
        along_ = order[0];
        across_ = order[1];
    }

    void ChooseStrips(const Bounds& all, size_t members)
    {
        const float extent = all.high[across_] - all.low[across_];
        const int count = int(std::sqrt(double(members) / kMembersPerStrip)) + 1;
        origin_ = all.low[across_];
        stripWidth_ = extent / float(count);
        strips_.resize(stripWidth_ > 0.0f ? size_t(count) : 1);
        if (!(stripWidth_ > 0.0f)) stripWidth_ = 0.0f;
    }

    // The strip of a coordinate across, clamped to the strips there are. Infinite
    // coordinates or extents can make the position not a number: strip 0.
    int StripOf(float coordinate) const
    {
        if (!(stripWidth_ > 0.0f)) return 0;
        const float at = (coordinate - origin_) / stripWidth_;
        const int last = int(strips_.size()) - 1;
        return !(at > 0.0f) ? 0 : at >= float(last) ? last : int(at);
    }

    float Width(const Member& member) const { return member.bounds.high[along_] - member.bounds.low[along_]; }

    float MedianWidth(const std::vector<Member>& members) const
    {
        if (members.empty()) return 0.0f;
        std::vector<float> widths;
        widths.reserve(members.size());
        for (const Member& member : members) widths.push_back(Width(member));
        std::nth_element(widths.begin(), widths.begin() + widths.size() / 2, widths.end());
        return widths[widths.size() / 2];
    }

    std::vector<Strip> strips_;
    std::vector<Member> wide_;
    int along_ = 0, across_ = 1;
    float origin_ = 0.0f, stripWidth_ = 0.0f;
};

// Reports g: listed, and with deleting on, taken out of every later test.
class Findings {
public:
    Findings(L_LUMOMESH& mesh, BaseList<uint32_t>* output, bool deleting)
        : mesh_(mesh), output_(output), deleting_(deleting)
    {
    }

    void Report(uint32_t g)
    {
        if (output_) AppendTo(*output_, g);  // out of memory: the id is not listed
        if (!deleting_) return;
        mesh_.facets.At(g)->flags &= uint8_t(~LM_LIVE);
        removed_.push_back(g);
    }

    // Restores the live bits so that the deletion unhooks the facets properly.
    void Delete()
    {
        BaseList<uint32_t> list;
        for (uint32_t g : removed_) {
            mesh_.facets.At(g)->flags |= LM_LIVE;
            AppendTo(list, g);
        }
        LMeshDeleteFacets(mesh_, list);
    }

private:
    L_LUMOMESH& mesh_;
    BaseList<uint32_t>* output_;
    bool deleting_;
    std::vector<uint32_t> removed_;
};

const LM_FACET* LiveFacet(const L_LUMOMESH& mesh, uint32_t id)
{
    const LM_FACET* facet = mesh.facets.Peek(id);
    return facet && (facet->flags & LM_LIVE) ? facet : nullptr;
}

// Pairs reported so far by a symmetric test, so that a pair met again from its other
// side is answered without testing it again.
// Reports are rare: a flag per facet keeps most questions off the set.
class ReportedPairs {
public:
    explicit ReportedPairs(uint32_t facets) : involved_(facets, false) {}

    bool Contains(uint32_t a, uint32_t b) const { return involved_[a] && pairs_.count(Key(a, b)) != 0; }
    void Add(uint32_t a, uint32_t b)
    {
        involved_[a] = involved_[b] = true;
        pairs_.insert(Key(a, b));
    }

private:
    static uint64_t Key(uint32_t a, uint32_t b) { return a < b ? uint64_t(a) << 32 | b : uint64_t(b) << 32 | a; }
    std::vector<bool> involved_;
    std::unordered_set<uint64_t> pairs_;
};

// With `earlier`, a candidate g below f was tested against f at its own turn: both
// are live now, so both were then, and candidacy is mutual. The symmetric test gave
// the same answer then as now.
template <class PairTest>
void TestAgainst(const L_LUMOMESH& mesh, uint32_t f, const std::vector<uint32_t>& candidates, const PairTest& test,
                 Findings& findings, ReportedPairs* earlier)
{
    const LM_FACET* facet = LiveFacet(mesh, f);
    Corners fc;
    if (!facet || !ReadCorners(mesh, *facet, fc)) return;
    for (uint32_t g : candidates) {
        const LM_FACET* other = LiveFacet(mesh, g);
        Corners gc;
        if (g == f || !other || !ReadCorners(mesh, *other, gc)) continue;
        bool reported;
        if (earlier && g < f) {
            reported = earlier->Contains(g, f);
        } else {
            reported = test(f, *facet, fc, g, *other, gc);
            if (reported && earlier) earlier->Add(f, g);
        }
        if (reported) findings.Report(g);
    }
}

// The listed facets, each against the whole list in its order.
template <class PairTest>
void SearchList(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, const PairTest& test, Findings& findings)
{
    std::vector<uint32_t> candidates(facets.count);
    for (uint32_t i = 0; i < facets.count; ++i) candidates[i] = *facets.Peek(i);
    for (uint32_t f : candidates) TestAgainst(mesh, f, candidates, test, findings, nullptr);
}

// Every facet slot against the facets of its adaptive boxes whose bounds reach its own.
template <class PairTest>
void SearchBoxes(const L_LUMOMESH& mesh, double planeTolerance, const PairTest& test, Findings& findings)
{
    constexpr uint32_t kFacetsPerBox = 500;
    BaseList<LM_BOX> boxes, table;
    LMeshBoxFacetsNonUniform(mesh, boxes, kFacetsPerBox);
    LMeshBoxFacetsIndexTable(mesh, boxes, table);

    const uint32_t slots = mesh.facets.count;
    const float margin = float(planeTolerance);
    std::vector<Bounds> bounds(slots);
    for (uint32_t f = 0; f < slots; ++f) {
        Corners corners;
        const bool readable = ReadCorners(mesh, *mesh.facets.Peek(f), corners);
        bounds[f] = BoundsOf(readable ? &corners : nullptr, margin);
    }
    std::vector<BoxMembers> members(boxes.count);
    for (uint32_t b = 0; b < boxes.count; ++b) members[b].Fill(boxes.Peek(b)->facets, bounds);
    std::vector<uint32_t> found, candidates;
    // A facet wider than its boxes meets the same neighbours in each of them: repeats
    // are dropped as they come (the facet that last listed a slot), so that only the
    // distinct candidates are sorted.
    std::vector<uint32_t> listedBy(slots, UINT32_MAX);
    ReportedPairs reported(slots);
    for (uint32_t f = 0; f < slots && f < table.count; ++f) {
        if (!LiveFacet(mesh, f)) continue;
        candidates.clear();
        const BaseList<uint32_t>& cells = table.Peek(f)->facets;
        for (uint32_t c = 0; c < cells.count; ++c) {
            const uint32_t b = *cells.Peek(c);
            if (b >= members.size()) continue;
            found.clear();
            members[b].CollectOverlapping(bounds[f], f, found);
            for (uint32_t g : found)
                if (std::exchange(listedBy[g], f) != f) candidates.push_back(g);
        }
        std::sort(candidates.begin(), candidates.end());
        TestAgainst(mesh, f, candidates, test, findings, &reported);
    }
}

template <class PairTest>
uint32_t FindPairs(L_LUMOMESH& mesh, const BaseList<uint32_t>* facets, BaseList<uint32_t>* output, bool deleting,
                   bool alwaysDelete, double planeTolerance, const PairTest& test)
{
    const uint32_t before = mesh.facetCount;
    Findings findings(mesh, output, deleting);
    if (facets) {
        SearchList(mesh, *facets, test, findings);
    } else {
        SearchBoxes(mesh, planeTolerance, test, findings);
    }
    if (deleting || alwaysDelete) findings.Delete();
    return before - mesh.facetCount;
}

}  // namespace

uint32_t LMeshDeleteIntersections(L_LUMOMESH& mesh, float minimumLength, float tolerance,
                                  const BaseList<uint32_t>* facets, BaseList<uint32_t>* found, bool deleteFound)
{
    const double planeTolerance = PlaneToleranceOf(mesh);
    const IntersectionTest test{mesh, minimumLength, tolerance, planeTolerance};
    return FindPairs(mesh, facets, found, deleteFound, false, planeTolerance, test);
}

uint32_t LMeshDeletePartialOverlaps(L_LUMOMESH& mesh, float tolerance, const BaseList<uint32_t>* facets,
                                   BaseList<uint32_t>* found, bool deleteFound)
{
    const double planeTolerance = PlaneToleranceOf(mesh);
    const OverlapTest test{tolerance, planeTolerance, facets != nullptr};
    return FindPairs(mesh, facets, found, deleteFound, true, planeTolerance, test);
}
