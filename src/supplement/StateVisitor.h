// What an object keeps between steps, listed once: the list serves to save, to check and to load it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

#include "supplement/MLCuMemcpy.h"

namespace drelt {

enum class StateType : int { Byte, Int32, UInt32, Int64, Float32, Float64 };

constexpr std::size_t bytesOf(StateType type) {
    if (type == StateType::Byte) return 1;
    return type == StateType::Int64 || type == StateType::Float64 ? 8 : 4;
}

// The element type of an array; structures and single bytes count as bytes.
template <class T>
constexpr StateType stateTypeOf() {
    if constexpr (std::is_enum_v<T>) return stateTypeOf<std::underlying_type_t<T>>();
    if constexpr (std::is_same_v<T, float>) return StateType::Float32;
    if constexpr (std::is_same_v<T, double>) return StateType::Float64;
    if constexpr (std::is_same_v<T, std::int32_t>) return StateType::Int32;
    if constexpr (std::is_same_v<T, std::uint32_t>) return StateType::UInt32;
    if constexpr (std::is_same_v<T, std::int64_t>) return StateType::Int64;
    return StateType::Byte;
}

// One entry of the list.
struct StateArray {
    std::string name;  // with its groups, separated by slashes
    StateType type;
    std::size_t count;  // elements
    // Null if the object does not hold the array now. Then a state without the array can be loaded, and one
    // with it if `set` takes it.
    const void* data;
    bool onDevice;
    bool optional;  // whether a state may lack it; `set` then gets null
    // Takes the elements from host memory.
    std::function<void(const void*)> set;
};

class StateVisitor {
public:
    StateVisitor() = default;
    virtual ~StateVisitor() = default;
    StateVisitor(const StateVisitor&) = delete;
    StateVisitor& operator=(const StateVisitor&) = delete;

    // Puts what `list` visits under a name.
    template <class List>
    void group(const std::string& name, List&& list) {
        const std::string outer = prefix_;
        prefix_ += name + "/";
        list();
        prefix_ = outer;
    }

    // Plain data in host memory.
    template <class T>
    void array(const std::string& name, T* data, std::size_t count) {
        entry<T>(name, data, count, false, false, [=](const void* from) {
            if (count > 0) std::memcpy(static_cast<void*>(data), from, count * sizeof(T));
        });
    }
    template <class T>
    void value(const std::string& name, T& value) {
        array(name, &value, 1);
    }
    // An array in device memory. The device must be selected.
    template <class T>
    void deviceArray(const std::string& name, T* data, std::size_t count) {
        entry<T>(name, data, count, true, false, [=](const void* from) {
            if (count > 0) _MLCuMemcpy(data, from, count * sizeof(T), cudaMemcpyHostToDevice);
        });
    }
    // An array that the object has at times only. `data` is null where it has none now; `set` gets null where
    // the state has none.
    template <class T>
    void optionalArray(const std::string& name, const T* data, std::size_t count, bool onDevice,
                       std::function<void(const T*)> set) {
        entry<T>(name, data, count, onDevice, true,
                 [set = std::move(set)](const void* from) { set(static_cast<const T*>(from)); });
    }
    // Numbers behind a setter. `now` needs to live during the call only.
    template <class T>
    void numbers(const std::string& name, const T* now, std::size_t count,
                 std::function<void(const T*)> set) {
        entry<T>(name, now, count, false, false,
                 [set = std::move(set)](const void* from) { set(static_cast<const T*>(from)); });
    }

protected:
    virtual void visit(const StateArray& array) = 0;

private:
    template <class T>
    void entry(const std::string& name, const T* data, std::size_t count, bool onDevice,
               bool optional, std::function<void(const void*)> set) {
        static_assert(std::is_trivially_copyable_v<T> || std::is_standard_layout_v<T>);
        constexpr StateType type = stateTypeOf<T>();
        visit({prefix_ + name, type, count * (sizeof(T) / bytesOf(type)), data, onDevice, optional,
               std::move(set)});
    }

    std::string prefix_;
};

}  // namespace drelt
