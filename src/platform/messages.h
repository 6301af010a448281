// What the program prints. The log and the texts of the loaders go to standard output, warnings to standard
// error. At verbosity 0 only warnings and errors are printed.
#pragma once

#include <string>

namespace drelt {

// 1 prints everything, 0 only warnings and errors. The level at start is 1, or 0 if the environment variable
// DRELT_VERBOSITY is 0. Throws std::invalid_argument for other levels.
void setVerbosity(int level);
int verbosity();

// printf for texts that are neither warnings nor errors; prints nothing at verbosity 0.
void inform(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Prints "[warning] TEXT" as one line on standard error, at any verbosity.
void warn(const std::string& text);
// The same, but only once per process for each key.
void warnOnce(const std::string& key, const std::string& text);

}  // namespace drelt
