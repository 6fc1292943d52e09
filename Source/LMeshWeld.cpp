// Vertex welding for the merging insert.
//
// A ring of the last few corners and their vertices answers most lookups of a soup,
// whose neighbouring triangles share corners. At tolerance 0 the rest go through an
// open-addressing table of vertex ids keyed by position; above 0 through a hash grid
// of cells 16 tolerances wide: a corner is checked against the vertices of the one to
// eight cells that its tolerance box touches, and welds to an exact twin, else to the
// lowest-numbered vertex in reach. A sorted tree under a tolerance compare would find
// some vertex in reach by a path that depends on its shape (the compare is not a true
// order); the grid always finds one when one exists, and picks it the same way
// whatever the input order of the others.
#include "LMeshWeld.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr double kCellsPerTolerance = 16.0;  // wide enough that most corners touch one cell, narrow
                                             // enough that a cell holds few vertices

uint32_t Mix(uint32_t h, uint32_t value)
{
    h = (h ^ value) * 0x9E3779B1u;
    return h ^ (h >> 15);
}

uint32_t HashPosition(const float* p)
{
    uint32_t h = 0x811C9DC5u;
    for (int k = 0; k < 3; ++k) {
        const float value = p[k] == 0.0f ? 0.0f : p[k];  // -0 and +0 compare equal
        uint32_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        h = Mix(h, bits);
    }
    return h;
}

bool SamePosition(const float* p, const float* q) { return p[0] == q[0] && p[1] == q[1] && p[2] == q[2]; }

// An open-addressing table of ids, looked up through a key function of the id. Kept
// at most two thirds full, so probes stay short; any capacity works, as a hash is
// scaled into range by a multiply rather than masked.
class IdTable {
public:
    explicit IdTable(uint32_t expected) : slots_(CapacityFor(expected), kNone) {}

    // Walks the probe sequence from `hash`; `matches(id)` ends it at a stored id.
    template <class Matches>
    uint32_t Find(uint32_t hash, Matches matches, uint32_t& slot) const
    {
        for (slot = Start(hash);; slot = Next(slot)) {
            const uint32_t id = slots_[slot];
            if (id == kNone || matches(id)) return id;
        }
    }

    // Puts id at a slot that Find returned; `hashOf(id)` rehashes when the table grows.
    template <class HashOf>
    void Put(uint32_t slot, uint32_t id, bool fresh, HashOf hashOf)
    {
        slots_[slot] = id;
        if (fresh && uint64_t(++used_) * 2 > uint64_t(slots_.size())) Grow(hashOf);
    }

private:
    static uint32_t CapacityFor(uint32_t expected)
    {
        const uint64_t capacity = uint64_t(expected) * 2 + 64;
        return capacity > (1u << 31) ? (1u << 31) : uint32_t(capacity);
    }

    uint32_t Start(uint32_t hash) const { return uint32_t((uint64_t(hash) * slots_.size()) >> 32); }
    uint32_t Next(uint32_t slot) const { return slot + 1 == slots_.size() ? 0 : slot + 1; }

    template <class HashOf>
    void Grow(HashOf hashOf)
    {
        std::vector<uint32_t> old(slots_.size() * 2, kNone);
        old.swap(slots_);
        for (uint32_t id : old) {
            if (id == kNone) continue;
            uint32_t s = Start(hashOf(id));
            while (slots_[s] != kNone) s = Next(s);
            slots_[s] = id;
        }
    }

    std::vector<uint32_t> slots_;
    uint32_t used_ = 0;
};

struct Cell {
    int64_t c[3];
    bool operator==(const Cell& other) const { return c[0] == other.c[0] && c[1] == other.c[1] && c[2] == other.c[2]; }
};

uint32_t HashCell(const Cell& cell)
{
    uint32_t h = 0x811C9DC5u;
    for (int64_t c : cell.c) h = Mix(Mix(h, uint32_t(c)), uint32_t(uint64_t(c) >> 32));
    return h;
}

}  // namespace

// Positions of the vertices a welder knows, numbered from 0, read from the store.
class KnownPositions {
public:
    KnownPositions(const BaseList<LM_VERTEX>& vertices, uint32_t firstVertex)
        : vertices_(vertices), firstVertex_(firstVertex)
    {
    }

    struct Position {
        float p[3];
    };
    Position operator[](uint32_t i) const
    {
        const LM_VERTEX* vertex = vertices_.Peek(firstVertex_ + i);
        return Position{{vertex->position[0], vertex->position[1], vertex->position[2]}};
    }

private:
    const BaseList<LM_VERTEX>& vertices_;
    uint32_t firstVertex_;
};

class VertexWelder::ExactTable {
public:
    ExactTable(const KnownPositions& positions, uint32_t expected) : positions_(positions), table_(expected) {}

    uint32_t Find(const float* p)
    {
        return table_.Find(
            HashPosition(p), [&](uint32_t i) { return SamePosition(positions_[i].p, p); }, lastSlot_);
    }

    void Add(uint32_t i)
    {
        table_.Put(lastSlot_, i, true, [this](uint32_t id) { return HashPosition(positions_[id].p); });
    }

private:
    const KnownPositions& positions_;
    IdTable table_;
    uint32_t lastSlot_ = 0;
};

// Cells hash into buckets, and each bucket chains the vertices of its cells, newest
// first. Cells that share a bucket share its chain: candidates are checked by
// distance anyway, so no cell needs to be stored or compared.
class VertexWelder::ToleranceGrid {
public:
    ToleranceGrid(const KnownPositions& positions, float tolerance, uint32_t expected)
        : positions_(positions), tolerance_(std::fmin(std::fabs(tolerance), FLT_MAX)),
          tolerance2_(tolerance * tolerance), cellsPerUnit_(1.0 / (double(tolerance_) * kCellsPerTolerance)),
          buckets_(std::max<uint32_t>(expected, 1024), kNone)
    {
        next_.reserve(expected);
    }

