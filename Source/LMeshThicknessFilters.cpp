// Filter stages of thickness analysis: cleaning and smoothing the per-facet radii of
// the ball search.
//
// A ball result is an artefact when it stands alone: a rare small patch of unusual
// radius (the histogram cleaning drops it), or a pair of facets that do not face each
// other across the material (the angle filter). Dropped radii read 0 and are then
// filled from neighbours that lie alike in direction (smoothing). The gap fill gives
// facets with no opposite one from their neighbours' opposites, when the two lie far
// enough apart in direction and near enough for the ball of that radius.
#include <cmath>
#include <vector>

#include "LMeshThickness.h"

namespace {

constexpr double kDegrees = 0.0174532925199433;  // radians per degree
constexpr int kFirstBins = 20;
constexpr int kLaterBins = 10;
constexpr double kRareBinShare = 0.01;      // a bin holding at most this share of the area is rare
constexpr double kSmallPatchShare = 0.0001; // a patch of at most this share of the area is an artefact
constexpr double kPatchRadiusBand = 0.1;    // a patch holds radii strictly within 10 percent of its seed's
constexpr short kSmoothDecimals = 5;

bool IsLive(const L_LUMOMESH& mesh, uint32_t facet)
{
    const LM_FACET* record = mesh.facets.Peek(facet);
    return record && (record->flags & LM_LIVE);
}

bool Takes(const L_LUMOMESH& copy, const ThicknessResults& results, uint32_t f)
{
    return results.IsFacet(f) && results.selected[f] && IsLive(copy, f);
}

double AngleBetween(const L_LUMOMESH& copy, uint32_t f, uint32_t g)
{
    L_VECTOR a{}, b{};
    ReadFacetNormal(copy, f, a);
    ReadFacetNormal(copy, g, b);
    return vector_angle(a, b);
}

BaseList<uint32_t> ListOf(const std::vector<uint32_t>& ids)
{
    BaseList<uint32_t> list;
    for (uint32_t i = 0; i < ids.size(); ++i)
        if (uint32_t* slot = list.At(i)) *slot = ids[i];
    return list;
}

double AreaOf(const L_LUMOMESH& copy, const std::vector<uint32_t>& ids)
{
    const BaseList<uint32_t> list = ListOf(ids);
    return LMeshComputeArea(copy, &list);
}

std::vector<uint32_t> Neighbours(const L_LUMOMESH& copy, uint32_t f)
{
    BaseList<uint32_t> around;
    LMeshGetFacetsAroundFacetByEdges(copy, f, around);
    std::vector<uint32_t> ids;
    for (uint32_t k = 0; k < around.count; ++k) ids.push_back(*around.Peek(k));
    return ids;
}

// A facet's opposite learns of the facet where it has none of its own, and takes
// its radius where a filter dropped its own.
void ShareWithOpposite(ThicknessResults& results, uint32_t f)
{
    const uint32_t o = results.opposite[f];
    if (results.opposite[o] == LM_NONE) results.opposite[o] = f;
    if (results.radius[o] == 0.0f) results.radius[o] = results.radius[f];
}

// ---- Histogram cleaning ------------------------------------------------------------

struct Bin {
    std::vector<uint32_t> facets;
    double share = 0.0;
};

std::vector<Bin> BuildHistogram(const L_LUMOMESH& copy, const ThicknessResults& results,
                                const std::vector<uint32_t>& gathered, double totalArea, int binCount)
{
    std::vector<Bin> bins(binCount);
    float low = INFINITY, high = -INFINITY;
    for (uint32_t f : gathered) {
        if (!(results.radius[f] > 0.0f)) continue;
        low = std::fmin(low, results.radius[f]);
        high = std::fmax(high, results.radius[f]);
    }
    for (uint32_t f : gathered) {
        if (!(results.radius[f] > 0.0f)) continue;
        // Bins count from 1; equal radii all share the first rather than divide by zero.
        const double place = high > low ? (double(results.radius[f]) - low) / (double(high) - low) * binCount + 1 : 1;
        const int bin = place < binCount ? int(place) : binCount;
        bins[bin - 1].facets.push_back(f);
    }
    for (Bin& bin : bins) {
        bin.share = totalArea != 0.0 ? AreaOf(copy, bin.facets) / totalArea
                                     : double(bin.facets.size()) / double(gathered.size());
    }
    return bins;
}

struct PatchBand {
    const ThicknessResults* results;
    double low, high;
};

bool WithinBand(const L_LUMOMESH&, uint32_t, uint32_t to, const void* data)
{
    const PatchBand& band = *static_cast<const PatchBand*>(data);
    if (!band.results->IsFacet(to)) return false;
    const double r = band.results->radius[to];
    return r > band.low && r < band.high;
}

// Zeroes the patch of like radii around the seed if it is a tiny share of the area.
bool DropSmallPatch(const L_LUMOMESH& copy, ThicknessResults& results, uint32_t seed, double totalArea)
{
    const double r = results.radius[seed];
    const PatchBand band = {&results, r * (1.0 - kPatchRadiusBand), r * (1.0 + kPatchRadiusBand)};
    BaseList<uint32_t> patch;
    LMeshFindNeighborFacets(copy, seed, WithinBand, &band, &patch, false);
    if (!(LMeshComputeArea(copy, &patch) / totalArea <= kSmallPatchShare)) return false;
    bool zeroed = false;
    for (uint32_t k = 0; k < patch.count; ++k) {
        const uint32_t f = *patch.Peek(k);
        if (!results.IsFacet(f) || !results.selected[f]) continue;
        results.radius[f] = 0.0f;
        zeroed = true;
    }
    return zeroed;
}

// Bins above the commonest that hold little area are looked through for small
// patches of their radius, which are dropped; then the histogram is made again,
// coarser, until a round drops nothing.
void CleanByHistogram(const L_LUMOMESH& copy, ThicknessResults& results)
{
    std::vector<uint32_t> gathered;
    for (uint32_t f = 0; f < results.selected.size(); ++f)
        if (results.selected[f]) gathered.push_back(f);
    if (gathered.empty()) return;
    const double totalArea = AreaOf(copy, gathered);

    std::vector<Bin> bins = BuildHistogram(copy, results, gathered, totalArea, kFirstBins);
    for (;;) {
        int largest = -1, last = -1;
        for (int b = 0; b < int(bins.size()); ++b) {
            if (largest < 0 || bins[b].share > bins[largest].share) largest = b;
            if (bins[b].share > 0.0) last = b;
        }
        if (largest < 0 || last < 0 || last <= largest) return;

        bool looked = false, zeroed = false;
        for (int b = last; b > largest; --b) {
            if (bins[b].facets.empty() || !(bins[b].share <= kRareBinShare)) continue;
            looked = true;
            for (uint32_t f : bins[b].facets) {
                if (!IsLive(copy, f) || results.radius[f] == 0.0f) continue;
                if (DropSmallPatch(copy, results, f, totalArea)) zeroed = true;
            }
        }
        if (!looked || !zeroed) return;
        bins = BuildHistogram(copy, results, gathered, totalArea, kLaterBins);
    }
}

// ---- Angle filter and clamps -------------------------------------------------------

// A facet and its opposite must face each other: nearer in direction than the
// angle, the pair is an artefact and both lose it. Radii of facing pairs are held
// within the clamps, both sides alike.
void FilterByAngle(const L_LUMOMESH& copy, const LM_THICKNESS_PARAMS& params, ThicknessResults& results)
{
    const double limit = params.angle * kDegrees;
    const double lowest = params.minThickness * 1000.0, highest = params.maxThickness * 1000.0;
    for (uint32_t f = 0; f < results.radius.size(); ++f) {
        if (!Takes(copy, results, f)) continue;
        const uint32_t o = results.opposite[f];
        if (!results.IsFacet(o)) {
            results.opposite[f] = LM_NONE;
            continue;
        }
        L_VECTOR a{}, b{};
        ReadFacetNormal(copy, f, a);
        ReadFacetNormal(copy, o, b);
        if (limit > real_vector_angle(a, b)) {
            results.radius[f] = 0.0f;
            if (results.opposite[o] == f) results.radius[o] = 0.0f;
            results.opposite[f] = LM_NONE;
            if (results.opposite[o] == f) results.opposite[o] = LM_NONE;
            continue;
        }
        if (results.radius[f] < lowest) results.radius[f] = results.radius[o] = float(lowest);
        if (results.radius[f] > highest) results.radius[f] = results.radius[o] = float(highest);
    }
}

// ---- Smoothing ---------------------------------------------------------------------

// Facets with no radius take the rounded mean of their neighbours' that lie within
// the limit in direction (any neighbour for a negative limit), pass after pass.
void Smooth(const L_LUMOMESH& copy, ThicknessResults& results, double limitDegrees)
{
    std::vector<uint32_t> without;
    for (uint32_t f = 0; f < results.radius.size(); ++f) {
        if (!Takes(copy, results, f)) continue;
        if (results.IsFacet(results.opposite[f])) ShareWithOpposite(results, f);
    }
    for (uint32_t f = 0; f < results.radius.size(); ++f)
        if (Takes(copy, results, f) && !(results.radius[f] > 0.0f)) without.push_back(f);

    const double limit = limitDegrees * kDegrees;
    for (bool filled = true; filled;) {
        filled = false;
        std::vector<uint32_t> still;
        for (uint32_t f : without) {
            double sum = 0.0;
            int count = 0;
            for (uint32_t g : Neighbours(copy, f)) {
                if (!results.IsFacet(g) || !(results.radius[g] > 0.0f)) continue;
                if (limit >= 0.0 && !(AngleBetween(copy, f, g) <= limit)) continue;
                sum += results.radius[g];
                ++count;
            }
            if (count == 0) {
                still.push_back(f);
                continue;
            }
            results.radius[f] = float(rounds(sum / count, kSmoothDecimals));
            filled = true;
        }
        without.swap(still);
    }
}

// ---- Gap fill ----------------------------------------------------------------------

L_POINT3f Centroid(const L_LUMOMESH& copy, uint32_t f)
{
    float c[3] = {0.0f, 0.0f, 0.0f};
    ComputeFacetCentroid(copy, f, c);
    return {c[0], c[1], c[2]};
}

// The largest distance from the facet's centroid to its corners.
float Reach(const L_LUMOMESH& copy, uint32_t f, const L_POINT3f& centroid)
{
    const LM_FACET* record = copy.facets.Peek(f);
    float reach = 0.0f;
    for (int k = 0; record && k < 3; ++k) {
        const LM_VERTEX* vertex = copy.vertices.Peek(record->vertex[k]);
        if (!vertex) continue;
        const L_POINT3f corner = {vertex->position[0], vertex->position[1], vertex->position[2]};
        reach = std::fmax(reach, dist_PP3f(&centroid, &corner));
    }
    return reach;
}

// One facet without an opposite: the nearest opposite of its like neighbours that
// is far enough off in direction, with that one's radius or the neighbours' mean.
bool FillGap(const L_LUMOMESH& copy, ThicknessResults& results, uint32_t f, double sameLimit, double turnLimit)
{
    const L_POINT3f c = Centroid(copy, f);
    uint32_t candidate = LM_NONE;
    float nearest = INFINITY;
    double sum = 0.0;
    int count = 0;
    for (uint32_t g : Neighbours(copy, f)) {
        if (!Takes(copy, results, g) || !(AngleBetween(copy, f, g) <= sameLimit)) continue;
        const uint32_t o = results.opposite[g];
        if (results.IsFacet(o) && AngleBetween(copy, f, o) > turnLimit) {
            const L_POINT3f co = Centroid(copy, o);
            const float d = dist_PP3f(&c, &co);
            if (d < nearest) {
                nearest = d;
                candidate = o;
            }
        }
        if (results.radius[g] > 0.0f) {
            sum += results.radius[g];
            ++count;
        }
    }
    if (candidate == LM_NONE || count == 0) return false;
    const bool own = results.IsFacet(results.opposite[candidate]) && results.radius[candidate] > 0.0f;
    const double t = own ? double(results.radius[candidate]) : sum / count;
    const L_POINT3f cc = Centroid(copy, candidate);
    const double spread = double(Reach(copy, f, c)) + Reach(copy, candidate, cc);
    const double allowed = std::sqrt(spread * spread + (2.0 * t) * (2.0 * t)) *
                           (std::cos(AngleBetween(copy, f, candidate)) + 2.0);
    if (!(dist_PP3f(&c, &cc) < allowed)) return false;
    results.opposite[f] = candidate;
    results.radius[f] = float(t);
    if (results.opposite[candidate] == LM_NONE) {
        results.opposite[candidate] = f;
        results.radius[candidate] = float(t);
    }
    return true;
}

void FillGaps(const L_LUMOMESH& copy, const LM_THICKNESS_PARAMS& params, ThicknessResults& results)
{
    LTreeSSort open;
    for (uint32_t f = 0; f < results.radius.size(); ++f) {
        if (!Takes(copy, results, f)) continue;
        if (results.IsFacet(results.opposite[f]))
            ShareWithOpposite(results, f);
        else
            open.AddKey(f);
    }
    const double sameLimit = params.angle * kDegrees, turnLimit = params.smoothAngle * kDegrees;
    for (bool changed = true; changed;) {
        changed = false;
        BaseList<uint32_t> keys;
        open.GetAllKeys(keys);
        for (uint32_t k = 0; k < keys.count; ++k) {
            const uint32_t f = *keys.Peek(k);
            if (!FillGap(copy, results, f, sameLimit, turnLimit)) continue;
            open.DeleteKey(f);
            changed = true;
        }
    }
}

}  // namespace

void ApplyThicknessFilters(const L_LUMOMESH& copy, const LM_THICKNESS_PARAMS& params, ThicknessResults& results)
{
    if (params.applyFilter) {
        if (params.applyHistogram) CleanByHistogram(copy, results);
        FilterByAngle(copy, params, results);
        Smooth(copy, results, params.smoothAngle);
        if (params.smoothAngle > 0.0) Smooth(copy, results, 0.0);
    }
    if (params.applyGapFill) FillGaps(copy, params, results);
}
