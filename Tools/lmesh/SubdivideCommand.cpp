// (in progress)
#include "Commands.h"

#include "CommandSupport.h"

int RunSubdivide(const std::vector<std::string>&) { return Failure("subdivide", "not available yet"); }
int RunRemeshFem(const std::vector<std::string>&) { return Failure("remesh-fem", "not available yet"); }
