#include "support/strdup_via_malloc.h"

#include <cstdlib>
#include <cstring>

extern "C" char *strdup(const char *text) noexcept
{
    const size_t size = strlen(text) + 1;
    auto *copy = static_cast<char *>(malloc(size));
    if (copy != nullptr) {
        memcpy(copy, text, size);
    }
    return copy;
}

extern "C" char *strndup(const char *text, size_t limit) noexcept
{
    const size_t length = strnlen(text, limit);
    auto *copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr) {
        memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

namespace ku_test {

void use_strdup_via_malloc() {}

}  // namespace ku_test
