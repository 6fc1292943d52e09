// A first look at the library: builds a unit cube from indexed triangles, saves it
// as a native mesh file, reads it back and prints what the mesh knows about itself.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "LMesh.h"

namespace {

void PrintList(const char* label, const BaseList<uint32_t>& list, short result)
{
    std::printf("  %-9s", label);
    for (uint32_t i = 0; i < list.count; ++i) std::printf(" %u", *list.Peek(i));
    std::printf("   (%s)\n", result == 0 ? "closed fan" : result == 1 ? "open fan" : "walk failed");
}

void PrintNeighbourhoods(const L_LUMOMESH& mesh)
{
    for (uint32_t v = 0; v < mesh.vertices.count; ++v) {
        const LM_VERTEX& vertex = *mesh.vertices.Peek(v);
        std::printf("vertex %u at (%g, %g, %g)\n", v, vertex.position[0], vertex.position[1], vertex.position[2]);
        BaseList<uint32_t> edges, facets, neighbours;
        PrintList("edges", edges, LMeshGetEdgesAroundVertex(mesh, v, edges));
        PrintList("facets", facets, LMeshGetFacetsAroundVertex(mesh, v, facets));
        PrintList("vertices", neighbours, LMeshGetVerticesAroundVertex(mesh, v, neighbours));
    }
}

std::wstring TempPath()
{
    const char* dir = std::getenv("TMPDIR");
    const std::string path = std::string(dir && *dir ? dir : "/tmp") + "/lmesh_cube_demo.lmesh";
    return std::wstring(path.begin(), path.end());
}

}  // namespace

int main()
{
    // Unit cube: 8 corners, 12 facets wound outward.
    const float corners[] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1};
    const int facets[] = {0, 2, 1, 0, 3, 2, 4, 5, 6, 4, 6, 7, 0, 1, 5, 0, 5, 4,
                          1, 2, 6, 1, 6, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7};
    L_LUMOMESH cube;
    LMeshCreateFromIndexedTriangles(cube, corners, 8, facets, 36);

    const std::wstring path = TempPath();
    if (!LMeshWriteToFile(path.c_str(), cube)) {
        std::fprintf(stderr, "lmesh_cube_demo: could not write the native file (mapped route failed)\n");
        return 1;
    }
    L_LUMOMESH loaded;
    const bool read = LMeshReadFromFile(path.c_str(), loaded);
    std::string narrow(path.begin(), path.end());
    std::remove(narrow.c_str());
    if (!read) {
        std::fprintf(stderr, "lmesh_cube_demo: could not read the native file back\n");
        return 1;
    }

    std::printf("cube written to and read back from %s\n", narrow.c_str());
    std::printf("vertices %u, edges %u, facets %u, groups %u\n", loaded.vertexCount, loaded.edgeCount,
                loaded.facetCount, loaded.groupCount);
    std::printf("box (%g, %g, %g) - (%g, %g, %g)\n\n", loaded.bboxMin[0], loaded.bboxMin[1], loaded.bboxMin[2],
                loaded.bboxMax[0], loaded.bboxMax[1], loaded.bboxMax[2]);
    PrintNeighbourhoods(loaded);
    return 0;
}
