#include "Commands.h"

#include "CommandSupport.h"

int RunCleanDegenerate(const std::vector<std::string>&) { return Failure("clean-degenerate", "not available yet"); }
