// Box grids: the library's throw-away spatial index, built for one operation.
//
// Facet boxes are flat lists of axis-aligned boxes, each with the ids of the facets
// whose bounds touch it (closed boxes: touching counts, so a facet across a wall is
// in every box it meets). The regular grid tests every facet against every box. The
// adaptive set halves a box at its geometric middle along its longest axis, level by
// level, until a box holds few enough facets or halving stops separating them. Each
// split is two passes over the box's ids: the first records which side each facet
// falls on and counts them, so that each child's list is sized once, the second
// fills the children. Facet bounds are computed once per build and kept by facet id.
//
// Cell grids are n*n*n cells over a float box, listing vertices or edges, for short-
// range lookups. They share one piece of cell arithmetic, whose odd corners (origin
// at the maximum on an all-negative axis, a cell size of extent / (n - 1), distances
// folded by their absolute value) are part of the grid's contract.
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "LMesh.h"
#include "LMeshGrids.h"

namespace {

using FacetBoundsList = BaseList<L_BOUNDS>;
using BoxList = BaseList<LM_BOX>;
using CellGrid = BaseList<BaseList<uint32_t>>;

constexpr uint32_t kBoxTableGrowth = 16;
constexpr uint32_t kBoxPage = 512;
constexpr uint32_t kBoxIdsTableGrowth = 16;
constexpr uint32_t kBoxIdsPage = 8;
// Facets wider than the boxes around them go into both children of every split. With
// hundreds of them a box keeps splitting around each small facet among them, and the
// set grows with the square of the mesh (a broken file of 5,000 facets asked for 100
// million ids). Past this many ids per facet slot boxes stay as they are: real parts
// hold 1 to 4 per facet, and every two facets that touch still share a box.
constexpr uint64_t kBoxIdsPerFacet = 32;
constexpr uint32_t kBoundsTableGrowth = 256;
constexpr uint32_t kBoundsPage = 4096;
constexpr L_BOUNDS kEmptyBounds = {{DBL_MAX, DBL_MAX, DBL_MAX}, {-DBL_MAX, -DBL_MAX, -DBL_MAX}};

bool Overlaps(const L_BOUNDS& a, const L_BOUNDS& b)
{
    short overlap = 0;
    check_bb_overlapping(a, b, &overlap);
    return overlap == 1;
}

// True when physical memory could hold `count` elements of `bytes` each. Lists
// allocate and construct page by page, so without this a huge grid would run the
// machine out of memory before any allocation failed.
bool FitsInMemory(uint64_t count, uint64_t bytes)
{
    const long pages = sysconf(_SC_PHYS_PAGES), pageBytes = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageBytes <= 0) return true;  // unknown: leave it to the allocator
    const uint64_t memory = uint64_t(pages) * uint64_t(pageBytes);
    return count <= memory / bytes;
}

// ---- Facet boxes ----

// Bounds of every facet slot, by id. Dead facets get an empty box, which overlaps
// nothing: their ids then stay in the root box of an adaptive set only.
FacetBoundsList BoxFacetBounds(const L_LUMOMESH& mesh)
{
    FacetBoundsList bounds(kBoundsTableGrowth, kBoundsPage);
    const uint32_t count = mesh.facets.count;
    if (count == 0 || !bounds.SetSize(count)) return bounds;  // out of memory: no facet lands in a box
    for (uint32_t f = 0; f < count; ++f) {
        const LM_FACET* facet = mesh.facets.Peek(f);
        L_BOUNDS* entry = bounds.At(f);
        if (facet->flags & LM_LIVE)
            ComputeFacetBounds(mesh, *facet, *entry);
        else
            *entry = kEmptyBounds;
    }
    return bounds;
}

// Appends every facet id whose bounds touch the box. False when memory runs out,
// with the list holding the ids found so far.
bool CollectFacetsInBox(const FacetBoundsList& bounds, const L_BOUNDS& box, BaseList<uint32_t>& facets)
{
    for (uint32_t f = 0; f < bounds.count; ++f)
        if (Overlaps(*bounds.Peek(f), box) && !AppendTo(facets, f)) return false;
    return true;
}

