#include "package/vri.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/records.h"

namespace {

// Memory for so many copies of strings and no more.
class StrdupsLeft {
 public:
    explicit StrdupsLeft(int count) {
        strdups_left = count;
    }
    ~StrdupsLeft() {
        strdups_left = -1;
    }
    StrdupsLeft(const StrdupsLeft &) = delete;
    StrdupsLeft &operator=(const StrdupsLeft &) = delete;
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

// The pairs behind the header; a null value shows as "(null)".
Pairs pairs_of(s_ekva *const *rec) {
    Pairs pairs;
    for (size_t i = 1; rec && rec[i]; i++) {
        pairs.emplace_back(rec[i]->key, rec[i]->val ? rec[i]->val : "(null)");
    }
    return pairs;
}

std::vector<std::string> keys_of(s_ekva *const *rec) {
    std::vector<std::string> keys;
    for (const auto &[key, val] : pairs_of(rec)) {
        EXPECT_EQ(val, "(null)");
        keys.push_back(key);
    }
    return keys;
}

own_ekva filter_of(const Pairs &pairs) {
    s_ekva **rec = ekva_new(10, 3);
    for (const auto &[key, val] : pairs) {
        ekva_addval(&rec, key.c_str(), val.c_str(), 0);
    }
    return own_ekva(rec);
}

const std::string least =
    "evrkName: foo\n"
    "evrkVersion: 1.2\n"
    "evrkArchitecture: x86_64\n"
    "evrkDescription: A tool\n";
const std::string format_2 = "evrmVersion: 2.0\n";
const std::string installed = "evrkInstallTime: 1700000000\nevrkInstallType: X\n";

// 5 bytes, a NUL among them, as base64.
const std::string signature_line = "evrkRsaSigData:: AAECA/8=\n";

own_vri parse(int mode, const std::string &text, const char *inst = nullptr) {
    return own_vri(vrk_info_parse("label", mode, text.c_str(), inst));
}

own_vri parse_installed(const std::string &inst) {
    return parse(2, format_2 + least, inst.c_str());
}

std::string without(const std::string &text, const std::string &attribute) {
    return std::regex_replace(text, std::regex(attribute + ": [^\n]*\n"), "");
}

own_vri package(const char *name, const char *variant = nullptr, const char *version = "1.2",
                int arch = 4) {
    own_vri info(static_cast<vri *>(calloc(1, sizeof(vri))));
    info->name = strdup(name);
    info->variant = variant ? strdup(variant) : nullptr;
    info->version = strdup(version);
    info->arch = arch;
    return info;
}

own_vri_list list_of(const std::vector<std::pair<const char *, const char *>> &packages) {
    auto **list = static_cast<vri **>(calloc(packages.size() + 1, sizeof(vri *)));
    for (size_t i = 0; i < packages.size(); i++) {
        list[i] = package(packages[i].first, nullptr, packages[i].second).release();
    }
    return own_vri_list(list);
}

std::vector<std::string> names_and_versions(vri *const *list) {
    std::vector<std::string> found;
    for (; *list; list++) {
        found.push_back(std::string((*list)->name) + " " + (*list)->version);
    }
    return found;
}

}  // namespace

TEST(VrkInfoParse, ReadsAPackageFilesDescription) {
    const own_vri info =
        parse(3,
              "evrmVersion: 1.0\nevrkName: foo\nevrkVariant: small\nevrkVersion: 1.2\n"
              "evrkArchitecture: mips\nevrkCreator: Me\nevrkDescription: A tool\n"
              "evrkDependency: one\nevrkDependency: two\nevrkDependency: three\n"
              "evrkDataSize: 5000000000\nevrkFileHash: abc\nevrkRsaSigSubj: /O=Test/CN=Builder\n" +
                  signature_line +
                  "evrkFileSize: 12\nevrkAbsoluteURI: /a\nevrkRelativeURI: b\n"
                  "evrkInstallTime: 17\nevrkInstallType: D\nevrkInstallHead: head\n");
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->name, "foo");
    EXPECT_STREQ(info->variant, "small");
    EXPECT_STREQ(info->version, "1.2");
    EXPECT_EQ(info->arch, 8);
    EXPECT_STREQ(info->creator, "Me");
    EXPECT_STREQ(info->description, "A tool");
    ASSERT_TRUE(info->deps);
    EXPECT_STREQ(info->deps[0], "one");
    EXPECT_STREQ(info->deps[1], "two");
    EXPECT_STREQ(info->deps[2], "three");
    EXPECT_EQ(info->deps[3], nullptr);
    EXPECT_EQ(info->flag, 1);
    EXPECT_EQ(info->datasize, 5000000000U);
    EXPECT_STREQ(info->filehash, "abc");
    EXPECT_STREQ(info->rsa_sig_subj, "/O=Test/CN=Builder");
    ASSERT_EQ(info->rsa_sig_len, 5);
    EXPECT_EQ(memcmp(info->rsa_sig_data, "\0\1\2\3\xff", 5), 0);
    EXPECT_EQ(info->sig_status, 0);
    // What only the catalogue and the inventory know is not read.
    EXPECT_EQ(info->filesize, 0U);
    EXPECT_EQ(info->absolute_uri, nullptr);
    EXPECT_EQ(info->relative_uri, nullptr);
    EXPECT_EQ(info->install_time, 0);
    EXPECT_EQ(info->install_type, '\0');
    EXPECT_EQ(info->install_head, nullptr);
    EXPECT_EQ(info->update_times, nullptr);
    EXPECT_EQ(info->ekva, nullptr);
}

