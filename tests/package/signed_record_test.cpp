#include "package/signed_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

PackageSpec full() {
    PackageSpec spec;
    spec.name = "hello";
    spec.variant = "small";
    spec.deps = {"libc", "greeting"};
    spec.more = "evrkDataSize: 12\n";
    spec.data["usr/bin/hello"] = "hello world\n";
    return spec;
}

own_vri record_of(const PackageSpec &spec) {
    own_vri record(vrk_info_parse("test", 3, description_of(spec).c_str(), nullptr));
    EXPECT_TRUE(record);
    return record;
}

void set(char **field, const char *text) {
    free(*field);
    *field = text ? strdup(text) : nullptr;
}

std::string words(const vri *head, const vri *signed_record) {
    return difference_in_words("its head", head, "its signed description", signed_record);
}

// Each changes one field of a record that counts.
struct change {
    const char *field;
    std::function<void(vri *)> make;
};
const change changes[] = {
    {"name", [](vri *info) { set(&info->name, "pam"); }},
    {"variant", [](vri *info) { set(&info->variant, "large"); }},
    {"variant", [](vri *info) { set(&info->variant, nullptr); }},
    {"variant", [](vri *info) { set(&info->variant, ""); }},
    {"version", [](vri *info) { set(&info->version, "1.00"); }},
    {"architecture", [](vri *info) { info->arch = 2; }},
    {"creator", [](vri *info) { set(&info->creator, "Tes"); }},
    {"creator", [](vri *info) { set(&info->creator, nullptr); }},
    {"description", [](vri *info) { set(&info->description, "A test package "); }},
    {"dependencies", [](vri *info) { set(&info->deps[1], "greetings"); }},
    {"dependencies", [](vri *info) { std::swap(info->deps[0], info->deps[1]); }},
    {"dependencies", [](vri *info) { set(&info->deps[1], nullptr); }},
    {"data size", [](vri *info) { info->datasize = 13; }},
};

}  // namespace

TEST(DifferingField, EveryFieldThatIsSignedCounts) {
    const own_vri one = record_of(full());
    EXPECT_EQ(differing_field(one.get(), one.get()), nullptr);
    EXPECT_EQ(words(one.get(), one.get()), "");
    for (const change &made : changes) {
        const own_vri other = record_of(full());
        EXPECT_EQ(differing_field(one.get(), other.get()), nullptr);
        made.make(other.get());
        EXPECT_STREQ(differing_field(one.get(), other.get()), made.field);
        EXPECT_STREQ(differing_field(other.get(), one.get()), made.field);
        EXPECT_NE(words(one.get(), other.get()), "") << made.field;
    }
}

TEST(DifferingField, WhatCannotBeSignedDoesNot) {
    const own_vri one = record_of(full()), other = record_of(full());
    set(&other->rsa_sig_subj, "/O=Test");
    other->rsa_sig_len = 3;
    other->sig_status = 1;
    other->filesize = 5;
    set(&other->filehash, "0");
    set(&other->absolute_uri, "/x");
    set(&other->relative_uri, "x");
    other->flag = 7;
    EXPECT_EQ(differing_field(one.get(), other.get()), nullptr);
}

TEST(DifferingField, NoVariantIsNotAnEmptyOne) {
    PackageSpec spec = full();
    spec.variant = "";
    const own_vri none = record_of(spec), empty = record_of(spec);
    set(&empty->variant, "");
    EXPECT_STREQ(differing_field(none.get(), empty.get()), "variant");
    EXPECT_EQ(words(none.get(), empty.get()),
              "its head says hello 1.0 without a variant, its signed description says hello 1.0 "
              "variant \"\"");
}

TEST(DifferingField, NoDependenciesAreAnEmptyArray) {
    PackageSpec spec = full();
    spec.deps = {};
    const own_vri none = record_of(spec), empty = record_of(spec);
    empty->deps = static_cast<char **>(calloc(1, sizeof(char *)));
    EXPECT_EQ(differing_field(none.get(), empty.get()), nullptr);
    EXPECT_EQ(differing_field(empty.get(), none.get()), nullptr);
    const own_vri some = record_of(full());
    EXPECT_STREQ(differing_field(none.get(), some.get()), "dependencies");
    EXPECT_STREQ(differing_field(some.get(), empty.get()), "dependencies");
}

