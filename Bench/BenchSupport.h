// Shared pieces of the benchmarks: a closed test surface of any size, files in the
// temporary folder, and the peak resident memory of a measured call.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// A torus of n by m quads, two triangles each: closed, one component, 2 n m facets,
// n m vertices. Coordinates in millimetres, about 260 across.
struct Torus {
    std::vector<float> coords;
    std::vector<int> indices;
};
Torus MakeTorus(int n, int m, float offsetX = 0.0f);

// The same torus built into a mesh with shared edges.
class L_LUMOMESH;
L_LUMOMESH TorusMesh(int n, int m);

// Nine floats per triangle, in facet order.
std::vector<float> SoupOf(const Torus& torus);

// A path in $TMPDIR (or /tmp) for a benchmark file.
std::string TempFile(const char* name);
std::wstring Wide(const std::string& path);

// Peak memory is measured in a process of its own, so that memory an earlier
// benchmark freed but the allocator kept cannot hide a later one's needs. A probe
// prepares its input (not counted), then returns the work whose peak is measured.
using PeakWork = std::function<void()>;
using PeakProbe = std::function<PeakWork(const std::string& argument)>;
bool RegisterPeakProbe(const std::string& name, PeakProbe probe);

// Runs this program again to do only the named probe; the resident memory the work
// added at its peak, in bytes (0 if the probe could not run).
uint64_t PeakBytesInFreshProcess(const std::string& name, const std::string& argument);

// Called first in main: when the arguments ask for a probe, runs it, prints its
// figure and returns true.
bool RunRequestedPeakProbe(int argc, char** argv);

// A binary STL of a torus with about `facets` facets, written once and reused.
const std::string& TorusStl(uint32_t facets);
