#version 330 core
uniform vec3 flatColor;

out vec4 colour;

void main() {
    colour = vec4(flatColor, 1.0);
}
