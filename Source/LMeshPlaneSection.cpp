// Plane section: where a plane cuts a mesh, as one segment per crossed facet or
// chained and reduced to lines and arcs.
//
// The plane stands as one triangle far larger than the mesh's stored box, and each
// facet is cut against it by the exact triangle-triangle test, so a facet touching
// the plane at a corner or along an edge gives whatever that test gives. Most facets
// of a large mesh lie wholly on one side of the plane: a cheap signed-distance test
// with a margin wider than its rounding error keeps the exact test off them.
#include "LMeshPlane.h"

#include <algorithm>
#include <cmath>

namespace {

L_POINT Offset(const L_POINT& p, const L_VECTOR& a, double sa, const L_VECTOR& b, double sb)
{
    return {p.x + sa * a.x + sb * b.x, p.y + sa * a.y + sb * b.y, p.z + sa * a.z + sb * b.z};
}

}  // namespace

bool BuildPlaneTriangle(const float bboxMin[3], const float bboxMax[3], const L_PLANE& plane,
                        PlaneTriangle& triangle)
{
    L_VECTOR normal = plane.normal;
    if (normalise(&normal) != 0) return false;
    const L_POINT middle = {(bboxMin[0] + bboxMax[0]) * 0.5f, (bboxMin[1] + bboxMax[1]) * 0.5f,
                            (bboxMin[2] + bboxMax[2]) * 0.5f};
    L_POINT c;
    project_point_onto_plane(&middle, &plane, &c);
    L_VECTOR a, b;
    nvector_arbitraryaxis(&normal, &a, &b);
    const float extent = std::max({bboxMax[0] - bboxMin[0], bboxMax[1] - bboxMin[1], bboxMax[2] - bboxMin[2]});
    const double h = double(extent) * 1.5 * 0.5;
    const double s = h * 5.0;
    triangle.p1 = Offset(c, a, -s, b, -h);
    triangle.p2 = Offset(c, a, s, b, -h);
    triangle.p3 = Offset(c, a, 0.0, b, s);
    return true;
}

namespace {

// Which side of the plane triangle's own plane a point lies on: +1 or -1 when the
// rounded volume clears a bound on its error many times over, 0 when it may not. The
// bound takes every term at its magnitude, so a sign given here is the exact one.
class SideTest {
public:
    explicit SideTest(const PlaneTriangle& t) : origin_(t.p1)
    {
        const double ax = t.p2.x - t.p1.x, ay = t.p2.y - t.p1.y, az = t.p2.z - t.p1.z;
        const double bx = t.p3.x - t.p1.x, by = t.p3.y - t.p1.y, bz = t.p3.z - t.p1.z;
        normal_ = {ay * bz - az * by, az * bx - ax * bz, ax * by - ay * bx};
        magnitude_ = {std::fabs(ay * bz) + std::fabs(az * by), std::fabs(az * bx) + std::fabs(ax * bz),
                      std::fabs(ax * by) + std::fabs(ay * bx)};
    }

    int Side(const L_POINT& p) const
    {
        const double dx = p.x - origin_.x, dy = p.y - origin_.y, dz = p.z - origin_.z;
        const double value = normal_.x * dx + normal_.y * dy + normal_.z * dz;
        const double bound =
            kMargin * (magnitude_.x * std::fabs(dx) + magnitude_.y * std::fabs(dy) + magnitude_.z * std::fabs(dz));
        return (value > bound) - (value < -bound);  // NaN gives 0
    }

    // True only when every point of the box lies so far on one side that the exact
    // test is bound to find each corner of a facet inside it on that side.
    bool MissesBox(const L_BOUNDSf& box) const
    {
        double low = INFINITY, high = -INFINITY, reach = 0.0;
        for (int corner = 0; corner < 8; ++corner) {
            const double dx = double(corner & 1 ? box.max[0] : box.min[0]) - origin_.x;
            const double dy = double(corner & 2 ? box.max[1] : box.min[1]) - origin_.y;
            const double dz = double(corner & 4 ? box.max[2] : box.min[2]) - origin_.z;
            const double value = normal_.x * dx + normal_.y * dy + normal_.z * dz;
            low = std::min(low, value);
            high = std::max(high, value);
            reach = std::max(reach, magnitude_.x * std::fabs(dx) + magnitude_.y * std::fabs(dy) +
                                        magnitude_.z * std::fabs(dz));
        }
        // Far wider than the corner test's own margin and the rounding of these sums.
        const double margin = 1e-9 * reach;
        return low > margin || high < -margin;
    }

