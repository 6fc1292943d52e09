// Wall thickness by inscribed balls.
//
// For each facet: the largest ball that touches the facet at its centroid from the
// inner side without entering another facet. The ball's centre runs along the inward
// normal; against each nearby triangle a bisection finds the radius at which the ball
// just touches it (to a ratio of 0.9999 between radius and distance), and the
// smallest such radius wins. Half the wall thickness is that radius. The analysis
// works on a private copy turned to face inward, so a facet's normal leads into the
// material. Candidates come from the adaptive box set, nearest box first; the facet's
// own neighbours give a first radius cheaply, so that boxes beyond the ball are passed
// over from the start. Optional: a second mesh to stop on (clearance), a ray cast
// along the normal, a parity check that a ball lies inside the material, and the
// filter stages of LMeshThicknessFilters.cpp.
#include "LMeshThickness.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include "LMeshQuality.h"
#include "LscFiles.h"

namespace {

constexpr double kCapShare = 0.51;        // of the smallest extent: the largest radius that counts
constexpr double kStopShare = 0.01;       // of the smallest extent: a two-mesh clash this close ends the search
constexpr double kLargestStopRadius = 0.5;
constexpr double kTouchRatio = 0.9999;    // radius and distance this alike: the ball touches
constexpr double kSkinnyLimit = 0.01;     // shape factor below which a facet borrows a neighbour's values
constexpr double kParallelAngle = 0.001;  // radians
constexpr double kFar = 1e255;
constexpr float kNoBall = -1.0f;
constexpr uint32_t kFacetsPerBox = 500;
constexpr float kShortFormWeld = 0.001f;  // the two forms weld with different tolerances on purpose
constexpr float kFullFormWeld = 1e-5f;
constexpr float kOrientTolerance = 1e-5f;
constexpr short kBorderEdgesOnly = 1;
constexpr short kInward = 0;
constexpr double kVerticalNormal = 1e-6;  // a facet whose normal has less z lies along the parity ray
constexpr int kMostBisectionSteps = 1000; // a ball centred on the triangle itself never settles
// Bounds farther from the ball's centre than this share of its radius hold nothing
// that reaches it: the distances agree to far better than the 0.9999 touching ratio.
constexpr double kReachMargin = 1.001;
constexpr uint32_t kRunLength = 16;       // consecutive box entries passed over together

struct Triangle {
    L_POINT p[3];
};

L_POINT Widened(const float p[3]) { return {p[0], p[1], p[2]}; }

// False when the facet or one of its corners lies past its store.
bool ReadCorners(const L_LUMOMESH& mesh, uint32_t facet, float corners[3][3])
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    for (int k = 0; k < 3; ++k) {
        const LM_VERTEX* vertex = mesh.vertices.Peek(record->vertex[k]);
        if (!vertex) return false;
        for (int i = 0; i < 3; ++i) corners[k][i] = vertex->position[i];
    }
    return true;
}

bool ReadTriangle(const L_LUMOMESH& mesh, uint32_t facet, Triangle& triangle)
{
    float corners[3][3];
    if (!ReadCorners(mesh, facet, corners)) return false;
    for (int k = 0; k < 3; ++k) triangle.p[k] = Widened(corners[k]);
    return true;
}

bool IsLive(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    return record && (record->flags & LM_LIVE);
}

double Ratio(double a, double b) { return std::min(a, b) / std::max(a, b); }

L_POINT Along(const L_POINT& from, const L_VECTOR& direction, double distance)
{
    L_POINT out;
    project_point_on_vector(&from, &direction, distance, &out);
    return out;
}

L_PLANE PlaneOf(const Triangle& t)
{
    L_PLANE plane;
    plane_PPP(&t.p[0], &t.p[1], &t.p[2], &plane);
    return plane;
}

