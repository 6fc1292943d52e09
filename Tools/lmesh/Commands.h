// The lmesh subcommands; each takes the arguments after its name and returns the
// process exit status.
#pragma once

#include <string>
#include <vector>

int RunInfo(const std::vector<std::string>& args);
int RunConvert(const std::vector<std::string>& args);
int RunOrient(const std::vector<std::string>& args);
int RunCompact(const std::vector<std::string>& args);
int RunGroups(const std::vector<std::string>& args);
int RunWeld(const std::vector<std::string>& args);
int RunSimplify(const std::vector<std::string>& args);
int RunCleanDegenerate(const std::vector<std::string>& args);
int RunSection(const std::vector<std::string>& args);
int RunCut(const std::vector<std::string>& args);
int RunFillHoles(const std::vector<std::string>& args);
int RunComponents(const std::vector<std::string>& args);
int RunThickness(const std::vector<std::string>& args);
int RunOffset(const std::vector<std::string>& args);
int RunIntersections(const std::vector<std::string>& args);
int RunExtend(const std::vector<std::string>& args);
int RunRepair(const std::vector<std::string>& args);
int RunSubdivide(const std::vector<std::string>& args);
int RunRemeshFem(const std::vector<std::string>& args);