    // True only when the exact test is bound to find the corners strictly on one side.
    bool Misses(const L_POINT& p0, const L_POINT& p1, const L_POINT& p2) const
    {
        const int side = Side(p0);
        return side != 0 && Side(p1) == side && Side(p2) == side;
    }

private:
    // A few tens of double roundings bound the error; this is far wider.
    static constexpr double kMargin = 1e-12;
    L_POINT origin_;
    L_VECTOR normal_, magnitude_;
};

L_POINT Widen(const LM_VERTEX& vertex)
{
    return {vertex.position[0], vertex.position[1], vertex.position[2]};
}

// Cuts one facet record; a corner past the vertex store leaves it uncut.
void CutFacet(const L_LUMOMESH& mesh, const LM_FACET& facet, uint32_t id, const PlaneTriangle& plane,
              const SideTest& sides, List<L_ELEMENT>& elements, BaseList<uint32_t>* facets)
{
    const LM_VERTEX* v0 = mesh.vertices.Peek(facet.vertex[0]);
    const LM_VERTEX* v1 = mesh.vertices.Peek(facet.vertex[1]);
    const LM_VERTEX* v2 = mesh.vertices.Peek(facet.vertex[2]);
    if (!v0 || !v1 || !v2) return;  // corner past the vertex store: skipped
    const L_POINT q0 = Widen(*v0), q1 = Widen(*v1), q2 = Widen(*v2);
    if (sides.Misses(q0, q1, q2)) return;
    L_SEGM segment;
    if (intersect_TriTri(plane.p1, plane.p2, plane.p3, q0, q1, q2, &segment) == 0) return;
    // Pieces no longer than the library tolerance allows are dropped, but the facet
    // still counts as crossed.
    if (dist_PP(&segment.start, &segment.end) > zefatoll.length * 1000.0) {
        L_ELEMENT element;
        element.SetSegment(segment);
        elements.Append(element);
    }
    if (facets) AppendTo(*facets, id);
}

// Every record of the facet store, dead ones too, page by page in id order.
void CutAllFacets(const L_LUMOMESH& mesh, const PlaneTriangle& plane, List<L_ELEMENT>& elements,
                  BaseList<uint32_t>* facets)
{
    const SideTest sides(plane);
    const BaseList<LM_FACET>& store = mesh.facets;
    for (uint64_t first = 0; first < store.count; first += store.pageSize) {
        const LM_FACET* page = store.Peek(uint32_t(first));
        const uint64_t onPage = std::min<uint64_t>(store.pageSize, store.count - first);
        for (uint32_t k = 0; k < onPage; ++k) CutFacet(mesh, page[k], uint32_t(first + k), plane, sides, elements, facets);
    }
}

// The chain's points as its order gives them: each line's start, then the end of the
// last line. Gaps between one element and the next are taken as they are.
List<L_POINT> ChainPoints(const Connected_Set_Of_Elements& set)
{
    List<L_POINT> points;
    L_POINT end;
    bool anyLine = false;
    for (uint32_t i = 1; i <= set.elements.Size(); ++i) {
        const L_ELEMENT* element = set.elements.Get(i);
        if (!element || element->TypeGet() != L_ELEMENT_LINE) continue;
        L_POINT start;
        if (element->get_start_end_point(&start, &end) != 0) continue;
        points.Append(start);
        anyLine = true;
    }
    if (anyLine) points.Append(end);
    return points;
}

// Replaces the raw segments by their chains reduced to lines and arcs; leaves them
// as they are when chaining fails.
void ChainAndSimplify(List<L_ELEMENT>& elements, double tolerance)
{
    List<Connected_Set_Of_Elements> sets;
    if (create_connected_sets_of_elements(elements, tolerance, &sets) != 0) return;
    List<L_ELEMENT> result;
    for (uint32_t i = 1; i <= sets.Size(); ++i) {
        const Connected_Set_Of_Elements* set = sets.Get(i);
        if (!set) continue;
        const List<L_POINT> points = ChainPoints(*set);
        Polyline polyline;
        polyline.Create(&points);
        List<L_ELEMENT> simplified;
        short status;
        polyline.SuperSimplify(tolerance, &simplified, &status);  // a chain that does not reduce adds nothing
        for (uint32_t k = 1; k <= simplified.Size(); ++k) {
            if (const L_ELEMENT* element = simplified.Get(k)) result.Append(*element);
        }
    }
    elements = std::move(result);
}

}  // namespace

