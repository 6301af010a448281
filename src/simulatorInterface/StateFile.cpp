#include "simulatorInterface/StateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>

#include "platform/runtime.h"
#include "simulatorInterface/Hdf5.h"
#include "simulatorInterface/PartialFile.h"
#include "simulatorInterface/StateFileDriver.h"

namespace drelt {
namespace {

using hdf5::checked;
using hdf5::Handle;

constexpr const char kFormat[] = "0001";
constexpr std::size_t kSmallBytes = 4096;      // kept in the dataset's header
constexpr hsize_t kChunkBytes = 1 << 20;       // of larger ones
constexpr std::size_t kPieceBytes = 16 << 20;  // of a copy from the device
constexpr unsigned kDeflateLevel = 1;

// Stands after all that HDF5 reads. HDF5 does not notice all damage, and does not get over all that it notices.
struct Ending {
    char mark[12];
    char format[4];
    std::uint64_t bytes;  // before the ending
    std::uint64_t checksum;
};
constexpr char kMark[] = "drelt state ";

// FNV-1a (Fowler, Noll and Vo) by words of eight bytes; the last one may be filled up with zeros.
std::uint64_t checksumOf(int descriptor, std::uint64_t bytes) {
    std::vector<std::uint64_t> words(1 << 17);
    std::uint64_t hash = 14695981039346656037U;
    for (std::uint64_t at = 0; at < bytes;) {
        const auto wanted = std::min<std::uint64_t>(bytes - at, words.size() * 8);
        std::fill(words.begin(), words.end(), 0);
        const ssize_t got = pread(descriptor, words.data(), wanted, static_cast<off_t>(at));
        if (got < 0 && errno == EINTR) continue;
        // pieces are whole words but for the last
        if (got != static_cast<ssize_t>(wanted)) throw hdf5::Failure("a read failed");
        for (std::uint64_t i = 0; 8 * i < wanted; ++i) hash = (hash ^ words[i]) * 1099511628211U;
        at += wanted;
    }
    return hash;
}

std::uint64_t sizeOf(int descriptor) {
    struct stat about {};
    return fstat(descriptor, &about) == 0 ? static_cast<std::uint64_t>(about.st_size) : 0;
}

void writeEnding(FileTarget& target) {
    if (target.error != 0) return;
    Ending ending{};
    std::memcpy(ending.mark, kMark, sizeof ending.mark);
    std::memcpy(ending.format, kFormat, sizeof ending.format);
    ending.bytes = sizeOf(target.descriptor);
    ending.checksum = checksumOf(target.descriptor, ending.bytes);
    const ssize_t put =
        pwrite(target.descriptor, &ending, sizeof ending, static_cast<off_t>(ending.bytes));
    if (put != sizeof ending) target.error = put < 0 ? errno : ENOSPC;
}

// HDF5 need not be able to serve several threads.
std::mutex& library() {
    static std::mutex mutex;
    return mutex;
}

struct NumberType {
    hid_t inFile, inMemory;
};

NumberType numberTypeOf(StateType type) {
    switch (type) {
        case StateType::Int32: return {H5T_STD_I32LE, H5T_NATIVE_INT32};
        case StateType::UInt32: return {H5T_STD_U32LE, H5T_NATIVE_UINT32};
        case StateType::Int64: return {H5T_STD_I64LE, H5T_NATIVE_INT64};
        case StateType::Float32: return {H5T_IEEE_F32LE, H5T_NATIVE_FLOAT};
        case StateType::Float64: return {H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE};
        default: return {H5T_STD_U8LE, H5T_NATIVE_UCHAR};
    }
}

StateType stateTypeOf(hid_t numbers) {
    for (const auto type : {StateType::Byte, StateType::Int32, StateType::UInt32, StateType::Int64,
                            StateType::Float32, StateType::Float64}) {
        if (checked(H5Tequal(numbers, numberTypeOf(type).inFile)) > 0) return type;
    }
    throw hdf5::Failure("a type of number that no state has");
}

// Without times, files of equal states are equal.
Handle untimed(hid_t kind) {
    Handle list(H5Pcreate(kind), H5Pclose);
    checked(H5Pset_obj_track_times(list, false));
    return list;
}

Handle layoutOf(hsize_t count, std::size_t elementBytes) {
    Handle layout = untimed(H5P_DATASET_CREATE);
    if (count * elementBytes <= kSmallBytes) {
        checked(H5Pset_layout(layout, H5D_COMPACT));
        return layout;
    }
    const hsize_t chunk = std::min(count, std::max<hsize_t>(kChunkBytes / elementBytes, 1));
    checked(H5Pset_chunk(layout, 1, &chunk));
    checked(H5Pset_shuffle(layout));
    checked(H5Pset_deflate(layout, kDeflateLevel));
    return layout;
}

// Access to a file through an open descriptor.
Handle accessTo(FileTarget& target) {
    Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
    checked(H5Pset_libver_bounds(access, H5F_LIBVER_V110, H5F_LIBVER_V110));
    checked(H5Pset_fclose_degree(access, H5F_CLOSE_STRONG));
    useTarget(access, target);
    return access;
}

class Writer : public StateVisitor {
public:
    Writer(const std::string& path, FileTarget& target)
        : target_(target),
          file_(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, untimed(H5P_FILE_CREATE), accessTo(target)),
                H5Fclose) {
        hdf5::writeText(file_, "program", "drelt " DRELT_VERSION);
    }