// Distance from p to the triangle, as float, and the closest point: the foot on the
// plane (PlaneOf(t), made once per triangle) when it falls inside, else the nearest
// point of the sides t0t1, t1t2, t2t0, the later side winning a tie.
float DistancePointTriangle(const L_POINT& p, const Triangle& t, const L_PLANE& plane, L_POINT* closest)
{
    L_POINT foot;
    project_point_onto_plane(&p, &plane, &foot);
    if (LMeshPointInsideTriangle(foot, t.p[0], t.p[1], t.p[2])) {
        if (closest) *closest = foot;
        return float(std::fabs(dist_PPl(&p, &plane)));
    }
    double nearest = kFar;
    L_POINT nearestPoint = p;
    for (int k = 0; k < 3; ++k) {
        const L_SEGM side = {t.p[k], t.p[(k + 1) % 3]};
        L_POINT onSide;
        project_point_onto_segment(p, side, &onSide, nullptr);
        const double d = std::fabs(dist_PP(&p, &onSide));
        if (d <= nearest) {
            nearest = d;
            nearestPoint = onSide;
        }
    }
    if (closest) *closest = nearestPoint;
    return float(nearest);
}

void Include(L_BOUNDS& bounds, const L_BOUNDS& more)
{
    for (int axis = 0; axis < 3; ++axis) {
        bounds.min[axis] = std::min(bounds.min[axis], more.min[axis]);
        bounds.max[axis] = std::max(bounds.max[axis], more.max[axis]);
    }
}

// Bounds of every facet of a mesh, and of each run of kRunLength consecutive entries
// of each of its boxes. Once a ball is found, a triangle whose bounds stay out of its
// reach would only give back the current radius, which changes nothing; so runs and
// facets out of reach are passed over without reading a corner. That is where the
// search would otherwise spend its time.
class ReachIndex {
public:
    ReachIndex(const L_LUMOMESH& mesh, const BaseList<LM_BOX>& boxes);
    const L_BOUNDS& Facet(uint32_t id) const { return id < facets_.size() ? facets_[id] : empty_; }
    const L_BOUNDS& Run(uint32_t box, uint32_t entry) const { return runs_[box][entry / kRunLength]; }

private:
    const L_BOUNDS empty_ = LM_BOX().bounds;
    std::vector<L_BOUNDS> facets_;
    std::vector<std::vector<L_BOUNDS>> runs_;
};

ReachIndex::ReachIndex(const L_LUMOMESH& mesh, const BaseList<LM_BOX>& boxes)
    : facets_(mesh.facets.count, empty_), runs_(boxes.count)
{
    for (uint32_t f = 0; f < mesh.facets.count; ++f) {
        float corners[3][3];
        if (!ReadCorners(mesh, f, corners)) continue;  // never read: its bounds stay empty
        for (int axis = 0; axis < 3; ++axis) {
            facets_[f].min[axis] = std::min({corners[0][axis], corners[1][axis], corners[2][axis]});
            facets_[f].max[axis] = std::max({corners[0][axis], corners[1][axis], corners[2][axis]});
        }
    }
    for (uint32_t b = 0; b < boxes.count; ++b) {
        const BaseList<uint32_t>& ids = boxes.Peek(b)->facets;
        runs_[b].assign((ids.count + kRunLength - 1) / kRunLength, empty_);
        for (uint32_t k = 0; k < ids.count; ++k) Include(runs_[b][k / kRunLength], Facet(*ids.Peek(k)));
    }
}

// The progress file: rewritten with "%d", the share of facets visited, on every
// facet but those at a multiple of the step (a hundredth of the count), so never
// below 200 facets, where the step is 1. A file that cannot be opened is ignored.
class ProgressFile {
public:
    ProgressFile(const std::wstring& path, uint32_t count)
        : file_(path.empty() ? nullptr : fwopen(path.c_str(), "w")), count_(count), step_(count > 100 ? count / 100 : 1)
    {
    }
    ~ProgressFile() { Close(); }
    ProgressFile(const ProgressFile&) = delete;
    ProgressFile& operator=(const ProgressFile&) = delete;

    void Report(uint32_t i)
    {
        if (!file_ || i % step_ == 0) return;
        std::fseek(file_, 0, SEEK_SET);
        std::fprintf(file_, "%d", int(uint64_t(i) * 100 / count_));
    }
    void Close()
    {
        if (file_) std::fclose(file_);
        file_ = nullptr;
    }

private:
    FILE* file_;
    uint32_t count_;
    uint32_t step_;
};

struct BallRecord {
    uint32_t facet;
    float radius;
    L_POINT centre;
};

