// lmesh thickness: the wall thickness of a closed part, facet by facet, as the
// diameter of the largest ball that touches the facet from inside; its distribution
// over the part's area, and optionally the values per facet (CSV) and the part
// coloured by thickness (PLY).
#include "Commands.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "CommandSupport.h"

namespace {

constexpr uint32_t kProgressBarFacets = 20000;  // smaller parts finish before a bar helps
constexpr int kBins = 10;

const char* const kThicknessHelp =
    "usage: lmesh thickness IN [--min-distance D] [--ray] [--filter] [--csv OUT.csv]\n"
    "                          [--ply OUT.ply]\n"
    "\n"
    "Measures the wall thickness of a closed part at every facet: the diameter of the\n"
    "largest ball that touches the facet's centre from inside the material without\n"
    "entering another facet. Balls larger than about the part's smallest box extent are\n"
    "not counted, and such facets (and those of open surfaces) have no ball. Prints the\n"
    "distribution of thickness over the part's area: a histogram with area shares, the\n"
    "thinnest, median (by area) and thickest wall, and the facets with no ball.\n"
    "STL and PLY corners are joined only where they coincide exactly.\n"
    "\n"
    "  --min-distance D  facets that rise less than D above a facet's plane do not stop\n"
    "                    its ball, and smaller balls and rays are not accepted (default 0)\n"
    "  --ray             also measure the distance along the inward normal to the\n"
    "                    opposite wall (written to the CSV)\n"
    "  --filter          clean the values: drop rare small patches and balls stopped by\n"
    "                    facets that do not face the wall, then fill gaps from neighbours\n"
    "  --csv OUT.csv     write per facet: facet, radius, opposite (the facet that stops\n"
    "                    the ball), contact_distance (from the facet's centre to where the\n"
    "                    ball touches), and ray with --ray; -1 means none\n"
    "  --ply OUT.ply     write the part with facet colours from red (thinnest wall) through\n"
    "                    green to blue (thickest wall); grey where there is no ball\n";

struct FacetThickness {
    uint32_t facet;
    float radius;
    uint32_t opposite;
    float contact;
    float ray;
    double area;
};

// A bar on stderr fed by the analysis's progress file, polled from a thread.
class ProgressBar {
public:
    explicit ProgressBar(bool shown) : shown_(shown && isatty(fileno(stderr)))
    {
        if (!shown_) return;
        char pattern[] = "/tmp/lmesh_thickness_XXXXXX";
        const int descriptor = mkstemp(pattern);
        if (descriptor < 0) {
            shown_ = false;
            return;
        }
        close(descriptor);
        path_ = pattern;
        poller_ = std::thread([this] { Poll(); });
    }
    ~ProgressBar()
    {
        if (!shown_) return;
        done_ = true;
        poller_.join();
        Draw(100);
        std::fputc('\n', stderr);
        std::remove(path_.c_str());
    }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // The path for the analysis; empty when no bar is shown.
    std::wstring Path() const { return std::wstring(path_.begin(), path_.end()); }

private:
    void Poll()
    {
        while (!done_) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            int percent = 0;
            if (FILE* file = std::fopen(path_.c_str(), "r")) {
                if (std::fscanf(file, "%d", &percent) == 1) Draw(percent);
                std::fclose(file);
            }
        }
    }
    static void Draw(int percent)
    {
        percent = std::clamp(percent, 0, 100);
        const std::string bar = std::string(size_t(percent / 4), '#') + std::string(size_t(25 - percent / 4), ' ');
        std::fprintf(stderr, "\rlmesh: thickness [%s] %3d%%", bar.c_str(), percent);
    }

    bool shown_;
    std::string path_;
    std::thread poller_;
    std::atomic<bool> done_{false};
};