    // A line per string, so that other programs show them.
    void writeLines(const std::string& name, const std::vector<std::string>& lines) {
        std::size_t longest = 1;
        for (const std::string& line : lines) longest = std::max(longest, line.size());
        const Handle type(H5Tcopy(H5T_C_S1), H5Tclose);
        checked(H5Tset_size(type, longest));
        checked(H5Tset_cset(type, H5T_CSET_UTF8));
        checked(H5Tset_strpad(type, H5T_STR_NULLPAD));
        std::string all;
        for (std::string line : lines) {
            line.resize(longest, '\0');
            all += line;
        }
        const Handle data = create(name, type, lines.size(), longest);
        checked(H5Dwrite(data, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.data()));
    }

    void writeExtra(const std::string& name, const StateExtra& extra) {
        const Handle data = create(name, H5T_STD_U8LE, std::max<std::size_t>(extra.bytes.size(), 1),
                                   1, !extra.bytes.empty());
        hdf5::writeText(data, "key", extra.key);
        hdf5::writeText(data, "kind", extra.kind);
        if (extra.bytes.empty()) return;
        checked(
            H5Dwrite(data, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, extra.bytes.data()));
    }

    void close() { file_.close(); }
    bool failed() const { return target_.error != 0; }

private:
    void visit(const StateArray& array) override {
        if (array.count == 0 || (array.optional && array.data == nullptr)) return;
        if (failed()) throw hdf5::Failure("a write failed");
        const NumberType type = numberTypeOf(array.type);
        const std::size_t bytes = bytesOf(array.type);
        const Handle data = create(array.name, type.inFile, array.count, bytes);
        if (!array.onDevice) {
            checked(H5Dwrite(data, type.inMemory, H5S_ALL, H5S_ALL, H5P_DEFAULT, array.data));
            return;
        }
        const Handle space(H5Dget_space(data), H5Sclose);
        const std::size_t piece = std::min(array.count, kPieceBytes / bytes);
        staging_.resize(std::max(staging_.size(), piece * bytes));
        for (std::size_t at = 0; at < array.count && !failed(); at += piece) {
            const hsize_t start = at, count = std::min(piece, array.count - at);
            _MLCuMemcpy(staging_.data(), static_cast<const char*>(array.data) + at * bytes,
                        count * bytes, cudaMemcpyDeviceToHost);
            const Handle here(H5Screate_simple(1, &count, nullptr), H5Sclose);
            checked(H5Sselect_hyperslab(space, H5S_SELECT_SET, &start, nullptr, &count, nullptr));
            checked(H5Dwrite(data, type.inMemory, here, space, H5P_DEFAULT, staging_.data()));
        }
    }

