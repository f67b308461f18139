// Descriptions that refer to other files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/references.h"
#include "package/vrf.h"
#include "package/vri.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char good_inst[] = "evrkInstallTime: 1\nevrkInstallType: X\n";

class References : public testing::Test {
 protected:
    static own_vri parse(const std::string &description, int32_t mode = 3,
                         const std::string &inst = good_inst) {
        return own_vri(vrk_info_parse("label", mode, description.c_str(), inst.c_str()));
    }
    std::string package(const std::string &more) const {
        PackageSpec spec;
        spec.more = more;
        make_package(spec, dir_ / "foo.vrk");
        return dir_ / "foo.vrk";
    }

    TempDir dir_;
    LogCapture log_;
    const std::string secret_ = dir_.write("secret", "1.0");
    const std::string good_ = description_of(PackageSpec());
    const std::string refused_ =
        "vrk_info_parse: refusing a reference to another file in attribute ";
};

// The largest part of memory that this process had so far, in bytes.
int64_t peak_memory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return int64_t{usage.ru_maxrss} * 1024;
}

}  // namespace

TEST_F(References, AreRefusedInEachFormAtEachPlaceInEachMode) {
    for (const std::string &line : references_to(secret_)) {
        for (const int mode : {1, 2, 3}) {
            EXPECT_TRUE(parse(good_, mode));
            EXPECT_FALSE(parse(good_ + line, mode)) << line;
            EXPECT_FALSE(parse(line + good_, mode)) << line;
        }
    }
}

TEST_F(References, AreLoggedWithTheNameOfTheAttribute) {
    EXPECT_FALSE(parse(good_ + "evrkDes\n cription:< file://" + secret_ + "\n"));
    EXPECT_FALSE(parse(good_ + "other;binary: " + secret_ + "\n"));
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre(refused_ + "evrkDescription", refused_ + "other;binary"));
}

TEST_F(References, AreRefusedWhetherThereIsSuchAFileOrNot) {
    EXPECT_FALSE(parse(good_ + "other:< file:///nonexistent\n"));
    EXPECT_FALSE(parse(good_ + "other:<\n"));
    EXPECT_FALSE(parse(good_ + "other;binary:\n"));
    EXPECT_EQ(log_.at(LEVEL_ERROR).size(), 3U);
}

TEST_F(References, AreRefusedInWhatIsNotRead) {
    // The reading ends at the empty line, and at the malformed value.
    EXPECT_TRUE(parse(good_ + "\nother: text\n"));
    EXPECT_FALSE(parse(good_ + "\nother:< " + secret_ + "\n"));
    EXPECT_TRUE(parse(good_ + "other:: !\nmore: text\n"));
    EXPECT_FALSE(parse(good_ + "other:: !\nmore:< " + secret_ + "\n"));
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre(refused_ + "other", refused_ + "more"));
}

TEST_F(References, AreRefusedInTheInstallInfoOfAnInstalledPackage) {
    for (const std::string &line : references_to(secret_)) {
        EXPECT_FALSE(parse(good_, 2, good_inst + line)) << line;
        EXPECT_TRUE(parse(good_, 3, good_inst + line)) << line;  // of which it is no part
    }
    EXPECT_FALSE(parse(good_, 2, "evrkInstallTime:< " + secret_ + "\nevrkInstallType: X\n"));
    EXPECT_EQ(log_.at(LEVEL_ERROR).back(), refused_ + "evrkInstallTime");
}

TEST_F(References, OtherLinesThatLookLikeThemAreRead) {
    for (const std::string &line : lines_without_reference(secret_)) {
        EXPECT_TRUE(parse(good_ + line)) << line;
    }
    const own_vri signed_one = parse(good_ + "evrkRsaSigData:: AAEC\n");
    ASSERT_TRUE(signed_one);
    EXPECT_EQ(signed_one->rsa_sig_len, 3);
    // The name with the option is that of an unknown attribute, whatever its value's form.
    const own_vri other = parse(good_ + "evrkRsaSigData;binary:: AAEC\n");
    ASSERT_TRUE(other);
    EXPECT_EQ(other->rsa_sig_len, 0);
    EXPECT_THAT(log_.at(LEVEL_ERROR), IsEmpty());
}

TEST_F(References, MakeAPackageFileInvalid) {
    for (const std::string &line : references_to(secret_)) {
        const std::string file = package(line);
        EXPECT_EQ(own_vri(vrm_vrf_info(nullptr, file.c_str(), 0)), nullptr) << line;
        EXPECT_EQ(vrm_vrf_index(nullptr, file.c_str()), nullptr) << line;
    }
    const own_vri sound(vrm_vrf_info(nullptr, package("other: text\n").c_str(), 0));
    EXPECT_TRUE(sound);
}

TEST_F(References, ToALargeFileCostNoMemory) {
    const std::string large = dir_.write("large", "");
    fs::resize_file(large, uint64_t{1} << 30);
    const std::string file = package("evrkUnknown:< file://" + large + "\n");
    const int64_t before = peak_memory();
    EXPECT_FALSE(own_vri(vrm_vrf_info(nullptr, file.c_str(), 0)));
    EXPECT_FALSE(parse(good_ + "other;binary: " + large + "\n"));
    EXPECT_LT(peak_memory() - before, int64_t{64} << 20);
}