std::vector<FacetThickness> Measure(const L_LUMOMESH& mesh, LM_THICKNESS_PARAMS& params)
{
    BaseList<uint32_t> live;
    for (uint32_t f = 0, n = 0; f < mesh.facets.count; ++f)
        if (mesh.facets.Peek(f)->flags & LM_LIVE) *live.At(n++) = f;
    BaseList<float> radius, contact;
    BaseList<uint32_t> opposite;
    LMeshComputeThickness(mesh, radius, opposite, contact, params, &live, nullptr);

    std::vector<FacetThickness> values;
    for (uint32_t i = 0; i < live.count && i < radius.count; ++i) {
        const uint32_t f = *live.Peek(i);
        const float* ray = params.rayThickness.Peek(i);  // one per listed facet, in list order
        values.push_back({f, *radius.Peek(i), *opposite.Peek(i), *contact.Peek(i), ray ? *ray : -1.0f,
                          LMeshTriangleArea(mesh, f)});
    }
    return values;
}

// The thickness at which the given share of the measured area is reached.
double AreaQuantile(std::vector<FacetThickness> measured, double share)
{
    std::sort(measured.begin(), measured.end(),
              [](const FacetThickness& a, const FacetThickness& b) { return a.radius < b.radius; });
    double total = 0.0, running = 0.0;
    for (const FacetThickness& value : measured) total += value.area;
    for (const FacetThickness& value : measured) {
        running += value.area;
        if (running >= share * total) return 2.0 * value.radius;
    }
    return measured.empty() ? 0.0 : 2.0 * measured.back().radius;
}

void PrintDistribution(const std::vector<FacetThickness>& values)
{
    std::vector<FacetThickness> measured;
    double totalArea = 0.0, missingArea = 0.0;
    for (const FacetThickness& value : values) {
        totalArea += value.area;
        if (value.radius > 0.0f) measured.push_back(value);
        else missingArea += value.area;
    }
    std::printf("facets        %zu\n", values.size());
    std::printf("no ball       %zu facets, %.1f%% of the area\n", values.size() - measured.size(),
                totalArea > 0.0 ? 100.0 * missingArea / totalArea : 0.0);
    if (measured.empty()) return;
    const auto [low, high] = std::minmax_element(
        measured.begin(), measured.end(),
        [](const FacetThickness& a, const FacetThickness& b) { return a.radius < b.radius; });
    const double thinnest = 2.0 * low->radius, thickest = 2.0 * high->radius;
    std::printf("thickness     thinnest %g, median %g (by area), thickest %g\n", thinnest,
                AreaQuantile(measured, 0.5), thickest);

    double binArea[kBins] = {};
    const double width = (thickest - thinnest) / kBins;
    for (const FacetThickness& value : measured) {
        // Infinite radii of a broken file make the position not a number: bin 0.
        const double at = width > 0.0 ? (2.0 * value.radius - thinnest) / width : 0.0;
        binArea[at > 0.0 ? int(std::min(at, kBins - 1.0)) : 0] += value.area;
    }
    std::printf("distribution  (share of the whole area)\n");
    for (int b = 0; b < kBins; ++b) {
        const double share = totalArea > 0.0 ? 100.0 * binArea[b] / totalArea : 0.0;
        std::printf("  %10.4g - %-10.4g %6.1f%%  %s\n", thinnest + b * width, thinnest + (b + 1) * width, share,
                    PercentBar(share).c_str());
    }
}

bool WriteCsv(const std::string& path, const std::vector<FacetThickness>& values, bool withRay)
{
    FILE* file = std::fopen(path.c_str(), "w");
    if (!file) return false;
    std::fprintf(file, withRay ? "facet,radius,opposite,contact_distance,ray\n" : "facet,radius,opposite,contact_distance\n");
    for (const FacetThickness& v : values) {
        const long long opposite = v.opposite == LM_NONE ? -1 : (long long)v.opposite;
        std::fprintf(file, "%u,%.9g,%lld,%.9g", v.facet, v.radius, opposite, v.contact);
        if (withRay) std::fprintf(file, ",%.9g", v.ray);
        std::fputc('\n', file);
    }
    return std::fclose(file) == 0;
}

// Red for the thinnest wall through green to blue for the thickest; grey for none.
void ColourOf(const FacetThickness& value, double thinnest, double thickest, unsigned char rgb[3])
{
    if (!(value.radius > 0.0f)) {
        rgb[0] = rgb[1] = rgb[2] = 160;
        return;
    }
    const double s = thickest > thinnest ? (2.0 * value.radius - thinnest) / (thickest - thinnest) : 0.0;
    const double up = std::clamp(2.0 * s, 0.0, 1.0), down = std::clamp(2.0 * s - 1.0, 0.0, 1.0);
    rgb[0] = (unsigned char)std::lround(255.0 * (1.0 - up));
    rgb[1] = (unsigned char)std::lround(255.0 * (up - down));
    rgb[2] = (unsigned char)std::lround(255.0 * down);
}

