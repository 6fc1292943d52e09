// What every subcommand shares: argument checking with help, one-line errors, loading
// and saving with progress on stderr for large meshes, and small mesh counts.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "LMesh.h"
#include "MeshFiles.h"
#include "Options.h"

constexpr uint32_t kProgressFacets = 1000000;  // above this, stages report their time on stderr
// Free edges are the chains of edges whose curvature value is -1 within this.
constexpr float kFreeEdgeTolerance = 1e-6f;

// Reports on stderr when a long step starts and how long it took.
class Stage {
public:
    Stage(const char* name, bool verbose);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

private:
    using Clock = std::chrono::steady_clock;
    const char* name_;
    bool verbose_;
    Clock::time_point start_;
};

// Print one line on stderr and return the exit status: 2 for a usage error, 1 otherwise.
int UsageError(const char* command, const std::string& message);
int Failure(const char* command, const std::string& message);

// Parses, answers --help, and checks the number of positional arguments. False when
// the command should end now with exitCode.
bool Prepare(const char* command, const char* help, const std::vector<std::string>& args, const KnownOptions& known,
             size_t positionals, ParsedArguments& parsed, int& exitCode);

// Load or save with a one-line error on failure.
bool Load(const char* command, const std::string& path, float tolerance, L_LUMOMESH& mesh, MeshFormat& format,
          int& exitCode);
bool Save(const char* command, const std::string& path, L_LUMOMESH& mesh, float scale, int& exitCode);

// Live edges with fewer than two facets.
uint32_t CountBorderEdges(const L_LUMOMESH& mesh);

// Takes "--name VALUE" out of args before the general parsing, for a value that may
// start with '-' (a negative coordinate) and is not a single number. False when the
// option has no value; value is left as it was when the option is absent.
bool TakeTextOption(std::vector<std::string>& args, const std::string& name, std::string& value);

// The plane of a "--plane PX,PY,PZ,NX,NY,NZ" value: six numbers, no blanks. False with
// a usage error in exitCode when the value is missing or malformed.
bool ParsePlaneOption(const char* command, const std::string& text, L_PLANE& plane, int& exitCode);

// The largest extent of the stored box, 0 for an empty box.
double LargestExtent(const L_LUMOMESH& mesh);

// A histogram bar of one '#' per 2.5 percent; shares outside 0 to 100, or not a number,
// are drawn as the nearer end (or empty).
std::string PercentBar(double share);

// The live facets that cross another facet of the mesh (LMeshDeleteIntersections
// without deleting), ascending, each once.
std::vector<uint32_t> FindCrossingFacets(L_LUMOMESH& mesh, float minimumLength, float tolerance);
