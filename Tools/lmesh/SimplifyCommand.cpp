#include "Commands.h"

#include "CommandSupport.h"

int RunSimplify(const std::vector<std::string>&) { return Failure("simplify", "not available yet"); }