int CompareByRadiusDescending(const void* a, const void* b)
{
    const float ra = static_cast<const BallRecord*>(a)->radius, rb = static_cast<const BallRecord*>(b)->radius;
    return (ra < rb) - (ra > rb);
}

struct BoxCandidate {
    uint32_t box;
    double key;
};

// Ascending by key, ties in box order: the order of the platform's qsort, a merge
// sort, made independent of the C library.
void SortByKey(std::vector<BoxCandidate>& candidates)
{
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const BoxCandidate& a, const BoxCandidate& b) { return a.key < b.key; });
}

struct Settings {
    double minDistance = 0.0;
    double percentage = -1.0;
    double maxEdgeLength = -1.0;
    bool useRay = false;
    std::wstring progressFile;
};

// The mesh the balls of one facet are tested against, with its boxes.
struct Target {
    const L_LUMOMESH* mesh;
    const BaseList<LM_BOX>* boxes;
    const ReachIndex* reach;
    bool liveOnly;
};

// The working object of one call: the inward copy, its boxes, the results by facet
// id, and the state of the ball of the facet being visited.
class ThicknessContext {
public:
    ThicknessContext(const L_LUMOMESH& mesh, float weldTolerance);

    L_LUMOMESH copy;
    BaseList<LM_BOX> boxes{16, 512};
    ThicknessResults results;
    std::vector<float> rayValues;
    Settings settings;

    void MarkAllWithoutBall();
    void StopOnSecondMesh(const L_LUMOMESH& other);
    void SelectLive();
    void SelectListed(const BaseList<uint32_t>& facets);
    void RunMainPass();
    int CubeCount() const;

private:
    // Ball search of one facet, in its order.
    void VisitFacet(uint32_t i);
    bool StartBall(uint32_t i);
    void RunNeighbourStage(uint32_t i);
    void SearchBoxes(const Target& target);
    void StoreOutcome(uint32_t i);
    void TryCandidate(const Triangle& t, uint32_t id, bool rejectCrossing);
    bool OutOfReach(const L_BOUNDS& bounds) const;
    double BallRadiusAgainstTriangle(const Triangle& t) const;
    bool BeyondLongestEdge(const Triangle& t) const;
    bool RisesAbovePlane(const Triangle& t) const;
    bool CrossesFacet(const Triangle& t) const;
    Target ChooseTarget() const;
    float MeasureRay(const Target& target);
    // After the pass.
    void VerifyByParity(double percentage);
    bool InsideByParity(const L_POINT& q) const;
    void RepairSkinnyFacets();

    std::unique_ptr<ReachIndex> reach_;
    const L_LUMOMESH* other_ = nullptr;
    BaseList<LM_BOX> otherBoxes_{16, 512};
    std::unique_ptr<ReachIndex> otherReach_;
    double extent_[3] = {};
    double smallest_ = 0.0, cap_ = 0.0, stopRadius_ = 0.0;
    std::vector<BallRecord> records_;
    uint32_t recordCount_ = 0;
    std::vector<uint32_t> skinny_;
    std::vector<BoxCandidate> candidates_;

    // The facet being visited.
    Triangle self_{};
    L_POINT c_{};
    L_VECTOR n_{};
    L_PLANE plane_{};
    L_POINT q_{};
    double best_ = 0.0, minimum_ = kFar;
    bool hit_ = false, useOther_ = false, stop_ = false;
    // Kept from facet to facet: a facet that finds nothing reports the last one found.
    uint32_t recordedOpposite_ = LM_NONE;
    Triangle recordedTriangle_{};
};

// Results start as fresh memory reads, zero, unless the full form marks them.
ThicknessContext::ThicknessContext(const L_LUMOMESH& mesh, float weldTolerance) : copy(mesh)
{
    L_BOUNDS bounds;
    LMeshComputeAbsoluteBoundingBox(copy, bounds);
    LMeshOptimizeEdges(copy, weldTolerance, nullptr, nullptr, nullptr, kBorderEdgesOnly);
    LMeshOrientFacets(copy, kOrientTolerance, kInward);

    for (int axis = 0; axis < 3; ++axis) extent_[axis] = bounds.max[axis] - bounds.min[axis];
    smallest_ = std::min({extent_[0], extent_[1], extent_[2]});
    cap_ = smallest_ * kCapShare;
    stopRadius_ = std::min(smallest_ * kStopShare, kLargestStopRadius);

    LMeshBoxFacetsNonUniform(copy, boxes, kFacetsPerBox);
    reach_ = std::make_unique<ReachIndex>(copy, boxes);
    const uint32_t count = copy.facets.count;
    results.radius.assign(count, 0.0f);
    results.contactDistance.assign(count, 0.0f);
    results.opposite.assign(count, 0);
    results.selected.assign(count, 0);
    records_.assign(count, BallRecord{0, 0.0f, {0.0, 0.0, 0.0}});
}