TEST(DifferenceInWords, AnIdentityIsShownOnBothSides) {
    PackageSpec spec = full();
    spec.variant = "";
    const own_vri hello = record_of(spec);
    spec.name = "pam";
    spec.version = "999";
    EXPECT_EQ(words(record_of(spec).get(), hello.get()),
              "its head says pam 999, its signed description says hello 1.0");
    const own_vri other = record_of(full());
    set(&other->variant, nullptr);
    other->arch = 4;
    EXPECT_EQ(words(hello.get(), other.get()),
              "its head says hello 1.0 for any, its signed description says hello 1.0 for x86_64");
    other->arch = 77;
    EXPECT_THAT(words(hello.get(), other.get()), HasSubstr("for an unknown architecture"));
}

TEST(DifferenceInWords, AnyOtherFieldIsNamed) {
    const own_vri one = record_of(full()), other = record_of(full());
    set(&other->description, "$(touch /tmp/x)\nERROR: a line of its own");
    EXPECT_EQ(words(one.get(), other.get()),
              "its head and its signed description differ in the description");
}

TEST(DifferenceInWords, NamesCannotForgeLines) {
    const own_vri one = record_of(full()), other = record_of(full());
    set(&other->name, "x\n\x1b[31mroot");
    set(&other->version, std::string(5000, '9').c_str());
    const std::string text = words(other.get(), one.get());
    EXPECT_THAT(text, StartsWith("its head says x??[31mroot 999"));
    EXPECT_LT(text.size(), 400U);
}

namespace {

class ReadSignedRecord : public testing::Test {
 protected:
    ReadSignedRecord() {
        fs::create_directories(dir_ / "info");
    }
    void write(const std::string &text) {
        dir_.write("info/desc.txt", text);
    }
    std::string why_not() {
        std::string why;
        EXPECT_FALSE(read_signed_record(dir_.path(), &why));
        return why;
    }

    TempDir dir_;
    LogCapture log_;
};

}  // namespace

TEST_F(ReadSignedRecord, ReadsIt) {
    write(description_of(full()));
    std::string why;
    const own_vri record = read_signed_record(dir_.path(), &why);
    ASSERT_TRUE(record);
    EXPECT_EQ(differing_field(record.get(), record_of(full()).get()), nullptr);
}

TEST_F(ReadSignedRecord, SaysWhatIsWrong) {
    EXPECT_EQ(why_not(), "it has no signed description (info/desc.txt)");
    write("");
    EXPECT_EQ(why_not(), "its signed description (info/desc.txt) is not a valid description");
    write("evrkName: hello\n");
    EXPECT_EQ(why_not(), "its signed description (info/desc.txt) is not a valid description");
    write(description_of(full()) + "x-filler: " + std::string(1 << 20, 'x') + "\n");
    EXPECT_EQ(why_not(), "its signed description (info/desc.txt) is too long");
    fs::remove(dir_ / "info/desc.txt");
    dir_.write("elsewhere", description_of(full()));
    fs::create_symlink(dir_ / "elsewhere", dir_ / "info/desc.txt");
    EXPECT_EQ(why_not(), "its signed description (info/desc.txt) is not a regular file");
    fs::remove(dir_ / "info/desc.txt");
    fs::create_directory(dir_ / "info/desc.txt");
    EXPECT_EQ(why_not(), "its signed description (info/desc.txt) is not a regular file");
    fs::remove_all(dir_ / "info");
    dir_.write("info", "a file");
    EXPECT_EQ(why_not(), "it has no signed description (info/desc.txt)");
}

