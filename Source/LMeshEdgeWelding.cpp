// Edge welding: pairs of edges that lie on each other become one edge, and their ends
// merge into one vertex at the mean of what was merged.
//
// The result is defined by a literal scan. The candidate edges become records with their
// ends in x, y, z order, sorted by the six coordinates (ties keep collection order). For
// each active record i, the later active records j are visited in order: j stops the
// scan when all six differences of its resolved end positions from i's exceed the
// tolerance (a "stopper"); otherwise it welds to i when it lies on another facet, its
// ends match i's straight or crossed within the tolerance, and the gap is smaller than
// the shorter edge (a "match"). The first match before any stopper welds; merges only
// re-point ids, positions move after the scan.
//
// Taken literally that scan is quadratic wherever many edges share a coordinate: in a
// plane x = 0 no record ever stops it. The scan here gives the same welds: for each i it
// finds the first active j that is a stopper or a match, exactly as the literal scan
// does, by three means.
// - It first visits a few records literally; in a soup the twin of an edge lies next
//   to it in the order, so most records are decided here.
// - Otherwise a grid of the records' stored end positions yields every record that
//   could match, and the least of those that do match (tested literally) is the
//   first match. A match lies within the tolerance and within i's own length of i.
// - A tree of per-block boxes of those positions then tells whether a stopper lies
//   before that match: a block whose box keeps one coordinate within the tolerance of
//   i cannot hold a stopper, and records in the other blocks are tested literally.
// Both indexes hold stored positions, which never change. A resolved end sits at its
// survivor's position instead; each survivor keeps a per-axis bound on how far its
// merged vertices lie from it, and every query widens by the largest bound, so neither
// index can miss a record. What they report is re-tested literally, so they add none.
// When a query box would cover too many grid cells, that record is scanned literally.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "LMesh.h"