// Fills a list with 0 .. count - 1, sized in one step.
void FillAllIds(BaseList<uint32_t>& facets, uint32_t count)
{
    if (count == 0 || !facets.SetSize(count)) return;  // out of memory: an empty root
    for (uint32_t f = 0; f < count; ++f) *facets.At(f) = f;
}

// Sizes a child's list once and copies in the box's ids marked with `side`.
void FillChild(const LM_BOX& box, const std::vector<uint8_t>& sides, uint8_t side, uint32_t count, LM_BOX& child)
{
    if (count == 0 || !child.facets.SetSize(count)) return;  // out of memory: the child is dropped
    uint32_t next = 0;
    for (uint32_t i = 0; i < box.facets.count; ++i)
        if (sides[i] & side) *child.facets.At(next++) = *box.facets.Peek(i);
}

constexpr uint8_t kLower = 1;
constexpr uint8_t kUpper = 2;

// Halves the box at its middle along its longest axis (ties: x, then y, then z) and
// distributes its facets; a facet across the cut goes to both children. The split is
// useless, and the children stay empty, when both would receive every facet, or when
// the middle does not lie strictly inside the box (an infinite or ulp-wide extent),
// where a child would equal its parent and halving would never end. `sides` holds at
// least one byte per facet of the box.
bool SplitBoxAtLongestAxis(const LM_BOX& box, const FacetBoundsList& bounds, LM_BOX& lower, LM_BOX& upper,
                           std::vector<uint8_t>& sides)
{
    lower.facets.Clear();
    upper.facets.Clear();
    double extent[3];
    for (int k = 0; k < 3; ++k) extent[k] = box.bounds.max[k] - box.bounds.min[k];
    int axis = 0;
    if (extent[1] > extent[axis]) axis = 1;
    if (extent[2] > extent[axis]) axis = 2;
    const double low = box.bounds.min[axis], high = box.bounds.max[axis];
    const double middle = (high + low) * 0.5;
    if (!(low < middle && middle < high)) return false;

    lower.bounds = box.bounds;
    upper.bounds = box.bounds;
    lower.bounds.max[axis] = middle;
    upper.bounds.min[axis] = middle;
    uint32_t lowerCount = 0, upperCount = 0;
    const uint32_t count = box.facets.count;
    for (uint32_t i = 0; i < count; ++i) {
        const L_BOUNDS* facet = bounds.Peek(*box.facets.Peek(i));
        uint8_t side = 0;
        if (facet) {  // an id past the bounds list goes to neither child
            if (Overlaps(*facet, lower.bounds)) side |= kLower;
            if (Overlaps(*facet, upper.bounds)) side |= kUpper;
        }
        sides[i] = side;
        lowerCount += side & kLower;
        upperCount += (side & kUpper) >> 1;
    }
    if (lowerCount == count && upperCount == count) return false;
    FillChild(box, sides, kLower, lowerCount, lower);
    FillChild(box, sides, kUpper, upperCount, upper);
    return true;
}

// Moves box into boxes[written] and advances written. False when the list cannot
// hold it.
bool StoreBox(BaseList<LM_BOX>& boxes, uint32_t& written, LM_BOX& box)
{
    LM_BOX* slot = boxes.At(written);
    if (!slot) return false;
    *slot = std::move(box);
    ++written;
    return true;
}

bool AppendBox(BaseList<LM_BOX>& boxes, LM_BOX& box)
{
    uint32_t end = boxes.count;
    return StoreBox(boxes, end, box);
}

