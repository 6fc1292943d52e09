// The direction in which a surface continues past one of its free edges.
//
// A plane through the edge's midpoint, square to the edge, cuts the surface along
// the curve that leaves the edge at right angles; a point of that curve some way off
// the edge, seen from the midpoint, gives the direction. The cut widens in stages
// (the edge's facet, the facets round its corners, the whole mesh) only as far as
// needed to reach such a point.
#include "LMeshExtension.h"
#include "LMeshPlane.h"

#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace {

constexpr double kSectionTolerance = 1e-6;
// A sampled point must lie this far from the edge midpoint to set a direction.
constexpr double kReach = 1.0;
// Closer than this to the midpoint, a section end counts as touching the edge.
constexpr double kTouch = 0.1;
// Past this, the first chain of a split section reaches far enough to lead.
constexpr double kFarChainEnd = 5.0;

struct Sample {
    L_POINT point{};
    bool hasSecond = false;
    L_POINT second{};
};

L_POINT Widen(const float p[3])
{
    return {p[0], p[1], p[2]};
}

double Dot(const L_VECTOR& a, const L_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

bool UnitFromTo(const L_POINT& from, const L_POINT& to, L_VECTOR& v)
{
    return nvector_PP(&from, &to, &v) == 0;
}

// The line segments of a section, in order; other element kinds carry no points here.
std::vector<L_SEGM> LinesOf(const List<L_ELEMENT>& elements)
{
    std::vector<L_SEGM> lines;
    for (uint32_t i = 1; i <= elements.Size(); ++i) {
        const L_ELEMENT* element = elements.Get(i);
        if (element && element->TypeGet() == L_ELEMENT_LINE) lines.push_back(element->Segment());
    }
    return lines;
}

// The first element, when it is a line of some length: the direction from its end
// to its start.
bool ReferenceFromFirstLine(const List<L_ELEMENT>& elements, L_VECTOR& reference)
{
    const L_ELEMENT* first = elements.Get(1);
    if (!first || first->TypeGet() != L_ELEMENT_LINE) return false;
    const L_SEGM& line = first->Segment();
    return dist_PP(&line.start, &line.end) > 0.0 && UnitFromTo(line.end, line.start, reference);
}

// Copies one facet of `mesh` into `target` as a free triangle; false for a bad id.
bool AddFacetCopy(const L_LUMOMESH& mesh, uint32_t facet, L_LUMOMESH& target)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    float corner[3][3];
    for (int k = 0; k < 3; ++k) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(record->vertex[k]);
        if (!vertex) return false;
        for (int i = 0; i < 3; ++i) corner[k][i] = vertex->position[i];
    }
    return LMeshAddTriangle(target, corner[0], corner[1], corner[2], 0) != LM_NONE;
}

// Sections a temporary mesh of the listed facets; its box is made right first, since
// the section's plane triangle is sized by it.
bool SectionFacets(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, const L_PLANE& plane, short chain,
                   List<L_ELEMENT>& elements)
{
    L_LUMOMESH part;
    for (uint32_t i = 0; i < facets.count; ++i) AddFacetCopy(mesh, *facets.Peek(i), part);
    if (part.facets.count == 0) return false;
    LMeshComputeAbsoluteBoundingBox(part);
    return LMeshPlaneSection(part, plane, elements, chain, kSectionTolerance, nullptr);
}

void AppendId(BaseList<uint32_t>& list, uint32_t id)
{
    uint32_t* slot = list.At(list.count);
    if (slot) *slot = id;
}

// Appends to `a` each id of `b` it does not hold yet, then empties `b`.
void MergeFacetLists(BaseList<uint32_t>& a, BaseList<uint32_t>& b)
{
    for (uint32_t i = 0; i < b.count; ++i) {
        const uint32_t id = *b.Peek(i);
        bool held = false;
        for (uint32_t k = 0; k < a.count && !held; ++k) held = *a.Peek(k) == id;
        if (!held) AppendId(a, id);
    }
    b.Clear();
}