    Handle create(const std::string& name, hid_t type, hsize_t count, std::size_t bytes,
                  bool any = true) {
        const Handle space(any ? H5Screate_simple(1, &count, nullptr) : H5Screate(H5S_NULL),
                           H5Sclose);
        const Handle layout = layoutOf(any ? count : 0, bytes);
        makeGroups(name);
        return {H5Dcreate2(file_, name.c_str(), type, space, H5P_DEFAULT, layout, H5P_DEFAULT),
                H5Dclose};
    }

    void makeGroups(const std::string& name) {
        for (auto end = name.find('/'); end != std::string::npos; end = name.find('/', end + 1)) {
            const std::string group = name.substr(0, end);
            if (!groups_.insert(group).second) continue;
            const Handle made(H5Gcreate2(file_, group.c_str(), H5P_DEFAULT,
                                         untimed(H5P_GROUP_CREATE), H5P_DEFAULT),
                              H5Gclose);
        }
    }

    FileTarget& target_;
    Handle file_;
    std::set<std::string> groups_;
    std::vector<char> staging_;
};

std::size_t elementsOf(hid_t data) {
    const Handle space(H5Dget_space(data), H5Sclose);
    return static_cast<std::size_t>(checked(H5Sget_simple_extent_npoints(space)));
}

// The names of all datasets.
std::vector<std::string> namesIn(hid_t file) {
    std::vector<std::string> names;
    const auto take = [](hid_t, const char* name, const H5L_info_t*, void* to) -> herr_t {
        static_cast<std::vector<std::string>*>(to)->emplace_back(name);
        return 0;
    };
    checked(H5Lvisit(file, H5_INDEX_NAME, H5_ITER_INC, take, &names));
    const auto isGroup = [&](const std::string& name) {
        const Handle object(H5Oopen(file, name.c_str(), H5P_DEFAULT), H5Oclose);
        return H5Iget_type(object) != H5I_DATASET;
    };
    names.erase(std::remove_if(names.begin(), names.end(), isGroup), names.end());
    return names;
}

std::vector<std::string> readLines(hid_t data) {
    const Handle type(H5Dget_type(data), H5Tclose);
    const std::size_t longest = H5Tget_size(type);
    const std::size_t count = elementsOf(data);
    std::string all(longest * count, '\0');
    checked(H5Dread(data, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.data()));
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string line = all.substr(i * longest, longest);
        lines.push_back(line.substr(0, line.find('\0')));
    }
    return lines;
}

StoredArray readNumbers(hid_t data) {
    const Handle type(H5Dget_type(data), H5Tclose);
    StoredArray stored{stateTypeOf(type), {}};
    stored.bytes.resize(elementsOf(data) * bytesOf(stored.type));
    if (stored.bytes.empty()) return stored;
    checked(H5Dread(data, numberTypeOf(stored.type).inMemory, H5S_ALL, H5S_ALL, H5P_DEFAULT,
                    stored.bytes.data()));
    return stored;
}

void requireMemory(hid_t file, const std::vector<std::string>& names) {
    double needed = 0;
    for (const std::string& name : names) {
        const Handle data(H5Dopen2(file, name.c_str(), H5P_DEFAULT), H5Dclose);
        const Handle type(H5Dget_type(data), H5Tclose);
        needed += static_cast<double>(elementsOf(data)) * static_cast<double>(H5Tget_size(type));
    }
    const double available = static_cast<double>(platform::availableHostBytes());
    if (needed <= available) return;
    throw std::runtime_error("it holds " + std::to_string(needed / 1e9) + " GB, " +
                             std::to_string(available / 1e9) + " GB of memory are available");
}