TEST(VrkInfoParse, LeavesOptionalAttributesNull) {
    const own_vri info = parse(3, format_2 + least);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->variant, nullptr);
    EXPECT_EQ(info->creator, nullptr);
    EXPECT_EQ(info->deps, nullptr);
    EXPECT_EQ(info->datasize, 0U);
    EXPECT_EQ(info->filehash, nullptr);
    EXPECT_EQ(info->rsa_sig_subj, nullptr);
    EXPECT_EQ(info->rsa_sig_data, nullptr);
    EXPECT_EQ(info->rsa_sig_len, 0);
}

TEST(VrkInfoParse, ReadsTheCataloguesAttributesInMode1Only) {
    const std::string text =
        least + "evrkFileSize: 123\nevrkAbsoluteURI: /repo/foo.vrk\nevrkRelativeURI: foo.vrk\n";
    const own_vri info = parse(1, text);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->filesize, 123U);
    EXPECT_STREQ(info->absolute_uri, "/repo/foo.vrk");
    EXPECT_STREQ(info->relative_uri, "foo.vrk");

    const own_vri inventory = parse(2, format_2 + text, installed.c_str());
    ASSERT_TRUE(inventory);
    EXPECT_EQ(inventory->filesize, 0U);
    EXPECT_EQ(inventory->absolute_uri, nullptr);
    EXPECT_EQ(inventory->relative_uri, nullptr);
}

TEST(VrkInfoParse, DoesNotLookAtTheFormatInMode1) {
    EXPECT_TRUE(parse(1, least));
    EXPECT_TRUE(parse(1, "evrmVersion: 7\n" + least));
    EXPECT_TRUE(parse(1, "evrmVersion: \n" + least));
}

TEST(VrkInfoParse, SaysWhichFormatItRead) {
    const LogCapture log;
    EXPECT_TRUE(parse(3, "evrmVersion: 1.0\n" + least));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "label: Package format: 1"));
    EXPECT_TRUE(parse(3, "evrmVersion: 2.0\n" + least));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "label: Package format: 2"));
}

TEST(VrkInfoParse, RefusesAMissingOrEmptyFormat) {
    for (const char *line : {"", "evrmVersion: \n"}) {
        const LogCapture log;
        EXPECT_FALSE(parse(3, line + least));
        EXPECT_EQ(log.at(LEVEL_INFO),
                  std::vector<std::string>{"vrk_info_parse: Unspecified package format"});
    }
}

TEST(VrkInfoParse, RefusesAnyOtherFormat) {
    for (const char *format : {"3.0", "1", "2.0 ", "01.0"}) {
        const LogCapture log;
        const std::string text = std::string("evrmVersion: ") + format + "\n" + least;
        EXPECT_FALSE(parse(3, text));
        EXPECT_FALSE(parse(2, text, installed.c_str()));
        const std::string message = std::string("vrk_info_parse: Unknown package format ") + format;
        EXPECT_EQ(log.at(LEVEL_INFO), (std::vector<std::string>{message, message}));
    }
}

TEST(VrkInfoParse, RefusesSilentlyWithoutNameVersionOrDescription) {
    for (const char *attribute : {"evrkName", "evrkVersion", "evrkDescription"}) {
        const LogCapture log;
        EXPECT_FALSE(parse(1, without(least, attribute))) << attribute;
        EXPECT_TRUE(log.lines().empty()) << attribute;
    }
}

TEST(VrkInfoParse, RefusesAMissingArchitecture) {
    const LogCapture log;
    EXPECT_FALSE(parse(1, without(least, "evrkArchitecture")));
    EXPECT_EQ(log.at(LEVEL_INFO),
              std::vector<std::string>{"vrk_info_parse: Unspecified architecture"});
}

TEST(VrkInfoParse, RefusesAnUnknownArchitecture) {
    const LogCapture log;
    EXPECT_FALSE(parse(1, without(least, "evrkArchitecture") + "evrkArchitecture: vax\n"));
    EXPECT_EQ(log.at(LEVEL_INFO),
              std::vector<std::string>{"vrk_info_parse: Unsupported architecture: vax"});
}

TEST(VrkInfoParse, TellsTheFirstOfSeveralReasonsOnly) {
    using Lines = std::vector<std::string>;
    const auto messages = [](int mode, const std::string &text) {
        const LogCapture log;
        EXPECT_FALSE(parse(mode, text));
        Lines said;
        for (const LogCapture::Line &line : log.lines()) {
            said.push_back(line.text);
        }
        return said;
    };
    const std::string no_arch = without(least, "evrkArchitecture");
    EXPECT_EQ(messages(3, without(no_arch, "evrkName")),
              Lines{"vrk_info_parse: Unspecified package format"});
    EXPECT_EQ(messages(1, without(no_arch, "evrkName")), Lines{});
    EXPECT_EQ(messages(1, without(no_arch, "evrkVersion")), Lines{});
    EXPECT_EQ(messages(1, without(no_arch, "evrkDescription")),
              Lines{"vrk_info_parse: Unspecified architecture"});
    // What is missing in the description comes before a missing install info.
    EXPECT_EQ(messages(2, no_arch + format_2),
              (Lines{"label: Package format: 2", "vrk_info_parse: Unspecified architecture"}));
}

TEST(VrkInfoParse, EndsItsWordsOnArchitecturesWithALineEnd) {
    const LogCapture log;
    EXPECT_FALSE(parse(1, without(least, "evrkArchitecture")));
    EXPECT_FALSE(parse(1, without(least, "evrkArchitecture") + "evrkArchitecture: vax\n"));
    EXPECT_TRUE(log.has_line_end(LEVEL_INFO, "vrk_info_parse: Unspecified architecture"));
    EXPECT_TRUE(log.has_line_end(LEVEL_INFO, "vrk_info_parse: Unsupported architecture: vax"));
    EXPECT_FALSE(parse(3, least));
    EXPECT_FALSE(log.has_line_end(LEVEL_INFO, "vrk_info_parse: Unspecified package format"));
}