namespace {

constexpr uint32_t kLiteralSteps = 16;    // records visited before the indexes are asked
constexpr uint32_t kBlockSize = 32;        // records per box in the stopper tree
constexpr int64_t kMaxQueryCells = 64;     // larger query boxes fall back to the literal scan
constexpr double kCellLimit = 4.0e18;      // clamp of cell numbers, inside int64_t

bool HasLiveFlag(uint8_t flags) { return (flags & LM_LIVE) != 0; }

void SetLive(uint8_t& flags, bool live) { flags = live ? uint8_t(flags | LM_LIVE) : uint8_t(flags & 254); }

struct Point {
    float at[3];
};

Point PositionOf(const L_LUMOMESH& mesh, uint32_t v)
{
    const LM_VERTEX& vertex = *mesh.vertices.Peek(v);
    return {{vertex.position[0], vertex.position[1], vertex.position[2]}};
}

bool Precedes(const Point& p, const Point& q)
{
    if (p.at[0] != q.at[0]) return p.at[0] < q.at[0];
    if (p.at[1] != q.at[1]) return p.at[1] < q.at[1];
    return p.at[2] < q.at[2];
}

bool IsFinite(const Point& p) { return std::isfinite(p.at[0]) && std::isfinite(p.at[1]) && std::isfinite(p.at[2]); }

// Squared distance as the match test forms it, in float.
float SquaredDistance(const Point& p, const Point& q)
{
    const float dx = p.at[0] - q.at[0], dy = p.at[1] - q.at[1], dz = p.at[2] - q.at[2];
    return dx * dx + dy * dy + dz * dz;
}

// One candidate edge. `end` holds the stored positions, low end first.
struct WeldRecord {
    Point end[2];
    uint32_t vertex[2];
    uint32_t edge;
    uint32_t facet;  // facet[0] of the edge: two edges of one facet never weld
};

// The record of edge e, or false when e is no candidate. Edges with an end past the
// vertex store are none either: their positions are unknown.
bool MakeRecord(const L_LUMOMESH& mesh, uint32_t e, short mode, WeldRecord& record)
{
    const LM_EDGE* edge = mesh.edges.Peek(e);
    if (!edge || !HasLiveFlag(edge->flags) || (mode != 0 && edge->facet[1] != LM_NONE)) return false;
    const uint32_t v0 = edge->vertex[0], v1 = edge->vertex[1];
    if (v0 >= mesh.vertices.count || v1 >= mesh.vertices.count) return false;
    record = WeldRecord{{PositionOf(mesh, v0), PositionOf(mesh, v1)}, {v0, v1}, e, edge->facet[0]};
    if (Precedes(record.end[1], record.end[0])) {
        std::swap(record.end[0], record.end[1]);
        std::swap(record.vertex[0], record.vertex[1]);
    }
    return true;
}

// Float bits mapped to unsigned order: -0 sorts with +0 and every NaN after +infinity,
// which keeps exact comparison of numbers and gives NaN a fixed place.
uint32_t OrderKey(float value)
{
    if (std::isnan(value)) return 0xFFFFFFFFu;
    if (value == 0.0f) return 0x80000000u;
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return (bits & 0x80000000u) ? ~bits : bits | 0x80000000u;
}

// A candidate as the sort sees it: compact, so that sorting is fast, and the records
// (the largest working store of the call) need not exist twice.
struct SortKey {
    uint32_t coordinate[6];
    uint32_t collected;  // place in collection order, which breaks ties
    uint32_t edge;
};

void TryCandidate(const L_LUMOMESH& mesh, uint32_t e, short mode, std::vector<SortKey>& keys)
{
    WeldRecord record;
    if (!MakeRecord(mesh, e, mode, record)) return;
    SortKey key;
    for (int k = 0; k < 6; ++k) key.coordinate[k] = OrderKey(record.end[k / 3].at[k % 3]);
    key.collected = uint32_t(keys.size());
    key.edge = e;
    keys.push_back(key);
}

// Every edge slot, or the three edges of each listed facet in list order (so an edge
// may come twice). Listed ids past the facet store are skipped.
std::vector<SortKey> CollectCandidates(const L_LUMOMESH& mesh, const BaseList<uint32_t>* facets, short mode)
{
    std::vector<SortKey> keys;
    keys.reserve(facets ? 3 * size_t(facets->count) : mesh.edges.count);
    if (!facets) {
        for (uint32_t e = 0; e < mesh.edges.count; ++e) TryCandidate(mesh, e, mode, keys);
        return keys;
    }
    for (uint32_t listed = 0; listed < facets->count; ++listed) {
        const LM_FACET* facet = mesh.facets.Peek(*facets->Peek(listed));
        if (!facet) continue;
        for (int k = 0; k < 3; ++k) TryCandidate(mesh, facet->edge[k], mode, keys);
    }
    return keys;
}

// The records by their six coordinates, then in collection order.
std::vector<WeldRecord> SortedRecords(const L_LUMOMESH& mesh, std::vector<SortKey>& keys, short mode)
{
    std::sort(keys.begin(), keys.end(), [](const SortKey& a, const SortKey& b) {
        for (int k = 0; k < 6; ++k)
            if (a.coordinate[k] != b.coordinate[k]) return a.coordinate[k] < b.coordinate[k];
        return a.collected < b.collected;
    });
    std::vector<WeldRecord> records(keys.size());
    for (uint32_t r = 0; r < keys.size(); ++r) MakeRecord(mesh, keys[r].edge, mode, records[r]);
    return records;
}

// Live flags and forwarding ids of one store's slots. Resolving halves the chain it
// follows; that changes no result, because a merge re-points only slots that resolved
// to themselves when it began (edges are resolved only after the scan).
class Forwarding {
public:
    template <class Record>
    explicit Forwarding(const BaseList<Record>& store) : target_(store.count), live_(store.count)
    {
        for (uint32_t id = 0; id < store.count; ++id) {
            target_[id] = id;
            live_[id] = HasLiveFlag(store.Peek(id)->flags);
        }
    }

    uint32_t Resolve(uint32_t id)
    {
        while (target_[id] != id) {
            target_[id] = target_[target_[id]];
            id = target_[id];
        }
        return id;
    }

    // Ids past the store stay as they are.
    uint32_t ResolveIfInStore(uint32_t id) { return id < target_.size() ? Resolve(id) : id; }

    void Absorb(uint32_t survivor, uint32_t merged)
    {
        live_[merged] = 0;
        target_[merged] = survivor;
        live_[survivor] = 1;
        target_[survivor] = survivor;
    }

