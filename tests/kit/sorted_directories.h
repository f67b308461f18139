// Within the life of a SortedDirectories the entries of directories come sorted by name, whatever
// the file system's order is. It defines readdir and closedir for the program that includes it.
#pragma once

#include <dirent.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>

#include "kit/switch.h"

class SortedDirectories : public Switch<SortedDirectories> {
 public:
    ~SortedDirectories() {
        listings_.clear();
    }

    static dirent *next(DIR *dir, dirent *(*read)(DIR *)) {
        const auto [found, is_new] = listings_.try_emplace(dir);
        listing &list = found->second;
        if (is_new) {
            while (const dirent *entry = read(dir)) {
                list.entries.push_back(*entry);
            }
            std::sort(
                list.entries.begin(), list.entries.end(),
                [](const dirent &a, const dirent &b) { return strcmp(a.d_name, b.d_name) < 0; });
        }
        return list.next < list.entries.size() ? &list.entries[list.next++] : nullptr;
    }
    static void forget(DIR *dir) {
        listings_.erase(dir);
    }

 private:
    struct listing {
        std::vector<dirent> entries;
        size_t next = 0;
    };
    static inline std::map<DIR *, listing> listings_;
};

extern "C" dirent *readdir(DIR *dir) {
    // The name that the one with large offsets has everywhere.
    static const auto real = reinterpret_cast<dirent *(*)(DIR *)>(dlsym(RTLD_NEXT, "readdir64"));
    return SortedDirectories::active() ? SortedDirectories::next(dir, real) : real(dir);
}

extern "C" int closedir(DIR *dir) {
    static const auto real = reinterpret_cast<int (*)(DIR *)>(dlsym(RTLD_NEXT, "closedir"));
    SortedDirectories::forget(dir);
    return real(dir);
}
