#include "tools/vrk-build/pack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine.h"
#include "kit/capture.h"
#include "kit/package_maker.h"
#include "kit/strings.h"
#include "kit/test_repo.h"
#include "tools/vrk-build/problem.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

// A source tree, and a repository that trusts its signer.
class Pack : public testing::Test {
 protected:
    Pack() {
        tree.write("package.ldif",
                   "evrkName: foo\nevrkVariant: big\nevrkVersion: 1.2\nevrkArchitecture: x86_64\n"
                   "evrkCreator: Jane\nevrkDescription:: WsOkaGxlbgpiaXMgZHJlaQ==\n"
                   "evrkDependency: one\nevrkDependency: two\n");
        tree.write("data/usr/bin/foo", "#!/bin/sh\n", 0755);
        tree.write("data/usr/lib/libfoo.so.1", "library");
        tree.write("data/usr/share/\xC3\x84pfel", "same");
        tree.write("data/usr/share/\xC4pfel", "same");
        tree.write("conf/etc/foo.conf", "a = 1\n");
        tree.write("dump/.hidden", "");
        tree.write("init/99-add.sh", "echo\n");
        tree.write("info/perm.txt", "/usr/bin/foo|4755\n");
    }

    std::string packed() {
        return pack(
            {tree.path(), Signer::standard().key_file, Signer::standard().cert_file, out.path()});
    }

    TempDir tree, out;
    TestRepo repo;
};

}  // namespace

TEST_F(Pack, APackageFileThatNoCatalogueCouldDeliverIsNotWritten) {
    pack_options options = {tree.path(), Signer::standard().key_file, Signer::standard().cert_file,
                            out.path()};
    EXPECT_EQ(options.largest, (uint64_t{1} << 31) - 1);
    const uint64_t size = std::filesystem::file_size(pack(options));
    options.largest = size;
    EXPECT_EQ(std::filesystem::file_size(pack(options)), size);
    must_run("rm -r " + out.path() + "/*");
    for (const uint64_t largest : {size - 1, size / 2, uint64_t{10}}) {
        options.largest = largest;
        try {
            pack(options);
            ADD_FAILURE() << largest;
        } catch (const problem &reason) {
            EXPECT_EQ(std::string(reason.what()),
                      "the package file would be larger than " + std::to_string(largest) +
                          " bytes, which no catalogue can deliver; split the package");
        }
        EXPECT_TRUE(std::filesystem::is_empty(out.path())) << largest;
    }
}

TEST_F(Pack, TheEngineReadsTheHeadAndVerifiesTheSignature) {
    const std::string file = packed();
    EXPECT_EQ(file, out / "foo_big_x86_64_1.2.vrk");
    own_vri info(vrm_vrf_info(repo.handle(), file.c_str(), 1));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->sig_status, 1);
    EXPECT_STREQ(info->name, "foo");
    EXPECT_STREQ(info->variant, "big");
    EXPECT_STREQ(info->version, "1.2");
    EXPECT_EQ(info->arch, arch_x86_64);
    EXPECT_STREQ(info->creator, "Jane");
    EXPECT_STREQ(info->description, "Z\xC3\xA4hlen\nbis drei");
    EXPECT_THAT(strings(info->deps), ElementsAre("one", "two"));
    EXPECT_EQ(info->datasize, 10U + 7 + 4 + 4 + 6 + 0 + 5);
    EXPECT_STREQ(info->rsa_sig_subj, Signer::standard().subject.c_str());
}

TEST_F(Pack, TheEngineListsTheDataFiles) {
    own_array files(vrm_vrf_index(nullptr, packed().c_str()));
    EXPECT_THAT(strings(files.get()),
                ElementsAre("/usr/bin/foo", "/usr/lib/libfoo.so.1", "/usr/share/\xC3\x84pfel",
                            "/usr/share/\xC4pfel"));
}

TEST_F(Pack, TheEngineUnpacksWhatFitsItsHashLists) {
    const TempDir stage;
    ASSERT_EQ(vrm_vrf_extract(repo.handle(), packed().c_str(), stage.path().c_str(), 1), 0);
    char **data = nullptr, **info = nullptr, **init = nullptr, **conf = nullptr, **dump = nullptr;
    ASSERT_EQ(vrm_chk_all_files(stage.path().c_str(), &data, &info, &init, &conf, &dump), 0);
    const own_array owners[] = {own_array(data), own_array(info), own_array(init), own_array(conf),
                                own_array(dump)};
    EXPECT_THAT(strings(data),
                UnorderedElementsAre("/usr/bin/foo", "/usr/lib/libfoo.so.1",
                                     "/usr/share/\xC3\x84pfel", "/usr/share/\xC4pfel"));
    EXPECT_THAT(strings(info), UnorderedElementsAre("/desc.txt", "/perm.txt"));
    EXPECT_THAT(strings(init), ElementsAre("/99-add.sh"));
    EXPECT_THAT(strings(conf), ElementsAre("/etc/foo.conf"));
    EXPECT_THAT(strings(dump), ElementsAre("/.hidden"));
    EXPECT_EQ(have_so, 1);
    must_run("diff -r " + shell_word(tree / "data") + " " + shell_word(stage / "data"));
}

TEST_F(Pack, TheDescriptionInTheInfoForkIsOneOfAnInstalledPackage) {
    const TempDir stage;
    ASSERT_EQ(vrm_vrf_extract(repo.handle(), packed().c_str(), stage.path().c_str(), 1), 0);
    own_vri info(vrk_info_parse("", 2, read_all(stage / "info/desc.txt").c_str(),
                                "evrkInstallTime: 1\nevrkInstallType: X\n"));
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->name, "foo");
    EXPECT_EQ(info->rsa_sig_subj, nullptr);
}

TEST_F(Pack, AFailureLeavesNothing) {
    tree.write("package.ldif", "evrkName: foo\n");
    try {
        packed();
        FAIL() << "the tree is not whole";
    } catch (const problem &wrong) {
        EXPECT_THAT(wrong.what(), HasSubstr("evrkVersion is missing"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(out.path()));
}