    bool IsLive(uint32_t id) const { return live_[id] != 0; }

private:
    std::vector<uint32_t> target_;
    std::vector<uint8_t> live_;
};

// The two ends of a record as the scan sees them: resolved ids and their positions.
struct Ends {
    uint32_t vertex[2];
    Point at[2];
};

enum class Verdict { Stop, Pass, Straight, Crossed };

// The stored positions of the records' ends, bucketed by grid cell; within a bucket the
// entries (record * 2 + end) ascend. Ends that are not finite are left out: no distance
// from them passes the match test and the size test together.
class EndGrid {
public:
    void Build(const std::vector<WeldRecord>& records, const std::vector<uint8_t>& active, double cell)
    {
        cell_ = cell;
        uint32_t buckets = 1;
        while (buckets < 2 * records.size() && buckets < (1u << 30)) buckets *= 2;
        mask_ = buckets - 1;
        start_.assign(size_t(buckets) + 1, 0);
        const auto forEachEntry = [&](auto take) {
            for (uint32_t r = 0; r < records.size(); ++r)
                for (uint32_t k = 0; k < 2; ++k)
                    if (active[r] && IsFinite(records[r].end[k])) take(BucketOf(records[r].end[k].at), r * 2 + k);
        };
        forEachEntry([&](uint32_t bucket, uint32_t) { ++start_[bucket + 1]; });
        for (uint32_t b = 0; b < buckets; ++b) start_[b + 1] += start_[b];
        entries_.resize(start_[buckets]);
        std::vector<uint32_t> fill(start_.begin(), start_.end() - 1);
        forEachEntry([&](uint32_t bucket, uint32_t entry) { entries_[fill[bucket]++] = entry; });
    }

    bool IsBuilt() const { return !start_.empty(); }

    // Calls visit(entry) for the entries in the cells that the box p +- reach touches,
    // bucket by bucket; a false answer skips the rest of that bucket. False, having
    // visited nothing, when the box covers more than kMaxQueryCells cells.
    template <class Visit>
    bool VisitNear(const Point& p, const double* reach, Visit visit) const
    {
        int64_t low[3], high[3];
        for (int k = 0; k < 3; ++k) {
            low[k] = CellOf(double(p.at[k]) - reach[k]);
            high[k] = CellOf(double(p.at[k]) + reach[k]);
            if (high[k] - low[k] >= kMaxQueryCells) return false;
        }
        if ((high[0] - low[0] + 1) * (high[1] - low[1] + 1) * (high[2] - low[2] + 1) > kMaxQueryCells) return false;
        for (int64_t x = low[0]; x <= high[0]; ++x)
            for (int64_t y = low[1]; y <= high[1]; ++y)
                for (int64_t z = low[2]; z <= high[2]; ++z) {
                    const uint32_t bucket = Hash(x, y, z);
                    for (uint32_t k = start_[bucket]; k < start_[bucket + 1]; ++k)
                        if (!visit(entries_[k])) break;
                }
        return true;
    }

private:
    // Monotone in x, so a box of positions maps onto a box of cells even when clamped.
    int64_t CellOf(double x) const { return int64_t(std::clamp(std::floor(x / cell_), -kCellLimit, kCellLimit)); }

    uint32_t Hash(int64_t x, int64_t y, int64_t z) const
    {
        uint64_t h = uint64_t(x) * 0x9E3779B97F4A7C15ull;
        h = (h ^ (h >> 29) ^ uint64_t(y)) * 0xBF58476D1CE4E5B9ull;
        h = (h ^ (h >> 31) ^ uint64_t(z)) * 0x94D049BB133111EBull;
        return uint32_t(h ^ (h >> 32)) & mask_;
    }

    uint32_t BucketOf(const float* p) const { return Hash(CellOf(p[0]), CellOf(p[1]), CellOf(p[2])); }

    double cell_ = 1.0;
    uint32_t mask_ = 0;
    std::vector<uint32_t> start_;
    std::vector<uint32_t> entries_;
};

// A binary tree over blocks of kBlockSize sorted records. Each node keeps the box of
// its records' stored end coordinates (six per record; NaN left out, since a NaN
// difference never exceeds the tolerance) and how many of them are active.
class BlockTree {
public:
    void Build(const std::vector<WeldRecord>& records, const std::vector<uint8_t>& active)
    {
        records_ = uint32_t(records.size());
        leaves_ = 1;
        while (leaves_ * kBlockSize < records_) leaves_ *= 2;
        nodes_.assign(2 * size_t(leaves_), Node{});
        for (uint32_t r = 0; r < records_; ++r) {
            Node& leaf = nodes_[leaves_ + r / kBlockSize];
            leaf.active += active[r];
            for (int k = 0; k < 6; ++k) {
                const float value = records[r].end[k / 3].at[k % 3];
                leaf.low[k] = std::fmin(leaf.low[k], value);
                leaf.high[k] = std::fmax(leaf.high[k], value);
            }
        }
        for (uint32_t n = leaves_ - 1; n >= 1; --n) {
            const Node &left = nodes_[2 * n], &right = nodes_[2 * n + 1];
            Node& node = nodes_[n];
            node.active = left.active + right.active;
            for (int k = 0; k < 6; ++k) {
                node.low[k] = std::fmin(left.low[k], right.low[k]);
                node.high[k] = std::fmax(left.high[k], right.high[k]);
            }
        }
    }