void ThicknessContext::MarkAllWithoutBall()
{
    std::fill(results.radius.begin(), results.radius.end(), kNoBall);
    std::fill(results.contactDistance.begin(), results.contactDistance.end(), kNoBall);
    std::fill(results.opposite.begin(), results.opposite.end(), LM_NONE);
}

void ThicknessContext::StopOnSecondMesh(const L_LUMOMESH& other)
{
    other_ = &other;
    LMeshBoxFacetsNonUniform(other, otherBoxes_, kFacetsPerBox);
    otherReach_ = std::make_unique<ReachIndex>(other, otherBoxes_);
}

void ThicknessContext::SelectLive()
{
    for (uint32_t f = 0; f < results.selected.size(); ++f) results.selected[f] = IsLive(copy, f) ? 1 : 0;
}

void ThicknessContext::SelectListed(const BaseList<uint32_t>& facets)
{
    std::fill(results.selected.begin(), results.selected.end(), uint8_t(0));
    for (uint32_t i = 0; i < facets.count; ++i) {
        const uint32_t f = *facets.Peek(i);
        if (results.IsFacet(f)) results.selected[f] = 1;  // an id past the store is passed over
    }
}

// Per axis, how many lengths of the smallest extent fit (1 on the smallest axis),
// multiplied. Saturates where a flat box would divide by zero.
int ThicknessContext::CubeCount() const
{
    int64_t product = 1;
    for (double extent : extent_) {
        const double n = extent == smallest_ ? 1.0 : std::trunc(extent / smallest_);
        product *= n < double(INT_MAX) ? int64_t(n) : int64_t(INT_MAX);
        product = std::min<int64_t>(product, INT_MAX);
    }
    return int(product);
}

void ThicknessContext::RunMainPass()
{
    const uint32_t count = copy.facets.count;
    ProgressFile progress(settings.progressFile, count);
    for (uint32_t i = 0; i < count; ++i) {
        progress.Report(i);
        if (results.selected[i]) VisitFacet(i);
    }
    progress.Close();
    if (settings.percentage != -1.0) VerifyByParity(std::min(settings.percentage, 100.0));
    RepairSkinnyFacets();
}

void ThicknessContext::VisitFacet(uint32_t i)
{
    if (!StartBall(i)) {  // a corner past the vertex store: no ball rather than a read outside
        results.radius[i] = kNoBall;
        results.contactDistance[i] = 0.0f;
        results.selected[i] = 0;
        if (settings.useRay) rayValues.push_back(kNoBall);  // one value per facet visited
        return;
    }
    RunNeighbourStage(i);
    if (!hit_) best_ = 0.0;
    q_ = Along(c_, n_, best_);
    const Target target = ChooseTarget();
    if (!stop_) SearchBoxes(target);
    StoreOutcome(i);
    results.selected[i] = 0;

    float corners[3][3];
    ReadCorners(copy, i, corners);
    if (ShapeFactor(corners[0], corners[1], corners[2]) < kSkinnyLimit) skinny_.push_back(i);
    if (settings.useRay) rayValues.push_back(MeasureRay(target));
}

bool ThicknessContext::StartBall(uint32_t i)
{
    hit_ = useOther_ = stop_ = false;
    cap_ = smallest_ * kCapShare;
    float corners[3][3];
    const LM_FACET* facet = copy.facets.Peek(i);
    if (!facet || !ReadCorners(copy, i, corners)) return false;
    double centroid[3];
    for (int axis = 0; axis < 3; ++axis)
        centroid[axis] = double(corners[0][axis] + corners[1][axis] + corners[2][axis]) / 3.0;
    c_ = {centroid[0], centroid[1], centroid[2]};
    ReadFacetNormal(copy, i, n_);
    plane_ = {c_, n_};
    for (int k = 0; k < 3; ++k) self_.p[k] = Widened(corners[k]);
    minimum_ = kFar;
    return true;
}

