#include <gtest/gtest.h>

#include "LMesh.h"