void requireWhole(int descriptor) {
    const std::uint64_t size = sizeOf(descriptor);
    const auto damaged = [](const char* how) {
        throw std::runtime_error(std::string("it is damaged or cut short (") + how +
                                 "); use another file");
    };
    char start[8] = {};
    if (pread(descriptor, start, sizeof start, 0) != sizeof start ||
        std::memcmp(start, "\x89HDF\r\n\x1a\n", sizeof start) != 0) {
        throw std::runtime_error("it is no state file; give one that saveState wrote");
    }
    Ending ending{};
    const bool read =
        size > sizeof ending && pread(descriptor, &ending, sizeof ending,
                                      static_cast<off_t>(size - sizeof ending)) == sizeof ending;
    if (!read || std::memcmp(ending.mark, kMark, sizeof ending.mark) != 0) {
        damaged("its end is missing");
    }
    const std::string format(ending.format, sizeof ending.format);
    if (format != kFormat) {
        throw std::runtime_error("its format is " + format + ", this program reads " + kFormat +
                                 "; load it with the version that wrote it");
    }
    if (ending.bytes != size - sizeof ending) damaged("its length is wrong");
    if (ending.checksum != checksumOf(descriptor, ending.bytes)) damaged("its checksum is wrong");
}

StateFileContent readContent(const std::string& path, FileTarget& target) {
    requireWhole(target.descriptor);
    const Handle file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, accessTo(target)), H5Fclose);
    const std::vector<std::string> names = namesIn(file);
    requireMemory(file, names);
    StateFileContent content;
    for (const std::string& name : names) {
        const Handle data(H5Dopen2(file, name.c_str(), H5P_DEFAULT), H5Dclose);
        if (name == "scene") {
            content.scene = readLines(data);
        } else if (name.rfind("extra/", 0) == 0) {
            const StoredArray stored = readNumbers(data);
            content.extras.push_back({hdf5::readText(data, "key"),
                                      hdf5::readText(data, "kind"),
                                      {stored.bytes.begin(), stored.bytes.end()}});
        } else {
            content.arrays[name] = readNumbers(data);
        }
    }
    return content;
}

}  // namespace

void writeStateFile(const std::string& path, const std::vector<std::string>& scene,
                    const std::vector<StateExtra>& extras,
                    const std::function<void(StateVisitor&)>& list) {
    const std::lock_guard<std::mutex> lock(library());
    const hdf5::Silence silence;
    PartialFile partial(path);
    FileTarget target{partial.descriptor(), 0};
    try {
        Writer writer(partial.name(), target);
        writer.writeLines("scene", scene);
        for (std::size_t i = 0; i < extras.size(); ++i) {
            writer.writeExtra("extra/" + std::to_string(i), extras[i]);
        }
        list(writer);
        writer.close();
        writeEnding(target);
    } catch (const hdf5::Failure& failure) {
        if (target.error == 0) {
            throw std::runtime_error("saveState: cannot write '" + path + "': HDF5 says: " +
                                     failure.what() + "; what was there is unchanged");
        }
    }
    partial.finish(target.error);
}

StateFileContent readStateFile(const std::string& path) {
    const std::lock_guard<std::mutex> lock(library());
    const std::string what = "loadState: cannot load '" + path + "': ";
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throw std::runtime_error(what + std::strerror(errno) +
                                 "; give a file that saveState wrote");
    }
    const hdf5::Silence silence;
    FileTarget target{file.get(), 0};
    try {
        return readContent(path, target);
    } catch (const hdf5::Failure& failure) {
        throw std::runtime_error(what + "HDF5 says: " + failure.what() +
                                 "; use another file, nothing was changed");
    } catch (const std::runtime_error& refusal) {
        throw std::runtime_error(what + refusal.what() + "; nothing was changed");
    }
}

}  // namespace drelt