    bool IsBuilt() const { return !nodes_.empty(); }

    void Deactivate(uint32_t record)
    {
        for (uint32_t n = leaves_ + record / kBlockSize; n >= 1; n /= 2) --nodes_[n].active;
    }

    // The first record in [from, to) for which isStopper holds, among those in blocks
    // whose box cannot be ruled out by mayStop; `to` if there is none.
    template <class MayStop, class IsStopper>
    uint32_t FirstStopper(uint32_t from, uint32_t to, MayStop mayStop, IsStopper isStopper) const
    {
        return Search(1, 0, leaves_ * kBlockSize, from, to, mayStop, isStopper);
    }

    struct Node {
        float low[6] = {INFINITY, INFINITY, INFINITY, INFINITY, INFINITY, INFINITY};
        float high[6] = {-INFINITY, -INFINITY, -INFINITY, -INFINITY, -INFINITY, -INFINITY};
        uint32_t active = 0;
    };

private:
    template <class MayStop, class IsStopper>
    uint32_t Search(uint32_t n, uint32_t first, uint32_t last, uint32_t from, uint32_t to, MayStop& mayStop,
                    IsStopper& isStopper) const
    {
        if (last <= from || first >= to || nodes_[n].active == 0 || !mayStop(nodes_[n])) return to;
        if (n >= leaves_) {
            for (uint32_t r = std::max(first, from); r < std::min({last, to, records_}); ++r)
                if (isStopper(r)) return r;
            return to;
        }
        const uint32_t middle = first + (last - first) / 2;
        const uint32_t left = Search(2 * n, first, middle, from, to, mayStop, isStopper);
        return left < to ? left : Search(2 * n + 1, middle, last, from, to, mayStop, isStopper);
    }

    uint32_t records_ = 0;
    uint32_t leaves_ = 1;
    std::vector<Node> nodes_;
};

// True when every value that a stored coordinate in [low, high] can take after drifting
// by up to `drift` lies within `tolerance` of `ref`: then no difference there exceeds
// the tolerance, in float either, as rounding is monotone and the tolerance a float.
bool StaysWithin(double ref, double low, double high, double drift, double tolerance)
{
    if (std::isinf(tolerance)) return true;  // no difference exceeds it
    // The margin covers the rounding of these double sums and lies far below a float step.
    const double margin = 1e-14 * (std::fabs(ref) + tolerance + drift + std::fmax(std::fabs(low), std::fabs(high)));
    return low - drift >= ref - tolerance + margin && high + drift <= ref + tolerance - margin;
}

// The scan over the sorted records, and the merges it makes in the forwarding ids.
class WeldScan {
public:
    WeldScan(L_LUMOMESH& mesh, float tolerance, const std::vector<WeldRecord>& records)
        : vertices(mesh.vertices), edges(mesh.edges), mesh_(mesh), tolerance_(tolerance),
          squaredTolerance_(tolerance * tolerance), records_(records), active_(records.size(), 1),
          nextActive_(records.size() + 1)
    {
        for (uint32_t r = 0; r <= records.size(); ++r) nextActive_[r] = r;
    }

    // Returns the number of merges made.
    uint32_t Run()
    {
        uint32_t merges = 0;
        for (uint32_t i = 0; i < records_.size(); ++i)
            if (active_[i] && DecideRecord(i)) ++merges;
        return merges;
    }

    Forwarding vertices;
    Forwarding edges;

private:
    uint32_t Count() const { return uint32_t(records_.size()); }

