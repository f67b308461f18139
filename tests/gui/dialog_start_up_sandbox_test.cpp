// The stage of the start that no test of the whole program can make fail.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "gui/start_up.h"
#include "kit/capture.h"
#include "kit/temp_dir.h"
#include "repository/repository.h"
#include "support/log.h"
#include "ui/vrmui.h"

// The sanitizer would end the program where memory fails.
extern "C" const char *__asan_default_options();
const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}

TEST(StartUp, EndsWith1WithoutMemoryForTheUserInterface) {
    const TempDir dir;
    std::filesystem::current_path(dir.path());  // where the log goes
    std::ofstream(vrm_default_conf) << "arch_name=any\n";
    textmax = -2;  // of which the text would take nearly all memory that can be addressed
    char name[] = "fltk-vrm";
    char *arguments[] = {name, nullptr};
    int result = 0;
    const std::string told = stderr_of([&] { result = start_up(1, arguments); });
    EXPECT_EQ(result, START_UP_FAILED);
    EXPECT_THAT(told, testing::HasSubstr("Failed to initualize user interface\n"));
    EXPECT_EQ(vrmui, nullptr);
    std::filesystem::current_path("/");
}
