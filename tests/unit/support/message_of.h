// The message of a refused call.
#pragma once

#include <string>

namespace drelt::test {

// The message of the Error that `call` throws.
template <class Error, class Call>
std::string messageOf(Call&& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "no exception";
}

}  // namespace drelt::test
