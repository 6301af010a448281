#include "MeshLoad/GltfCheck.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "MeshLoad/SceneCheck.h"

namespace drelt {

namespace {

using nlohmann::json;

// The importer reads nested text by recursion; models stay far below this depth.
constexpr int kDeepestText = 200;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
    throw std::runtime_error("the model '" + path + "' " + why);
}

bool endsWith(const std::string& path, const char* extension) {
    const std::size_t length = std::strlen(extension);
    if (path.size() < length) return false;
    return std::equal(path.end() - static_cast<std::ptrdiff_t>(length), path.end(), extension,
                      [](unsigned char a, char b) { return std::tolower(a) == b; });
}

// The JSON text of a .gltf file, or of the first chunk of a .glb file; empty if there is none.
std::string jsonText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (bytes.compare(0, 4, "glTF") != 0) return bytes;
    constexpr std::size_t kHeader = 12, kChunkHeader = 8;
    if (bytes.size() < kHeader + kChunkHeader) return {};
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data() + kHeader, sizeof(length));
    return bytes.substr(kHeader + kChunkHeader, length);
}

// Replaces bytes that are not ASCII: the importer's parser accepts text that is not valid UTF-8, ours does
// not. The checks need no names.
std::string asAscii(std::string text) {
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    for (char& c : text) {
        if (static_cast<unsigned char>(c) > 127) c = '?';
    }
    return text;
}

int nestingOf(const std::string& text) {
    int depth = 0, deepest = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

// A member of an object, null if there is none.
const json& member(const json& object, const char* key) {
    static const json none;
    const auto found = object.is_object() ? object.find(key) : object.end();
    return object.is_object() && found != object.end() ? *found : none;
}

const json& element(const json& array, const json& index) {
    static const json none;
    if (!array.is_array() || !index.is_number_unsigned()) return none;
    const auto at = index.get<std::uint64_t>();
    return at < array.size() ? array[at] : none;
}

void checkSkin(const json& model, const json& skin, const std::string& path) {
    const json& matrices = element(member(model, "accessors"), member(skin, "inverseBindMatrices"));
    if (matrices.is_null()) {
        refuse(path,
               "has a skin without inverseBindMatrices; export the model with its rest pose "
               "(bind pose), which writes them");
    }
    const json& count = member(matrices, "count");
    const std::size_t joints = member(skin, "joints").size();
    if (!count.is_number_unsigned() || count.get<std::uint64_t>() < joints) {
        refuse(path, "has a skin with " + std::to_string(joints) + " joints and " + count.dump() +
                         " inverseBindMatrices; export the model again");
    }
}

void checkSkins(const json& model, const std::string& path) {
    const json& nodes = member(model, "nodes");
    for (std::size_t n = 0; nodes.is_array() && n < nodes.size(); ++n) {
        const json& skin = element(member(model, "skins"), member(nodes[n], "skin"));
        if (!skin.is_null()) checkSkin(model, skin, path);
    }
}

// Walks the trees level by level, starting from the nodes without a parent.
void checkTrees(const json& model, const std::string& path) {
    const json& nodes = member(model, "nodes");
    if (!nodes.is_array()) return;
    std::vector<std::vector<std::size_t>> children(nodes.size());
    std::vector<int> parents(nodes.size(), 0);
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        for (const json& child : member(nodes[n], "children")) {
            if (element(nodes, child).is_null()) continue;
            children[n].push_back(child.get<std::size_t>());
            if (++parents[children[n].back()] > 1) {
                refuse(path, "names node " + child.dump() +
                                 " as a child more than once; export the model again");
            }
        }
    }
    std::vector<std::size_t> level, next;
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        if (parents[n] == 0) level.push_back(n);
    }
    std::size_t reached = 0;
    for (int depth = 0; !level.empty(); ++depth) {
        if (depth > kDeepestTree) refuseDepth(path);
        reached += level.size();
        next.clear();
        for (const std::size_t n : level) {
            next.insert(next.end(), children[n].begin(), children[n].end());
        }
        level.swap(next);
    }
    if (reached < nodes.size()) {
        refuse(path, "has nodes that are their own ancestors; export the model again");
    }
}

}  // namespace

void checkGltf(const std::string& path) {
    if (!endsWith(path, ".gltf") && !endsWith(path, ".glb")) return;
    const std::string text = jsonText(path);
    if (nestingOf(text) > kDeepestText) {
        refuse(path, "nests its JSON text more than " + std::to_string(kDeepestText) +
                         " deep; export the model again");
    }
    const json model = json::parse(asAscii(text), nullptr, false);
    if (model.is_discarded()) return;
    checkSkins(model, path);
    checkTrees(model, path);
}

}  // namespace drelt