// The facets round the three corners of `facet`, each once.
BaseList<uint32_t> CollectNeighbourhood(const L_LUMOMESH& mesh, uint32_t facet)
{
    BaseList<uint32_t> gathered;
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return gathered;
    for (int k = 0; k < 3; ++k) {
        BaseList<uint32_t> around, edges;
        const uint32_t vertex = record->vertex[k];  // by value: the record is packed
        LMeshGetFacetsAndEdgesAroundVertex(mesh, vertex, around, edges);
        MergeFacetLists(gathered, around);
    }
    return gathered;
}

// The unit vector from the farther of a and b (from the edge midpoint) to the nearer,
// so it points out of the surface past the edge. False for coincident points.
bool DirectionBetweenPoints(const float startPoint[3], const float endPoint[3], L_POINT a, L_POINT b,
                            L_VECTOR& result)
{
    L_POINT midpoint;
    mean_point(Widen(startPoint), Widen(endPoint), &midpoint);
    if (dist_PP(&b, &midpoint) > dist_PP(&a, &midpoint)) std::swap(a, b);
    vector_PP(&a, &b, &result);
    return normalise(&result) == 0;
}

// Index of the first of the places [from, count) whose point, as `at` gives it, lies
// nearest `target`.
template <class At>
size_t NearestIndex(size_t from, size_t count, const L_POINT& target, At at)
{
    size_t best = from;
    double bestDistance = dist_PP(&at(from), &target);
    for (size_t i = from + 1; i < count; ++i) {
        const double distance = dist_PP(&at(i), &target);
        if (distance < bestDistance) {
            best = i;
            bestDistance = distance;
        }
    }
    return best;
}

// Index of the first line whose start is nearest to `point`, among those from `from`.
size_t NearestStart(const std::vector<L_SEGM>& lines, size_t from, const L_POINT& point)
{
    return NearestIndex(from, lines.size(), point, [&lines](size_t i) -> const L_POINT& { return lines[i].start; });
}

// Orders a group into a chain from the line starting nearest m, end to next start;
// empty when no line starts within `limit` of m.
std::vector<L_SEGM> ChainFrom(std::vector<L_SEGM> group, const L_POINT& m, double limit)
{
    if (group.empty()) return group;
    const size_t first = NearestStart(group, 0, m);
    if (dist_PP(&group[first].start, &m) > limit) return {};
    std::swap(group[0], group[first]);
    for (size_t i = 1; i < group.size(); ++i) std::swap(group[i], group[NearestStart(group, i, group[i - 1].end)]);
    return group;
}

// Splits a section through m into the chains on either side of it: each line is
// turned to start at its end nearer m and goes to the side that `reference` faces.
void SplitSectionAtMidpoint(const std::vector<L_SEGM>& lines, const L_POINT& m, const L_VECTOR& reference,
                            double limit, std::vector<L_SEGM>& chain1, std::vector<L_SEGM>& chain2)
{
    std::vector<L_SEGM> group1, group2;
    for (L_SEGM line : lines) {
        if (dist_PP(&line.end, &m) < dist_PP(&line.start, &m)) std::swap(line.start, line.end);
        L_VECTOR v{};
        if (!UnitFromTo(line.start, m, v)) UnitFromTo(line.end, m, v);
        (Dot(reference, v) >= 0.0 ? group1 : group2).push_back(line);
    }
    chain1 = ChainFrom(std::move(group1), m, limit);
    chain2 = ChainFrom(std::move(group2), m, limit);
}

double LastEndDistance(const std::vector<L_SEGM>& chain, const L_POINT& m)
{
    return chain.empty() ? 0.0 : dist_PP(&chain.back().end, &m);
}

