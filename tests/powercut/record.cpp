#include "powercut/record.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <system_error>

namespace {

struct entry_head {
    uint32_t magic;
    entry_kind kind;
    uint64_t offset;
    uint64_t length;
    uint64_t stored;  // bytes that follow the head
    uint64_t time;
};

constexpr uint32_t head_magic = 0x50435554;

uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace

void append_entry(int record, entry_kind kind, uint64_t offset, std::string_view bytes,
                  uint64_t zeros) {
    entry_head head = {head_magic,   kind, offset, zeros > 0 ? zeros : bytes.size(),
                       bytes.size(), now()};
    iovec parts[] = {{&head, sizeof head}, {const_cast<char *>(bytes.data()), bytes.size()}};
    const ssize_t wanted = static_cast<ssize_t>(sizeof head + bytes.size());
    if (writev(record, parts, 2) != wanted) {
        throw std::system_error(errno, std::generic_category(), "cannot write the record");
    }
}

disk_record::disk_record(const std::string &path) {
    const own_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status;
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open " + path);
    }
    size_ = static_cast<size_t>(status.st_size);
    if (size_ == 0) {
        return;
    }
    memory_ = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, file.get(), 0);
    if (memory_ == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "cannot map " + path);
    }
    const std::string_view all(static_cast<const char *>(memory_), size_);
    for (size_t at = 0; at < size_;) {
        entry_head head;
        const bool has_head = size_ - at >= sizeof head;
        if (has_head) {
            memcpy(&head, all.data() + at, sizeof head);
        }
        if (!has_head || head.magic != head_magic || head.stored > size_ - at - sizeof head) {
            throw std::runtime_error("the record " + path + " is damaged");
        }
        at += sizeof head;
        entries_.push_back(
            {head.kind, head.offset, head.length, head.time, all.substr(at, head.stored)});
        at += head.stored;
    }
}

disk_record::~disk_record() {
    if (memory_) {
        munmap(memory_, size_);
    }
}
