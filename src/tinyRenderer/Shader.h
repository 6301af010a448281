// A program of a vertex and a fragment shader.
#pragma once

#include <Eigen/Core>
#include <string>

namespace drelt {

// For every call the context in which the program was made must be current.
class Shader {
public:
    // Compiles and links two GLSL files. Errors are printed on standard output and leave a program that
    // draws nothing.
    Shader(const std::string& vertexFile, const std::string& fragmentFile);
    void release();

    // Makes it the program in use; returns false if it cannot draw.
    bool use() const;
    // Set uniforms of the program in use. An unknown name has no effect.
    void setFloat(const char* name, float value) const;
    void setVec3(const char* name, const Eigen::Vector3f& value) const;
    void setMat4(const char* name, const Eigen::Matrix4f& value) const;

private:
    unsigned id_ = 0;
    bool linked_ = false;
};

}  // namespace drelt
