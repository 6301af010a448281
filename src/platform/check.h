// The one check of device calls: a failure prints one line on standard error, resets the device and
// ends the process with status 1. Nothing recovers from a device failure.
#pragma once

#include "platform/runtime.h"

namespace drelt::platform {

// Prints 'CUDA error at FILE:LINE code=CODE(NAME) "STATEMENT"' and ends the process. FILE is the
// source path from src/ on, without its extension.
[[noreturn]] void failDeviceCall(cudaError_t status, const char* statement, const char* file,
                                 int line);

inline void checkDeviceCall(cudaError_t status, const char* statement, const char* file, int line) {
    if (status != cudaSuccess) failDeviceCall(status, statement, file, line);
}

// For ids that a script gives. Throws std::invalid_argument for an id that names no device; `what` begins
// the message ("make_simulator").
void requireDevice(int device, const char* what);

}  // namespace drelt::platform

// Checks one device call; the text of the statement is quoted as it stands in the source.
#define checkCudaErrors(statement) \
    ::drelt::platform::checkDeviceCall((statement), #statement, __FILE__, __LINE__)

// The same for statements that are reported under a fixed line number.
#define checkCudaErrorsAtLine(line, statement) \
    ::drelt::platform::checkDeviceCall((statement), #statement, __FILE__, line)
