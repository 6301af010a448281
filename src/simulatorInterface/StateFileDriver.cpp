#include "simulatorInterface/StateFileDriver.h"

#if __has_include(<H5FDdevelop.h>)
#include <H5FDdevelop.h>  // from 1.14 on
#endif
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>

namespace drelt {
namespace {

// HDF5 sees the first member only.
struct OpenFile {
    H5FD_t library;
    FileTarget* target;
    haddr_t allocated;
    haddr_t end;
};

OpenFile& of(const H5FD_t* file) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library's callbacks differ in constness
    return *reinterpret_cast<OpenFile*>(const_cast<H5FD_t*>(file));
}

H5FD_t* openFile(const char*, unsigned, hid_t accessList, haddr_t) {
    const auto* const given = static_cast<FileTarget* const*>(H5Pget_driver_info(accessList));
    struct stat about {};
    if (given == nullptr || fstat((*given)->descriptor, &about) != 0) return nullptr;
    auto* const file = new (std::nothrow) OpenFile{};
    if (file == nullptr) return nullptr;
    file->target = *given;
    file->end = static_cast<haddr_t>(about.st_size);
    return &file->library;
}

herr_t closeFile(H5FD_t* file) {
    delete &of(file);
    return 0;
}

herr_t query(const H5FD_t*, unsigned long* features) {
    *features = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA |
                H5FD_FEAT_AGGREGATE_SMALLDATA;
    return 0;
}

haddr_t allocatedEnd(const H5FD_t* file, H5FD_mem_t) { return of(file).allocated; }

herr_t setAllocatedEnd(H5FD_t* file, H5FD_mem_t, haddr_t address) {
    of(file).allocated = address;
    return 0;
}

haddr_t fileEnd(const H5FD_t* file, H5FD_mem_t) { return of(file).end; }

// Bytes beyond the end read as 0, as HDF5 expects.
herr_t readFile(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, std::size_t size, void* to) {
    auto* place = static_cast<char*>(to);
    while (size > 0) {
        const ssize_t got =
            pread(of(file).target->descriptor, place, size, static_cast<off_t>(address));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) {
            std::memset(place, 0, size);
            return 0;
        }
        place += got;
        size -= static_cast<std::size_t>(got);
        address += static_cast<haddr_t>(got);
    }
    return 0;
}

herr_t writeFile(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, std::size_t size,
                 const void* from) {
    OpenFile& open = of(file);
    const auto* place = static_cast<const char*>(from);
    open.end = std::max<haddr_t>(open.end, address + size);
    while (size > 0 && open.target->error == 0) {
        const ssize_t put =
            pwrite(open.target->descriptor, place, size, static_cast<off_t>(address));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) {
            open.target->error = put < 0 ? errno : ENOSPC;
            break;
        }
        place += put;
        size -= static_cast<std::size_t>(put);
        address += static_cast<haddr_t>(put);
    }
    return 0;
}

herr_t truncateFile(H5FD_t* file, hid_t, hbool_t) {
    OpenFile& open = of(file);
    if (open.end == open.allocated || open.target->error != 0) return 0;
    if (ftruncate(open.target->descriptor, static_cast<off_t>(open.allocated)) != 0) {
        open.target->error = errno;
    }
    open.end = open.allocated;
    return 0;
}

hid_t registerDriver() {
    static H5FD_class_t driver{};
#ifdef H5FD_CLASS_VERSION
    driver.version = H5FD_CLASS_VERSION;
    driver.value = static_cast<H5FD_class_value_t>(600);  // the range for drivers of programs
#endif
    driver.name = "drelt";
    driver.maxaddr = static_cast<haddr_t>(1) << 62;
    driver.fc_degree = H5F_CLOSE_STRONG;
    driver.fapl_size = sizeof(FileTarget*);  // NOLINT(bugprone-sizeof-expression)
    driver.open = &openFile;
    driver.close = &closeFile;
    driver.query = &query;
    driver.get_eoa = &allocatedEnd;
    driver.set_eoa = &setAllocatedEnd;
    driver.get_eof = &fileEnd;
    driver.read = &readFile;
    driver.write = &writeFile;
    driver.truncate = &truncateFile;
    constexpr H5FD_mem_t together[H5FD_MEM_NTYPES] = H5FD_FLMAP_DICHOTOMY;
    std::copy(std::begin(together), std::end(together), std::begin(driver.fl_map));
    return H5FDregister(&driver);
}

}  // namespace

void useTarget(hid_t accessList, FileTarget& target) {
    static const hid_t driver = registerDriver();
    FileTarget* const pointer = &target;
    H5Pset_driver(accessList, driver, &pointer);
}

}  // namespace drelt
