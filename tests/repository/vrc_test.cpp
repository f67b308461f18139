#include "repository/vrc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/temp_dir.h"
#include "support/event.h"

using testing::ElementsAre;

namespace {

std::string test_backend(const std::string &name) {
    return VRM_BINARY_DIR "/tests/backends/test-backend-" + name + ".so";
}
std::string backend_without(const std::string &function) {
    return test_backend("without-" + function);
}

// The events of a backend's reports, and what their log lines are.
std::vector<std::string> reports;

void note_report(const event &happened, void *) {
    reports.push_back(std::string(event_name(happened.kind)) + " " + event_line(happened));
}

vri *new_record(const std::string &name, const std::string &version,
                const char *variant = nullptr) {
    auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(name.c_str());
    record->version = strdup(version.c_str());
    record->variant = variant ? strdup(variant) : nullptr;
    record->description = strdup(("About " + name).c_str());
    record->arch = 1;
    return record;
}

// What the fake backend has, and what it was asked.
struct Catalogue {
    std::vector<std::pair<std::string, std::string>> packages;
    int asked = 0;
    void *connection = nullptr;
    std::vector<std::string> request;
    int five = 0;
    s_ekva **filter = nullptr;
};
Catalogue catalogue;

int fake_findpkg(void *connection, const char *name, const char *variant, const char *version,
                 int five, s_ekva **filter, vri ***out) {
    catalogue.asked++;
    catalogue.connection = connection;
    catalogue.request = {name ? name : "(none)", variant ? variant : "(none)",
                         version ? version : "(none)"};
    catalogue.five = five;
    catalogue.filter = filter;
    if (catalogue.packages.empty()) {
        return 0;
    }
    *out = static_cast<vri **>(calloc(catalogue.packages.size() + 1, sizeof(vri *)));
    for (size_t i = 0; i < catalogue.packages.size(); i++) {
        (*out)[i] = new_record(catalogue.packages[i].first, catalogue.packages[i].second);
    }
    return static_cast<int>(catalogue.packages.size());
}

class VrcCache : public testing::Test {
 protected:
    VrcCache() {
        catalogue = {};
        pvrm_vrc_findpkg = fake_findpkg;
    }
    ~VrcCache() override {
        vrm_cache_free(vrc_cache);
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = nullptr;
    }
    void fill(const std::vector<std::pair<std::string, std::string>> &packages) {
        catalogue.packages = packages;
        vrc_cache = vrm_vrc_cache_fill(&here_);
        catalogue.asked = 0;
    }
    // "name version" of each hit.
    std::vector<std::string> find(const char *name, const char *variant = nullptr,
                                  const char *version = nullptr, s_ekva **filter = nullptr) {
        vri **found = nullptr;
        const int count = vrm_findpkg(&here_, name, variant, version, 5, filter, &found);
        const own_vri_list owner(found);
        std::vector<std::string> hits;
        for (int i = 0; i < count; i++) {
            hits.push_back(std::string(found[i]->name) + " " + found[i]->version);
        }
        if (found) {
            EXPECT_EQ(found[count], nullptr);
        }
        return hits;
    }

    int here_ = 0;  // its address is the connection
    LogCapture log_;
};

using VrmFindpkg = VrcCache;

}  // namespace

TEST(VrmVrcLoad, ResolvesTheFiveFunctions) {
    void *library = nullptr;
    EXPECT_EQ(stderr_of([&] { library = vrm_vrc_load(backend_without("nothing").c_str()); }), "");
    ASSERT_TRUE(library);
    s_ekva *conf[] = {nullptr};
    int log = 0;
    void *connection = pvrm_vrc_connect(conf, &log);
    ASSERT_TRUE(connection);
    EXPECT_EQ(pvrm_vrc_refresh(connection), 0);
    EXPECT_EQ(pvrm_vrc_refresh(connection), 1);
    vri **found = nullptr;
    ASSERT_EQ(pvrm_vrc_findpkg(connection, nullptr, nullptr, nullptr, 5, nullptr, &found), 2);
    const own_vri_list owner(found);
    const TempDir dir;
    FILE *out = fopen((dir / "out").c_str(), "w");
    ASSERT_TRUE(out);
    EXPECT_EQ(pvrm_vrc_readpkg(connection, found[0], out), 3);
    fclose(out);
    EXPECT_EQ(read_all(dir / "out"), "two");
    EXPECT_TRUE(pvrm_vrc_release);
    EXPECT_EQ(vrm_vrc_close(library), 0);
}