TEST(VrkInfoParse, StopsAtTheFirstEmptyLine) {
    EXPECT_FALSE(parse(1,
                       "evrkName: foo\n\nevrkVersion: 1.2\nevrkArchitecture: any\n"
                       "evrkDescription: A tool\n"));
    EXPECT_FALSE(parse(1, "\n" + least));
    const own_vri info = parse(1, least + "\nevrkCreator: Me\n");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->creator, nullptr);
}

TEST(VrkInfoParse, ReadsOnBehindALineWithoutAName) {
    for (const char *line : {":\n", ": x\n", "\n :x\n", "#\n"}) {
        EXPECT_TRUE(parse(1, "evrkCreator: Me\n" + (line + least))) << line;
    }
}

TEST(VrkInfoParse, ComparesAttributeNamesWithoutRegardToCase) {
    const own_vri info = parse(1,
                               "EVRKNAME: foo\nevrkversion: 1.2\nEvrkArchitecture: any\n"
                               "evrkDESCRIPTION: A tool\nevrkdependency: a\nEVRKDEPENDENCY: b\n");
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->name, "foo");
    ASSERT_EQ(arr_count(info->deps), 2);
    EXPECT_STREQ(info->deps[1], "b");
}

TEST(VrkInfoParse, TakesTheFirstOfRepeatedAttributes) {
    const own_vri info = parse(1, least + "evrkName: bar\nevrkVersion: 9\n");
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->name, "foo");
    EXPECT_STREQ(info->version, "1.2");
}

TEST(VrkInfoParse, KeepsAnEmptyVariant) {
    const own_vri info = parse(1, least + "evrkVariant: \n");
    ASSERT_TRUE(info);
    ASSERT_TRUE(info->variant);
    EXPECT_STREQ(info->variant, "");
    EXPECT_STREQ(vrk_puname(info.get()), "foo__x86_64_1.2");
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "foo", "", nullptr, 5, nullptr), 0);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "foo", "default", nullptr, 5, nullptr), 0);
}

TEST(VrkInfoParse, LeavesASizeThatIsNoNumberAtZero) {
    const own_vri info = parse(1, least + "evrkDataSize: big\nevrkFileSize: 12k\n");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->datasize, 0U);
    EXPECT_EQ(info->filesize, 12U);
    const own_vri empty = parse(1, least + "evrkDataSize: \n");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->datasize, 0U);
}

TEST(VrkInfoParse, ReadsFoldedLinesAndSkipsComments) {
    const own_vri info = parse(
        1, "# made by hand\n" + without(least, "evrkDescription") + "evrkDescription: A to\n ol\n");
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->description, "A tool");
}

TEST(VrkInfoParse, ReadsATextWithoutAClosingLineEnd) {
    // In a block of its own size, so that a read behind the terminator is noticed.
    const own_string text(strdup(least.substr(0, least.size() - 1).c_str()));
    const own_vri info(vrk_info_parse("label", 1, text.get(), nullptr));
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->description, "A tool");
}

TEST(VrkInfoParse, EndsAtALineOfMalformedBase64) {
    const own_vri info = parse(1, least + "evrkRsaSigData:: !!!\nevrkCreator: Me\n");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->creator, nullptr);
    EXPECT_EQ(info->rsa_sig_len, 0);
    EXPECT_EQ(info->rsa_sig_data, nullptr);
}

TEST(VrkInfoParse, ReportsAFailedFirstLineOnStderr) {
    const std::string message = "ldif_entry_get_attr: failed to parse ldif buffer\n";
    for (const char *text : {"", "evrkName:: !!!\n"}) {
        for (const int mode : {1, 2, 3}) {
            EXPECT_EQ(stderr_of([&] { EXPECT_FALSE(parse(mode, text, installed.c_str())); }),
                      message)
                << text << mode;
        }
    }
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(vrk_info_parse("label", 1, nullptr, nullptr), nullptr); }),
              message);
    EXPECT_EQ(stderr_of([] { EXPECT_FALSE(parse_installed("")); }), message);
}

TEST(VrkInfoParse, IsQuickWithManyDependencies) {
    std::string text = least;
    for (int i = 0; i < 5000; i++) {
        text += "evrkDependency: dep" + std::to_string(i) + "\n";
    }
    const std::clock_t start = std::clock();  // of this process, whatever others do meanwhile
    const own_vri info = parse(1, text);
    const std::clock_t took = std::clock() - start;
    ASSERT_TRUE(info);
    ASSERT_EQ(arr_count(info->deps), 5000);
    EXPECT_STREQ(info->deps[4999], "dep4999");
    // A scan of the text for each of them would take minutes.
    EXPECT_LT(took, 5 * CLOCKS_PER_SEC);
}

TEST(VrkInfoParseInstalled, ReadsTheInstallInfo) {
    const own_vri info = parse_installed(
        "evrkInstallTime: 1700000000\nevrkInstallType: D\nevrkInstallHead: bar\n"
        "evrkUpdateTime: 1700000001\nevrkUpdateTime: 5000000000\n");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->install_time, 1700000000);
    EXPECT_EQ(info->install_type, 'D');
    EXPECT_STREQ(info->install_head, "bar");
    ASSERT_TRUE(info->update_times);
    EXPECT_EQ(info->update_times[0], 1700000001);
    EXPECT_EQ(info->update_times[1], 5000000000);
    EXPECT_EQ(info->update_times[2], 0);
}

TEST(VrkInfoParseInstalled, LeavesUpdateTimesNullWhenNeverUpdated) {
    const own_vri info = parse_installed(installed);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->install_type, 'X');
    EXPECT_EQ(info->update_times, nullptr);
}

