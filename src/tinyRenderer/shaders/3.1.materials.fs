#version 330 core
// B. T. Phong, Illumination for computer generated pictures, Commun. ACM 18 (1975).

struct Light {
    vec3 position;
    vec3 ambient;
    vec3 diffuse;
    vec3 specular;
};

struct Material {
    vec3 ambient;
    vec3 diffuse;
    vec3 specular;
    float shininess;
};

in vec3 worldPosition;
in vec3 worldNormal;

uniform Light light;
uniform Material material;
uniform vec3 viewPos;

out vec4 colour;

void main() {
    vec3 normal = normalize(worldNormal);
    vec3 toLight = normalize(light.position - worldPosition);
    vec3 toEye = normalize(viewPos - worldPosition);

    float facing = max(dot(normal, toLight), 0.0);
    // a surface turned away from the light has no highlight
    float mirrored = facing > 0.0 ? max(dot(toEye, reflect(-toLight, normal)), 0.0) : 0.0;

    vec3 ambient = light.ambient * material.ambient;
    vec3 diffuse = light.diffuse * (facing * material.diffuse);
    vec3 specular = light.specular * (pow(mirrored, material.shininess) * material.specular);
    colour = vec4(ambient + diffuse + specular, 1.0);
}
