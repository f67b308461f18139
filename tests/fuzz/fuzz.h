// What the fuzz targets share. Each target is a program of its own that libFuzzer feeds with bytes;
// it ends with a report when a sanitizer or a CHECK finds something.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#define CHECK(condition)                                                             \
    do {                                                                             \
        if (!(condition)) {                                                          \
            dprintf(2, "%s:%d: CHECK(%s) failed\n", __FILE__, __LINE__, #condition); \
            abort();                                                                 \
        }                                                                            \
    } while (0)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// The bytes as text: up to the first NUL, as the readers of text see it.
inline std::string text_of(const uint8_t *data, size_t size) {
    return std::string(reinterpret_cast<const char *>(data), size).c_str();
}

// Messages on stderr are many here, and nobody reads them.
inline void be_quiet() {
    static const bool once = [] {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        // The stream only: sanitizers and libFuzzer write their reports to the descriptor.
        stderr = fdopen(null, "w");
        return true;
    }();
    (void)once;
}

// A file in memory that holds the bytes, under a path that the readers can open.
class memory_file {
 public:
    memory_file(const uint8_t *data, size_t size) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
        while (size > 0) {
            const ssize_t written = write(fd_, data, size);
            CHECK(written > 0);
            data += written;
            size -= static_cast<size_t>(written);
        }
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~memory_file() {
        close(fd_);
    }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;

    const char *path() const {
        return path_.c_str();
    }

 private:
    int fd_;
    std::string path_;
};
