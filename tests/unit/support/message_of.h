// What a refused call says.
#pragma once

#include <string>

namespace drelt::test {

// The message of what `call` throws as an Error.
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