TEST(VrkInfoParseInstalled, ReadsTheInstallTimeFromTheInstallInfoAlone) {
    const LogCapture log;
    EXPECT_FALSE(parse(2, format_2 + least + installed, "evrkInstallType: X\n"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrk_info_parse: No install time found, package is corrupt"));
}

TEST(VrkInfoParseInstalled, IgnoresTheInstallHeadOfTypeX) {
    const own_vri info = parse_installed(installed + "evrkInstallHead: bar\n");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->install_head, nullptr);
}

TEST(VrkInfoParseInstalled, TakesTheFirstLetterOfTheType) {
    const own_vri info = parse_installed("evrkInstallTime: 1\nevrkInstallType: Xyz\n");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->install_type, 'X');
}

TEST(VrkInfoParseInstalled, RefusesWithTheReason) {
    const std::string time = "evrkInstallTime: 1\n";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"evrkInstallType: X\n", "vrk_info_parse: No install time found, package is corrupt"},
        {"evrkInstallTime: \nevrkInstallType: X\n",
         "vrk_info_parse: No install time found, package is corrupt"},
        {"evrkInstallTime: now\nevrkInstallType: X\n",
         "vrk_info_parse: Failed to parse install time"},
        {installed + "evrkUpdateTime: 1\nevrkUpdateTime: \n",
         "vrk_info_parse: Failure reading update time, package is corrupt"},
        {installed + "evrkUpdateTime: 1\nevrkUpdateTime: late\n",
         "vrk_info_parse: Failed to parse update time"},
        // In the order in which they are read.
        {"evrkUpdateTime: late\nevrkInstallType: Q\n",
         "vrk_info_parse: No install time found, package is corrupt"},
        {time + "evrkUpdateTime: late\nevrkInstallType: Q\n",
         "vrk_info_parse: Failed to parse update time"},
        {time, "vrk_info_parse: No install type found, package is corrupt"},
        {time + "evrkInstallType: \n", "vrk_info_parse: No install type found, package is corrupt"},
        // One NUL byte: a value, yet no character to be scanned.
        {time + "evrkInstallType:: AA==\n", "vrk_info_parse: Failed to parse install type"},
        {time + "evrkInstallType: Q\n", "vrk_info_parse: Invalid install type: Q"},
        {time + "evrkInstallType: x\n", "vrk_info_parse: Invalid install type: x"},
        {time + "evrkInstallType: D\n",
         "vrk_info_parse: No install head found, package is corrupt"},
        {time + "evrkInstallType: D\nevrkInstallHead: \n",
         "vrk_info_parse: No install head found, package is corrupt"},
    };
    for (const auto &[inst, message] : cases) {
        const LogCapture log;
        EXPECT_FALSE(parse_installed(inst)) << inst;
        EXPECT_EQ(log.at(LEVEL_ERROR), std::vector<std::string>{message}) << inst;
    }
}

TEST(VrkInfoParseInstalled, RefusesWithoutAnInstallInfo) {
    const LogCapture log;
    EXPECT_FALSE(parse(2, format_2 + least, nullptr));
    EXPECT_EQ(
        log.at(LEVEL_ERROR),
        std::vector<std::string>{"vrk_info_parse: No install info found, package is corrupt"});
}

TEST(VrkInfoEkva, GivesACatalogueRecordInOrder) {
    const own_vri info =
        parse(1, least +
                     "evrkVariant: small\nevrkCreator: Me\nevrkDependency: a\nevrkDependency: b\n"
                     "evrkDataSize: 7\nevrkFileSize: 8\nevrkFileHash: abc\nevrkAbsoluteURI: /a\n"
                     "evrkRelativeURI: b\nevrkRsaSigSubj: /CN=x\n" +
                     signature_line);
    ASSERT_TRUE(info);
    info->sig_status = 1;
    const own_ekva rec(vrk_info_ekva(info.get(), 1));
    EXPECT_EQ(pairs_of(rec.get()), (Pairs{{"evrkName", "foo"},
                                          {"evrkVariant", "small"},
                                          {"evrkVersion", "1.2"},
                                          {"evrkArchitecture", "x86_64"},
                                          {"evrkCreator", "Me"},
                                          {"evrkSignature", "Verified"},
                                          {"evrkDescription", "A tool"},
                                          {"evrkDependency", "a"},
                                          {"evrkDependency", "b"},
                                          {"evrkDataSize", "7"},
                                          {"evrkRsaSigSubj", "/CN=x"},
                                          {"evrkRsaSigData;binary", "AAECA/8="},
                                          {"evrkFileSize", "8"},
                                          {"evrkFileHash", "abc"},
                                          {"evrkAbsoluteURI", "/a"},
                                          {"evrkRelativeURI", "b"}}));
    EXPECT_STREQ(rec.get()[0]->key, "#EKVA_10:40:4");
}

TEST(VrkInfoEkva, ShowsAbsentStringsAsNullAndNoSignatureData) {
    const own_vri info = parse(1, least);
    ASSERT_TRUE(info);
    const own_ekva rec(vrk_info_ekva(info.get(), 1));
    EXPECT_EQ(pairs_of(rec.get()), (Pairs{{"evrkName", "foo"},
                                          {"evrkVariant", "(null)"},
                                          {"evrkVersion", "1.2"},
                                          {"evrkArchitecture", "x86_64"},
                                          {"evrkCreator", "(null)"},
                                          {"evrkDescription", "A tool"},
                                          {"evrkDependency", "(null)"},
                                          {"evrkDataSize", "0"},
                                          {"evrkRsaSigSubj", "(null)"},
                                          {"evrkFileSize", "0"},
                                          {"evrkFileHash", "(null)"},
                                          {"evrkAbsoluteURI", "(null)"},
                                          {"evrkRelativeURI", "(null)"}}));
}