// The axis coordinate of each wall point of one grid axis.
bool CollectWalls(const L_BOUNDS& bounds, int axis, int cells, std::vector<double>& walls)
{
    L_SEGM segment;
    segment.start = {bounds.min[0], bounds.min[1], bounds.min[2]};
    segment.end = segment.start;
    double* end[3] = {&segment.end.x, &segment.end.y, &segment.end.z};
    *end[axis] = bounds.max[axis];
    List<L_POINT> points;
    convert_to_points(segment, cells, &points);
    if (points.Size() < 2) return false;
    walls.clear();
    for (uint32_t i = 1; i <= points.Size(); ++i) {
        const L_POINT& p = *points.Get(i);
        walls.push_back(axis == 0 ? p.x : axis == 1 ? p.y : p.z);
    }
    return true;
}

// ---- Cell grids ----

constexpr uint64_t kOutside = UINT64_MAX;
// The largest n whose n*n*n cells a 32-bit list index can reach.
constexpr uint32_t kLargestCellsPerAxis = 1625;

// Where the cells of a float box start and how wide they are, per axis.
struct CellFrame {
    float origin[3];
    float size[3];
    uint64_t n;
    uint64_t cellCount;  // n*n*n; kOutside when above the 32-bit range
};

CellFrame MakeCellFrame(const L_BOUNDSf& bounds, uint32_t n)
{
    CellFrame frame;
    // n - 1 so that a point on the far wall lands in cell n - 1, not past the grid.
    const float divisor = float(n - 1);
    for (int k = 0; k < 3; ++k) {
        const float low = bounds.min[k], high = bounds.max[k];
        // A box wholly below zero on an axis is measured from its maximum.
        frame.origin[k] = high < 0.0f ? high : low;
        frame.size[k] = std::fabs(high - low) / divisor;
    }
    frame.n = n;
    frame.cellCount = n <= kLargestCellsPerAxis ? frame.n * frame.n * frame.n : kOutside;
    return frame;
}

// Cell number along one axis. A non-finite quotient (a flat axis divides by a zero
// size) counts as cell 0; one too large for a 32-bit cell number is off the grid.
uint64_t AxisCell(float quotient)
{
    if (!std::isfinite(quotient)) return 0;
    if (quotient >= 4294967296.0f) return kOutside;
    return uint64_t(quotient);
}

// List index of the cell holding p, or kOutside. Points beyond a wall are not
// rejected here: the distance is folded by its absolute value, and a far-wall
// overrun spills into the next row, as the 32-bit index arithmetic does.
uint64_t CellIndex(const CellFrame& frame, const float* p)
{
    if (frame.cellCount == kOutside) return kOutside;
    uint64_t cell[3];
    for (int k = 0; k < 3; ++k) {
        cell[k] = AxisCell(std::fabs(p[k] - frame.origin[k]) / frame.size[k]);
        if (cell[k] == kOutside) return kOutside;
    }
    return cell[2] * frame.n * frame.n + cell[1] * frame.n + cell[0];
}

// Copies a vertex position into p; false for an id past the store.
bool FetchPosition(const L_LUMOMESH& mesh, uint32_t v, float* p)
{
    const LM_VERTEX* vertex = mesh.vertices.Peek(v);
    if (!vertex) return false;
    for (int k = 0; k < 3; ++k) p[k] = vertex->position[k];
    return true;
}

// Empties the grid and gives it n*n*n empty cells. False when n*n*n exceeds a 32-bit
// index or memory.
bool PrepareCells(CellGrid& cells, const CellFrame& frame)
{
    if (frame.cellCount == kOutside || !FitsInMemory(frame.cellCount, sizeof(BaseList<uint32_t>))) return false;
    cells.Clear();  // a reused grid must list only this mesh
    return cells.SetSize(uint32_t(frame.cellCount));
}

// Writes the vertex's cell index (LM_NONE when it has none in 32 bits) and returns
// it, or kOutside for a vertex id past the store.
uint64_t QueryCell(const L_LUMOMESH& mesh, const CellFrame& frame, uint32_t vertex, uint32_t& cell)
{
    float p[3];
    if (!FetchPosition(mesh, vertex, p)) return kOutside;  // vertex past the store: no cell
    const uint64_t index = CellIndex(frame, p);
    cell = index <= UINT32_MAX ? uint32_t(index) : LM_NONE;
    return index;
}

