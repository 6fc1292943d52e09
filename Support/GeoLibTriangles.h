#pragma once

#include "GeoLib.h"