bool LMeshPlaneSection(const L_LUMOMESH& mesh, const L_PLANE& plane, List<L_ELEMENT>& elements, short chain,
                       double tolerance, BaseList<uint32_t>* facets)
{
    PlaneTriangle triangle;
    if (!BuildPlaneTriangle(mesh.bboxMin, mesh.bboxMax, plane, triangle)) return false;
    CutAllFacets(mesh, triangle, elements, facets);
    if (elements.Size() == 0) return false;
    if (chain != 0) ChainAndSimplify(elements, tolerance);
    return true;
}

namespace {

constexpr uint32_t kBlockSize = 64;

}  // namespace

FacetBlockSection::FacetBlockSection(const L_LUMOMESH& mesh) : mesh_(mesh)
{
    const BaseList<LM_FACET>& store = mesh.facets;
    boxes_.reserve((store.count + kBlockSize - 1) / kBlockSize);
    for (uint32_t first = 0; first < store.count; first += kBlockSize) {
        L_BOUNDSf box = {{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
        for (uint32_t f = first; f < std::min(store.count, first + kBlockSize); ++f) {
            const LM_FACET& facet = *store.Peek(f);
            for (int c = 0; c < 3; ++c) {
                const LM_VERTEX* vertex = mesh.vertices.Peek(facet.vertex[c]);
                if (!vertex) continue;  // such a facet is never cut
                for (int k = 0; k < 3; ++k) {
                    // NaN stays in the box, so that the block is always visited.
                    const float x = vertex->position[k];
                    box.min[k] = std::isnan(x) || std::isnan(box.min[k]) ? NAN : std::min(box.min[k], x);
                    box.max[k] = std::isnan(x) || std::isnan(box.max[k]) ? NAN : std::max(box.max[k], x);
                }
            }
        }
        boxes_.push_back(box);
    }
}

bool FacetBlockSection::Section(const L_PLANE& plane, List<L_ELEMENT>& elements) const
{
    PlaneTriangle triangle;
    if (!BuildPlaneTriangle(mesh_.bboxMin, mesh_.bboxMax, plane, triangle)) return false;
    const SideTest sides(triangle);
    const BaseList<LM_FACET>& store = mesh_.facets;
    for (uint32_t b = 0; b < boxes_.size(); ++b) {
        const L_BOUNDSf& box = boxes_[b];
        const bool empty = box.min[0] > box.max[0];
        // A corner that is not finite is cut as the whole-mesh section would cut it.
        const bool finite = std::isfinite(box.min[0] + box.min[1] + box.min[2] + box.max[0] + box.max[1] + box.max[2]);
        if (empty || (finite && sides.MissesBox(box))) continue;
        const uint32_t first = b * kBlockSize;
        for (uint32_t f = first; f < std::min(store.count, first + kBlockSize); ++f)
            CutFacet(mesh_, *store.Peek(f), f, triangle, sides, elements, nullptr);
    }
    return elements.Size() != 0;
}

bool FacetBlockSection::SectionOf(const L_PLANE& plane, const BaseList<uint32_t>& facets,
                                  List<L_ELEMENT>& elements) const
{
    PlaneTriangle triangle;
    if (!BuildPlaneTriangle(mesh_.bboxMin, mesh_.bboxMax, plane, triangle)) return false;
    const SideTest sides(triangle);
    for (uint32_t i = 0; i < facets.count; ++i) {
        const uint32_t f = *facets.Peek(i);
        if (f < mesh_.facets.count) CutFacet(mesh_, *mesh_.facets.Peek(f), f, triangle, sides, elements, nullptr);
    }
    return elements.Size() != 0;
}
