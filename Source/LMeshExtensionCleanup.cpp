// Cleanups of a chain of extension records. Each quadrilateral is first grown by itself,
// so neighbours meet badly: a convex corner of the boundary leaves a gap between one
// record's outer end and the next one's outer start, a concave corner makes their
// quadrilaterals overlap. The stages move outer points and add corner fans, before any
// triangle exists, until every two consecutive quadrilaterals either share their outer
// point or have a fan spanning between them, and no two overlap at a corner.
#include "LMeshExtension.h"

#include <algorithm>
#include <set>
#include <vector>

namespace {

constexpr float kNoEdge = 0.0001f;  // mesh edges up to this long decide no corner
constexpr float kJoined = 0.001f;   // edge ends this close meet at a corner
constexpr float kApart = 1e-5f;     // outer points closer than this coincide
constexpr double kDegrees = 57.2957763671875;
constexpr float kGentleLow = 65.0f, kGentleHigh = 115.0f;  // corners the simple cleanup joins
constexpr float kSquareLow = 89.0f, kSquareHigh = 91.0f;   // ... the straight ones always
// The simple cleanup joins outer lines only where they meet within this share of either
// record's outer length from the corner, so a join never overshoots a neighbour.
constexpr float kJoinShare = 0.5f;
constexpr float kFanStep = 15.0f;  // degrees of turn per corner point
// Records within this many extension distances of a corner, and at most kMaxReach on
// either side, may overlap across it.
constexpr float kReachFactor = 4.0f;
constexpr uint32_t kMaxReach = 64;
// Outer segments that cross when seen along their quadrilaterals' normal meet if they
// pass within this share of the extension distance in depth (a curved surface leaves
// them apart where a flat one would cross them), or over their ends by kOverEnds.
constexpr float kMeetDepth = 0.5f;
constexpr float kOverEnds = 1e-4f;

using Records = BaseList<LM_EXTENDEDGE>;
constexpr uint32_t kNone = UINT32_MAX;

LM_EXTENDEDGE& At(Records& records, uint32_t i) { return *records.At(i); }
const LM_EXTENDEDGE& At(const Records& records, uint32_t i) { return *records.Peek(i); }

bool HasDirection(const LM_EXTENDEDGE& record)
{
    return record.direction[0] != 0.0f || record.direction[1] != 0.0f || record.direction[2] != 0.0f;
}

float EdgeLength(const LM_EXTENDEDGE& record) { return Distance(Load(record.startPoint), Load(record.endPoint)); }

Vec3f EdgeUnit(const LM_EXTENDEDGE& record)
{
    Vec3f unit;
    Unit(Load(record.endPoint) - Load(record.startPoint), unit);
    return unit;
}

float OuterLength(const LM_EXTENDEDGE& record)
{
    return Distance(Load(record.extendedStart), Load(record.extendedEnd));
}

bool IsClosed(const Records& records, float gap)
{
    return records.count > 1 &&
           Distance(Load(At(records, 0).startPoint), Load(At(records, records.count - 1).endPoint)) <= gap;
}

uint32_t Successor(uint32_t i, uint32_t count, bool closed)
{
    if (i + 1 < count) return i + 1;
    return closed ? 0 : kNone;
}

uint32_t Predecessor(uint32_t i, uint32_t count, bool closed)
{
    if (i > 0) return i - 1;
    return closed ? count - 1 : kNone;
}

// Two records meet at a corner when the first one's edge ends where the second's begins.
bool MeetAtCorner(const LM_EXTENDEDGE& record, const LM_EXTENDEDGE& next)
{
    return Distance(Load(record.endPoint), Load(next.startPoint)) < kJoined;
}

void SetPoint(float point[3], const Vec3f& value, bool& changed)
{
    if (point[0] == value.x && point[1] == value.y && point[2] == value.z) return;
    Store(value, point);
    changed = true;
}

void ReleaseCornerPoints(LM_EXTENDEDGE& record)
{
    l_memptr_free(record.cornerPoints);
    record.cornerPoints = nullptr;
    record.cornerPointCount = 0;
}

void SetCornerPoints(LM_EXTENDEDGE& record, const std::vector<Vec3f>& points)
{
    auto* block = static_cast<float(*)[3]>(l_memptr_alloc(nullptr, points.size() * sizeof(float[3])));
    if (!block) return;  // out of memory: the corner stays open
    ReleaseCornerPoints(record);
    for (size_t k = 0; k < points.size(); ++k) Store(points[k], block[k]);
    record.cornerPoints = block;
    record.cornerPointCount = int32_t(points.size());
}

L_VECTOR Widen(const Vec3f& v) { return {v.x, v.y, v.z}; }

float AngleDegrees(const Vec3f& a, const Vec3f& b) { return float(real_vector_angle(Widen(a), Widen(b)) * kDegrees); }

// The turn the simple cleanup measures at a corner: between the way back from the
// record's outer end to its edge and the successor's edge taken backwards. A straight
// boundary with square directions gives 90.
float CornerAngle(const LM_EXTENDEDGE& record, const LM_EXTENDEDGE& successor)
{
    return AngleDegrees(Load(record.endPoint) - Load(record.extendedEnd),
                        Load(successor.startPoint) - Load(successor.endPoint));
}

// Where the outer lines of two records, as unbounded lines, come nearest: the midpoint
// of their closest points. False for parallel lines or lines of no length.
bool OuterLinesMeet(const LM_EXTENDEDGE& p, const LM_EXTENDEDGE& q, Vec3f& point, float& apart)
{
    const Vec3f p0 = Load(p.extendedStart), q0 = Load(q.extendedStart);
    const Vec3f d1 = Load(p.extendedEnd) - p0, d2 = Load(q.extendedEnd) - q0, r = p0 - q0;
    const float a = Dot(d1, d1), b = Dot(d1, d2), e = Dot(d2, d2), denominator = a * e - b * b;
    if (!(a > 0.0f) || !(e > 0.0f) || !(denominator > 1e-6f * a * e)) return false;
    const float c = Dot(d1, r), f = Dot(d2, r);
    const Vec3f onP = p0 + ((b * f - c * e) / denominator) * d1;
    const Vec3f onQ = q0 + ((a * f - b * c) / denominator) * d2;
    point = 0.5f * (onP + onQ);
    apart = Distance(onP, onQ);
    return true;
}

// ---- Records turned the wrong way -------------------------------------------------------

constexpr uint32_t kLongestTurnedRun = 3;

// The side of its edge a record grows to, as the normal of its quadrilateral.
Vec3f SideOf(const LM_EXTENDEDGE& record)
{
    Vec3f out, side;
    if (!HasDirection(record) || !Unit(Load(record.extendedEnd) - Load(record.startPoint), out)) return {};
    Unit(Cross(EdgeUnit(record), out), side);
    return side;
}

// Where the section runs on through a narrow gap, the search can take the far side for
// the surface and give a record the way back into it. Such a record grows to the other
// side of the chain than both its neighbours, which agree: a run of up to
// kLongestTurnedRun of them is turned round, keeping each record's distance.
bool TurnRoundTurnedRecords(Records& records)
{
    bool changed = false;
    const bool closed = IsClosed(records, kJoined);
    for (uint32_t i = 0; i < records.count; ++i) {
        const uint32_t before = Predecessor(i, records.count, closed);
        if (before == kNone) continue;
        const Vec3f reference = SideOf(At(records, before));
        if (Dot(reference, SideOf(At(records, i))) >= 0.0f) continue;
        uint32_t run = 1, after = Successor(i, records.count, closed);
        while (after != kNone && after != before && run < kLongestTurnedRun &&
               Dot(reference, SideOf(At(records, after))) < 0.0f) {
            ++run;
            after = Successor(after, records.count, closed);
        }
        if (after == kNone || after == before || Dot(reference, SideOf(At(records, after))) <= 0.0f) continue;
        for (uint32_t k = 0, r = i; k < run; ++k, r = Successor(r, records.count, closed)) {
            LM_EXTENDEDGE& turned = At(records, r);
            const float distance = Distance(Load(turned.startPoint), Load(turned.extendedStart));
            const Vec3f way = -1.0f * Load(turned.direction);
            Store(way, turned.direction);
            Store(Load(turned.startPoint) + distance * way, turned.extendedStart);
            Store(Load(turned.endPoint) + distance * way, turned.extendedEnd);
            Store(-1.0f * Load(turned.extensionNormal), turned.extensionNormal);
        }
        changed = true;
    }
    return changed;
}

// ---- Records with no direction -------------------------------------------------------

// A record the search found no direction for takes the outer points of its neighbours,
// so the strip runs on over its edge; one whose edge the record before took over (a
// tiny edge joined to a long one) is dropped.
bool AdoptOuterPoints(Records& records)
{
    bool changed = false;
    Records kept(records.tableGrowth, records.pageSize);
    for (uint32_t i = 0; i < records.count; ++i) {
        const LM_EXTENDEDGE& record = At(records, i);
        const bool covered = !HasDirection(record) && kept.count > 0 &&
                             Distance(Load(At(kept, kept.count - 1).endPoint), Load(record.endPoint)) < kApart;
        if (covered) {
            changed = true;
            continue;
        }
        LM_EXTENDEDGE* copy = kept.At(kept.count);
        if (!copy) return false;  // out of memory: the list stays as it was
        *copy = record;
    }
    if (changed) records = std::move(kept);

    const bool closed = IsClosed(records, kJoined);
    for (uint32_t i = 0; i < records.count; ++i) {
        LM_EXTENDEDGE& record = At(records, i);
        if (HasDirection(record)) continue;
        const uint32_t before = Predecessor(i, records.count, closed), after = Successor(i, records.count, closed);
        Vec3f outerStart = Load(record.startPoint), outerEnd = Load(record.endPoint);
        if (before != kNone && HasDirection(At(records, before)) && MeetAtCorner(At(records, before), record))
            outerStart = Load(At(records, before).extendedEnd);
        if (after != kNone && HasDirection(At(records, after)) && MeetAtCorner(record, At(records, after)))
            outerEnd = Load(At(records, after).extendedStart);
        SetPoint(record.extendedStart, outerStart, changed);
        SetPoint(record.extendedEnd, outerEnd, changed);
    }
    return changed;
}

// ---- Corner fans ---------------------------------------------------------------------

// An overlapping (concave) corner: the next edge turns towards the side this record
// grows to, so their quadrilaterals overlap and a fan would fold back over both.
bool Overlapping(const LM_EXTENDEDGE& record, const LM_EXTENDEDGE& next)
{
    Vec3f out;
    if (!Unit(Load(record.extendedEnd) - Load(record.endPoint), out)) return false;
    return Dot(EdgeUnit(next), out) > 0.0f;
}

// Points on the arc around the corner from the record's outer end to the next outer
// start, one per kFanStep degrees of the turn and at least one, the radius changing
// evenly from one end to the other. Empty where there is nothing to fan.
std::vector<Vec3f> FanPoints(const LM_EXTENDEDGE& record, const LM_EXTENDEDGE& next)
{
    const Vec3f apex = Load(next.startPoint);
    const Vec3f u = Load(record.extendedEnd) - apex, v = Load(next.extendedStart) - apex;
    const float ru = Length(u), rv = Length(v);
    Vec3f from, across;
    if (!(ru >= kApart) || !(rv >= kApart) || !Unit(u, from)) return {};
    if (!Unit(v - Dot(v, from) * from, across)) {
        // The two outer points lie on one line through the corner: nothing to fill if on
        // the same side, else the boundary turns right back and the fan goes round the
        // tip, ahead along the record's edge.
        const Vec3f ahead = EdgeUnit(record);
        if (Dot(u, v) > 0.0f || !Unit(ahead - Dot(ahead, from) * from, across)) return {};
    }
    const float turn = AngleDegrees(u, v);
    if (!(turn >= 0.0f)) return {};  // infinite outer points: no angle to fan
    const int count = std::max(1, int(std::ceil(turn / kFanStep)) - 1);
    std::vector<Vec3f> points;
    for (int k = 1; k <= count; ++k) {
        const float share = float(k) / float(count + 1);
        const float angle = float(turn * share / kDegrees), radius = ru + (rv - ru) * share;
        points.push_back(apex + radius * (std::cos(angle) * from + std::sin(angle) * across));
    }
    return points;
}

// ---- Stretches around an overlapping corner ----------------------------------------------

struct Stretch {
    uint32_t first = kNone, last = kNone;  // the records whose outer lines cross
    Vec3f point;                           // where they cross
};

// The records on one side of a corner whose edges come within reach of it, nearest first.
std::vector<uint32_t> RecordsInReach(const Records& records, uint32_t from, bool forward, bool closed, const Vec3f& apex,
                                     float reach, uint32_t limit)
{
    std::vector<uint32_t> side;
    for (uint32_t i = from; i != kNone && side.size() < limit;
         i = forward ? Successor(i, records.count, closed) : Predecessor(i, records.count, closed)) {
        const LM_EXTENDEDGE& record = At(records, i);
        const float nearest =
            std::min(Distance(apex, Load(record.startPoint)), Distance(apex, Load(record.endPoint)));
        if (!side.empty() && nearest > reach) break;
        side.push_back(i);
    }
    return side;
}

// Where the outer segments of two records cross, seen along the mean normal of their
// quadrilaterals: the middle of the two points over the crossing. False when they do
// not cross (parallel ones never do) or pass too far apart in depth.
bool OuterSegmentsCross(const LM_EXTENDEDGE& p, const LM_EXTENDEDGE& q, float extensionDistance, Vec3f& point)
{
    const Vec3f p0 = Load(p.extendedStart), q0 = Load(q.extendedStart);
    const Vec3f dp = Load(p.extendedEnd) - p0, dq = Load(q.extendedEnd) - q0, r = q0 - p0;
    Vec3f normal;
    if (!Unit(SideOf(p) + SideOf(q), normal)) return false;  // quadrilaterals facing apart
    const float denominator = Dot(Cross(dp, dq), normal);
    if (denominator == 0.0f) return false;
    const float s = Dot(Cross(r, dq), normal) / denominator, t = Dot(Cross(r, dp), normal) / denominator;
    if (!(s >= -kOverEnds && s <= 1.0f + kOverEnds && t >= -kOverEnds && t <= 1.0f + kOverEnds)) return false;
    const Vec3f onP = p0 + s * dp, onQ = q0 + t * dq;
    if (Distance(onP, onQ) > kMeetDepth * extensionDistance) return false;
    point = 0.5f * (onP + onQ);
    return true;
}

// Prepares the stretch of an overlapping corner: the pair of outer segments, one on
// each side of the corner, that cross with the fewest records between them. False when
// none crosses within reach.
bool FindStretch(const Records& records, uint32_t corner, bool closed, float extensionDistance, Stretch& stretch)
{
    const uint32_t next = Successor(corner, records.count, closed);
    const Vec3f apex = Load(At(records, next).startPoint);
    const float reach = kReachFactor * extensionDistance;
    // On a closed chain the two sides must not reach round to each other.
    const uint32_t limit = std::min(kMaxReach, std::max(1u, (records.count - 1) / 2));
    const std::vector<uint32_t> before = RecordsInReach(records, corner, false, closed, apex, reach, limit);
    const std::vector<uint32_t> after = RecordsInReach(records, next, true, closed, apex, reach, limit);
    for (size_t span = 0; span + 1 < before.size() + after.size(); ++span)
        for (size_t back = 0; back <= span; ++back) {
            const size_t ahead = span - back;
            Vec3f point;
            if (back >= before.size() || ahead >= after.size() ||
                !OuterSegmentsCross(At(records, before[back]), At(records, after[ahead]), extensionDistance, point))
                continue;
            stretch = {before[back], after[ahead], point};
            return true;
        }
    return false;
}

// Acts on a stretch: its first record's outer line now ends at the crossing and its last
// one's starts there; the records between are drawn to the crossing, their
// quadrilaterals becoming a fan from it to their edges. No corner fans stay inside.
bool CollapseStretch(Records& records, const Stretch& stretch, bool closed)
{
    bool changed = false;
    LM_EXTENDEDGE& first = At(records, stretch.first);
    SetPoint(first.extendedEnd, stretch.point, changed);
    if (first.cornerPointCount > 0) changed = true;
    ReleaseCornerPoints(first);
    for (uint32_t i = Successor(stretch.first, records.count, closed); i != stretch.last && i != kNone;
         i = Successor(i, records.count, closed)) {
        LM_EXTENDEDGE& inside = At(records, i);
        SetPoint(inside.extendedStart, stretch.point, changed);
        SetPoint(inside.extendedEnd, stretch.point, changed);
        if (inside.cornerPointCount > 0) changed = true;
        ReleaseCornerPoints(inside);
    }
    SetPoint(At(records, stretch.last).extendedStart, stretch.point, changed);
    return changed;
}

// Trims every overlapping corner of the chain; cancel is read before each corner.
bool TrimOverlappingCorners(Records& records, float extensionDistance, bool closed, const int* cancel)
{
    bool changed = false;
    for (uint32_t corner = 0; corner < records.count; ++corner) {
        if (cancel && *cancel == 1) break;
        const uint32_t next = Successor(corner, records.count, closed);
        if (next == kNone) break;
        const LM_EXTENDEDGE& record = At(records, corner);
        const LM_EXTENDEDGE& following = At(records, next);
        if (!MeetAtCorner(record, following) ||
            Distance(Load(record.extendedEnd), Load(following.extendedStart)) < kApart ||
            !Overlapping(record, following))
            continue;
        Stretch stretch;
        if (FindStretch(records, corner, closed, extensionDistance, stretch))
            changed = CollapseStretch(records, stretch, closed) || changed;
    }
    return changed;
}

// ---- Outlines ----------------------------------------------------------------------------

struct Point2 {
    double x, y;
};

Point2 ToOutline(const Vec3f& p, double (*transform)[4])
{
    if (!transform) return {p.x, p.y};
    return {p.x * transform[0][0] + p.y * transform[1][0] + p.z * transform[2][0] + transform[3][0],
            p.x * transform[0][1] + p.y * transform[1][1] + p.z * transform[2][1] + transform[3][1]};
}

double Cross2(const Point2& a, const Point2& b) { return a.x * b.y - a.y * b.x; }

// The first crossing of the way out from a to b with an outline, as a share of the way
// (1 when it crosses none).
double FirstCrossing(const Point2& a, const Point2& b, const BaseList<BaseList<float>>& outline)
{
    double nearest = 1.0;
    const Point2 d = {b.x - a.x, b.y - a.y};
    for (uint32_t l = 0; l < outline.count; ++l) {
        const BaseList<float>& line = *outline.Peek(l);
        for (uint32_t k = 0; k + 5 < line.count; k += 3) {
            const Point2 p = {*line.Peek(k), *line.Peek(k + 1)}, q = {*line.Peek(k + 3), *line.Peek(k + 4)};
            const Point2 e = {q.x - p.x, q.y - p.y}, ap = {p.x - a.x, p.y - a.y};
            const double denominator = Cross2(d, e);
            if (denominator == 0.0) continue;
            const double t = Cross2(ap, e) / denominator, u = Cross2(ap, d) / denominator;
            if (t >= 0.0 && t < nearest && u >= 0.0 && u <= 1.0) nearest = t;
        }
    }
    return nearest;
}

// Pulls one outer point back to where its way out first crosses the outline, when it
// lies beyond it by more than the tolerance.
bool PullBack(const float edgePoint[3], float outerPoint[3], const BaseList<BaseList<float>>& outline,
              double (*transform)[4], float tolerance)
{
    const Vec3f from = Load(edgePoint), to = Load(outerPoint);
    const double share = FirstCrossing(ToOutline(from, transform), ToOutline(to, transform), outline);
    if (share >= 1.0 || !((1.0 - share) * Distance(from, to) > tolerance)) return false;
    Store(from + float(share) * (to - from), outerPoint);
    return true;
}

// Pulls back every record's outer points to the outline; the pulled records are listed
// once each. Returns how many were pulled.
int PullBackToOutline(Records& records, const BaseList<BaseList<float>>& outline, double (*transform)[4],
                      float tolerance, std::set<uint32_t>& pulled)
{
    int count = 0;
    for (uint32_t i = 0; i < records.count; ++i) {
        LM_EXTENDEDGE& record = At(records, i);
        const bool start = PullBack(record.startPoint, record.extendedStart, outline, transform, tolerance);
        const bool end = PullBack(record.endPoint, record.extendedEnd, outline, transform, tolerance);
        if (start || end) {
            ++count;
            pulled.insert(i);
        }
    }
    return count;
}

}  // namespace

