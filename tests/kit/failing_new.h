// Memory of C++ that fails on demand: within its life no block larger than a limit is had by `new`.
// This defines the operators for the program that includes it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>

class FailingNew {
 public:
    explicit FailingNew(size_t largest) {
        largest_ = largest;
    }
    ~FailingNew() {
        largest_ = SIZE_MAX;
    }
    FailingNew(const FailingNew &) = delete;
    FailingNew &operator=(const FailingNew &) = delete;

    static bool allows(size_t size) {
        return size <= largest_;
    }

 private:
    static inline size_t largest_ = SIZE_MAX;
};

// Inlined, these would look like malloc mixed with delete.
[[gnu::noinline]] void *operator new(size_t size) {
    void *const block = FailingNew::allows(size) ? malloc(size) : nullptr;
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

[[gnu::noinline]] void operator delete(void *block) noexcept {
    free(block);
}

[[gnu::noinline]] void operator delete(void *block, size_t) noexcept {
    free(block);
}