// Cells of the segment a b at parameters 0, 1, 0.25, 0.5 and 0.75, in that order;
// false when one of them lies off the n*n*n grid.
bool SampleCells(const CellFrame& frame, const float* a, const float* b, uint32_t index[5])
{
    float samples[5][3];
    for (int k = 0; k < 3; ++k) {
        samples[0][k] = a[k];
        samples[1][k] = b[k];
        samples[2][k] = a[k] + (b[k] - a[k]) * 0.25f;
        samples[3][k] = (a[k] + b[k]) * 0.5f;
        samples[4][k] = a[k] + (b[k] - a[k]) * 0.75f;
    }
    for (int s = 0; s < 5; ++s) {
        const uint64_t cell = CellIndex(frame, samples[s]);
        if (cell >= frame.cellCount) return false;
        index[s] = uint32_t(cell);
    }
    return true;
}

}  // namespace

bool EdgeSampleCells(const L_BOUNDSf& bounds, uint32_t n, const float* a, const float* b, uint32_t cells[5])
{
    return SampleCells(MakeCellFrame(bounds, n), a, b, cells);
}

// Regular nx by ny by nz grid over the mesh's double box (dead vertices count). Boxes
// are written from index 0 with x varying fastest; the list is neither cleared nor
// appended to, so entries past the grid stay as they were. Nothing is touched for a
// count that is not positive, or for a grid that a 32-bit list cannot index. Costs
// boxes times facets.
void LMeshBoxFacets(const L_LUMOMESH& mesh, int nx, int ny, int nz, BaseList<LM_BOX>& boxes)
{
    if (nx <= 0 || ny <= 0 || nz <= 0) return;
    const uint64_t boxCount = uint64_t(nx) * uint64_t(ny) * uint64_t(nz);
    // More boxes than a list index or memory can hold: nothing to build.
    if (boxCount >= UINT32_MAX || !FitsInMemory(boxCount, sizeof(LM_BOX))) return;
    L_BOUNDS meshBounds;
    LMeshComputeAbsoluteBoundingBox(mesh, meshBounds);
    std::vector<double> walls[3];
    try {
        const int cells[3] = {nx, ny, nz};
        for (int axis = 0; axis < 3; ++axis)
            if (!CollectWalls(meshBounds, axis, cells[axis], walls[axis])) return;
    } catch (const std::bad_alloc&) {
        return;
    }

    const FacetBoundsList facetBounds = BoxFacetBounds(mesh);
    uint32_t index = 0;
    for (size_t z = 0; z + 1 < walls[2].size(); ++z)
        for (size_t y = 0; y + 1 < walls[1].size(); ++y)
            for (size_t x = 0; x + 1 < walls[0].size(); ++x) {
                LM_BOX* box = boxes.At(index++);
                if (!box) return;  // out of memory: the grid ends here
                const double a[3] = {walls[0][x], walls[1][y], walls[2][z]};
                const double b[3] = {walls[0][x + 1], walls[1][y + 1], walls[2][z + 1]};
                for (int k = 0; k < 3; ++k) {
                    box->bounds.min[k] = a[k] < b[k] ? a[k] : b[k];
                    box->bounds.max[k] = a[k] < b[k] ? b[k] : a[k];
                }
                box->facets.Clear();
                CollectFacetsInBox(facetBounds, box->bounds, box->facets);
            }
}

