// What is read from fixed places: the defaults, the hooks, and the users' own configuration.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "repository/repository.h"

namespace fs = std::filesystem;

static void put(const std::string &path, const std::string &content, bool at_end = false) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, at_end ? std::ios::app : std::ios::trunc) << content;
}

TEST(VrmOpen, HasDefaultsForRootAndConfiguration) {
    put("/etc/vrm.conf", "arch_name = i686\ndist_name = Sand\n");
    const own_handle handle(vrm_open(nullptr, nullptr));
    ASSERT_TRUE(handle);
    EXPECT_STREQ(handle->dir, "/var/lib/vrm");
    EXPECT_STREQ(handle->conf, "/etc/vrm.conf");
    EXPECT_EQ(handle->arch, 2);
    EXPECT_STREQ(handle->dist_name, "Sand");
    EXPECT_STREQ(ekva_getval(handle->dirs, "fileindex"), "/var/lib/vrm/fileindex");
}

TEST(VrmOpen, ReadsTheHooksWhateverTheRoot) {
    put("/etc/vrm.conf", "arch_name = i686\n");
    fs::remove_all("/etc/vrm/hooks.d");
    EXPECT_EQ(own_handle(vrm_open("/other/root", nullptr))->hooks, nullptr);

    put("/etc/vrm/hooks.d/one.vrh",
        "evrhType: 99-cfg\nevrhCond: data:/usr/lib/*.so\nevrhExec: /bin/true\n");
    const own_handle handle(vrm_open("/other/root", nullptr));
    ASSERT_TRUE(handle);
    ASSERT_TRUE(handle->hooks);
    ASSERT_TRUE(handle->hooks[0]);
    EXPECT_STREQ(ekva_getval(handle->hooks[0], "evrhExec"), "/bin/true");
    EXPECT_EQ(handle->hooks[1], nullptr);
}

TEST(VrmReadRc, ReadsTheFileOfTheCallingUser) {
    put("/etc/passwd", "vrmtester:x:4242:4242::/tmp/home-of-tester:/bin/sh\n", true);
    put("/tmp/home-of-tester/.vrmrc", "color = green\n");
    setenv("SUDO_UID", "4242", 1);
    const own_ekva own(vrm_read_rc());
    ASSERT_TRUE(own);
    EXPECT_STREQ(ekva_getval(own.get(), "color"), "green");
    unsetenv("SUDO_UID");
}

TEST(VrmReadRc, ReadsTheFileOfTheProcessesUserWithoutSudo) {
    ASSERT_EQ(getuid(), 0u);
    unsetenv("SUDO_UID");
    const std::string home = "/root";
    fs::remove(home + "/.vrmrc");
    EXPECT_EQ(vrm_read_rc(), nullptr);
    put(home + "/.vrmrc", "color = red\n");
    const own_ekva own(vrm_read_rc());
    ASSERT_TRUE(own);
    EXPECT_STREQ(ekva_getval(own.get(), "color"), "red");
}
