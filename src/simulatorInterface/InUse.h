// Refuses the calls of two threads on one simulator.
#pragma once

#include <atomic>
#include <stdexcept>
#include <string>

namespace drelt {

// Sets the flag for the scope. Throws std::runtime_error if another operation has set it.
class InUse {
public:
    InUse(std::atomic<const char*>& flag, const char* operation) : flag_(flag) {
        const char* other = nullptr;
        if (flag_.compare_exchange_strong(other, operation)) return;
        throw std::runtime_error(std::string(operation) + ": another thread is in " + other +
                                 " of this simulator; wait for it, or give each thread a simulator "
                                 "and a world of its own");
    }
    ~InUse() { flag_ = nullptr; }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

private:
    std::atomic<const char*>& flag_;
};

}  // namespace drelt