// Adaptive boxes: the root box over the mesh's double box lists every facet slot,
// dead ones included, and boxes with more than `limit` facets are halved level by
// level. A box is finished when it holds at most `limit` facets or halving no longer
// separates them; empty boxes are dropped. Boxes are written from index 0 in the
// order they were finished (shallower first, not spatial order); the list is not
// cleared first. A dead facet's id appears in the root box only. On allocation
// failure the result is shorter.
void LMeshBoxFacetsNonUniform(const L_LUMOMESH& mesh, BaseList<LM_BOX>& boxes, uint32_t limit)
{
    const FacetBoundsList bounds = BoxFacetBounds(mesh);
    LM_BOX root;
    LMeshComputeAbsoluteBoundingBox(mesh, root.bounds);
    FillAllIds(root.facets, mesh.facets.count);
    uint32_t written = 0;
    if (mesh.facets.count < limit) {
        StoreBox(boxes, written, root);
        return;
    }
    std::vector<uint8_t> sides;  // per facet of the box being split; children never outgrow the root
    try {
        sides.resize(root.facets.count);
    } catch (const std::bad_alloc&) {
        return;
    }

    // A queue runs the levels in order: children line up behind the whole current
    // level. Boxes stay as empty shells once split or finished, so their pages are
    // reused instead of being freed and allocated again at every level.
    const uint64_t budget = kBoxIdsPerFacet * root.facets.count;
    uint64_t held = root.facets.count;  // ids in the queue's unfinished boxes and the set
    BoxList queue(kBoxTableGrowth, kBoxPage);
    if (!AppendBox(queue, root)) return;
    LM_BOX lower, upper;
    for (uint32_t i = 0; i < queue.count; ++i) {
        LM_BOX& box = *queue.At(i);  // pages never move, so appending keeps it valid
        if (box.facets.count == 0) continue;
        if (box.facets.count > limit && SplitBoxAtLongestAxis(box, bounds, lower, upper, sides) &&
            held - box.facets.count + lower.facets.count + upper.facets.count <= budget) {
            held += uint64_t(lower.facets.count) + upper.facets.count - box.facets.count;
            box.facets.Clear();
            // An empty child is dropped, so the set need not tile the mesh's box.
            if (lower.facets.count > 0 && !AppendBox(queue, lower)) return;  // out of memory
            if (upper.facets.count > 0 && !AppendBox(queue, upper)) return;
            continue;
        }
        if (!StoreBox(boxes, written, box)) return;  // out of memory: the set ends here
    }
}

// Per facet id, the ascending list of boxes that hold it; the table is resized to the
// facet store and its lists hold nothing else (bounds are not filled in). Ids past
// the facet store are skipped. Always 0.
short LMeshBoxFacetsIndexTable(const L_LUMOMESH& mesh, const BaseList<LM_BOX>& boxes, BaseList<LM_BOX>& table)
{
    table.Clear();
    if (!table.SetSize(mesh.facets.count)) return 0;  // out of memory: an empty table
    // A facet lies in a few boxes at most: small pages keep the per-facet cost low.
    for (uint32_t f = 0; f < table.count; ++f)
        table.At(f)->facets = BaseList<uint32_t>(kBoxIdsTableGrowth, kBoxIdsPage);
    for (uint32_t b = 0; b < boxes.count; ++b) {
        const BaseList<uint32_t>& facets = boxes.Peek(b)->facets;
        for (uint32_t i = 0; i < facets.count; ++i) {
            const uint32_t f = *facets.Peek(i);
            if (f >= table.count) continue;  // id past the facet store: no entry to list it in
            AppendTo(table.At(f)->facets, b);
        }
    }
    return 0;
}

// n*n*n cells over `bounds`, listing each live vertex once, in id order. A vertex
// whose cell lies past the grid (beyond the box, or a non-finite coordinate that
// folds far out) is left out rather than growing the grid. False, with the grid
// emptied or as it was, when n*n*n exceeds a 32-bit index or memory.
bool LMeshBoxVertices(const L_LUMOMESH& mesh, uint32_t n, const L_BOUNDSf& bounds, BaseList<BaseList<uint32_t>>& cells)
{
    const CellFrame frame = MakeCellFrame(bounds, n);
    if (!PrepareCells(cells, frame)) return false;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(v);
        if (!(vertex->flags & LM_LIVE)) continue;
        const float p[3] = {vertex->position[0], vertex->position[1], vertex->position[2]};
        const uint64_t index = CellIndex(frame, p);
        if (index >= cells.count) continue;  // past the grid: left out instead of growing the list
        BaseList<uint32_t>& cell = *cells.At(uint32_t(index));
        // Ids arrive in ascending order, so a repeat could only be the cell's last entry.
        if (cell.count > 0 && *cell.Peek(cell.count - 1) == v) continue;
        AppendTo(cell, v);
    }
    return true;
}