// Binary little-endian PLY: every vertex slot, then the measured facets with colours.
bool WritePly(const std::string& path, const L_LUMOMESH& mesh, const std::vector<FacetThickness>& values)
{
    double thinnest = INFINITY, thickest = 0.0;
    for (const FacetThickness& value : values)
        if (value.radius > 0.0f) {
            thinnest = std::min(thinnest, 2.0 * value.radius);
            thickest = std::max(thickest, 2.0 * value.radius);
        }
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    std::fprintf(file,
                 "ply\nformat binary_little_endian 1.0\ncomment wall thickness: red thinnest, blue thickest, "
                 "grey none\nelement vertex %u\nproperty float x\nproperty float y\nproperty float z\n"
                 "element face %zu\nproperty list uchar int vertex_indices\nproperty uchar red\n"
                 "property uchar green\nproperty uchar blue\nend_header\n",
                 mesh.vertices.count, values.size());
    bool ok = true;
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        float position[3];
        for (int k = 0; k < 3; ++k) position[k] = mesh.vertices.Peek(v)->position[k];
        ok = ok && std::fwrite(position, sizeof position, 1, file) == 1;
    }
    for (const FacetThickness& value : values) {
        const LM_FACET* facet = mesh.facets.Peek(value.facet);
        const unsigned char corners = 3;
        const int32_t ids[3] = {int32_t(facet->vertex[0]), int32_t(facet->vertex[1]), int32_t(facet->vertex[2])};
        unsigned char rgb[3];
        ColourOf(value, thinnest, thickest, rgb);
        ok = ok && std::fwrite(&corners, 1, 1, file) == 1 && std::fwrite(ids, sizeof ids, 1, file) == 1 &&
             std::fwrite(rgb, sizeof rgb, 1, file) == 1;
    }
    return std::fclose(file) == 0 && ok;
}

}  // namespace

int RunThickness(const std::vector<std::string>& args)
{
    const char* const command = "thickness";
    std::vector<std::string> rest = args;
    std::string csv, ply;
    if (!TakeTextOption(rest, "--csv", csv)) return UsageError(command, "--csv needs an output file");
    if (!TakeTextOption(rest, "--ply", ply)) return UsageError(command, "--ply needs an output file");
    ParsedArguments parsed;
    int exitCode = 0;
    if (!Prepare(command, kThicknessHelp, rest, {{"--ray", "--filter"}, {"--min-distance"}}, 1, parsed, exitCode))
        return exitCode;
    L_LUMOMESH mesh;
    MeshFormat format;
    if (!Load(command, parsed.positional[0], 0.0f, mesh, format, exitCode)) return exitCode;
    if (CountBorderEdges(mesh) > 0)
        std::fprintf(stderr, "lmesh thickness: the mesh is open (%u border edges); walls there have no ball\n",
                     CountBorderEdges(mesh));

    LM_THICKNESS_PARAMS params;
    params.minDistance = NumberOr(parsed, "--min-distance", 0.0);
    const bool withRay = parsed.flags.count("--ray") > 0;
    params.useRay = withRay ? 1 : 0;
    params.applyFilter = params.applyHistogram = params.applyGapFill = parsed.flags.count("--filter") ? 1 : 0;
    std::vector<FacetThickness> values;
    {
        ProgressBar bar(mesh.facetCount >= kProgressBarFacets);
        const std::wstring progress = bar.Path();
        progress.copy(params.progressFile, std::min<size_t>(progress.size(), 511));
        values = Measure(mesh, params);
    }
    PrintDistribution(values);
    if (!csv.empty()) {
        if (!WriteCsv(csv, values, withRay)) return Failure(command, "cannot write " + csv);
        std::printf("wrote %s\n", csv.c_str());
    }
    if (!ply.empty()) {
        if (!WritePly(ply, mesh, values)) return Failure(command, "cannot write " + ply);
        std::printf("wrote %s\n", ply.c_str());
    }
    return 0;
}
