#include "GeoLib.h"
