#include <gtest/gtest.h>

#include "TestMeshes.h"