TEST(VrkInfoEkva, EndsAtTheSignatureForAPackageFile) {
    const own_vri info = parse(
        3, format_2 + least + "evrkRsaSigSubj: /CN=x\n" + signature_line + "evrkFileHash: abc\n");
    ASSERT_TRUE(info);
    info->sig_status = -2;
    const own_ekva rec(vrk_info_ekva(info.get(), 3));
    EXPECT_EQ(pairs_of(rec.get()), (Pairs{{"evrkName", "foo"},
                                          {"evrkVariant", "(null)"},
                                          {"evrkVersion", "1.2"},
                                          {"evrkArchitecture", "x86_64"},
                                          {"evrkCreator", "(null)"},
                                          {"evrkSignature", "Untrusted"},
                                          {"evrkDescription", "A tool"},
                                          {"evrkDependency", "(null)"},
                                          {"evrkDataSize", "0"},
                                          {"evrkRsaSigSubj", "/CN=x"},
                                          {"evrkRsaSigData;binary", "AAECA/8="}}));
}

TEST(VrkInfoEkva, GivesAnInstalledRecordWithoutSignatureData) {
    const own_vri info = parse(2, format_2 + least + "evrkRsaSigSubj: /CN=x\n" + signature_line,
                               "evrkInstallTime: 17\nevrkInstallType: D\nevrkInstallHead: bar\n"
                               "evrkUpdateTime: 18\nevrkUpdateTime: 19\n");
    ASSERT_TRUE(info);
    const own_ekva rec(vrk_info_ekva(info.get(), 2));
    EXPECT_EQ(pairs_of(rec.get()), (Pairs{{"evrkName", "foo"},
                                          {"evrkVariant", "(null)"},
                                          {"evrkVersion", "1.2"},
                                          {"evrkArchitecture", "x86_64"},
                                          {"evrkCreator", "(null)"},
                                          {"evrkDescription", "A tool"},
                                          {"evrkDependency", "(null)"},
                                          {"evrkDataSize", "0"},
                                          {"evrkInstallTime", "17"},
                                          {"evrkUpdateTime", "18"},
                                          {"evrkUpdateTime", "19"},
                                          {"evrkInstallType", "D"},
                                          {"evrkInstallHead", "bar"}}));
}

TEST(VrkInfoEkva, TellsNullArraysFromEmptyOnes) {
    const own_vri info = parse_installed(installed);
    ASSERT_TRUE(info);
    const own_ekva nulls(vrk_info_ekva(info.get(), 2));
    EXPECT_EQ(ekva_cntval(nulls.get(), "evrkDependency"), 1);
    EXPECT_EQ(ekva_cntval(nulls.get(), "evrkUpdateTime"), 1);
    EXPECT_EQ(ekva_getval(nulls.get(), "evrkUpdateTime"), nullptr);
    EXPECT_EQ(ekva_cntval(nulls.get(), "evrkInstallHead"), 0) << "a type X has none";

    info->deps = static_cast<char **>(calloc(1, sizeof(char *)));
    info->update_times = static_cast<int64_t *>(calloc(1, sizeof(int64_t)));
    const own_ekva empties(vrk_info_ekva(info.get(), 2));
    EXPECT_EQ(ekva_cntval(empties.get(), "evrkDependency"), 0);
    EXPECT_EQ(ekva_cntval(empties.get(), "evrkUpdateTime"), 0);
}

TEST(VrkInfoEkva, HasAWordForSomeSignatureOutcomes) {
    const own_vri info = package("foo");
    const std::vector<std::pair<int, const char *>> words = {
        {1, "Verified"}, {-1, "Missing"}, {-2, "Untrusted"}, {-3, "Invalid"}};
    for (const auto &[status, word] : words) {
        info->sig_status = status;
        const own_ekva rec(vrk_info_ekva(info.get(), 3));
        EXPECT_STREQ(ekva_getval(rec.get(), "evrkSignature"), word);
    }
    for (const int status : {0, -4, -5}) {
        info->sig_status = status;
        const own_ekva rec(vrk_info_ekva(info.get(), 3));
        EXPECT_EQ(ekva_cntval(rec.get(), "evrkSignature"), 0) << status;
    }
}

TEST(VrkInfoEkva, GivesATemplateForNoRecord) {
    const std::vector<std::string> common = {
        "evrkName",         "evrkVariant",    "evrkVersion",
        "evrkArchitecture", "evrkCreator",    "evrkDescription",
        "evrkDependency",   "evrkRsaSigSubj", "evrkRsaSigData;binary"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), common.begin(), common.end());
        return more;
    };
    EXPECT_EQ(keys_of(own_ekva(vrk_info_ekva(nullptr, 3)).get()), common);
    EXPECT_EQ(keys_of(own_ekva(vrk_info_ekva(nullptr, 1)).get()),
              with({"evrkFileSize", "evrkFileHash", "evrkAbsoluteURI", "evrkRelativeURI"}));
    EXPECT_EQ(keys_of(own_ekva(vrk_info_ekva(nullptr, 2)).get()),
              with({"evrkInstallTime", "evrkUpdateTime", "evrkInstallType", "evrkInstallHead"}));
}

