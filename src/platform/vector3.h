// Three numbers along x, y and z, for host and device. T is a number or a pack of numbers. Operators use
// this type, the bodies use Eigen.
#pragma once

#include "platform/launch.h"

namespace drelt {

template <class T>
struct Vector3 {
    T x, y, z;
};

template <class T>
DRELT_HOST_DEVICE Vector3<T> operator+(const Vector3<T>& a, const Vector3<T>& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
template <class T>
DRELT_HOST_DEVICE Vector3<T> operator-(const Vector3<T>& a, const Vector3<T>& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
template <class T>
DRELT_HOST_DEVICE Vector3<T> operator-(const Vector3<T>& a) {
    return {-a.x, -a.y, -a.z};
}
template <class T>
DRELT_HOST_DEVICE Vector3<T> cross(const Vector3<T>& a, const Vector3<T>& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// Reads three consecutive numbers.
template <class T>
DRELT_HOST_DEVICE Vector3<T> vector3(const T* v) {
    return {v[0], v[1], v[2]};
}

}  // namespace drelt
