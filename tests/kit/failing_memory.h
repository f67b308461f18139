// Memory that fails on demand: the library takes copies of texts by strdup and lets arrays grow by
// reallocarray. This defines both for the program that includes it.
#pragma once

#include <cstdlib>
#include <cstring>

static int strdups_left = -1;  // -1: any number
static bool growing_fails = false;

extern "C" char *strdup(const char *text) noexcept {
    if (strdups_left == 0) {
        return nullptr;
    }
    if (strdups_left > 0) {
        --strdups_left;
    }
    const size_t size = strlen(text) + 1;
    void *const copy = malloc(size);
    return copy ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}

extern "C" void *reallocarray(void *block, size_t count, size_t size) noexcept {
    return growing_fails ? nullptr : realloc(block, count * size);
}
