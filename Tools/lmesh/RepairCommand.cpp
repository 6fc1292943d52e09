// (in progress)
#include "Commands.h"

#include "CommandSupport.h"

int RunRepair(const std::vector<std::string>&) { return Failure("repair", "not available yet"); }
