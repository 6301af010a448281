// The solver's checked copy between host and device.
#pragma once

#include "platform/check.h"

// Calls cudaMemcpy; a failure ends the process with a message that quotes the call.
// NOLINTNEXTLINE(bugprone-reserved-identifier): prescribed name
#define _MLCuMemcpy(to, from, bytes, kind) checkCudaErrors(cudaMemcpy(to, from, bytes, kind))