// True when the section seems to run on through m to both sides: a line touching the
// edge whose start lies behind m as seen along the reference.
bool RunsThroughMidpoint(const std::vector<L_SEGM>& lines, const L_POINT& m, const L_VECTOR& reference)
{
    for (const L_SEGM& line : lines) {
        L_VECTOR v;
        if (!UnitFromTo(line.start, m, v) || Dot(reference, v) >= 0.0) continue;
        if (dist_PP(&line.start, &m) < kTouch || dist_PP(&line.end, &m) < kTouch) return true;
    }
    return false;
}

// The split path: the points of the leading chain, and a second point from the other.
std::vector<L_POINT> SplitPoints(const std::vector<L_SEGM>& lines, const L_POINT& m, const L_VECTOR& reference,
                                 Sample& sample)
{
    std::vector<L_SEGM> chain1, chain2;
    SplitSectionAtMidpoint(lines, m, reference, kReach, chain1, chain2);
    const double e1 = LastEndDistance(chain1, m), e2 = LastEndDistance(chain2, m);
    const bool firstLeads = e1 > kFarChainEnd || e2 <= e1;
    const std::vector<L_SEGM>& primary = firstLeads ? chain1 : chain2;
    const std::vector<L_SEGM>& other = firstLeads ? chain2 : chain1;
    std::vector<L_POINT> points;
    for (const L_SEGM& line : primary) {
        points.push_back(line.start);
        points.push_back(line.end);
    }
    for (const L_SEGM& line : other) {
        if (dist_PP(&line.end, &m) < kReach) continue;
        sample.hasSecond = true;
        sample.second = line.end;
        return points;
    }
    if (!other.empty() && dist_PP(&other.back().end, &m) >= kTouch) {
        sample.hasSecond = true;
        sample.second = other.back().end;
    }
    return points;
}

// The plain path: the ends of every line, less those starting behind m.
std::vector<L_POINT> PlainPoints(const std::vector<L_SEGM>& lines, const L_POINT& m, const L_VECTOR* reference)
{
    std::vector<L_POINT> points;
    for (const L_SEGM& line : lines) {
        L_VECTOR v;
        if (reference && UnitFromTo(line.start, m, v) && Dot(*reference, v) < 0.0) continue;
        points.push_back(line.start);
        points.push_back(line.end);
    }
    return points;
}

// Greedy walk: the point nearest m first, then each next the nearest to the one before.
// Stops at the first point at least kReach from m and returns its place; the walk
// before it is all that decides, so the rest is not ordered. points.size() when no
// point is that far (the whole list is then in walk order).
size_t WalkToReach(std::vector<L_POINT>& points, const L_POINT& m)
{
    L_POINT previous = m;
    for (size_t i = 0; i < points.size(); ++i) {
        const size_t best =
            NearestIndex(i, points.size(), previous, [&points](size_t j) -> const L_POINT& { return points[j]; });
        std::swap(points[i], points[best]);
        previous = points[i];
        if (dist_PP(&previous, &m) >= kReach) return i;
    }
    return points.size();
}

bool IsAscending(const BaseList<uint32_t>& ids)
{
    for (uint32_t i = 1; i < ids.count; ++i)
        if (!(*ids.Peek(i - 1) < *ids.Peek(i))) return false;
    return true;
}

// WalkToReach over the points of a part of the section that holds every section point
// within `radius` of m. The walk over the whole section is bound to step to the same
// places while each step's nearest point is unique (up to copies of one point) and
// nearer than the part's edge, so every step is checked for both; points.size() when a
// check fails or no point is far enough.
size_t VerifiedWalkToReach(std::vector<L_POINT>& points, const L_POINT& m, double radius)
{
    L_POINT previous = m;
    for (size_t i = 0; i < points.size(); ++i) {
        const size_t best =
            NearestIndex(i, points.size(), previous, [&points](size_t j) -> const L_POINT& { return points[j]; });
        const double step = dist_PP(&points[best], &previous);
        const double toEdge = radius - dist_PP(&previous, &m);
        if (!(step < toEdge * (1.0 - 1e-9))) return points.size();
        for (size_t j = i; j < points.size(); ++j) {
            const L_POINT& other = points[j];
            const bool copy = other.x == points[best].x && other.y == points[best].y && other.z == points[best].z;
            if (!copy && dist_PP(&other, &previous) == step) return points.size();  // a tie: leave it to the whole
        }
        std::swap(points[i], points[best]);
        previous = points[i];
        if (dist_PP(&previous, &m) >= kReach) return i;
    }
    return points.size();
}