TEST(VrmVrcLoad, SaysThatTheLibraryCannotBeLoaded) {
    void *library = nullptr;
    EXPECT_EQ(stderr_of([&] { library = vrm_vrc_load("/no/such/backend.so"); }),
              "Failed to load backend /no/such/backend.so: /no/such/backend.so: cannot open shared "
              "object file: No such file or directory\n");
    EXPECT_EQ(library, nullptr);
}

TEST(VrmVrcLoad, NeedsEveryFunction) {
    for (const std::string function : {"connect", "refresh", "findpkg", "readpkg", "release"}) {
        const std::string path = backend_without(function);
        void *library = nullptr;
        EXPECT_EQ(stderr_of([&] { library = vrm_vrc_load(path.c_str()); }),
                  "Failure resolving vrm_vrc_" + function + ": " + path +
                      ": undefined symbol: vrc_" + function + "\n");
        EXPECT_EQ(library, nullptr);
        EXPECT_EQ(pvrm_vrc_connect, nullptr);
        EXPECT_EQ(pvrm_vrc_refresh, nullptr);
        EXPECT_EQ(pvrm_vrc_findpkg, nullptr);
        EXPECT_EQ(pvrm_vrc_readpkg, nullptr);
        EXPECT_EQ(pvrm_vrc_release, nullptr);
    }
}

TEST(VrmVrcLoad, TakesTheVersionsThatItSupports) {
    for (const std::string abi : {"1", "2"}) {
        void *library = nullptr;
        EXPECT_EQ(stderr_of([&] { library = vrm_vrc_load(test_backend("abi-" + abi).c_str()); }),
                  "");
        ASSERT_TRUE(library) << abi;
        EXPECT_TRUE(pvrm_vrc_release);
        EXPECT_EQ(pvrm_vrc_set_report, nullptr);
        EXPECT_EQ(vrm_vrc_close(library), 0);
    }
}

TEST(VrmVrcLoad, RefusesOtherVersionsWithTheirNumber) {
    for (const std::string abi : {"0", "3", "99"}) {
        const LogCapture log;
        void *library = &library;
        const std::string reason = "backend test-backend-abi-" + abi +
                                   ".so was built for interface " + abi +
                                   "; this program supports 1 to 2";
        EXPECT_EQ(stderr_of([&] { library = vrm_vrc_load(test_backend("abi-" + abi).c_str()); }),
                  reason + "\n");
        EXPECT_EQ(library, nullptr);
        EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre(reason));
        EXPECT_EQ(pvrm_vrc_connect, nullptr);
        EXPECT_EQ(pvrm_vrc_release, nullptr);
    }
}

TEST(VrmVrcLoad, WritesARefusalOnceWhereErrorsOfTheLogGoToStderr) {
    const LogCapture log;
    llog->stderr_levels = LEVEL_ERROR;
    EXPECT_EQ(stderr_of([] { vrm_vrc_load(test_backend("abi-3").c_str()); }),
              "backend test-backend-abi-3.so was built for interface 3; this program supports 1 to "
              "2\n");
}

// A later version may have other functions.
TEST(VrmVrcLoad, LooksAtTheVersionBeforeTheFunctions) {
    EXPECT_EQ(
        stderr_of([] { EXPECT_EQ(vrm_vrc_load(test_backend("later").c_str()), nullptr); }),
        "backend test-backend-later.so was built for interface 99; this program supports 1 to "
        "2\n");
}