// Guarantees: no short run of records grows to the other side of the chain than its
// neighbours; records with no direction carry outer points on from their neighbours;
// outer points closer than gapTolerance coincide; at every corner of a gentle turn (65 to
// 115 degrees by the measure above) whose outer lines meet near both outer ends, the two
// quadrilaterals share that meeting point, so they neither gap nor overlap there.
bool LMeshSimpleCleanupAfterExtension(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                      float gapTolerance)
{
    if (extendedEdges.count == 0) return false;
    bool changed = TurnRoundTurnedRecords(extendedEdges);
    changed = AdoptOuterPoints(extendedEdges) || changed;
    const uint32_t count = extendedEdges.count;
    for (uint32_t i = 1; i < count; ++i) {
        const LM_EXTENDEDGE& before = At(extendedEdges, i - 1);
        LM_EXTENDEDGE& record = At(extendedEdges, i);
        if (Distance(Load(before.extendedEnd), Load(record.extendedStart)) < gapTolerance) {
            Store(Load(before.extendedEnd), record.extendedStart);
            changed = true;
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        LM_EXTENDEDGE& record = At(extendedEdges, i);
        uint32_t successor = (i + 1) % count;
        if (EdgeLength(At(extendedEdges, successor)) <= kNoEdge) successor = (successor + 1) % count;
        LM_EXTENDEDGE& next = At(extendedEdges, successor);
        if (successor == i || !MeetAtCorner(record, next)) continue;  // a corner only where the edges meet
        const float angle = CornerAngle(record, next);
        if (!(angle > kGentleLow && angle < kGentleHigh)) continue;
        const Vec3f outerEnd = Load(record.extendedEnd), nextStart = Load(next.extendedStart);
        if (Distance(outerEnd, nextStart) < gapTolerance) continue;
        Vec3f point;
        float apart = 0.0f;
        const float ownLength = OuterLength(record), nextLength = OuterLength(next);
        const bool meet = OuterLinesMeet(record, next, point, apart) &&
                          apart <= std::min(kJoinShare * std::min(ownLength, nextLength),
                                            kMeetDepth * extensionDistance) &&
                          Distance(point, outerEnd) <= kJoinShare * ownLength &&
                          Distance(point, nextStart) <= kJoinShare * nextLength;
        if (!meet) {
            // Where the boundary runs straight on, outer lines that do not meet nearby
            // are all but parallel: close ends join half way.
            const bool straight = angle > kSquareLow && angle < kSquareHigh;
            if (!straight || Distance(outerEnd, nextStart) > kMeetDepth * extensionDistance) continue;
            point = 0.5f * (outerEnd + nextStart);
        }
        SetPoint(record.extendedEnd, point, changed);
        SetPoint(next.extendedStart, point, changed);
    }
    return changed;
}

// Guarantees: every corner where the outer points still lie apart, and that does not
// overlap, gets a fan on its first record, so consecutive quadrilaterals are joined by
// the fan's triangles; overlapping corners are left to the complex cleanup.
bool LMeshFillGapsAfterExtension(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                 float gapTolerance)
{
    (void)extensionDistance;  // the fan's radius follows the outer points themselves
    (void)gapTolerance;       // gaps under it were closed by the simple cleanup
    bool changed = false;
    const bool closed = IsClosed(extendedEdges, kJoined);
    for (uint32_t i = 0; i < extendedEdges.count; ++i) {
        const uint32_t next = Successor(i, extendedEdges.count, closed);
        if (next == kNone) break;
        LM_EXTENDEDGE& record = At(extendedEdges, i);
        const LM_EXTENDEDGE& following = At(extendedEdges, next);
        if (!MeetAtCorner(record, following) ||
            Distance(Load(record.extendedEnd), Load(following.extendedStart)) < kApart ||
            Overlapping(record, following))
            continue;
        const std::vector<Vec3f> points = FanPoints(record, following);
        if (points.empty()) continue;
        SetCornerPoints(record, points);
        changed = true;
    }
    return changed;
}

// Guarantees: at every overlapping corner whose outer lines cross within reach, the
// quadrilaterals on either side end at the crossing and those between become a fan from
// it, so no two overlap there. A corner whose lines do not cross within reach stays.
bool LMeshComplexCleanupAfterExtension(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                       const int* cancel, float gapTolerance)
{
    (void)gapTolerance;  // outer points closer than kApart already count as one
    if (extendedEdges.count == 0) return false;
    return TrimOverlappingCorners(extendedEdges, extensionDistance, IsClosed(extendedEdges, kApart), cancel);
}

bool LMeshCleanupAfterExtensionUsingSilhouette(BaseList<LM_EXTENDEDGE>& extendedEdges, float extensionDistance,
                                               L_LUMOMESH& result, BaseList<BaseList<float>>& silhouette,
                                               double (*transform)[4], BaseList<BaseList<float>>& secondSilhouette,
                                               BaseList<uint32_t>& edges, int& first, int& second, float tolerance)
{
    first = second = 0;
    if (silhouette.count == 0) return false;
    std::set<uint32_t> pulled;
    first = PullBackToOutline(extendedEdges, silhouette, transform, tolerance, pulled);
    if (secondSilhouette.count > 0)
        second = PullBackToOutline(extendedEdges, secondSilhouette, transform, tolerance, pulled);
    for (uint32_t i : pulled) AppendTo(edges, i);
    LMeshFillGapsAfterExtension(extendedEdges, extensionDistance, tolerance);
    TrimOverlappingCorners(extendedEdges, extensionDistance, IsClosed(extendedEdges, kApart), nullptr);
    if (extendedEdges.count > 0) LMeshCreateMeshUsingExtendedEdges(extendedEdges, result);
    return true;
}

void LMeshFreeExtensionCornerPoints(BaseList<LM_EXTENDEDGE>& extendedEdges)
{
    std::set<float(*)[3]> released;
    for (uint32_t i = 0; i < extendedEdges.count; ++i) {
        LM_EXTENDEDGE& record = At(extendedEdges, i);
        if (record.cornerPoints && released.insert(record.cornerPoints).second) l_memptr_free(record.cornerPoints);
        record.cornerPoints = nullptr;
        record.cornerPointCount = 0;
    }
}
