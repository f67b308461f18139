// A null-terminated array under construction: it is made at the first entry, doubles when it is
// full, and is null-terminated after each entry. Private to the library.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdlib>

#include "support/log.h"

// `release_all` frees the array with its entries; it is what happens to an array that was not
// handed out.
template <typename T, auto release_all>
class growing_list {
 public:
    // Told of each new capacity; `again` is false for the first.
    using watcher = void (*)(int capacity, bool again);

    explicit growing_list(int capacity, watcher watch = nullptr)
        : capacity_(capacity), watch_(watch) {}
    growing_list(const growing_list &) = delete;
    growing_list &operator=(const growing_list &) = delete;
    ~growing_list() {
        if (array_) {
            release_all(array_);
        }
    }

    // Makes room for one more entry where there is none. False when there is no memory.
    bool make_room() {
        return count_ < room_ || grow();
    }
    // Takes the entry over. False, and the entry stays the caller's, when there is no memory.
    bool add(T *entry) {
        if (!make_room()) {
            return false;
        }
        array_[count_++] = entry;
        array_[count_] = nullptr;
        return true;
    }

    int count() const {
        return count_;
    }
    // The capacity, which is the one that could not be had after a failed add.
    int capacity() const {
        return capacity_;
    }
    // The address that the sorts of the families take.
    T ***address() {
        return &array_;
    }
    // Hands the array out; null when nothing was added.
    T **release() {
        T **array = array_;
        array_ = nullptr;
        count_ = room_ = 0;
        return array;
    }

 private:
    bool grow() {
        const bool again = array_ != nullptr;
        if (again) {
            if (room_ > INT_MAX / 2) {
                return false;
            }
            capacity_ = room_ * 2;
        }
        if (watch_) {
            watch_(capacity_, again);
        }
        void *grown = reallocarray(array_, static_cast<std::size_t>(capacity_) + 1, sizeof(T *));
        if (!grown) {
            return false;
        }
        array_ = static_cast<T **>(grown);
        array_[count_] = nullptr;
        room_ = capacity_;
        return true;
    }

    T **array_ = nullptr;
    int count_ = 0;
    int room_ = 0;  // entries that the array takes, the null behind them not counted
    int capacity_;  // what was asked for last, or will be at first
    watcher watch_;
};

// The watcher of the lists of packages and of files.
inline void log_list_room(int capacity, bool again) {
    if (again) {
        log_debug("Reallocation space for %d entries", capacity);
    } else {
        log_debug("Allocating space for %d entries", capacity);
    }
}
