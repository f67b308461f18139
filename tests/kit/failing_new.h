// Memory of C++ that fails on demand: within the life of a FailingNew no block larger than a limit
// is had by `new`; after fail_nth one single block is not. This defines the operators for the
// program that includes it.
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

    // Of the blocks from here on, the one after the first `n` is not had. Negative: all are.
    static void fail_nth(int n) {
        before_failure_ = n;
    }

    // Whether that block has not been asked for.
    static bool is_armed() {
        return before_failure_ >= 0;
    }

    static bool allows(size_t size) {
        return size <= largest_ && (before_failure_ < 0 || before_failure_-- != 0);
    }

 private:
    static inline int before_failure_ = -1;
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