TEST(VrmVrcLoad, ReadsTheRecordsOfVersion1) {
    void *library = vrm_vrc_load(test_backend("version-1").c_str());
    ASSERT_TRUE(library);
    EXPECT_EQ(pvrm_vrc_set_report, nullptr);
    s_ekva *conf[] = {nullptr};
    void *connection = pvrm_vrc_connect(conf, nullptr);
    EXPECT_EQ(vrm_vrc_watch(connection), 0);
    vri **found = nullptr;
    ASSERT_EQ(pvrm_vrc_findpkg(connection, nullptr, nullptr, nullptr, 5, nullptr, &found), 1);
    const own_vri_list owner(found);
    const vri &record = *found[0];
    EXPECT_STREQ(record.name, "name");
    EXPECT_STREQ(record.variant, "variant");
    EXPECT_STREQ(record.version, "version");
    EXPECT_STREQ(record.creator, "creator");
    EXPECT_EQ(record.arch, 8);
    EXPECT_STREQ(record.description, "description");
    EXPECT_STREQ(record.deps[0], "dependency");
    EXPECT_EQ(record.flag, 7);
    EXPECT_EQ(record.datasize, 0x123456789aU);
    EXPECT_EQ(record.filesize, 0xa987654321U);
    EXPECT_STREQ(record.filehash, "hash");
    EXPECT_STREQ(record.absolute_uri, "/absolute");
    EXPECT_STREQ(record.relative_uri, "relative");
    EXPECT_EQ(record.install_time, 0x100000001);
    EXPECT_EQ(record.install_type, 'D');
    EXPECT_STREQ(record.install_head, "head");
    EXPECT_EQ(record.update_times[0], 0x100000002);
    EXPECT_STREQ(record.rsa_sig_subj, "subject");
    EXPECT_EQ(memcmp(record.rsa_sig_data, "data", 4), 0);
    EXPECT_EQ(record.rsa_sig_len, 4);
    EXPECT_EQ(record.sig_status, -5);
    EXPECT_STREQ(record.ekva[0]->val, "value");
    EXPECT_EQ(vrm_vrc_close(library), 0);
}

TEST(VrmVrcWatch, MakesEventsOfTheReportsOfTheBackend) {
    const LogCapture log;
    void *library = vrm_vrc_load(test_backend("reporting").c_str());
    ASSERT_TRUE(library);
    s_ekva *conf[] = {nullptr};
    void *connection = pvrm_vrc_connect(conf, nullptr);
    reports.clear();
    receive_events(note_report, nullptr);
    EXPECT_EQ(pvrm_vrc_refresh(connection), 0);
    EXPECT_THAT(reports, ElementsAre());

    EXPECT_EQ(vrm_vrc_watch(connection), 1);
    EXPECT_THAT(reports, ElementsAre("catalogue_warning test-backend-reporting: found by connect"));
    reports.clear();
    pvrm_vrc_refresh(connection);
    const std::string who = "test-backend-reporting: ";
    EXPECT_THAT(reports,
                ElementsAre("catalogue_directory_unreadable " + who +
                                "cannot read the directory /none: No such file or directory",
                            "catalogue_directory_cut " + who +
                                "cannot read all of the directory (not named): no reason given",
                            "catalogue_file_damaged " + who + "skipping /a.vrk: it is cut",
                            "catalogue_file_skipped " + who + "skipping /b.vrk: Permission denied",
                            "catalogue_error " + who + "of a later version: Input/output error"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, who + "of a later version: Input/output error"));
    receive_events(nullptr, nullptr);
    EXPECT_EQ(vrm_vrc_watch(nullptr), 0);
    EXPECT_EQ(vrm_vrc_close(library), 0);
}

TEST(VrmVrcHasIndex, IsTrueOfABackendThatCounts) {
    int other = 0;
    s_ekva *conf[] = {nullptr};
    void *library = vrm_vrc_load(test_backend("counting").c_str());
    ASSERT_TRUE(library);
    EXPECT_TRUE(vrm_vrc_has_index());
    EXPECT_FALSE(vrm_vrc_is_empty(pvrm_vrc_connect(conf, nullptr)));
    EXPECT_TRUE(vrm_vrc_is_empty(&other));
    EXPECT_EQ(vrm_vrc_close(library), 0);

    // In version 1 of the interface the name means nothing.
    for (const char *without : {"counting-1", "reporting"}) {
        library = vrm_vrc_load(test_backend(without).c_str());
        ASSERT_TRUE(library);
        EXPECT_FALSE(vrm_vrc_has_index()) << without;
        EXPECT_EQ(vrm_vrc_close(library), 0);
    }
}