namespace {

class CompareHead : public testing::Test {
 protected:
    head_comparison of(const PackageSpec &head, const PackageSpec &payload) {
        make_package_with_head(head, payload, file_);
        return compare_head(file_.c_str());
    }
    // A package whose payload holds these bytes.
    head_comparison of_payload(const std::string &bytes) {
        dir_.write("payload", bytes);
        write_package(file_, "EVRM20", description_of(full()), dir_ / "payload");
        return compare_head(file_.c_str());
    }

    TempDir dir_;
    const std::string file_ = dir_ / "hello.vrk";
    LogCapture log_;
};

}  // namespace

TEST_F(CompareHead, MatchesInASoundPackage) {
    const head_comparison found = of(full(), full());
    EXPECT_EQ(found.result, head_comparison::matches);
    EXPECT_EQ(found.why, "");
}

TEST_F(CompareHead, DiffersWhenTheHeadIsAnothers) {
    PackageSpec head = full();
    head.version = "999";
    const head_comparison found = of(head, full());
    EXPECT_EQ(found.result, head_comparison::differs);
    EXPECT_EQ(found.why, "its head says hello 999, its signed description says hello 1.0");
}

TEST_F(CompareHead, FailsWithoutADescriptionThatCanBeRead) {
    PackageSpec without = full();
    without.desc_in_info = false;
    EXPECT_EQ(of(full(), without).result, head_comparison::failed);
    EXPECT_EQ(of(full(), without).why, "it has no signed description (info/desc.txt)");
    PackageSpec nonsense = full();
    nonsense.info["desc.txt"] = "nonsense";
    EXPECT_EQ(of(full(), nonsense).result, head_comparison::failed);
    EXPECT_EQ(of(full(), nonsense).why,
              "its signed description (info/desc.txt) is not a valid description");
    PackageSpec huge = full();
    huge.info["desc.txt"] = description_of(full()) + std::string(2 << 20, '\n');
    EXPECT_EQ(of(full(), huge).why, "its signed description (info/desc.txt) is too long");
}

TEST_F(CompareHead, FailsOnAPayloadThatIsNoArchive) {
    for (const std::string &bytes : {std::string(), std::string("nonsense\n")}) {
        const head_comparison found = of_payload(bytes);
        EXPECT_EQ(found.result, head_comparison::failed) << bytes;
        EXPECT_THAT(found.why, HasSubstr("signed description")) << bytes;
    }
    make_package(full(), file_);
    const std::string whole = read_all(file_);
    const size_t payload = 11 + std::stoul(whole.substr(6, 5));
    for (size_t kept = 40; kept + 100 < whole.size() - payload; kept += 40) {
        const head_comparison found = of_payload(whole.substr(payload, kept));
        EXPECT_EQ(found.result, head_comparison::failed) << kept;
        EXPECT_NE(found.why, "") << kept;
    }
    // A change elsewhere need not reach the description: it is the signature that finds it.
    std::string damaged = whole.substr(payload);
    damaged[0] = static_cast<char>(damaged[0] ^ 0x55);
    EXPECT_EQ(of_payload(damaged).result, head_comparison::failed);
}

// An unpacking lets the last member of a name stand.
TEST_F(CompareHead, TheLastDescriptionOfThePayloadCounts) {
    PackageSpec other = full();
    other.version = "2.0";
    const TempDir tree;
    tree.write("b/info/desc.txt", description_of(full()));
    tree.write("a/info/desc.txt", description_of(other));
    must_run("cd " + tree.path() +
             "/a && echo info/desc.txt | cpio --quiet -o -H newc > ../cpio && cd ../b && echo "
             "./info/desc.txt | cpio --quiet -o -H newc -A -F ../cpio && gzip -n ../cpio");
    EXPECT_EQ(of_payload(read_all(tree / "cpio.gz")).result, head_comparison::matches);
}

TEST_F(CompareHead, FailsWithoutAHead) {
    dir_.write("hello.vrk", "nothing of the kind");
    EXPECT_EQ(compare_head(file_.c_str()).result, head_comparison::failed);
    EXPECT_EQ(compare_head((dir_ / "nowhere").c_str()).result, head_comparison::failed);
}
