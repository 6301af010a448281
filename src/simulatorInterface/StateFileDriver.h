// How HDF5 reaches an open file: through a descriptor that belongs to the caller, and without locks.
#pragma once

#include <hdf5.h>

namespace drelt {

// An open file. After a failed write, further writes are dropped and report success: HDF5 can close the file
// then, which it cannot on a full disk. The caller looks at `error` when it is closed.
struct FileTarget {
    int descriptor = -1;
    int error = 0;  // errno of the first write that failed
};

// Lets files that are created or opened with this access list use a target, which must outlive them. The
// name that they are given does not matter.
void useTarget(hid_t accessList, FileTarget& target);

}  // namespace drelt
