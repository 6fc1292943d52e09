// Vertex welding for the merging insert.
//
// Exact matches go through an open-addressing table of vertex ids keyed by position.
// Matches within a tolerance go through a hash grid of cells 16 tolerances wide:
// a corner is checked against the vertices of the one to eight cells that its
// tolerance box touches, and welds to the lowest-numbered vertex in reach. A sorted
// tree under a tolerance compare would find some vertex in reach by a path that
// depends on its shape (the compare is not a true order); the grid always finds one
// when one exists, and picks it the same way whatever the input order of the others.
#include "LMeshWeld.h"

#include <cfloat>
#include <cmath>
#include <cstring>

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr double kCellsPerTolerance = 16.0;  // wide cells: most corners touch one cell only

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

uint32_t PowerOfTwoAtLeast(uint32_t n)
{
    uint32_t capacity = 1024;
    while (capacity < n && capacity < (1u << 30)) capacity *= 2;
    return capacity;
}

// An open-addressing table of ids, looked up through a key function of the id.
// Kept at most half full, so probes stay short.
class IdTable {
public:
    explicit IdTable(uint32_t expected) : slots_(PowerOfTwoAtLeast(2 * expected), kNone) {}

    // Walks the probe sequence from `hash`; `matches(id)` ends it at a stored id.
    template <class Matches>
    uint32_t Find(uint32_t hash, Matches matches, uint32_t& slot) const
    {
        const uint32_t mask = uint32_t(slots_.size() - 1);
        for (slot = hash & mask;; slot = (slot + 1) & mask) {
            const uint32_t id = slots_[slot];
            if (id == kNone || matches(id)) return id;
        }
    }

    // Puts id at a slot that Find returned; `hashOf(id)` rehashes when the table grows.
    template <class HashOf>
    void Put(uint32_t slot, uint32_t id, bool fresh, HashOf hashOf)
    {
        slots_[slot] = id;
        if (fresh && ++used_ * 2 > slots_.size()) Grow(hashOf);
    }

private:
    template <class HashOf>
    void Grow(HashOf hashOf)
    {
        std::vector<uint32_t> old(slots_.size() * 2, kNone);
        old.swap(slots_);
        const uint32_t mask = uint32_t(slots_.size() - 1);
        for (uint32_t id : old) {
            if (id == kNone) continue;
            uint32_t s = hashOf(id) & mask;
            while (slots_[s] != kNone) s = (s + 1) & mask;
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

class VertexWelder::ExactTable {
public:
    ExactTable(const std::vector<Position>& positions, uint32_t expected) : positions_(positions), table_(expected) {}

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
    const std::vector<Position>& positions_;
    IdTable table_;
    uint32_t lastSlot_ = 0;
};

// Cells hold chains of vertex ids; the table holds the newest id of each cell, and a
// stored id's cell is recomputed from its position rather than stored.
class VertexWelder::ToleranceGrid {
public:
    ToleranceGrid(const std::vector<Position>& positions, float tolerance, uint32_t expected)
        : positions_(positions), tolerance_(std::fmin(std::fabs(tolerance), FLT_MAX)),
          tolerance2_(tolerance * tolerance), cellsPerUnit_(1.0 / (double(tolerance_) * kCellsPerTolerance)),
          table_(expected)
    {
        next_.reserve(expected);
    }

    // The lowest-numbered vertex in reach of p, or kNone.
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
                for (cell.c[0] = low.c[0]; cell.c[0] <= high.c[0]; ++cell.c[0]) best = NearestIn(cell, p, best);
        return best;
    }

    // Enters vertex i (its position stored) into the chain of its cell.
    void Add(uint32_t i)
    {
        Cell cell;
        if (!CellOfPosition(positions_[i].p, cell)) {
            next_.push_back(kNone);  // a non-finite position is near nothing
            return;
        }
        uint32_t slot;
        const uint32_t head = FindCell(cell, slot);
        next_.push_back(head);
        table_.Put(slot, i, head == kNone, [this](uint32_t id) {
            Cell own{};
            CellOfPosition(positions_[id].p, own);
            return HashCell(own);
        });
    }

private:
    bool CellOf(double x, int64_t& c) const
    {
        const double q = std::floor(x * cellsPerUnit_);
        if (!(std::fabs(q) < 4.0e18)) return false;  // NaN, infinite or beyond 64 bits
        c = int64_t(q);
        return true;
    }

    bool CellOfPosition(const float* p, Cell& cell) const
    {
        return CellOf(p[0], cell.c[0]) && CellOf(p[1], cell.c[1]) && CellOf(p[2], cell.c[2]);
    }

    uint32_t FindCell(const Cell& cell, uint32_t& slot) const
    {
        return table_.Find(
            HashCell(cell),
            [&](uint32_t id) {
                Cell own{};
                return CellOfPosition(positions_[id].p, own) && own == cell;
            },
            slot);
    }

    // Folds the vertices of one cell that are in reach of p into `best`.
    uint32_t NearestIn(const Cell& cell, const float* p, uint32_t best) const
    {
        uint32_t slot;
        for (uint32_t i = FindCell(cell, slot); i != kNone; i = next_[i]) {
            const float* q = positions_[i].p;
            const float dx = p[0] - q[0], dy = p[1] - q[1], dz = p[2] - q[2];
            if (dy * dy + dx * dx + dz * dz < tolerance2_ && i < best) best = i;
        }
        return best;
    }

    const std::vector<Position>& positions_;
    float tolerance_;
    float tolerance2_;
    double cellsPerUnit_;  // the inverse cell width: one multiply per coordinate
    IdTable table_;
    std::vector<uint32_t> next_;  // per vertex: the next older vertex of its cell
};

VertexWelder::VertexWelder(uint32_t firstVertex, float tolerance, uint32_t expectedVertices)
    : firstVertex_(firstVertex), exact_(std::make_unique<ExactTable>(positions_, expectedVertices))
{
    positions_.reserve(expectedVertices);
    // A tolerance whose square is 0 (or not a number) welds equal positions only; one
    // whose square overflows welds every finite position, as its reach is unbounded.
    if (tolerance * tolerance > 0.0f)
        grid_ = std::make_unique<ToleranceGrid>(positions_, tolerance, expectedVertices);
}

VertexWelder::~VertexWelder() = default;

uint32_t VertexWelder::Find(const float* p)
{
    uint32_t i = exact_->Find(p);
    if (i == kNone && grid_) i = grid_->Find(p);
    return i == kNone ? kNone : firstVertex_ + i;
}

void VertexWelder::Add(const float* p)
{
    const uint32_t i = uint32_t(positions_.size());
    positions_.push_back(Position{{p[0], p[1], p[2]}});
    exact_->Add(i);
    if (grid_) grid_->Add(i);
}
