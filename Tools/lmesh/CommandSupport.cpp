#include "CommandSupport.h"

#include <cstdio>

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

