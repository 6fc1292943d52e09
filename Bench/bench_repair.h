// The broken torus of the repair benchmark, shared with the peers' side of it.
#pragma once

#include <string>
#include <vector>

// A binary STL of about 1 million facets with cracks, holes, repeated and flipped
// facets (see bench_repair.cpp), written once to the temporary folder.
const std::string& BrokenTorusStl();
// The same triangles as nine floats each, in file order.
const std::vector<float>& BrokenTorusSoup();
