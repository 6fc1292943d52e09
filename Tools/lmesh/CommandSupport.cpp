#include "CommandSupport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

// A large input is reported while it loads, since the size is known only afterwards.
bool LooksLarge(const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fclose(file);
    return size > 50L * kProgressFacets;
}

}  // namespace

Stage::Stage(const char* name, bool verbose) : name_(name), verbose_(verbose), start_(Clock::now())
{
    if (verbose_) std::fprintf(stderr, "lmesh: %s...\n", name_);
}

Stage::~Stage()
{
    if (!verbose_) return;
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    std::fprintf(stderr, "lmesh: %s done in %.2f s\n", name_, seconds);
}

int UsageError(const char* command, const std::string& message)
{
    std::fprintf(stderr, "lmesh %s: %s (see 'lmesh %s --help')\n", command, message.c_str(), command);
    return 2;
}

int Failure(const char* command, const std::string& message)
{
    std::fprintf(stderr, "lmesh %s: %s\n", command, message.c_str());
    return 1;
}

// Parses, answers --help, and checks the number of positional arguments.
bool Prepare(const char* command, const char* help, const std::vector<std::string>& args, const KnownOptions& known,
             size_t positionals, ParsedArguments& parsed, int& exitCode)
{
    std::string error;
    if (!ParseArguments(args, known, parsed, error)) {
        exitCode = UsageError(command, error);
        return false;
    }
    if (parsed.help) {
        std::fputs(help, stdout);
        exitCode = 0;
        return false;
    }
    if (parsed.positional.size() != positionals) {
        exitCode = UsageError(command, "expected " + std::to_string(positionals) + " file argument" +
                                           (positionals > 1 ? "s" : ""));
        return false;
    }
    return true;
}

bool Load(const char* command, const std::string& path, float tolerance, L_LUMOMESH& mesh, MeshFormat& format,
          int& exitCode)
{
    std::string error;
    bool loaded;
    {
        Stage stage("loading", LooksLarge(path));
        loaded = LoadMesh(path, tolerance, mesh, format, error);
    }
    if (!loaded) exitCode = Failure(command, "cannot read '" + path + "': " + error);
    return loaded;
}

bool Save(const char* command, const std::string& path, L_LUMOMESH& mesh, float scale, int& exitCode)
{
    std::string error;
    Stage stage("writing", mesh.facetCount > kProgressFacets);
    if (SaveMesh(path, mesh, scale, error)) return true;
    exitCode = Failure(command, "cannot write '" + path + "': " + error);
    return false;
}

uint32_t CountBorderEdges(const L_LUMOMESH& mesh)
{
    uint32_t border = 0;
    for (uint32_t e = 0; e < mesh.edges.count; ++e) {
        const LM_EDGE& edge = *mesh.edges.Peek(e);
        if ((edge.flags & LM_LIVE) && (edge.facet[0] == LM_NONE || edge.facet[1] == LM_NONE)) ++border;
    }
    return border;
}


bool TakeTextOption(std::vector<std::string>& args, const std::string& name, std::string& value)
{
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != name) continue;
        if (i + 1 >= args.size()) return false;
        value = args[i + 1];
        args.erase(args.begin() + long(i), args.begin() + long(i) + 2);
        return true;
    }
    return true;
}

namespace {

bool ParsePlane(const std::string& text, L_PLANE& plane)
{
    double values[6];
    const char* cursor = text.c_str();
    for (int i = 0; i < 6; ++i) {
        char* end = nullptr;
        values[i] = std::strtod(cursor, &end);
        if (end == cursor || !std::isfinite(values[i])) return false;
        if (*end != (i < 5 ? ',' : '\0')) return false;
        cursor = end + 1;
    }
    plane = {{values[0], values[1], values[2]}, {values[3], values[4], values[5]}};
    return true;
}

}  // namespace

bool ParsePlaneOption(const char* command, const std::string& text, L_PLANE& plane, int& exitCode)
{
    if (text.empty()) {
        exitCode = UsageError(command, "--plane is required");
        return false;
    }
    if (!ParsePlane(text, plane)) {
        exitCode = UsageError(command, "--plane needs six numbers: px,py,pz,nx,ny,nz");
        return false;
    }
    return true;
}

double LargestExtent(const L_LUMOMESH& mesh)
{
    return std::max({mesh.bboxMax[0] - mesh.bboxMin[0], mesh.bboxMax[1] - mesh.bboxMin[1],
                     mesh.bboxMax[2] - mesh.bboxMin[2], 0.0f});
}

std::vector<uint32_t> FindCrossingFacets(L_LUMOMESH& mesh, float minimumLength, float tolerance)
{
    BaseList<uint32_t> found;
    LMeshDeleteIntersections(mesh, minimumLength, tolerance, nullptr, &found, false);
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < found.count; ++i) ids.push_back(*found.Peek(i));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

std::string PercentBar(double share)
{
    const double clamped = share > 0.0 ? std::min(share, 100.0) : 0.0;
    return std::string(size_t(clamped / 2.5 + 0.5), '#');
}
