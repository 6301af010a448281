#include "tinyRenderer/Shader.h"

#include <glad/gl.h>

#include <array>
#include <fstream>
#include <ios>
#include <iostream>
#include <sstream>

namespace drelt {

namespace {

constexpr const char* kSeparator = "\n -- --------------------------------------------------- -- ";
using Log = std::array<GLchar, 1024>;

std::string readFile(const std::string& path) {
    std::ifstream file;
    file.exceptions(std::ifstream::failbit | std::ifstream::badbit);
    file.open(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

unsigned compile(GLenum stage, const char* type, const std::string& source) {
    const GLuint shader = glCreateShader(stage);
    const char* const text = source.c_str();
    glShaderSource(shader, 1, &text, nullptr);
    glCompileShader(shader);
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    if (compiled == GL_FALSE) {
        Log log{};
        glGetShaderInfoLog(shader, log.size(), nullptr, log.data());
        std::cout << "ERROR::SHADER_COMPILATION_ERROR of type: " << type << "\n"
                  << log.data() << kSeparator << std::endl;
    }
    return shader;
}

bool link(unsigned program) {
    glLinkProgram(program);
    GLint linked = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    if (linked == GL_FALSE) {
        Log log{};
        glGetProgramInfoLog(program, log.size(), nullptr, log.data());
        std::cout << "ERROR::PROGRAM_LINKING_ERROR of type: PROGRAM\n"
                  << log.data() << kSeparator << std::endl;
    }
    return linked != GL_FALSE;
}

}  // namespace

Shader::Shader(const std::string& vertexFile, const std::string& fragmentFile) {
    std::string vertexSource;
    std::string fragmentSource;
    try {
        vertexSource = readFile(vertexFile);
        fragmentSource = readFile(fragmentFile);
    } catch (const std::ios_base::failure&) {
        // sic: prescribed text
        std::cout << "ERROR::SHADER::FILE_NOT_SUCCESFULLY_READ" << std::endl;
    }
    const unsigned vertex = compile(GL_VERTEX_SHADER, "VERTEX", vertexSource);
    const unsigned fragment = compile(GL_FRAGMENT_SHADER, "FRAGMENT", fragmentSource);
    id_ = glCreateProgram();
    glAttachShader(id_, vertex);
    glAttachShader(id_, fragment);
    linked_ = link(id_);
    glDeleteShader(vertex);
    glDeleteShader(fragment);
}

void Shader::release() { glDeleteProgram(id_); }

bool Shader::use() const {
    if (linked_) glUseProgram(id_);
    return linked_;
}

void Shader::setFloat(const char* name, float value) const {
    glUniform1f(glGetUniformLocation(id_, name), value);
}

void Shader::setVec3(const char* name, const Eigen::Vector3f& value) const {
    glUniform3fv(glGetUniformLocation(id_, name), 1, value.data());
}

void Shader::setMat4(const char* name, const Eigen::Matrix4f& value) const {
    glUniformMatrix4fv(glGetUniformLocation(id_, name), 1, GL_FALSE, value.data());
}

}  // namespace drelt