// The facets across the three sides give a first ball. If all three lie parallel to
// the facet (either way round), it sits in a flat stretch, and in two-mesh mode its
// ball is then looked for on the second mesh.
void ThicknessContext::RunNeighbourStage(uint32_t i)
{
    const LM_FACET* facet = copy.facets.Peek(i);
    const uint32_t sides[3] = {facet->edge[0], facet->edge[1], facet->edge[2]};
    int parallel = 0;
    for (uint32_t side : sides) {
        const LM_EDGE* edge = copy.edges.Peek(side);
        if (!edge) continue;  // a stale edge id: no neighbour that way
        uint32_t across = edge->facet[0];
        if (across == i || !results.IsFacet(across)) across = edge->facet[1];
        if (across == i || !results.IsFacet(across)) continue;
        if (!other_ && !IsLive(copy, across)) continue;

        L_VECTOR normal;
        ReadFacetNormal(copy, across, normal);
        const double a = std::fabs(vector_angle(n_, normal));
        const double ratio = a < M_PI ? a / M_PI : M_PI / a;
        if (a < kParallelAngle || ratio > kTouchRatio) ++parallel;

        Triangle t;
        if (ReadTriangle(copy, across, t) && RisesAbovePlane(t)) TryCandidate(t, across, false);
    }
    if (parallel == 3) useOther_ = true;
}

Target ThicknessContext::ChooseTarget() const
{
    if (other_ && useOther_) return {other_, &otherBoxes_, otherReach_.get(), false};
    return {&copy, &boxes, reach_.get(), other_ == nullptr};
}

// Boxes within twice the cap of the ball's centre, nearest first; a box is still
// searched only while it reaches the ball, whose centre moves as the ball shrinks.
void ThicknessContext::SearchBoxes(const Target& target)
{
    candidates_.clear();
    for (uint32_t b = 0; b < target.boxes->count; ++b) {
        const double key = min_dist_point_bbox(q_, target.boxes->Peek(b)->bounds);
        if (key <= 2.0 * cap_) candidates_.push_back({b, key});
    }
    SortByKey(candidates_);

    for (const BoxCandidate& candidate : candidates_) {
        if (stop_) break;
        const LM_BOX& box = *target.boxes->Peek(candidate.box);
        if (hit_ && !(min_dist_point_bbox(q_, box.bounds) <= best_)) continue;
        for (uint32_t k = 0; k < box.facets.count; ++k) {
            if (k % kRunLength == 0 && OutOfReach(target.reach->Run(candidate.box, k))) {
                k += kRunLength - 1;
                continue;
            }
            const uint32_t id = *box.facets.Peek(k);
            if (OutOfReach(target.reach->Facet(id))) continue;
            if (target.liveOnly && !IsLive(*target.mesh, id)) continue;
            Triangle t;
            if (!ReadTriangle(*target.mesh, id, t) || !RisesAbovePlane(t)) continue;
            TryCandidate(t, id, other_ != nullptr);
        }
    }
}

bool ThicknessContext::OutOfReach(const L_BOUNDS& bounds) const
{
    return hit_ && min_dist_point_bbox(q_, bounds) > best_ * kReachMargin;
}

// A triangle matters only if a corner lies more than minDistance into the material.
bool ThicknessContext::RisesAbovePlane(const Triangle& t) const
{
    for (const L_POINT& corner : t.p)
        if (dist_PPl(&corner, &plane_) > settings.minDistance) return true;
    return false;
}

void ThicknessContext::TryCandidate(const Triangle& t, uint32_t id, bool rejectCrossing)
{
    const double r = BallRadiusAgainstTriangle(t);
    if (!(r < cap_)) return;
    if (rejectCrossing && CrossesFacet(t)) return;
    hit_ = true;
    best_ = r;
    if (other_ && r < stopRadius_) stop_ = true;
    if (r < minimum_) {
        q_ = Along(c_, n_, r);
        recordedOpposite_ = id;
        recordedTriangle_ = t;
        minimum_ = r;
    }
}

