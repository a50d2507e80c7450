// The one reader of the environment for the numerical library, with the
// mode that cuts the library off from its own switches.
#include <cstdlib>
#include <cstring>

#include "service/messages.h"
#include "service/strings.h"

namespace {

// 0: every name is read; 1 or more: only the names below.
int tarn_disable_env_variables = 0;

constexpr const char* kAlwaysReadable[] = {"MCX_LD_LIBRARY_PATH", "LD_LIBRARY_PATH", "TARNROOT", "LANG"};

bool readable(const char* name) {
    if (tarn_disable_env_variables < 1) return true;
    for (const char* allowed : kAlwaysReadable)
        if (std::strcmp(name, allowed) == 0) return true;
    return false;
}

// Empties the buffer, as for a name that is not set.
void empty(char* buffer, int size) {
    if (buffer != nullptr && size >= 1) buffer[0] = '\0';
}

}  // namespace

extern "C" {

int tarn_serv_set_envmode_variable(int mode) {
    const int previous = tarn_disable_env_variables;
    tarn_disable_env_variables = mode;
    return previous;
}

int tarn_serv_get_envmode_variable(void) { return tarn_disable_env_variables; }

int tarn_serv_getenv(const char* name, char* buffer, int size) {
    const char* value = (name != nullptr && readable(name)) ? std::getenv(name) : nullptr;
    if (value == nullptr) {
        empty(buffer, size);
        return 0;
    }
    const int length = static_cast<int>(tarn_serv_strnlen_s(value, kTarnStrMaxLen));
    if (length < size && buffer != nullptr) {
        // The bounded copy cannot take more than its string limit; a value
        // that long never fits a smaller buffer anyway.
        const std::size_t dmax = static_cast<std::size_t>(size) < kTarnStrMaxLen ? static_cast<std::size_t>(size)
                                                                                 : kTarnStrMaxLen;
        if (tarn_serv_strncpy_s(buffer, dmax, value, dmax) == 0) return length;
    }
    empty(buffer, size);
    return -length;
}

}  // extern "C"