TEST(VrkInfoCopy, IsDeep) {
    own_vri info = parse(2,
                         format_2 + least +
                             "evrkVariant: small\nevrkCreator: Me\nevrkDependency: a\n"
                             "evrkDataSize: 7\nevrkFileHash: abc\nevrkRsaSigSubj: /CN=x\n" +
                             signature_line,
                         "evrkInstallTime: 17\nevrkInstallType: D\nevrkInstallHead: bar\n"
                         "evrkUpdateTime: 18\nevrkUpdateTime: 19\n");
    ASSERT_TRUE(info);
    info->absolute_uri = strdup("/a");
    info->relative_uri = strdup("b");
    info->filesize = 8;
    info->sig_status = -3;
    info->ekva = ekva_new(1, 1);
    const own_vri copy(vrk_info_copy(info.get()));
    info.reset();
    ASSERT_TRUE(copy);
    expect_described(copy.get(), {"foo", "small", "1.2", "Me", 4, "A tool", {"a"}});
    EXPECT_EQ(copy->flag, 1);
    EXPECT_EQ(copy->datasize, 7U);
    EXPECT_EQ(copy->filesize, 8U);
    EXPECT_STREQ(copy->filehash, "abc");
    EXPECT_STREQ(copy->absolute_uri, "/a");
    EXPECT_STREQ(copy->relative_uri, "b");
    EXPECT_EQ(copy->install_time, 17);
    EXPECT_EQ(copy->install_type, 'D');
    EXPECT_STREQ(copy->install_head, "bar");
    ASSERT_TRUE(copy->update_times);
    EXPECT_EQ(copy->update_times[0], 18);
    EXPECT_EQ(copy->update_times[1], 19);
    EXPECT_EQ(copy->update_times[2], 0);
    EXPECT_STREQ(copy->rsa_sig_subj, "/CN=x");
    ASSERT_EQ(copy->rsa_sig_len, 5);
    EXPECT_EQ(memcmp(copy->rsa_sig_data, "\0\1\2\3\xff", 5), 0);
    EXPECT_EQ(copy->sig_status, -3);
    EXPECT_EQ(copy->ekva, nullptr);
}

TEST(VrkInfoCopy, KeepsNullsAndEmptyArrays) {
    const own_vri info = package("foo");
    const own_vri bare(vrk_info_copy(info.get()));
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->variant, nullptr);
    EXPECT_EQ(bare->deps, nullptr);
    EXPECT_EQ(bare->update_times, nullptr);
    EXPECT_EQ(bare->rsa_sig_data, nullptr);

    info->deps = static_cast<char **>(calloc(1, sizeof(char *)));
    info->update_times = static_cast<int64_t *>(calloc(1, sizeof(int64_t)));
    info->rsa_sig_data = static_cast<unsigned char *>(calloc(1, 1));
    const own_vri copy(vrk_info_copy(info.get()));
    ASSERT_TRUE(copy && copy->deps && copy->update_times);
    EXPECT_EQ(copy->deps[0], nullptr);
    EXPECT_EQ(copy->update_times[0], 0);
    EXPECT_EQ(copy->rsa_sig_data, nullptr) << "no bytes, no copy";
}

// A record of which a part is missing would be taken for another package's.
TEST(VrkInfoCopy, GivesNullWhenMemoryFailsForAnyPart) {
    const own_vri info =
        parse(1, least +
                     "evrkVariant: v\nevrkCreator: Me\nevrkDependency: a\nevrkFileHash: 0\n"
                     "evrkRsaSigSubj: /CN=x\nevrkAbsoluteURI: /a\nevrkRelativeURI: a\n");
    for (int copies = 0; copies < 10; copies++) {
        const StrdupsLeft limit(copies);
        EXPECT_FALSE(own_vri(vrk_info_copy(info.get()))) << copies;
    }
    const StrdupsLeft limit(10);
    EXPECT_TRUE(own_vri(vrk_info_copy(info.get())));
}

TEST(VrkInfoParse, GivesNullWhenMemoryFailsForAnyPart) {
    const std::string text = least +
                             "evrkVariant: v\nevrkCreator: Me\nevrkDependency: a\n"
                             "evrkFileHash: 0\nevrkRsaSigSubj: /CN=x\nevrkAbsoluteURI: /a\n"
                             "evrkRelativeURI: a\n";
    for (int copies = 0; copies < 10; copies++) {
        const StrdupsLeft limit(copies);
        EXPECT_FALSE(parse(1, text)) << copies;
    }
    const StrdupsLeft limit(10);
    EXPECT_TRUE(parse(1, text));
}

TEST(VrkInfoFree, AcceptsNull) {
    vrk_info_free(nullptr);
    vrm_vri_list_free(nullptr);
}

TEST(VrmVriMatch, ComparesTheNameAsPatternAndAsText) {
    const own_vri info = package("libfoo");
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "libfoo", nullptr, nullptr, 5, nullptr), 1);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "lib*", nullptr, nullptr, 5, nullptr), 1);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "lib?oo", nullptr, nullptr, 5, nullptr), 1);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "lib", nullptr, nullptr, 5, nullptr), 0);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "LIBFOO", nullptr, nullptr, 5, nullptr), 0);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, nullptr, nullptr, nullptr, 5, nullptr), 1);
    // As a pattern this name does not match itself.
    const own_vri odd = package("foo[1]");
    EXPECT_EQ(vrm_vri_match(odd.get(), 1, "foo[1]", nullptr, nullptr, 5, nullptr), 1);
}

TEST(VrmVriMatch, ComparesTheVersionExactly) {
    const own_vri info = package("foo");
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "foo", nullptr, "1.2", 5, nullptr), 1);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "foo", nullptr, "1.*", 5, nullptr), 0);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "foo", nullptr, "1.20", 5, nullptr), 0);
}

