#include "kit/marked_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string_view>
#include <vector>

#include "kit/temp_dir.h"

using namespace std::string_view_literals;

namespace {

// As the kernel keeps them: numbers in little endian.
// Version 2, effective: CAP_NET_BIND_SERVICE, which is number 10.
constexpr std::string_view capability = "\1\0\0\2\0\4\0\0\0\0\0\0\0\0\0\0\0\0\0\0"sv;
// Version 2: the owner rwx, user 4242 r--, the group r-x, the mask r-x, others r-x.
constexpr std::string_view access_list =
    "\2\0\0\0"
    "\1\0\7\0\377\377\377\377"
    "\2\0\4\0\222\20\0\0"
    "\4\0\5\0\377\377\377\377"
    "\20\0\5\0\377\377\377\377"
    "\40\0\5\0\377\377\377\377"sv;

std::map<std::string, std::string> attributes_of(const std::string &path) {
    std::map<std::string, std::string> all;
    char names[4096], value[4096];
    const ssize_t length = llistxattr(path.c_str(), names, sizeof names);
    for (ssize_t at = 0; at < length;) {
        const std::string name = names + at;
        const ssize_t size = lgetxattr(path.c_str(), name.c_str(), value, sizeof value);
        all[name] = size < 0 ? strerror(errno) : std::string(value, static_cast<size_t>(size));
        at += static_cast<ssize_t>(name.size() + 1);
    }
    return all;
}

void set_attribute(const std::string &path, const char *name, std::string_view value) {
    ASSERT_EQ(setxattr(path.c_str(), name, value.data(), value.size(), 0), 0)
        << name << " of " << path << ": " << strerror(errno);
}

}  // namespace

file_facts facts_of(const std::string &path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        return {};
    }
    return {S_ISREG(status.st_mode) ? read_all(path) : "",
            status.st_uid,
            status.st_gid,
            status.st_mode,
            status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec,
            attributes_of(path)};
}

void PrintTo(const file_facts &facts, std::ostream *out) {
    *out << "<" << facts.content << "> of " << facts.uid << ":" << facts.gid << ", mode "
         << std::oct << facts.mode << std::dec << ", modified " << facts.modified;
    for (const auto &[name, value] : facts.attributes) {
        *out << ", " << name << " of " << value.size() << " bytes";
    }
}

file_facts write_marked_file(const std::string &path, const std::string &content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << content;
    EXPECT_EQ(chown(path.c_str(), 65534, 65533), 0) << strerror(errno);
    set_attribute(path, "security.capability", capability);
    set_attribute(path, "system.posix_acl_access", access_list);
    set_attribute(path, "trusted.vrm-test", "any value");
    EXPECT_EQ(chmod(path.c_str(), 04755), 0) << strerror(errno);
    const timespec times[] = {{1'111'111'111, 0}, {1'234'567'890, 123'456'789}};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << strerror(errno);
    file_facts facts = facts_of(path);
    EXPECT_EQ(facts.mode & 07777, 04755U) << path;
    EXPECT_EQ(facts.attributes.size(), 3U) << path;
    return facts;
}
