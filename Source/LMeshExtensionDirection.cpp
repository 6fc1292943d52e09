#include "LMeshExtension.h"
