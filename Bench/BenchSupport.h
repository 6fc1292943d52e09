// Shared pieces of the benchmarks: a closed test surface of any size, files in the
// temporary folder, and the peak resident memory of a measured call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A torus of n by m quads, two triangles each: closed, one component, 2 n m facets,
// n m vertices. Coordinates in millimetres, about 260 across.
struct Torus {
    std::vector<float> coords;
    std::vector<int> indices;
};
Torus MakeTorus(int n, int m, float offsetX = 0.0f);

// Nine floats per triangle, in facet order.
std::vector<float> SoupOf(const Torus& torus);

// A path in $TMPDIR (or /tmp) for a benchmark file.
std::string TempFile(const char* name);
std::wstring Wide(const std::string& path);

// Peak resident memory added by a piece of work: Reset before it, Added after it.
class PeakResident {
public:
    void Reset();
    uint64_t AddedBytes() const;

private:
    uint64_t baseKilobytes_ = 0;
};

// A binary STL of a torus with about `facets` facets, written once and reused.
const std::string& TorusStl(uint32_t facets);
