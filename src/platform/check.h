// The check of all device calls. A failure prints one line on standard error, resets the device and ends
// the process with status 1; nothing recovers from it.
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

// Call it for each device id that a script gives, before anything is changed. Throws
// std::invalid_argument if no device has this id. The message begins with `what` ("make_simulator").
void requireDevice(int device, const char* what);

}  // namespace drelt::platform

// Checks one device call; the message quotes the statement from the source.
#define checkCudaErrors(statement) \
    ::drelt::platform::checkDeviceCall((statement), #statement, __FILE__, __LINE__)

// The same, with a fixed line number in the message.
#define checkCudaErrorsAtLine(line, statement) \
    ::drelt::platform::checkDeviceCall((statement), #statement, __FILE__, line)