TEST(VrmVrcLoadConfigured, DropsTheDirectoryOfTheConfiguredName) {
    const LogCapture log;
    const own_ekva conf(str2ekva("vrc_backend=/some/where/none.so", ','));
    void *library = &library;
    const std::string told = stderr_of([&] { library = vrm_vrc_load_configured(conf.get()); });
    EXPECT_EQ(library, nullptr);
    EXPECT_TRUE(told.starts_with("Failed to load backend /usr/lib/vrm/none.so: ")) << told;
    EXPECT_STREQ(vrc_backend, "/some/where/none.so");
    EXPECT_EQ(vrc_backend, ekva_getval(conf.get(), "vrc_backend"));
    EXPECT_STREQ(vrc_filename, "none.so");
    EXPECT_STREQ(vrc_fullname, "/usr/lib/vrm/none.so");
    EXPECT_EQ(vrc_backend_handle, nullptr);
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("/some/where/none.so specified as catalogue backend",
                            "Loading vrm backend /usr/lib/vrm/none.so"));
}

TEST(VrmVrcLoadConfigured, LoadsNothingWhenMemoryFails) {
    const own_ekva conf(str2ekva("vrc_backend=x.so", ','));
    for (const int copies : {0, 1}) {
        strdups_left = copies;
        void *const library = vrm_vrc_load_configured(conf.get());
        strdups_left = -1;
        EXPECT_EQ(library, nullptr) << copies;
    }
}

TEST(VrmVrcLoadConfigured, NeverLeavesItsDirectory) {
    for (const char *text : {"vrc_backend=../../etc/x.so", "vrc_backend=/", "vrc_backend=.."}) {
        const own_ekva conf(str2ekva(text, ','));
        void *library = &library;
        stderr_of([&] { library = vrm_vrc_load_configured(conf.get()); });
        EXPECT_EQ(library, nullptr) << text;
        EXPECT_EQ(std::string(vrc_filename).find('/'), std::string::npos) << text;
    }
}

TEST_F(VrcCache, HoldsTheWholeCatalogueInItsOrder) {
    catalogue.packages = {{"b", "1"}, {"a", "2"}};
    vrc_cache = vrm_vrc_cache_fill(&here_);
    ASSERT_TRUE(vrc_cache);
    EXPECT_STREQ(vrc_cache[0]->name, "b");
    EXPECT_STREQ(vrc_cache[1]->name, "a");
    EXPECT_EQ(vrc_cache[2], nullptr);
    EXPECT_EQ(catalogue.connection, &here_);
    EXPECT_THAT(catalogue.request, ElementsAre("(none)", "(none)", "(none)"));
    EXPECT_EQ(catalogue.five, 5);
    EXPECT_EQ(catalogue.filter, nullptr);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Number of packages cached: 2"));
}

TEST_F(VrcCache, IsNullForAnEmptyCatalogue) {
    EXPECT_EQ(vrm_vrc_cache_fill(&here_), nullptr);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Number of packages cached: 0"));
}

TEST_F(VrcCache, ABackendThatFailsHasNothing) {
    pvrm_vrc_findpkg = [](void *, const char *, const char *, const char *, int, s_ekva **,
                          vri ***) { return -1; };
    EXPECT_EQ(vrm_vrc_cache_fill(&here_), nullptr);
    EXPECT_TRUE(vrm_vrc_is_empty(&here_));
}

