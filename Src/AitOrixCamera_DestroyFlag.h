// Writing side of the flag in CamDestroyFlag.h.
#pragma once

#include "CamDestroyFlag.h"

void SetCamDestroy(bool destroying);