    // The first active record at or after r (Count() if none); skips are shortened as
    // they are followed.
    uint32_t NextActive(uint32_t r)
    {
        while (nextActive_[r] != r) {
            nextActive_[r] = nextActive_[nextActive_[r]];
            r = nextActive_[r];
        }
        return r;
    }

    void Deactivate(uint32_t r)
    {
        active_[r] = 0;
        nextActive_[r] = r + 1;
        if (tree_.IsBuilt()) tree_.Deactivate(r);
    }

    Ends EndsOf(const WeldRecord& record)
    {
        Ends ends;
        for (int k = 0; k < 2; ++k) {
            ends.vertex[k] = vertices.Resolve(record.vertex[k]);
            ends.at[k] = ends.vertex[k] == record.vertex[k] ? record.end[k] : PositionOf(mesh_, ends.vertex[k]);
        }
        return ends;
    }

    bool AllExceed(const Ends& p, const Ends& q) const
    {
        for (int e = 0; e < 2; ++e)
            for (int k = 0; k < 3; ++k)
                if (!(std::fabs(p.at[e].at[k] - q.at[e].at[k]) > tolerance_)) return false;
        return true;
    }

    // What record q means to the scan of record p: one step of the literal scan.
    Verdict Judge(const Ends& p, uint32_t pFacet, const Ends& q, uint32_t qFacet) const
    {
        if (AllExceed(p, q)) return Verdict::Stop;
        if (pFacet == qFacet) return Verdict::Pass;
        Verdict matching = Verdict::Straight;
        float first = SquaredDistance(p.at[0], q.at[0]), second = SquaredDistance(p.at[1], q.at[1]);
        if (!(first <= squaredTolerance_ && second <= squaredTolerance_)) {
            matching = Verdict::Crossed;
            first = SquaredDistance(p.at[0], q.at[1]);
            second = SquaredDistance(p.at[1], q.at[0]);
            if (!(first <= squaredTolerance_ && second <= squaredTolerance_)) return Verdict::Pass;
        }
        // A weld must not be larger than the edges it joins.
        const float gap = std::max(first, second);
        const float pLength = SquaredDistance(p.at[0], p.at[1]), qLength = SquaredDistance(q.at[0], q.at[1]);
        return gap < pLength && gap < qLength ? matching : Verdict::Pass;
    }

    Verdict JudgeRecord(const Ends& p, uint32_t pFacet, uint32_t j, Ends& q)
    {
        q = EndsOf(records_[j]);
        return Judge(p, pFacet, q, records_[j].facet);
    }

    // Scans after record i from j onward, literally, at most `steps` active records.
    // True when the scan of i ended (by a stopper, a merge or the end of the list).
    bool ScanLiterally(uint32_t i, const Ends& p, uint32_t& j, uint32_t steps)
    {
        for (; j < Count() && steps > 0; j = NextActive(j + 1), --steps) {
            Ends q;
            const Verdict verdict = JudgeRecord(p, records_[i].facet, j, q);
            if (verdict == Verdict::Stop) return true;
            if (verdict != Verdict::Pass) {
                Merge(i, j, p, q, verdict);
                return true;
            }
        }
        return j >= Count();
    }

    // True if record i merged.
    bool DecideRecord(uint32_t i)
    {
        const Ends p = EndsOf(records_[i]);
        const uint32_t merges = merges_;
        uint32_t j = NextActive(i + 1);
        if (ScanLiterally(i, p, j, kLiteralSteps)) return merges_ > merges;
        // Ends that are not finite match nothing, so the scan of i cannot weld.
        if (!IsFinite(p.at[0]) || !IsFinite(p.at[1])) return false;
        BuildIndexes();
        Ends q;
        Verdict verdict = Verdict::Pass;
        uint32_t match = Count();
        if (!FindFirstMatch(i, p, j, match, q, verdict)) {
            ScanLiterally(i, p, j, Count());
            return merges_ > merges;
        }
        if (match == Count() || FirstStopper(p, j, match) < match) return false;
        Merge(i, match, p, q, verdict);
        return true;
    }

    // How far from p a matching end of another record can lie: within the tolerance and,
    // by the size test, within p's own length (both widened for rounding).
    double MatchReach(const Ends& p) const
    {
        const float limit = std::min(squaredTolerance_, SquaredDistance(p.at[0], p.at[1]));
        return std::sqrt(double(limit)) * (1.0 + 1e-6) + 1e-22;
    }

