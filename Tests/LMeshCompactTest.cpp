#include "TestMeshes.h"