// Picks a section point at least kReach from m (or, with the fallback, the farthest
// along the walk). `reference` may be null.
bool SampleSectionPoint(const List<L_ELEMENT>& elements, const L_POINT& m, const L_VECTOR* reference,
                        bool allowFallback, bool forceSplit, Sample& sample)
{
    if (elements.Size() == 0) return false;
    const std::vector<L_SEGM> lines = LinesOf(elements);
    const bool split = forceSplit || (elements.Size() >= 2 && reference && RunsThroughMidpoint(lines, m, *reference));
    const L_VECTOR none{};
    std::vector<L_POINT> points =
        split ? SplitPoints(lines, m, reference ? *reference : none, sample) : PlainPoints(lines, m, reference);
    if (points.empty()) return false;
    const size_t reached = WalkToReach(points, m);
    if (reached < points.size()) {
        sample.point = points[reached];
        return true;
    }
    if (!allowFallback) return false;
    sample.point = points.back();
    return true;
}

// One edge's search: its cutting plane and the reference direction found so far.
class DirectionSearch {
public:
    DirectionSearch(L_LUMOMESH& mesh, const LM_EXTENDEDGE& record, const WholeMeshCut& cut)
        : mesh_(mesh), record_(record), cut_(cut)
    {
        for (int k = 0; k < 3; ++k) {
            start_[k] = record.startPoint[k];
            end_[k] = record.endPoint[k];
        }
        mean_point(Widen(start_), Widen(end_), &midpoint_);
        const L_POINT from = Widen(end_), to = Widen(start_);
        L_VECTOR normal;
        vector_PP(&from, &to, &normal);
        if (real_modulus(&normal) > 1e-5) normalise(&normal);
        plane_ = {midpoint_, normal};
    }

    // Each stage gives no answer (the next stage goes on) or the search's result.
    std::optional<bool> FromFacet(L_VECTOR& direction)
    {
        if (record_.facet < 0) return {};
        BaseList<uint32_t> own;
        AppendId(own, uint32_t(record_.facet));
        List<L_ELEMENT> elements;
        if (!SectionFacets(mesh_, own, plane_, 0, elements)) return {};
        const L_ELEMENT* first = elements.Get(1);
        if (!first || first->TypeGet() != L_ELEMENT_LINE) return {};
        const L_SEGM line = first->Segment();
        const double length = dist_PP(&line.start, &line.end);
        if (length > 0.0) TakeReferenceTowardsNearEnd(line);
        if (length < kTouch) return {};
        Sample sample;
        if (!SampleSectionPoint(elements, midpoint_, nullptr, false, false, sample)) return {};
        return Finish(sample, direction);
    }

    std::optional<bool> FromNeighbourhood(L_VECTOR& direction)
    {
        if (record_.facet < 0) return {};
        const BaseList<uint32_t> gathered = CollectNeighbourhood(mesh_, uint32_t(record_.facet));
        List<L_ELEMENT> elements;
        if (gathered.count == 0 || !SectionFacets(mesh_, gathered, plane_, 1, elements)) return {};
        Sample sample;
        if (!SampleSectionPoint(elements, midpoint_, Reference(), false, false, sample)) return {};
        return Finish(sample, direction);
    }

