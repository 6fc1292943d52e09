#include <gtest/gtest.h>

#include "LMesh.h"
#include "LMeshExtension.h"
