// Package files that a refresh leaves out although they could be read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "backends/backend_kit.h"
#include "kit/log_capture.h"
#include "kit/references.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint64_t two_gibibytes = uint64_t{1} << 31;

class VrcDirsRefused : public testing::Test {
 protected:
    VrcDirsRefused() {
        write_head(file("good.vrk"), "good", "1", "");
    }
    std::string file(const std::string &name) const {
        fs::create_directory(packages_);
        return packages_ + "/" + name;
    }
    // A package file with a sound head, and with zeros up to a size.
    std::string sparse(const std::string &name, uint64_t size) const {
        write_head(file(name), "large", "1", "");
        fs::resize_file(file(name), size);
        return file(name);
    }
    static std::string too_large(const std::string &path, const std::string &size) {
        return "vrc-dirs: skipping " + path + ": too large: " + size +
               " bytes, and a fetch delivers less than 2 GiB";
    }

    TempDir dir_;
    const std::string packages_ = dir_ / "packages";
    const std::string cache_ = dir_ / "cache";
    LogCapture log_;
    LoadedBackend backend_;
};

}  // namespace

TEST_F(VrcDirsRefused, ADescriptionThatRefersToAFile) {
    const std::string secret = dir_.write("secret", "the secret text");
    int count = 0;
    for (const std::string &line : references_to(secret)) {
        write_head(file("bad" + std::to_string(count++) + ".vrk"), "bad", "1", line);
    }
    const Connection connection(packages_, cache_);
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("good 1"));
    EXPECT_THAT(read_all(cache_ + "/vrc-dirs.index"), Not(HasSubstr("the secret text")));
    EXPECT_EQ(log_.at(LEVEL_WARNING).size(), static_cast<size_t>(count));
    EXPECT_THAT(log_.at(LEVEL_WARNING), Contains("vrc-dirs: skipping " + file("bad0.vrk") +
                                                 ": not a package file, or a damaged one"));
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                Contains("vrk_info_parse: refusing a reference to another file in attribute "
                         "evrkDescription"));
}

TEST_F(VrcDirsRefused, AFileOfTwoGibibytesOrMore) {
    const std::string at_limit = sparse("a.vrk", two_gibibytes);
    const std::string beyond = sparse("b.vrk", uint64_t{1} << 33);
    dir_.write("packages/c.vrk", "");
    fs::resize_file(file("c.vrk"), two_gibibytes + 1);  // not even a package file
    const Connection connection(packages_, cache_);
    // A refresh that read them would take minutes, and would never say why they can't be had.
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("good 1"));
    const auto expected =
        ElementsAre(too_large(at_limit, "2147483648"), too_large(beyond, "8589934592"),
                    too_large(file("c.vrk"), "2147483649"));
    EXPECT_THAT(log_.at(LEVEL_WARNING), expected);
    EXPECT_THAT(log_.at(LEVEL_ERROR), IsEmpty());

    // What is known of them is in the index, and the next refresh has nothing to write.
    const auto written = fs::last_write_time(cache_ + "/vrc-dirs.index");
    log_.clear();
    const Connection later(packages_, cache_);
    EXPECT_EQ(later.refresh(), 0);
    EXPECT_THAT(log_.at(LEVEL_WARNING), expected);
    EXPECT_THAT(log_.at(LEVEL_DEBUG), Contains("vrc-dirs: 4 package files, 0 of them read"));
    EXPECT_EQ(fs::last_write_time(cache_ + "/vrc-dirs.index"), written);
}

TEST_F(VrcDirsRefused, AFileThatShrinksBelowTheLimitIsReadThen) {
    const std::string large = sparse("a.vrk", two_gibibytes);
    const Connection connection(packages_, cache_);
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("good 1"));
    fs::resize_file(large, 100000);
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("good 1", "large 1"));
}

TEST_F(VrcDirsRefused, AnIndexOfAnEarlierFormatWhichMayHoldTheContentOfOtherFiles) {
    const std::string index = cache_ + "/vrc-dirs.index";
    {
        const Connection connection(packages_, cache_);
        ASSERT_EQ(connection.refresh(), 0);
    }
    std::string bytes = read_all(index);
    const uint32_t first_format = 1;
    memcpy(bytes.data() + 12, &first_format, sizeof first_format);
    dir_.write("cache/vrc-dirs.index", bytes);
    log_.clear();
    const Connection connection(packages_, cache_);
    EXPECT_THAT(connection.names(), IsEmpty());
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(log_.at(LEVEL_DEBUG), Contains("vrc-dirs: 1 package files, 1 of them read"));
    EXPECT_THAT(connection.names(), ElementsAre("good 1"));
}