    // The least active record from `from` on that matches record i, in `match` (Count()
    // if none). False when a query box covers too many cells.
    bool FindFirstMatch(uint32_t i, const Ends& p, uint32_t from, uint32_t& match, Ends& q, Verdict& verdict)
    {
        double reach[3];
        for (int k = 0; k < 3; ++k) reach[k] = MatchReach(p) + maxDrift_[k];
        // A straight match has its low end near p's low end, a crossed one its high end.
        return grid_.VisitNear(p.at[0], reach, [&](uint32_t entry) {
            const uint32_t j = entry / 2;
            if (j >= match) return false;
            if (j < from || !active_[j]) return true;
            Ends candidate;
            const Verdict found = JudgeRecord(p, records_[i].facet, j, candidate);
            if (found == Verdict::Straight || found == Verdict::Crossed) {
                match = j;
                q = candidate;
                verdict = found;
            }
            return true;
        });
    }

    uint32_t FirstStopper(const Ends& p, uint32_t from, uint32_t to)
    {
        const auto mayStop = [&](const BlockTree::Node& node) {
            for (int k = 0; k < 6; ++k)
                if (StaysWithin(p.at[k / 3].at[k % 3], node.low[k], node.high[k], maxDrift_[k % 3], tolerance_))
                    return false;
            return true;
        };
        const auto isStopper = [&](uint32_t r) { return active_[r] && AllExceed(p, EndsOf(records_[r])); };
        return tree_.FirstStopper(from, to, mayStop, isStopper);
    }

    void Merge(uint32_t i, uint32_t j, const Ends& p, const Ends& q, Verdict verdict)
    {
        Deactivate(i);
        Deactivate(j);
        edges.Absorb(records_[i].edge, records_[j].edge);
        mesh_.edges.At(records_[i].edge)->facet[1] = records_[j].facet;
        const bool straight = verdict == Verdict::Straight;
        MergeVertices(p.vertex[0], q.vertex[straight ? 0 : 1]);
        MergeVertices(p.vertex[1], q.vertex[straight ? 1 : 0]);
        ++merges_;
    }

    void MergeVertices(uint32_t survivor, uint32_t merged)
    {
        if (survivor == merged) return;
        vertices.Absorb(survivor, merged);
        if (!drift_.empty()) WidenDrift(survivor, merged, drift_[merged]);
    }

    // The survivor now also stands for what was merged into `merged`.
    void WidenDrift(uint32_t survivor, uint32_t merged, const Point& mergedDrift)
    {
        const Point from = PositionOf(mesh_, merged), to = PositionOf(mesh_, survivor);
        for (int k = 0; k < 3; ++k) {
            const double reach = std::fabs(double(to.at[k]) - double(from.at[k])) + double(mergedDrift.at[k]);
            float bound = float(reach);
            if (double(bound) < reach) bound = std::nextafter(bound, INFINITY);
            drift_[survivor].at[k] = std::fmax(drift_[survivor].at[k], bound);
            maxDrift_[k] = std::fmax(maxDrift_[k], double(drift_[survivor].at[k]));
        }
    }

    // Built when a record first needs them, from the merges made so far.
    void BuildIndexes()
    {
        if (grid_.IsBuilt()) return;
        drift_.assign(mesh_.vertices.count, Point{{0.0f, 0.0f, 0.0f}});
        for (uint32_t v = 0; v < mesh_.vertices.count; ++v) {
            const uint32_t survivor = vertices.Resolve(v);
            if (survivor != v) WidenDrift(survivor, v, Point{{0.0f, 0.0f, 0.0f}});
        }
        grid_.Build(records_, active_, CellSize());
        tree_.Build(records_, active_);
    }

    // Cells a few tolerances wide, so that most match boxes touch one to eight cells; no
    // wider than a typical edge is long (a match lies within its edge's length), and not
    // so fine at a tiny tolerance that a vertex's copies spread over many cells.
    double CellSize() const
    {
        std::vector<float> lengths;
        const uint32_t step = std::max(1u, Count() / 1024);
        for (uint32_t r = 0; r < Count(); r += step) {
            const float length = SquaredDistance(records_[r].end[0], records_[r].end[1]);
            if (std::isfinite(length)) lengths.push_back(length);
        }
        if (lengths.empty()) return 1.0;
        std::nth_element(lengths.begin(), lengths.begin() + lengths.size() / 2, lengths.end());
        const double typical = std::sqrt(double(lengths[lengths.size() / 2]));
        const double cell = std::max(4.0 * std::min(double(tolerance_), typical), typical / 16.0);
        return cell > 0.0 && std::isfinite(cell) ? cell : 1.0;
    }