// n*n*n cells over `bounds`, listing each live edge in the cells of five samples
// (start, end, quarter, middle, three-quarter), once per sample, duplicates kept.
// Meant for edges shorter than a few cells, which cannot skip a cell. False when
// n*n*n exceeds a 32-bit index or memory, or at the first edge with a sample off the
// grid; edges entered before it stay.
bool LMeshBoxEdges(const L_LUMOMESH& mesh, uint32_t n, const L_BOUNDSf& bounds, BaseList<BaseList<uint32_t>>& cells)
{
    const CellFrame frame = MakeCellFrame(bounds, n);
    if (!PrepareCells(cells, frame)) return false;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE* edge = mesh.edges.Peek(e);
        if (!(edge->flags & LM_LIVE)) continue;
        float a[3], b[3];
        if (!FetchPosition(mesh, edge->vertex[0], a) || !FetchPosition(mesh, edge->vertex[1], b))
            continue;  // end past the vertex store: the edge has no place
        uint32_t index[5];
        if (!SampleCells(frame, a, b, index)) return false;
        for (int s = 0; s < 5; ++s) AppendTo(*cells.At(index[s]), e);
    }
    return true;
}

// The vertex's cell (written to `cell`), and around every vertex listed in it the
// facets and/or edges, appended to whichever lists are given. False for a vertex id
// past the store, a cell past the grid, or an empty cell; true otherwise, even with
// both lists null.
bool LMeshQueryVertexBox(const L_LUMOMESH& mesh, const L_BOUNDSf& bounds, uint32_t vertex, uint32_t n,
                         const BaseList<BaseList<uint32_t>>& cells, uint32_t& cell, BaseList<uint32_t>* facets,
                         BaseList<uint32_t>* edges)
{
    const uint64_t index = QueryCell(mesh, MakeCellFrame(bounds, n), vertex, cell);
    if (index >= cells.count) return false;  // cell past the grid: nothing to read
    const BaseList<uint32_t>& listed = *cells.Peek(uint32_t(index));
    if (listed.count == 0) return false;
    for (uint32_t i = 0; i < listed.count; ++i) {
        const uint32_t v = *listed.Peek(i);
        if (facets && edges)
            LMeshGetFacetsAndEdgesAroundVertex(mesh, v, *facets, *edges);
        else if (facets)
            LMeshGetFacetsAroundVertex(mesh, v, *facets);
        else if (edges)
            LMeshGetEdgesAroundVertex(mesh, v, *edges);
    }
    return true;
}

// The vertex's cell (written to `cell`), and `edges` replaced by a copy of the edges
// listed there. False for a vertex id past the store, a cell past n*n*n or the grid,
// or an empty cell (then `edges` is left alone).
bool LMeshQueryEdgeBox(const L_LUMOMESH& mesh, const L_BOUNDSf& bounds, uint32_t vertex, uint32_t n,
                       const BaseList<BaseList<uint32_t>>& cells, uint32_t& cell, BaseList<uint32_t>& edges)
{
    const CellFrame frame = MakeCellFrame(bounds, n);
    const uint64_t index = QueryCell(mesh, frame, vertex, cell);
    if (index >= frame.cellCount) return false;
    if (index >= cells.count) return false;  // grid smaller than n*n*n: nothing to read
    const BaseList<uint32_t>& listed = *cells.Peek(uint32_t(index));
    if (listed.count == 0) return false;
    edges = listed;
    return edges.count > 0;
}
