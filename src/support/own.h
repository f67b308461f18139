// Owners for the heap blocks of the public families, for use inside functions: what is not handed
// out yet is held by one of these, so that an early return leaks nothing.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <utility>

#include "support/array.h"
#include "support/ekva.h"

// A deleter that calls one function; it takes no room in the unique_ptr.
template <auto release>
struct release_with {
    template <typename T>
    void operator()(T *object) const {
        release(object);
    }
};

// A block from malloc: a heap string, or the bytes of a file.
template <typename T = char>
using own_heap = std::unique_ptr<T, release_with<std::free>>;
using own_string = own_heap<char>;

using own_array = std::unique_ptr<char *, release_with<arr_free>>;
using own_ekva = std::unique_ptr<s_ekva *, release_with<ekva_free>>;
using own_ekva_list = std::unique_ptr<s_ekva **, release_with<ekva_list_free>>;
using own_file = std::unique_ptr<FILE, release_with<fclose>>;
using own_dir = std::unique_ptr<DIR, release_with<closedir>>;

// The next entry of an open directory. Null with errno 0 at its end, and with the reason in errno
// when it can't be read any further.
inline const dirent *next_entry(const own_dir &dir) {
    errno = 0;
    return readdir(dir.get());
}

inline bool is_self_or_parent(const dirent *entry) {
    return strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0;
}

// A null-terminated array to hand out: what `entry` gives for each of the items, taken over. Null
// when that is null for one of them, and when memory fails.
template <typename Owner, typename Items, typename Entry>
Owner to_c_array(Items &&items, Entry entry) {
    using slot = typename Owner::element_type;
    Owner array(static_cast<slot *>(calloc(std::size(items) + 1, sizeof(slot))));
    slot *to = array.get();
    for (auto &item : items) {
        if (!to || !(*to++ = entry(item))) {
            return nullptr;
        }
    }
    return array;
}

// The same for copies of strings.
inline own_array to_c_array(std::span<const std::string> items) {
    return to_c_array<own_array>(items,
                                 [](const std::string &text) { return strdup(text.c_str()); });
}

// Adds a pair at the end of a record. Throws when memory fails: a record with a pair missing would
// pass for a whole one.
inline void add_pair(own_ekva *record, const char *key, const char *value) {
    s_ekva **pairs = record->release();
    const int added = ekva_addval(&pairs, key, value, 0);
    record->reset(pairs);
    if (added < 1) {
        throw std::bad_alloc();
    }
}

// A file descriptor. Giving it up keeps errno, which is about what failed before.
class own_fd {
 public:
    explicit own_fd(int fd = -1) : fd_(fd) {}
    own_fd(own_fd &&other) noexcept : fd_(other.release()) {}
    own_fd &operator=(own_fd &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~own_fd() {
        if (fd_ >= 0) {
            const int reason = errno;
            ::close(fd_);
            errno = reason;
        }
    }

    int get() const {
        return fd_;
    }
    bool valid() const {
        return fd_ >= 0;
    }
    int release() {
        return std::exchange(fd_, -1);
    }
    // Closes now and tells the outcome: the last chance to hear of a write that failed.
    int close() {
        return ::close(release());
    }
    // A stream on the descriptor, which the stream owns from then on. Null for none, and when
    // memory fails.
    own_file stream(const char *how) {
        own_file stream(valid() ? fdopen(fd_, how) : nullptr);
        if (stream) {
            fd_ = -1;
        }
        return stream;
    }

 private:
    int fd_;
};