// The radius at which a ball centred on the normal through the centroid touches t.
// With a ball already found, triangles that cannot reach into it are answered with
// the current radius before any iteration.
double ThicknessContext::BallRadiusAgainstTriangle(const Triangle& t) const
{
    if (hit_ && BeyondLongestEdge(t)) return best_;
    const L_PLANE plane = PlaneOf(t);
    if (hit_) {
        // The distance to the plane is a lower bound of the distance to the triangle.
        if (std::fabs(dist_PPl(&q_, &plane)) > best_ * kReachMargin) return best_;
        const double d = DistancePointTriangle(q_, t, plane, nullptr);
        if (Ratio(best_, d) > kTouchRatio || best_ < d) return best_;
    }
    double r = 0.5 * DistancePointTriangle(c_, t, plane, nullptr);
    if (r < settings.minDistance) return r;
    double hi = 2.0 * r, lo = 0.0;
    bool shrunk = false;
    for (int step = 0; step < kMostBisectionSteps; ++step) {
        const L_POINT centre = Along(c_, n_, r);
        const double d = DistancePointTriangle(centre, t, plane, nullptr);
        if ((r > cap_ && d > cap_) || Ratio(r, d) > kTouchRatio) return r;
        if (d <= r) {  // the ball reaches into t
            shrunk = true;
            hi = r;
            r = (r + lo) * 0.5;
        } else {
            if (!shrunk) hi = 2.0 * r;
            const double previous = r;
            r = (hi + r) * 0.5;
            lo = previous;
        }
    }
    return r;
}

// With the mesh's longest edge known, a triangle no longer than that whose first
// corner lies farther than it beyond the ball cannot reach into the ball.
bool ThicknessContext::BeyondLongestEdge(const Triangle& t) const
{
    const double longest = settings.maxEdgeLength;
    return longest != -1.0 && dist_PP(&t.p[0], &t.p[1]) <= longest && dist_PP(&t.p[1], &t.p[2]) <= longest &&
           dist_PP(&t.p[2], &t.p[0]) <= longest && dist_PP(&t.p[0], &q_) > best_ + longest;
}

// In two-mesh mode a triangle of the other mesh that passes through the facet is a
// clash, not a wall: it stops no ball. Touching along a side does not count.
bool ThicknessContext::CrossesFacet(const Triangle& t) const
{
    L_SEGM segment;
    if (intersect_TriTri(t.p[0], t.p[1], t.p[2], self_.p[0], self_.p[1], self_.p[2], &segment) != 1) return false;
    if (validate_P(&segment.start, true) != 0 || validate_P(&segment.end, true) != 0) return false;
    L_POINT middle;
    mean_point(segment.start, segment.end, &middle);
    for (int k = 0; k < 3; ++k) {
        short colinear = 0;
        colinear_points(self_.p[k], self_.p[(k + 1) % 3], middle, settings.minDistance, nullptr, &colinear);
        if (colinear) return false;
    }
    return !coincident_points(segment.start, segment.end);
}

void ThicknessContext::StoreOutcome(uint32_t i)
{
    // No ball found at all is -1 as well as one beyond the cap.
    double d = hit_ ? best_ : double(kNoBall);
    if (d > cap_) d = kNoBall;
    results.radius[i] = float(d);
    results.opposite[i] = recordedOpposite_;
    records_[i] = {i, float(d), q_};
    recordCount_ = std::max(recordCount_, i + 1);
    if (d == double(kNoBall)) {
        results.contactDistance[i] = 0.0f;
        return;
    }
    L_POINT closest;
    DistancePointTriangle(Along(c_, n_, d), recordedTriangle_, PlaneOf(recordedTriangle_), &closest);
    results.contactDistance[i] = float(dist_PP(&c_, &closest));
}

