// What the program prints. Standard output carries the log and the texts of the loaders, standard
// error the warnings about what a script should know. At verbosity 0 only warnings and errors appear.
#pragma once

#include <string>

namespace drelt {

// 1 (the default) prints everything, 0 only warnings and errors. The environment variable
// DRELT_VERBOSITY gives the first value. Throws std::invalid_argument for other numbers.
void setVerbosity(int level);
int verbosity();

// printf to standard output; nothing at verbosity 0. For texts that are neither warnings nor errors.
void inform(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Prints "[warning] TEXT" as one line on standard error, at any verbosity.
void warn(const std::string& text);
// The same, once per process for each key.
void warnOnce(const std::string& key, const std::string& text);

}  // namespace drelt