    // An exact twin of p if there is one, else the lowest-numbered vertex in reach of
    // p, or kNone.
    uint32_t Find(const float* p) const
    {
        Cell low, high;
        // Slightly widened so that no vertex the float distance test accepts is missed.
        const double reach = double(tolerance_) * 1.001;
        for (int k = 0; k < 3; ++k)
            if (!CellOf(p[k] - reach, low.c[k]) || !CellOf(p[k] + reach, high.c[k])) return kNone;
        uint32_t best = kNone;
        Cell cell;
        for (cell.c[2] = low.c[2]; cell.c[2] <= high.c[2]; ++cell.c[2])
            for (cell.c[1] = low.c[1]; cell.c[1] <= high.c[1]; ++cell.c[1])
                for (cell.c[0] = low.c[0]; cell.c[0] <= high.c[0]; ++cell.c[0])
                    if (NearestIn(BucketOf(cell), p, best)) return best;
        return best;
    }

    // Enters vertex i (its position in the store) at the head of its bucket's chain.
    void Add(uint32_t i)
    {
        next_.push_back(kNone);
        Enter(i);
        if (next_.size() > 2 * size_t(buckets_.size())) Rebucket();
    }

private:
    bool CellOf(double x, int64_t& c) const
    {
        const double q = std::floor(x * cellsPerUnit_);
        if (!(std::fabs(q) < 4.0e18)) return false;  // NaN, infinite or beyond 64 bits
        c = int64_t(q);
        return true;
    }

    uint32_t BucketOf(const Cell& cell) const
    {
        return uint32_t((uint64_t(HashCell(cell)) * buckets_.size()) >> 32);
    }

    void Enter(uint32_t i)
    {
        const KnownPositions::Position position = positions_[i];
        Cell cell;
        for (int k = 0; k < 3; ++k)
            if (!CellOf(position.p[k], cell.c[k])) return;  // a non-finite position is near nothing
        uint32_t& head = buckets_[BucketOf(cell)];
        next_[i] = head;
        head = i;
    }

    // Twice the buckets, refilled in vertex order so that chains stay newest first.
    void Rebucket()
    {
        buckets_.assign(buckets_.size() * 2, kNone);
        for (uint32_t i = 0; i < next_.size(); ++i) {
            next_[i] = kNone;
            Enter(i);
        }
    }

    // Folds the vertices chained in a bucket that are in reach of p into `best`; true
    // when one of them is an exact twin, which then is `best`.
    bool NearestIn(uint32_t bucket, const float* p, uint32_t& best) const
    {
        for (uint32_t i = buckets_[bucket]; i != kNone; i = next_[i]) {
            const KnownPositions::Position position = positions_[i];
            const float* q = position.p;
            if (SamePosition(p, q)) {
                best = i;
                return true;
            }
            const float dx = p[0] - q[0], dy = p[1] - q[1], dz = p[2] - q[2];
            if (dy * dy + dx * dx + dz * dz < tolerance2_ && i < best) best = i;
        }
        return false;
    }

    const KnownPositions& positions_;
    float tolerance_;
    float tolerance2_;
    double cellsPerUnit_;  // the inverse cell width: one multiply per coordinate
    std::vector<uint32_t> buckets_;
    std::vector<uint32_t> next_;  // per vertex: the next older vertex of its bucket
};

VertexWelder::VertexWelder(const BaseList<LM_VERTEX>& vertices, uint32_t firstVertex, float tolerance,
                           uint32_t expectedVertices)
    : firstVertex_(firstVertex), positions_(std::make_unique<KnownPositions>(vertices, firstVertex))
{
    // A tolerance whose square is 0 (or not a number) welds equal positions only; one
    // whose square overflows welds every finite position, as its reach is unbounded.
    // The grid finds exact twins too, so only one of the two is built.
    if (tolerance * tolerance > 0.0f)
        grid_ = std::make_unique<ToleranceGrid>(*positions_, tolerance, expectedVertices);
    else
        exact_ = std::make_unique<ExactTable>(*positions_, expectedVertices);
}

VertexWelder::~VertexWelder() = default;

uint32_t VertexWelder::Find(const float* p)
{
    // Neighbouring triangles of a soup share corners: the corners met last, and the
    // vertices they led to, are checked first, in cache.
    for (const Recent& recent : recent_)
        if (recent.id != kNone && SamePosition(recent.p, p)) {
            const uint32_t i = recent.id;
            Remember(i, p);  // met again: keep it among the newest
            return firstVertex_ + i;
        }
    // Other exact repeats cost one table probe, and only the rest visit the grid.
    const uint32_t i = grid_ ? grid_->Find(p) : exact_->Find(p);
    if (i == kNone) return kNone;
    Remember(i, p);
    return firstVertex_ + i;
}

// Keeps vertex i among the vertices met last, under the corner position p that led
// to it. A later corner at exactly p would be led to i again: no vertex can lie at p
// but i itself or one of those in reach of p, and i is the lowest-numbered of those.
void VertexWelder::Remember(uint32_t i, const float* p)
{
    Recent& slot = recent_[nextRecent_++ % kRecent];
    slot.id = i;
    for (int k = 0; k < 3; ++k) slot.p[k] = p[k];
}

void VertexWelder::Add()
{
    const uint32_t i = known_++;
    if (grid_)
        grid_->Add(i);
    else
        exact_->Add(i);
    const KnownPositions::Position position = (*positions_)[i];
    Remember(i, position.p);
}
