// What the event threads of both engines run.
#pragma once

#include <atomic>

#include "UsbStreamEngine.h"

/// Handles the engine's events at raised priority until `shutdown` is set.
void RunEngineEvents(UsbStreamEngine& engine, const std::atomic<bool>& shutdown);