TEST_F(VrcCache, TellsWhetherTheCatalogueIsEmpty) {
    pvrm_vrc_count = nullptr;
    EXPECT_TRUE(vrm_vrc_is_empty(&here_));
    catalogue.packages = {{"a", "1"}};
    EXPECT_FALSE(vrm_vrc_is_empty(&here_));
    EXPECT_EQ(catalogue.asked, 2);
    fill({{"a", "1"}});
    catalogue.packages.clear();
    EXPECT_FALSE(vrm_vrc_is_empty(&here_));  // what is searched is the cache
    EXPECT_EQ(catalogue.asked, 0);
}

TEST_F(VrcCache, IsFreedWithItsRecords) {
    fill({{"a", "1"}, {"b", "1"}, {"c", "1"}});
    log_.clear();
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
    EXPECT_THAT(log_.at(LEVEL_DEBUG),
                ElementsAre("Freeing cached vris...", "3 cached vris freed."));
    log_.clear();
    vrm_cache_free(nullptr);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(VrmFindpkg, NeedsAConnectionEvenWithACache) {
    fill({{"a", "1"}});
    vri *marker = nullptr;
    vri **out = &marker;
    EXPECT_EQ(vrm_findpkg(nullptr, "a", nullptr, nullptr, 5, nullptr, &out), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrc-http: Not connected"));
}

TEST_F(VrmFindpkg, AsksTheBackendWithoutACache) {
    catalogue.packages = {{"b", "1"}, {"a", "2"}};
    const own_ekva filter(str2ekva("evrkName=x", ','));
    EXPECT_THAT(find("n", "var", "ver", filter.get()), ElementsAre("b 1", "a 2"));
    EXPECT_EQ(catalogue.connection, &here_);
    EXPECT_THAT(catalogue.request, ElementsAre("n", "var", "ver"));
    EXPECT_EQ(catalogue.five, 5);
    EXPECT_EQ(catalogue.filter, filter.get());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(VrmFindpkg, ReachesTheBackendWhenTheCatalogueWasEmpty) {
    fill({});
    EXPECT_EQ(vrc_cache, nullptr);
    vri *marker = nullptr;
    vri **out = &marker;
    EXPECT_EQ(vrm_findpkg(&here_, "a", nullptr, "9", 5, nullptr, &out), 0);
    EXPECT_EQ(out, &marker);
    EXPECT_EQ(catalogue.asked, 1);
}

TEST_F(VrmFindpkg, FindsAnExactNameInTheCache) {
    fill({{"b", "1"}, {"a", "1"}, {"b", "3"}, {"b", "2"}, {"bb", "1"}});
    log_.clear();
    EXPECT_THAT(find("b"), ElementsAre("b 1", "b 3", "b 2"));
    EXPECT_EQ(catalogue.asked, 0);
    std::vector<std::string> told = log_.at(LEVEL_DEBUG);
    std::erase_if(told, [](const std::string &line) { return line.starts_with("vrm_vri_list"); });
    EXPECT_THAT(
        told, ElementsAre("vrm_findpkg: Looking for package b",
                          "vrm_findpkg: allocating space for 50 entries",
                          "vrm_findpkg: Storing b, matches b", "vrm_findpkg: Storing b, matches b",
                          "vrm_findpkg: Storing b, matches b", "vrm_findpkg: Stored 3 vris"));
}

TEST_F(VrmFindpkg, LeavesTheResultAloneWhenNothingMatches) {
    fill({{"a", "1"}});
    vri *marker = nullptr;
    for (const char *name : {"a", "none", "n*"}) {
        vri **out = &marker;
        EXPECT_EQ(vrm_findpkg(&here_, name, nullptr, "2", 5, nullptr, &out), 0);
        EXPECT_EQ(out, &marker);
    }
    EXPECT_EQ(catalogue.asked, 0);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: Stored 0 vris"));
}

TEST_F(VrmFindpkg, RestrictsByVersionAndVariant) {
    fill({{"a", "1"}, {"a", "2"}});
    vrc_cache[1]->variant = strdup("small");
    EXPECT_THAT(find("a", nullptr, "2"), ElementsAre("a 2"));
    EXPECT_THAT(find("a", "small"), ElementsAre("a 2"));
    EXPECT_THAT(find("a", ""), ElementsAre("a 1"));
    EXPECT_THAT(find("a", "default"), ElementsAre("a 1"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: Looking for package a, variant <small>"));
}

TEST_F(VrmFindpkg, TakesPatternsAndSortsTheHits) {
    fill({{"libz", "1"}, {"tool", "1"}, {"liba", "2"}, {"libz", "0"}});
    const std::vector<std::string> libs = {"liba 2", "libz 1", "libz 0"};
    EXPECT_EQ(find("lib*"), libs);
    EXPECT_EQ(find("lib?"), libs);
    EXPECT_EQ(find("lib[az]"), libs);
    EXPECT_THAT(find("\\tool"), ElementsAre("tool 1"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: Storing liba, matches lib*"));
    EXPECT_THAT(find(nullptr), ElementsAre("liba 2", "libz 1", "libz 0", "tool 1"));
}

TEST_F(VrmFindpkg, FindsANameThatIsNoPatternOfItself) {
    fill({{"[odd]", "1"}, {"o", "1"}});
    EXPECT_THAT(find("[odd]"), ElementsAre("[odd] 1", "o 1"));
}

TEST_F(VrmFindpkg, LetsAFilterWidenTheSearch) {
    fill({{"a", "1"}, {"b", "1"}, {"c", "1"}});
    const own_ekva filter(str2ekva("evrkDescription=About b", ','));
    EXPECT_THAT(find("a", nullptr, nullptr, filter.get()), ElementsAre("a 1", "b 1"));
    EXPECT_THAT(find("none", nullptr, nullptr, filter.get()), ElementsAre("b 1"));
}

TEST_F(VrmFindpkg, SearchesACacheThatWasNotFilledHere) {
    fill({{"a", "1"}});
    vri **filled = vrc_cache;
    vri *records[] = {new_record("a", "7"), new_record("b", "7"), nullptr};
    const own_vri first(records[0]), second(records[1]);
    vrc_cache = records;
    EXPECT_THAT(find("a"), ElementsAre("a 7"));
    EXPECT_THAT(find("b"), ElementsAre("b 7"));
    vrc_cache = filled;
    EXPECT_THAT(find("a"), ElementsAre("a 1"));
    EXPECT_THAT(find("b"), ElementsAre());
}

TEST_F(VrmFindpkg, ForgetsACacheThatWasFreed) {
    fill({{"a", "1"}});
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
    fill({{"b", "1"}});
    EXPECT_THAT(find("a"), ElementsAre());
    EXPECT_THAT(find("b"), ElementsAre("b 1"));
}

TEST_F(VrmFindpkg, GrowsBeyondItsFirstRoom) {
    std::vector<std::pair<std::string, std::string>> packages;
    std::vector<std::string> expected;
    for (int i = 100; i < 201; i++) {
        packages.emplace_back("p" + std::to_string(i), "1");
        expected.push_back("p" + std::to_string(i) + " 1");
    }
    fill(packages);
    EXPECT_EQ(find("p*"), expected);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: allocating space for 50 entries"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: reallocation space for 100 entries"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: reallocation space for 200 entries"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_findpkg: Stored 101 vris"));
}

TEST_F(VrmFindpkg, FindsAllOrNothingWhenMemoryFails) {
    fill({{"a", "1"}, {"a", "2"}});
    vri *marker = nullptr;
    vri **out = &marker;
    strdups_left = 3;  // the strings of one record: name, version and description
    int count = vrm_findpkg(&here_, "a", nullptr, nullptr, 5, nullptr, &out);
    strdups_left = -1;
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out, &marker);

    growing_fails = true;
    count = vrm_findpkg(&here_, "a", nullptr, nullptr, 5, nullptr, &out);
    growing_fails = false;
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out, &marker);
}

TEST_F(VrmFindpkg, GivesCopiesThatOutliveTheCache) {
    fill({{"a", "1"}});
    vri **found = nullptr;
    ASSERT_EQ(vrm_findpkg(&here_, "a", nullptr, nullptr, 5, nullptr, &found), 1);
    const own_vri_list owner(found);
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
    EXPECT_STREQ(found[0]->name, "a");
}
