// lmesh: the command-line face of the library.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"

namespace {

struct Subcommand {
    const char* name;
    const char* summary;
    int (*run)(const std::vector<std::string>&);
};

const Subcommand kSubcommands[] = {
    {"info", "print counts, box, area, volume, edge lengths and triangle quality", RunInfo},
    {"convert", "convert STL, PLY or .lmesh input to binary STL or .lmesh", RunConvert},
    {"orient", "make facet winding consistent and facing outward", RunOrient},
    {"compact", "rewrite a native .lmesh file without its dead slots", RunCompact},
    {"groups", "list the facet groups of a native .lmesh file", RunGroups},
    {"weld", "join edges that lie on each other and merge their ends", RunWeld},
    {"simplify", "collapse edges where the surface stays within tolerances", RunSimplify},
    {"clean-degenerate", "delete zero-area, duplicate and looping facets", RunCleanDegenerate},
    {"section", "cut by a plane and print the section as lines and arcs", RunSection},
    {"cut", "cut by a plane into the parts on either side", RunCut},
    {"fill-holes", "close boundary loops with new facets", RunFillHoles},
    {"components", "count the connected pieces, optionally write each", RunComponents},
    {"thickness", "wall thickness per facet, with its distribution over the area", RunThickness},
    {"offset", "grow or shrink a mesh by moving its vertices", RunOffset},
    {"intersections", "find facets that cross each other, optionally delete them", RunIntersections},
    {"extend", "grow strips out of the free boundary along the surface", RunExtend},
    {"repair", "weld, remove bad facets, mend T-junctions, fill holes and orient", RunRepair},
    {"subdivide", "split facets into four at their edge midpoints, or at centroids", RunSubdivide},
    {"remesh-fem", "slice by axis planes and clean up for finite-element use", RunRemeshFem},
};

void PrintUsage(FILE* out)
{
    std::fprintf(out,
                 "usage: lmesh COMMAND [ARGS...]\n"
                 "\n"
                 "Inspect, repair, analyse and edit triangle meshes: binary or ASCII STL, PLY and\n"
                 "the native .lmesh file.\n"
                 "\n"
                 "commands:\n");
    for (const Subcommand& command : kSubcommands) std::fprintf(out, "  %-17s %s\n", command.name, command.summary);
    std::fprintf(out, "\nRun 'lmesh COMMAND --help' for the options of a command.\n");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        PrintUsage(stderr);
        return 2;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        PrintUsage(stdout);
        return 0;
    }
    for (const Subcommand& command : kSubcommands)
        if (name == command.name) return command.run(std::vector<std::string>(argv + 2, argv + argc));
    std::fprintf(stderr, "lmesh: unknown command '%s' (see 'lmesh --help')\n", name.c_str());
    return 2;
}
