// The tool recognises files by content: the native file by its magic number, PLY by
// its "ply" line, binary STL by its size rule, ASCII STL by its "solid" keyword. The
// library's own loaders do the work; this file only chooses between them and turns
// their results into messages.
#include "MeshFiles.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

std::wstring Wide(const std::string& path)
{
    std::wstring wide;
    LscUtf8ToWide(path.c_str(), wide);
    return wide;
}

bool EndsWith(const std::string& text, const char* suffix)
{
    const size_t n = std::strlen(suffix);
    if (text.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(text[text.size() - n + i])) != suffix[i]) return false;
    return true;
}

bool StartsWithSolid(const unsigned char* bytes, size_t size)
{
    size_t i = 0;
    while (i < size && std::isspace(bytes[i])) ++i;
    const char* word = "solid";
    for (size_t k = 0; k < 5; ++k, ++i)
        if (i >= size || std::tolower(bytes[i]) != word[k]) return false;
    return true;
}

bool LoadNative(const std::string& path, L_LUMOMESH& mesh, std::string& error)
{
    const std::wstring wide = Wide(path);
    LM_MESH_HEADER header;
    if (!LMeshReadFileHeader(wide.c_str(), &header)) {
        error = "not a valid native mesh file";
        return false;
    }
    // A false result only says the mapped route failed: the stdio route may have read it all.
    if (!LMeshReadFromFile(wide.c_str(), mesh) && mesh.facets.count != header.facetSlots) {
        error = "the native file is damaged or shorter than its header says";
        return false;
    }
    return true;
}

bool LoadPly(const std::string& path, float tolerance, L_LUMOMESH& mesh, std::string& error)
{
    float* soup = nullptr;
    uint32_t triangles = 0;
    const std::wstring wide = Wide(path);
    const short status = nsLscApi::LscLibReadPlyFile(wide.c_str(), soup, triangles);
    if (status != 0) {
        error = "the PLY file could not be read (status " + std::to_string(status) + ")";
        return false;
    }
    // The library's PLY route takes whole units as tolerance; the tool welds in finer steps.
    LMeshReadVertexListIntoLumoMesh(soup, int(triangles), mesh, tolerance, 0);
    nsLscApi::LscLibFreePlyFileData(soup);
    LMeshRecomputeNormals(mesh);
    return true;
}

}  // namespace

const char* FormatName(MeshFormat format)
{
    switch (format) {
    case MeshFormat::BinaryStl: return "binary STL";
    case MeshFormat::AsciiStl: return "ASCII STL";
    case MeshFormat::Ply: return "PLY";
    case MeshFormat::Native: return "native mesh file";
    default: return "unknown";
    }
}

MeshFormat DetectFormat(const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return MeshFormat::Unknown;
    unsigned char head[80] = {};
    const size_t size = std::fread(head, 1, sizeof head, file);
    std::fclose(file);
    uint32_t magic = 0;
    if (size >= 4) std::memcpy(&magic, head, 4);
    if (magic == LM_MESH_MAGIC) return MeshFormat::Native;
    if (size >= 4 && std::memcmp(head, "ply", 3) == 0 && (head[3] == '\n' || head[3] == '\r')) return MeshFormat::Ply;
    const std::wstring wide = Wide(path);
    if (nsLscApi::LscLibCheckSTLFileType(wide.c_str()) == nsLscApi::LSC_FILE_STL_BINARY) return MeshFormat::BinaryStl;
    if (StartsWithSolid(head, size)) return MeshFormat::AsciiStl;
    return MeshFormat::Unknown;
}

bool LoadMesh(const std::string& path, float tolerance, L_LUMOMESH& mesh, MeshFormat& format, std::string& error)
{
    FILE* probe = std::fopen(path.c_str(), "rb");
    if (!probe) {
        error = std::strerror(errno);
        return false;
    }
    std::fclose(probe);
    format = DetectFormat(path);
    switch (format) {
    case MeshFormat::Native: return LoadNative(path, mesh, error);
    case MeshFormat::Ply: return LoadPly(path, tolerance, mesh, error);
    case MeshFormat::BinaryStl:
    case MeshFormat::AsciiStl: {
        const std::wstring wide = Wide(path);
        if (LMeshLoadFromSTL(wide.c_str(), tolerance, &mesh)) return true;
        if (format == MeshFormat::AsciiStl || mesh.facets.count == 0)
            error = "the file holds no complete STL facet";
        else
            error = "it holds fewer facets than its binary STL header says (a truncated STL, or not a mesh file)";
        return false;
    }
    default:
        error = "not a mesh file this tool knows (binary or ASCII STL, PLY, native .lmesh)";
        return false;
    }
}

bool SaveMesh(const std::string& path, L_LUMOMESH& mesh, float scale, std::string& error)
{
    const std::wstring wide = Wide(path);
    if (EndsWith(path, ".stl")) {
        // The writer scales corners unless the factor is 0.
        if (LMeshSaveToStlBin(mesh, wide.c_str(), nullptr, scale == 1.0f ? 0.0f : scale, nullptr)) return true;
        error = "could not write the STL file";
        return false;
    }
    if (!EndsWith(path, ".lmesh")) {
        error = "unknown output type: name the file .stl or .lmesh";
        return false;
    }
    if (scale != 1.0f) {
        L_MATRIX matrix{};
        matrix.m[0] = matrix.m[5] = matrix.m[10] = scale;
        matrix.m[15] = 1.0;
        LMeshTransform(mesh, matrix, nullptr);
        LMeshRecomputeNormals(mesh);  // the transform scales normals with the corners
    }
    if (LMeshWriteToFile(wide.c_str(), mesh)) return true;
    // The stdio fallback may have written the whole file: check what is on disk.
    LM_MESH_HEADER header;
    if (LMeshReadFileHeader(wide.c_str(), &header) && header.facetSlots == mesh.facetSlots) return true;
    error = "could not write the native mesh file";
    return false;
}
