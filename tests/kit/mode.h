// The mode of a file, as tests compare it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

// Permissions and special bits of the path itself: links are not followed. Fails the test when
// nothing is there.
inline unsigned mode_of(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}
