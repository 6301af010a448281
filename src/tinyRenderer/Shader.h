// A program of a vertex and a fragment shader.
#pragma once

#include <Eigen/Core>
#include <string>

namespace drelt {

// All calls need the context current, in which the program was made.
class Shader {
public:
    // Compiles and links two GLSL files. What goes wrong is printed on standard output, and leaves
    // a program that draws nothing.
    Shader(const std::string& vertexFile, const std::string& fragmentFile);
    void release();

    // Makes it the program to draw with; returns false where it cannot draw.
    bool use() const;
    // Uniforms of the program in use. An unknown name does nothing.
    void setFloat(const char* name, float value) const;
    void setVec3(const char* name, const Eigen::Vector3f& value) const;
    void setMat4(const char* name, const Eigen::Matrix4f& value) const;

private:
    unsigned id_ = 0;
    bool linked_ = false;
};

}  // namespace drelt