    L_LUMOMESH& mesh_;
    const float tolerance_;
    const float squaredTolerance_;
    const std::vector<WeldRecord>& records_;
    std::vector<uint8_t> active_;
    std::vector<uint32_t> nextActive_;  // a record's own id while active, else a later one
    uint32_t merges_ = 0;
    EndGrid grid_;
    BlockTree tree_;
    std::vector<Point> drift_;  // per survivor: how far its merged vertices lie, per axis
    double maxDrift_[3] = {0.0, 0.0, 0.0};
};

// Each survivor moves to the mean of itself and what merged into it, summed in float in
// ascending slot order. Merged vertices are dead and never move, so the sums can be
// built in the survivors' own positions.
void MoveSurvivorsToMeans(L_LUMOMESH& mesh, Forwarding& vertices)
{
    std::vector<uint32_t> mergedCount(mesh.vertices.count, 0);
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const uint32_t survivor = vertices.Resolve(v);
        if (survivor == v || !vertices.IsLive(survivor)) continue;
        const Point from = PositionOf(mesh, v);
        LM_VERTEX& to = *mesh.vertices.At(survivor);
        for (int k = 0; k < 3; ++k) to.position[k] = to.position[k] + from.at[k];
        ++mergedCount[survivor];
    }
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        if (mergedCount[v] == 0) continue;
        LM_VERTEX& vertex = *mesh.vertices.At(v);
        for (int k = 0; k < 3; ++k) vertex.position[k] = vertex.position[k] / float(mergedCount[v] + 1);
    }
}

// Live flags, counts and every link follow the forwarding ids.
void WriteBack(L_LUMOMESH& mesh, Forwarding& vertices, Forwarding& edges)
{
    mesh.vertexCount = mesh.facetCount = mesh.edgeCount = 0;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        LM_VERTEX& vertex = *mesh.vertices.At(v);
        SetLive(vertex.flags, vertices.IsLive(v));
        if (!vertices.IsLive(v)) continue;
        vertex.edge = edges.ResolveIfInStore(vertex.edge);
        ++mesh.vertexCount;
    }
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        LM_EDGE& edge = *mesh.edges.At(e);
        SetLive(edge.flags, edges.IsLive(e));
        if (!edges.IsLive(e)) continue;
        for (int k = 0; k < 2; ++k) edge.vertex[k] = vertices.ResolveIfInStore(edge.vertex[k]);
        ++mesh.edgeCount;
    }
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        LM_FACET& facet = *mesh.facets.At(f);
        if (!HasLiveFlag(facet.flags)) continue;
        for (int k = 0; k < 3; ++k) {
            facet.vertex[k] = vertices.ResolveIfInStore(facet.vertex[k]);
            facet.edge[k] = edges.ResolveIfInStore(facet.edge[k]);
        }
        ++mesh.facetCount;
    }
}

}  // namespace

bool LMeshOptimizeEdges(L_LUMOMESH& mesh, float tolerance, const BaseList<uint32_t>* facets, uint32_t* candidates,
                        uint32_t* unmatched, short mode)
{
    std::vector<SortKey> keys = CollectCandidates(mesh, facets, mode);
    const uint32_t count = uint32_t(keys.size());
    if (candidates) *candidates = count;
    if (unmatched) *unmatched = count;
    // Below 0 every difference that is a number exceeds the tolerance, so a record could
    // only match one with a NaN difference, which fails the match test or the size test;
    // a NaN tolerance fails the match test itself. Nothing can weld.
    if (count == 0 || !(tolerance >= 0.0f)) return false;
    const std::vector<WeldRecord> records = SortedRecords(mesh, keys, mode);
    std::vector<SortKey>().swap(keys);
    WeldScan scan(mesh, tolerance, records);
    const uint32_t merges = scan.Run();
    if (merges == 0) return false;
    if (unmatched) *unmatched -= 2 * merges;
    if (tolerance > 0.0f) MoveSurvivorsToMeans(mesh, scan.vertices);
    WriteBack(mesh, scan.vertices, scan.edges);
    return true;
}
