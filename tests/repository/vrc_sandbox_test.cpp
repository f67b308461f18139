// The loading of backends from their fixed directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "repository/vrc.h"

namespace fs = std::filesystem;
using testing::ElementsAre;

static void provide_backend(const std::string &name) {
    fs::create_directories("/usr/lib/vrm");
    fs::copy_file(VRM_BINARY_DIR "/tests/backends/test-backend-without-nothing.so",
                  "/usr/lib/vrm/" + name, fs::copy_options::overwrite_existing);
}

TEST(VrmVrcLoadConfigured, LoadsTheNameFromTheDirectoryOfBackends) {
    provide_backend("x.so");
    const own_ekva conf(str2ekva("vrc_backend=/some/where/x.so", ','));
    EXPECT_EQ(stderr_of([&] { vrm_vrc_load_configured(conf.get()); }), "");
    ASSERT_TRUE(vrc_backend_handle);
    EXPECT_STREQ(vrc_fullname, "/usr/lib/vrm/x.so");
    EXPECT_TRUE(pvrm_vrc_connect);
    EXPECT_EQ(vrm_vrc_close(vrc_backend_handle), 0);
}

TEST(VrmVrcLoadConfigured, LoadsTheDefaultWhenNoneIsNamed) {
    provide_backend("vrc-dirs.so");
    const LogCapture log;
    const own_ekva conf(str2ekva("arch_name=any", ','));
    EXPECT_EQ(stderr_of([&] { vrm_vrc_load_configured(conf.get()); }), "");
    ASSERT_TRUE(vrc_backend_handle);
    EXPECT_EQ(vrc_backend, nullptr);
    EXPECT_STREQ(vrc_filename, "vrc-dirs.so");
    EXPECT_STREQ(vrc_fullname, "/usr/lib/vrm/vrc-dirs.so");
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("No catalogue backend speficied, using vrc-dirs.so",
                            "Loading vrm backend /usr/lib/vrm/vrc-dirs.so"));
    EXPECT_EQ(vrm_vrc_close(vrc_backend_handle), 0);
}
