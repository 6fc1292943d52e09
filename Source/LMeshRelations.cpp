#include "LMesh.h"
