// The last cleanup of an extension: where the boundary runs straight, the outer line of
// the strip can still zigzag, one outer segment turned sharply against its neighbours.
// Such a kink is evened out by shortening the outer segments at its corners (or
// collapsing a short one) and closing each cut corner with a bridging record, whose
// quadrilateral is the thin triangle between the corner and the two cut ends.
#include "LMeshExtension.h"

namespace {

constexpr double kDegrees = 57.2957763671875;
constexpr float kKinkTurn = 25.0f;       // outer segments turning more than this ...
constexpr float kSquareTurn = 90.0f;     // ... but less than this, mark a kink
constexpr float kStraightEdges = 25.0f;  // where the mesh edges turn no more than this
constexpr float kShort = 0.1f;           // outer segments shorter than this may collapse
constexpr float kLongEnough = 0.05f;     // a kink segment shorter than this is left
constexpr float kNoEdge = 0.0001f;
// A kink at one place is repaired at most this often, so repairs that keep finding a
// new kink where they inserted records cannot run on.
constexpr int kRepairsPerPlace = 4;

using Records = BaseList<LM_EXTENDEDGE>;

// One record's outer segment, taken from its outer end to its outer start.
struct Outer {
    Vec3f unit;
    float length = 0.0f;
    bool exists = false;
};

Outer OuterOf(const LM_EXTENDEDGE& record)
{
    Outer outer;
    const Vec3f way = Load(record.extendedStart) - Load(record.extendedEnd);
    outer.length = Length(way);
    outer.exists = Unit(way, outer.unit);
    return outer;
}

float AngleDegrees(const Vec3f& a, const Vec3f& b)
{
    return float(real_vector_angle(L_VECTOR{a.x, a.y, a.z}, L_VECTOR{b.x, b.y, b.z}) * kDegrees);
}

Vec3f EdgeWay(const LM_EXTENDEDGE& record) { return Load(record.endPoint) - Load(record.startPoint); }

// The turn between the mesh edges of records a and b, passing over edges of no length
// backward from a and forward from b; 0 when either side has none.
float EdgeTurn(const Records& records, uint32_t a, uint32_t b)
{
    uint32_t i = a, j = b;
    while (i > 0 && Length(EdgeWay(*records.Peek(i))) <= kNoEdge) --i;
    while (j + 1 < records.count && Length(EdgeWay(*records.Peek(j))) <= kNoEdge) ++j;
    const Vec3f before = EdgeWay(*records.Peek(i)), after = EdgeWay(*records.Peek(j));
    if (Length(before) <= kNoEdge || Length(after) <= kNoEdge) return 0.0f;
    return AngleDegrees(before, after);
}

// A record that closes the corner at `anchor`'s end between the outer points p and q:
// its mesh edge has no length, so its quadrilateral is the triangle anchor end, q, p.
LM_EXTENDEDGE Bridge(const LM_EXTENDEDGE& anchor, const Vec3f& p, const Vec3f& q)
{
    LM_EXTENDEDGE bridge = anchor;
    Store(Load(anchor.endPoint), bridge.startPoint);
    Store(p, bridge.extendedStart);
    Store(q, bridge.extendedEnd);
    bridge.facet = -1;
    bridge.nearFacets = BaseList<uint32_t>();
    bridge.cornerPointCount = 0;  // a fan stays with the record that owns it
    bridge.cornerPoints = nullptr;
    return bridge;
}

// Inserts the record at position i, moving the later ones up. False when out of memory.
bool Insert(Records& records, uint32_t i, const LM_EXTENDEDGE& record)
{
    if (!records.At(records.count)) return false;
    for (uint32_t k = records.count - 1; k > i; --k) *records.At(k) = *records.Peek(k - 1);
    *records.At(i) = record;
    return true;
}

void MoveAlong(float point[3], const Vec3f& unit, float distance) { Store(Load(point) + distance * unit, point); }

// Cuts back both outer segments at the corner between records i and i + 1, by cutBefore
// and cutAfter, and inserts the bridge that closes the cut.
bool CutCorner(Records& records, uint32_t i, float cutBefore, float cutAfter)
{
    LM_EXTENDEDGE& before = *records.At(i);
    LM_EXTENDEDGE& after = *records.At(i + 1);
    const Outer a = OuterOf(before), b = OuterOf(after);
    MoveAlong(before.extendedEnd, a.unit, std::min(cutBefore, a.length));
    MoveAlong(after.extendedStart, b.unit, -std::min(cutAfter, b.length));
    return Insert(records, i + 1, Bridge(before, Load(before.extendedEnd), Load(after.extendedStart)));
}

// Collapses record b's outer segment to its outer start, c's outer start following.
void CollapseOuter(LM_EXTENDEDGE& b, LM_EXTENDEDGE& c)
{
    Store(Load(b.extendedStart), b.extendedEnd);
    Store(Load(b.extendedStart), c.extendedStart);
}

// Cuts both corners of record b (at index i + 1) by sBefore and sAfter. The corner after b
// is cut first so the first insertion does not move it.
bool CutBothCorners(Records& records, uint32_t i, float sBefore, float sAfter)
{
    return CutCorner(records, i + 1, sAfter, sAfter) && CutCorner(records, i, sBefore, sBefore);
}

// The repairs of a kink a, b, c at index i, in the order of their tests. False when the
// pattern calls for none.
bool RepairKink(Records& records, uint32_t i, const Outer& a, const Outer& b, const Outer& c)
{
    const float fa = a.length, fb = b.length, fc = c.length;
    if (fb < kShort && fa > 2.0f * fb && fc > 2.0f * fb) {
        CollapseOuter(*records.At(i + 1), *records.At(i + 2));
        return true;
    }
    if (fa < kShort && 2.0f * fa < fb) {
        CollapseOuter(*records.At(i), *records.At(i + 1));
        return true;
    }
    if (fb > kLongEnough && fa > fb && fc > fb) return CutBothCorners(records, i, fb / 3.0f, fb / 3.0f);
    if (!(fb > kShort)) return false;
    if (fa > fb && fc > kShort && fa > 0.75f * (fb - 0.5f * fc)) {
        const float s = 0.5f * fc;
        return CutBothCorners(records, i, s, 0.5f * std::max(0.0f, fb - s));
    }
    if (fc > fb && fa > kShort && fc > 0.75f * (fb - 0.5f * fa)) {
        const float s = 0.5f * fa;
        return CutBothCorners(records, i, 0.5f * std::max(0.0f, fb - s), s);
    }
    if (fa > kShort && fb > fa && fb > fc && fc > fa) return CutBothCorners(records, i, fa / 3.0f, fa / 3.0f);
    return false;
}

// The kink pattern at a, b, c, where c's outer start is `cStart`: outer segments turning
// sharply (but less than square) where the mesh edges of a and b run straight on.
bool IsKink(const Records& records, uint32_t i, const Outer& a, const Outer& b, const Outer& c)
{
    if (!a.exists || !b.exists || !c.exists) return false;
    const float ab = AngleDegrees(a.unit, b.unit), bc = AngleDegrees(b.unit, c.unit);
    return ab > kKinkTurn && ab < kSquareTurn && bc > kKinkTurn && EdgeTurn(records, i, i + 1) <= kStraightEdges;
}

// The first pass: kinks between records without fans.
void RelievePlainKinks(Records& records)
{
    const uint32_t recordLimit = 3 * records.count + 16;  // bridges on bridges stop here
    int repairsHere = 0;
    for (uint32_t i = 0; i + 2 < records.count;) {
        const LM_EXTENDEDGE &ra = *records.Peek(i), &rb = *records.Peek(i + 1), &rc = *records.Peek(i + 2);
        const Outer a = OuterOf(ra), b = OuterOf(rb), c = OuterOf(rc);
        const bool plain = ra.cornerPointCount == 0 && rb.cornerPointCount == 0;
        const bool mayRepair = plain && repairsHere < kRepairsPerPlace && records.count < recordLimit;
        if (mayRepair && IsKink(records, i, a, b, c) && RepairKink(records, i, a, b, c)) {
            ++repairsHere;  // look at the same place again: its records changed
            continue;
        }
        repairsHere = 0;
        ++i;
    }
}

// The second pass: the same kink where b ends in a fan, whose first point stands for
// c's outer start. A shorter a is cut back at its corner with b, and b's outer end moves
// half way back towards the fan's first point.
void RelieveKinksBeforeFans(Records& records)
{
    for (uint32_t i = 0; i + 2 < records.count; ++i) {
        const LM_EXTENDEDGE &ra = *records.Peek(i), &rb = *records.Peek(i + 1), &rc = *records.Peek(i + 2);
        if (ra.cornerPointCount != 0 || rb.cornerPointCount <= 0 || !rb.cornerPoints) continue;
        const Vec3f fanStart = Load(rb.cornerPoints[0]);
        Outer c;
        const Vec3f way = fanStart - Load(rc.extendedEnd);
        c.length = Length(way);
        c.exists = Unit(way, c.unit);
        const Outer a = OuterOf(ra), b = OuterOf(rb);
        if (!IsKink(records, i, a, b, c) || !(a.length < b.length)) continue;
        const float s = a.length / 3.0f;
        LM_EXTENDEDGE& fanned = *records.At(i + 1);
        MoveAlong(fanned.extendedEnd, b.unit, 0.5f * Distance(Load(fanned.extendedEnd), fanStart));
        if (!CutCorner(records, i, s, s)) return;
        ++i;  // past the bridge
    }
}

}  // namespace

// Guarantees: the outer line keeps no sharp zigzag between records whose mesh edges run
// straight on; every cut corner is closed by a bridging record, so no gap opens.
void RelieveExtensionKinks(BaseList<LM_EXTENDEDGE>& extendedEdges)
{
    RelievePlainKinks(extendedEdges);
    RelieveKinksBeforeFans(extendedEdges);
}
