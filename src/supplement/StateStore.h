// A state in host memory, and the visitors that fill, check and apply it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "supplement/StateVisitor.h"

namespace drelt {

struct StoredArray {
    StateType type;
    std::vector<char> bytes;

    std::size_t count() const { return bytes.size() / bytesOf(type); }
};

// Arrays by name.
using StateStore = std::map<std::string, StoredArray>;

// Copies all that is visited.
class StateSaver : public StateVisitor {
public:
    StateStore take() { return std::move(store_); }

private:
    void visit(const StateArray& array) override;

    StateStore store_;
};

// Compares a store with what is visited, and changes nothing.
class StateChecker : public StateVisitor {
public:
    explicit StateChecker(const StateStore& store) : store_(store) {}
    // What does not fit, one sentence per array; empty if all does. Call it after the visit.
    std::string mismatch() const;

private:
    void visit(const StateArray& array) override;

    const StateStore& store_;
    std::map<std::string, bool> seen_;
    std::string text_;
};

// Applies a store that StateChecker has passed. A store that is `spent` gives its memory back on the way.
class StateLoader : public StateVisitor {
public:
    explicit StateLoader(const StateStore& store) : store_(store) {}
    StateLoader(StateStore& store, bool spent) : store_(store), spent_(spent ? &store : nullptr) {}

private:
    void visit(const StateArray& array) override;

    const StateStore& store_;
    StateStore* spent_ = nullptr;
};

}  // namespace drelt
