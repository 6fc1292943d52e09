#include "LscTrees.h"