// The nearest crossing of the normal line with a triangle that rises above the facet;
// -1 for none.
float ThicknessContext::MeasureRay(const Target& target)
{
    const L_LINE ray = {c_, n_};
    candidates_.clear();
    for (uint32_t b = 0; b < target.boxes->count; ++b) {
        L_POINT ends[2];
        if (intersect_LB(&ray, &target.boxes->Peek(b)->bounds, ends, settings.minDistance) != 2) continue;
        const double d0 = dist_PPl(&ends[0], &plane_), d1 = dist_PPl(&ends[1], &plane_);
        if (d0 < 0.0 && d1 < 0.0) continue;  // wholly behind the facet
        candidates_.push_back({b, d0 < 0.0 ? d1 : d1 < 0.0 ? d0 : std::min(d0, d1)});
    }
    SortByKey(candidates_);

    bool hit = false;
    double nearest = kFar;
    for (const BoxCandidate& candidate : candidates_) {
        if (hit && !(candidate.key < nearest)) continue;
        const LM_BOX& box = *target.boxes->Peek(candidate.box);
        for (uint32_t k = 0; k < box.facets.count; ++k) {
            const uint32_t id = *box.facets.Peek(k);
            Triangle t;
            if (target.liveOnly && !IsLive(*target.mesh, id)) continue;
            if (!ReadTriangle(*target.mesh, id, t) || !RisesAbovePlane(t)) continue;
            L_PLANE plane;
            plane_PPP(&t.p[0], &t.p[1], &t.p[2], &plane);
            L_POINT crossing;
            if (intersect_LPl(&ray, &plane, &crossing) != 1) continue;
            if (!LMeshPointInsideTriangle(crossing, t.p[0], t.p[1], t.p[2])) continue;
            if (other_ && CrossesFacet(t)) continue;
            const double d = dist_PP(&c_, &crossing);
            if (!(d > settings.minDistance)) continue;
            nearest = std::min(nearest, d);
            hit = true;
        }
    }
    return hit ? float(nearest) : kNoBall;
}

// The largest balls are checked first: a ball whose centre lies outside the material
// (an even number of crossings upward) is dropped. Records of facets not visited
// below the highest visited id read as zero, as fresh memory does.
void ThicknessContext::VerifyByParity(double percentage)
{
    std::vector<BallRecord> sorted(records_.begin(), records_.begin() + recordCount_);
    if (!sorted.empty()) std::qsort(sorted.data(), sorted.size(), sizeof(BallRecord), CompareByRadiusDescending);
    const double share = std::trunc(double(sorted.size()) * percentage / 100.0);
    const size_t checked = share > 0.0 ? std::min(sorted.size(), size_t(share)) : 0;
    for (size_t k = 0; k < checked; ++k) {
        const uint32_t f = sorted[k].facet;
        if (InsideByParity(sorted[k].centre) || !results.IsFacet(f)) continue;
        results.radius[f] = kNoBall;
        results.contactDistance[f] = kNoBall;
    }
}

bool ThicknessContext::InsideByParity(const L_POINT& q) const
{
    uint32_t crossings = 0;
    for (uint32_t f = 0; f < copy.facets.count; ++f) {
        const LM_FACET* facet = copy.facets.Peek(f);
        float corners[3][3];
        if (!(facet->flags & LM_LIVE) || !ReadCorners(copy, f, corners)) continue;
        const double nx = facet->normal[0], ny = facet->normal[1], nz = facet->normal[2];
        if (std::fabs(nz) < kVerticalNormal) continue;
        const double t =
            ((corners[0][0] - q.x) * nx + (corners[0][1] - q.y) * ny + (corners[0][2] - q.z) * nz) / nz;
        if (!(t > 0.0)) continue;
        const float hit[3] = {float(q.x), float(q.y), float(q.z + t)};
        if (PointInTriangleBarycentric(hit, corners[0], corners[1], corners[2], kOrientTolerance)) ++crossings;
    }
    return crossings % 2 == 1;
}

// A needle or cap has no meaningful ball of its own: it takes the values of its
// best-shaped neighbour nearest in direction.
void ThicknessContext::RepairSkinnyFacets()
{
    BaseList<uint32_t> around;
    for (uint32_t f : skinny_) {
        around.Clear();
        LMeshGetFacetsAroundFacetByEdges(copy, f, around);
        L_VECTOR normal;
        ReadFacetNormal(copy, f, normal);
        double smallestAngle = kFar;
        uint32_t donor = LM_NONE;
        for (uint32_t k = 0; k < around.count; ++k) {
            const uint32_t g = *around.Peek(k);
            float corners[3][3];
            if (!results.IsFacet(g) || !ReadCorners(copy, g, corners)) continue;
            if (!(ShapeFactor(corners[0], corners[1], corners[2]) >= kSkinnyLimit)) continue;
            L_VECTOR other;
            ReadFacetNormal(copy, g, other);
            const double angle = vector_angle(normal, other);
            if (angle < smallestAngle) {
                smallestAngle = angle;
                donor = g;
            }
        }
        if (donor == LM_NONE) continue;
        results.radius[f] = results.radius[donor];
        results.contactDistance[f] = results.contactDistance[donor];
        results.opposite[f] = results.opposite[donor];
    }
}