TEST(VrmVriMatch, ComparesTheVariant) {
    const own_vri plain = package("foo");
    const own_vri small = package("foo", "small");
    const auto match = [](const own_vri &info, const char *variant) {
        return vrm_vri_match(info.get(), 1, "foo", variant, nullptr, 5, nullptr);
    };
    EXPECT_EQ(match(plain, nullptr), 1);
    EXPECT_EQ(match(small, nullptr), 1);
    EXPECT_EQ(match(plain, ""), 1);
    EXPECT_EQ(match(small, ""), 0);
    EXPECT_EQ(match(plain, "default"), 1);
    EXPECT_EQ(match(small, "default"), 0);
    EXPECT_EQ(match(plain, "small"), 0);
    EXPECT_EQ(match(small, "small"), 1);
    EXPECT_EQ(match(small, "sm*"), 0);
}

TEST(VrmVriMatch, LetsAFilterWidenTheSearch) {
    const own_vri info = parse(1, least + "evrkDependency: a\nevrkDependency: bcd\n");
    ASSERT_TRUE(info);
    const auto match = [&](const char *name, const own_ekva &filter) {
        return vrm_vri_match(info.get(), 1, name, nullptr, nullptr, 5, filter.get());
    };
    EXPECT_EQ(match("bar", filter_of({{"evrkDescription", "*tool*"}})), 1);
    EXPECT_EQ(match("bar", filter_of({{"evrkDescription", "A tool"}})), 1);
    EXPECT_EQ(match("bar", filter_of({{"EVRKdependency", "b*"}})), 1) << "any of the values counts";
    EXPECT_EQ(match("bar", filter_of({{"evrkCreator", "x"}, {"evrkDependency", "a"}})), 1);
    EXPECT_EQ(match("bar", filter_of({{"evrkDescription", "other"}})), 0);
    EXPECT_EQ(match("bar", filter_of({})), 0);
    // A name that matches is enough, and without a name there is nothing to widen.
    EXPECT_EQ(match("foo", filter_of({{"evrkDescription", "other"}})), 1);
    EXPECT_EQ(match(nullptr, filter_of({{"evrkDescription", "other"}})), 1);
}

TEST(VrmVriMatch, StillAsksForVersionAndVariantBehindAFilter) {
    const own_vri info = parse(1, least);
    ASSERT_TRUE(info);
    const own_ekva filter = filter_of({{"evrkDescription", "*tool*"}});
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "bar", nullptr, "9", 5, filter.get()), 0);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "bar", "small", nullptr, 5, filter.get()), 0);
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "bar", "default", "1.2", 5, filter.get()), 1);
}

TEST(VrmVriMatch, TakesTheFiltersAttributesFromTheMode) {
    const own_vri info = parse(1, least + "evrkAbsoluteURI: /a\n");
    ASSERT_TRUE(info);
    const own_ekva filter = filter_of({{"evrkAbsoluteURI", "/a"}});
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "bar", nullptr, nullptr, 5, filter.get()), 1);
    EXPECT_EQ(vrm_vri_match(info.get(), 3, "bar", nullptr, nullptr, 5, filter.get()), 0);
}

TEST(VrmVriMatch, LogsEveryHitOfTheFilter) {
    const own_vri info = parse(1, least);
    ASSERT_TRUE(info);
    const LogCapture log;
    const own_ekva filter =
        filter_of({{"evrkDescription", "*tool*"}, {"evrkCreator", "x"}, {"evrkVersion", "1.2"}});
    EXPECT_EQ(vrm_vri_match(info.get(), 1, "bar", nullptr, nullptr, 5, filter.get()), 1);
    EXPECT_EQ(log.at(LEVEL_DEBUG),
              (std::vector<std::string>{
                  "Found matching attribite evrkDescription with value *tool*: A tool",
                  "Found matching attribite evrkVersion with value 1.2: 1.2"}));
}

TEST(VrmVriListSort, OrdersByNameAndKeepsTheOrderOfEqualNames) {
    const own_vri_list list =
        list_of({{"foo", "2"}, {"bar", "1"}, {"foo", "1"}, {"Foo", "3"}, {"a", "0"}});
    vri **sorted = list.get();
    const LogCapture log;
    vrm_vri_list_sort(&sorted);
    EXPECT_EQ(names_and_versions(sorted),
              (std::vector<std::string>{"Foo 3", "a 0", "bar 1", "foo 2", "foo 1"}));
    const auto said = log.at(LEVEL_DEBUG);
    ASSERT_EQ(said.size(), 1U);
    EXPECT_TRUE(std::regex_match(
        said[0], std::regex(R"(vrm_vri_list_sort\(\): bsort took \d+\.\d{5} seconds)")))
        << said[0];
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, said[0]));
}

TEST(VrmVriListSort, KeepsTheOrderOfEqualNamesInLongLists) {
    // Short lists are sorted by insertion, which keeps the order by itself.
    auto **list = static_cast<vri **>(calloc(1001, sizeof(vri *)));
    for (int i = 0; i < 1000; i++) {
        const char name[] = {static_cast<char>('a' + i * 7 % 3), '\0'};
        list[i] = package(name, nullptr, std::to_string(1000 + i).c_str()).release();
    }
    const own_vri_list owner(list);
    vrm_vri_list_sort(&list);
    const std::vector<std::string> sorted = names_and_versions(list);
    EXPECT_EQ(sorted.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end()));
}

TEST(VrmVriListSort, LeavesShortListsAlone) {
    const own_vri_list none = list_of({});
    vri **list = none.get();
    vrm_vri_list_sort(&list);
    EXPECT_EQ(list[0], nullptr);
    const own_vri_list one = list_of({{"foo", "1"}});
    list = one.get();
    vrm_vri_list_sort(&list);
    EXPECT_EQ(names_and_versions(list), std::vector<std::string>{"foo 1"});
    list = nullptr;
    vrm_vri_list_sort(&list);
    EXPECT_EQ(list, nullptr);
}