    // Stages 3 and 4 cut the whole mesh the same way, so the cut is made once.
    std::optional<bool> FromWholeMesh(bool allowFallback, L_VECTOR& direction, bool& hasSecond,
                                      L_VECTOR& secondDirection)
    {
        Sample sample;
        if (!allowFallback && FromNearFacets(sample)) return Finish(sample, direction);
        if (!wholeCut_) {
            wholeCut_ = true;
            if (cut_.blocks) {
                cut_.blocks->Section(plane_, whole_);
            } else {
                LMeshPlaneSection(mesh_, plane_, whole_, 0, kSectionTolerance, nullptr);
            }
        }
        if (whole_.Size() == 0) return {};
        if (record_.facet < 0) hasReference_ = ReferenceFromFirstLine(whole_, reference_);
        if (!SampleSectionPoint(whole_, midpoint_, Reference(), allowFallback, record_.facet < 0, sample)) return {};
        if (sample.hasSecond) {
            DirectionBetweenPoints(start_, end_, sample.second, midpoint_, secondDirection);
            hasSecond = true;
        }
        return Finish(sample, direction);
    }

private:
    // Stage 3 from the near facets alone, when it is bound to give what the whole mesh
    // gives: the plain path (a split takes the whole section), and a walk each of whose
    // steps is verified. False leaves the answer to the whole mesh.
    bool FromNearFacets(Sample& sample) const
    {
        const bool usable = cut_.blocks && cut_.nearRadius > 0.0 && record_.facet >= 0 &&
                            mesh_.facetCount == mesh_.facets.count && IsAscending(record_.nearFacets);
        if (!usable) return false;
        List<L_ELEMENT> elements;
        if (!cut_.blocks->SectionOf(plane_, record_.nearFacets, elements) || elements.Size() < 2) return false;
        const std::vector<L_SEGM> lines = LinesOf(elements);
        if (Reference() && RunsThroughMidpoint(lines, midpoint_, *Reference())) return false;
        std::vector<L_POINT> points = PlainPoints(lines, midpoint_, Reference());
        const size_t reached = VerifiedWalkToReach(points, midpoint_, cut_.nearRadius);
        if (reached >= points.size()) return false;
        sample.point = points[reached];
        return true;
    }

    // From the segment's far end (from m) to its near end.
    void TakeReferenceTowardsNearEnd(const L_SEGM& line)
    {
        hasReference_ = UnitFromTo(line.end, line.start, reference_);
        if (dist_PP(&line.end, &midpoint_) < dist_PP(&line.start, &midpoint_)) {
            reference_ = {-reference_.x, -reference_.y, -reference_.z};
        }
    }

    const L_VECTOR* Reference() const { return hasReference_ ? &reference_ : nullptr; }

    bool Finish(const Sample& sample, L_VECTOR& direction) const
    {
        return DirectionBetweenPoints(start_, end_, sample.point, midpoint_, direction);
    }

    L_LUMOMESH& mesh_;
    const LM_EXTENDEDGE& record_;
    const WholeMeshCut& cut_;
    float start_[3], end_[3];
    L_POINT midpoint_{};
    L_PLANE plane_{};
    bool hasReference_ = false;
    L_VECTOR reference_{};
    bool wholeCut_ = false;
    List<L_ELEMENT> whole_;
};

}  // namespace

bool FindExtensionDirection(L_LUMOMESH& mesh, LM_EXTENDEDGE& record, L_VECTOR& direction, bool& hasSecond,
                            L_VECTOR& secondDirection)
{
    return FindExtensionDirection(mesh, record, direction, hasSecond, secondDirection, WholeMeshCut{});
}

bool FindExtensionDirection(L_LUMOMESH& mesh, LM_EXTENDEDGE& record, L_VECTOR& direction, bool& hasSecond,
                            L_VECTOR& secondDirection, const WholeMeshCut& cut)
{
    hasSecond = false;
    try {
        DirectionSearch search(mesh, record, cut);
        std::optional<bool> found = search.FromFacet(direction);
        if (!found) found = search.FromNeighbourhood(direction);
        if (!found && record.nearFacets.count > 1) found = search.FromWholeMesh(false, direction, hasSecond, secondDirection);
        if (!found) found = search.FromWholeMesh(true, direction, hasSecond, secondDirection);
        return found.value_or(false);
    } catch (const std::bad_alloc&) {
        return false;
    }
}
