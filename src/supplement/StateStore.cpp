#include "supplement/StateStore.h"

namespace drelt {

void StateSaver::visit(const StateArray& array) {
    if (array.data == nullptr && array.optional) return;
    StoredArray& stored = store_[array.name];
    stored.type = array.type;
    stored.bytes.resize(array.count * bytesOf(array.type));
    if (stored.bytes.empty()) return;
    if (array.onDevice) {
        _MLCuMemcpy(stored.bytes.data(), array.data, stored.bytes.size(), cudaMemcpyDeviceToHost);
    } else {
        std::memcpy(stored.bytes.data(), array.data, stored.bytes.size());
    }
}

void StateChecker::visit(const StateArray& array) {
    seen_[array.name] = true;
    const auto found = store_.find(array.name);
    if (found == store_.end()) {
        if (!array.optional && array.count > 0) text_ += "it has no '" + array.name + "'; ";
        return;
    }
    const StoredArray& stored = found->second;
    if (stored.type != array.type) {
        text_ += "'" + array.name + "' has another type of number; ";
    } else if (stored.count() != array.count) {
        text_ += "'" + array.name + "' has " + std::to_string(stored.count()) + " entries, not " +
                 std::to_string(array.count) + "; ";
    }
}

std::string StateChecker::mismatch() const {
    std::string all = text_;
    for (const auto& [name, stored] : store_) {
        if (seen_.count(name) == 0) all += "its '" + name + "' has no place here; ";
    }
    if (!all.empty()) all.resize(all.size() - 2);
    return all;
}

void StateLoader::visit(const StateArray& array) {
    const auto found = store_.find(array.name);
    array.set(found == store_.end() ? nullptr : found->second.bytes.data());
    if (spent_ != nullptr && found != store_.end())
        std::vector<char>().swap((*spent_)[array.name].bytes);
}

}  // namespace drelt