TEST(VrmVriListSort, IsQuickWithManyPackages) {
    auto **list = static_cast<vri **>(calloc(60001, sizeof(vri *)));
    for (int i = 0; i < 60000; i++) {
        list[i] = package(std::to_string(1000000 - i).c_str()).release();
    }
    const own_vri_list owner(list);
    const std::clock_t start = std::clock();  // of this process, whatever others do meanwhile
    vrm_vri_list_sort(&list);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
    for (size_t i = 1; i < 60000; i++) {
        ASSERT_LT(strcmp(list[i - 1]->name, list[i]->name), 0);
    }
}

TEST(VrmVriListQsort, OrdersByName) {
    const own_vri_list list = list_of({{"foo", "2"}, {"bar", "1"}, {"a", "0"}});
    vri **sorted = list.get();
    vrm_vri_list_qsort(&sorted);
    EXPECT_EQ(names_and_versions(sorted), (std::vector<std::string>{"a 0", "bar 1", "foo 2"}));
}

TEST(VriCompare, ComparesNames) {
    const own_vri_list list = list_of({{"a", "2"}, {"b", "1"}, {"a", "1"}});
    EXPECT_LT(vri_compare(&list.get()[0], &list.get()[1]), 0);
    EXPECT_GT(vri_compare(&list.get()[1], &list.get()[0]), 0);
    EXPECT_EQ(vri_compare(&list.get()[0], &list.get()[2]), 0);
}

TEST(VrkPuname, JoinsTheParts) {
    EXPECT_STREQ(vrk_puname(package("foo", "small", "1.2", 4).get()), "foo_small_x86_64_1.2");
    EXPECT_STREQ(vrk_puname(package("foo", nullptr, "1.2", 8).get()), "foo_mips_1.2");
    EXPECT_STREQ(vrk_puname(package("foo", "", "1.2", 1).get()), "foo__any_1.2");
}

TEST(VrkPuname, IsCutAt1024Bytes) {
    const std::string name(2000, 'n');
    EXPECT_EQ(vrk_puname(package(name.c_str()).get()), std::string(1024, 'n'));
}

TEST(VrkPunameDecode, IsTheWayBack) {
    const auto decoded = [](const own_vri &info) {
        return pairs_of(own_ekva(vrk_puname_decode(vrk_puname(info.get()))).get());
    };
    EXPECT_EQ(decoded(package("foo", "small", "1.2", 4)), (Pairs{{"evrkName", "foo"},
                                                                 {"evrkVariant", "small"},
                                                                 {"evrkVersion", "1.2"},
                                                                 {"evrkArchitecture", "x86_64"}}));
    EXPECT_EQ(decoded(package("foo", "small", "1.2", 2)), (Pairs{{"evrkName", "foo"},
                                                                 {"evrkVariant", "small"},
                                                                 {"evrkVersion", "1.2"},
                                                                 {"evrkArchitecture", "i686"}}));
    EXPECT_EQ(decoded(package("foo", nullptr, "1.2", 8)),
              (Pairs{{"evrkName", "foo"}, {"evrkVersion", "1.2"}, {"evrkArchitecture", "mips"}}));
    EXPECT_EQ(decoded(package("foo", nullptr, "1.2", 4)),
              (Pairs{{"evrkName", "foo"}, {"evrkVersion", "1.2"}, {"evrkArchitecture", "x86_64"}}));
    EXPECT_EQ(decoded(package("foo", "", "1.2", 4)), (Pairs{{"evrkName", "foo"},
                                                            {"evrkVariant", ""},
                                                            {"evrkVersion", "1.2"},
                                                            {"evrkArchitecture", "x86_64"}}));
}

TEST(VrkPunameDecode, MakesARecordOfItsOwnCapacity) {
    const own_ekva rec(vrk_puname_decode("foo_any_1"));
    ASSERT_TRUE(rec);
    EXPECT_STREQ(rec.get()[0]->key, "#EKVA_10:20:4");
}

TEST(VrkPunameDecode, DoesNotTestTheArchitectureBehindTwoUnderscores) {
    const own_ekva rec(vrk_puname_decode("foo_small_no_such_1.2"));
    EXPECT_EQ(pairs_of(rec.get()), (Pairs{{"evrkName", "foo"},
                                          {"evrkVariant", "small"},
                                          {"evrkVersion", "1.2"},
                                          {"evrkArchitecture", "no_such"}}));
}

TEST(VrkPunameDecode, KeepsNameAndVersionOfAPunameWithTooManyParts) {
    const own_ekva rec(vrk_puname_decode("foo_a_b_c_d_1.2"));
    EXPECT_EQ(pairs_of(rec.get()),
              (Pairs{{"evrkName", "foo"}, {"evrkVersion", "1.2"}, {"evrkArchitecture", "(null)"}}));
}

TEST(VrkPunameDecode, RefusesWithTheReason) {
    const LogCapture log;
    EXPECT_EQ(vrk_puname_decode(nullptr), nullptr);
    EXPECT_EQ(vrk_puname_decode("foo"), nullptr);
    EXPECT_EQ(vrk_puname_decode("foo_1.2"), nullptr);
    EXPECT_EQ(log.at(LEVEL_ERROR),
              (std::vector<std::string>{
                  "vrk_puname_decode: No puname given",
                  "vrk_puname_decode: could not determine package name in puname <foo>",
                  "vrk_puname_decode: could not determine package version in puname <foo_1.2>"}));
    EXPECT_EQ(vrk_puname_decode("foo_vax_1.2"), nullptr);
    EXPECT_EQ(vrk_puname_decode("foo_small_vax_1.2"), nullptr);
    EXPECT_EQ(log.at(LEVEL_DEBUG),
              (std::vector<std::string>{"vrk_puname_decode: arch vax is invalid",
                                        "vrk_puname_decode: arch vax is invalid"}));
}