// ---- Handing results back ----------------------------------------------------------

template <class T>
void ReplaceList(BaseList<T>& list, const std::vector<T>& values)
{
    list.Clear();
    for (uint32_t i = 0; i < values.size(); ++i) {
        T* slot = list.At(i);
        if (!slot) return;  // out of memory: the list ends here
        *slot = values[i];
    }
}

// Position i of each output gets the values of the facet listed at i.
void WriteByPosition(const ThicknessResults& results, const BaseList<uint32_t>& facets, BaseList<float>& radius,
                     BaseList<uint32_t>& opposite, BaseList<float>& contactDistance)
{
    for (uint32_t i = 0; i < facets.count; ++i) {
        const uint32_t f = *facets.Peek(i);
        const bool known = results.IsFacet(f);  // an id past the store has no ball
        float* r = radius.At(i);
        uint32_t* o = opposite.At(i);
        float* c = contactDistance.At(i);
        if (!r || !o || !c) return;
        *r = known ? results.radius[f] : kNoBall;
        *o = known ? results.opposite[f] : LM_NONE;
        *c = known ? results.contactDistance[f] : 0.0f;
    }
}

std::wstring ProgressPath(const wchar_t (&path)[512])
{
    size_t length = 0;
    while (length < 512 && path[length] != L'\0') ++length;  // an unterminated path stops at its end
    return std::wstring(path, length);
}

}  // namespace

bool ReadFacetNormal(const L_LUMOMESH& mesh, uint32_t facet, L_VECTOR& normal)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    if (!record) return false;
    normal = {record->normal[0], record->normal[1], record->normal[2]};
    return true;
}

int LMeshComputeThickness(const L_LUMOMESH& mesh, const BaseList<uint32_t>& facets, BaseList<float>& radius,
                          BaseList<uint32_t>& opposite, BaseList<float>& contactDistance, double minDistance)
{
    try {
        ThicknessContext context(mesh, kShortFormWeld);
        context.settings.minDistance = minDistance;
        context.SelectListed(facets);
        context.RunMainPass();
        WriteByPosition(context.results, facets, radius, opposite, contactDistance);
        return context.CubeCount();
    } catch (...) {  // out of memory: nothing is reported
        return 0;
    }
}

int LMeshComputeThickness(const L_LUMOMESH& mesh, BaseList<float>& radius, BaseList<uint32_t>& opposite,
                          BaseList<float>& contactDistance, LM_THICKNESS_PARAMS& params, BaseList<uint32_t>* facets,
                          BaseList<LM_BOX>* boxes)
{
    try {
        ThicknessContext context(mesh, kFullFormWeld);
        context.MarkAllWithoutBall();
        context.settings = {params.minDistance, params.percentage, double(params.maxEdgeLength), params.useRay != 0,
                            ProgressPath(params.progressFile)};
        if (params.mesh.facets.count > 0) context.StopOnSecondMesh(params.mesh);
        if (boxes) *boxes = context.boxes;
        // The pass clears each facet's flag as it goes; the filters need them back.
        if (facets) {
            context.SelectListed(*facets);
            context.RunMainPass();
            context.SelectListed(*facets);
        } else {
            context.SelectLive();
            context.RunMainPass();
            context.SelectLive();
        }
        ApplyThicknessFilters(context.copy, params, context.results);
        if (facets) {
            WriteByPosition(context.results, *facets, radius, opposite, contactDistance);
        } else {
            ReplaceList(radius, context.results.radius);
            ReplaceList(opposite, context.results.opposite);
            ReplaceList(contactDistance, context.results.contactDistance);
        }
        ReplaceList(params.rayThickness, context.rayValues);
    } catch (...) {  // out of memory: the outputs stay as they were
    }
    return 1;
}
