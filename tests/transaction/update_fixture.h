// What the tests of updates share.
#pragma once

#include <string>

#include "transaction/executor_fixture.h"
#include "transaction/plan_update.h"
#include "transaction/update.h"

inline PackageSpec version(PackageSpec spec, const std::string &version) {
    spec.version = version;
    return spec;
}

inline void put(const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
}

class Update : public ExecutorTest {
 protected:
    void install_now(const PackageSpec &spec) {
        offer(spec);
        ASSERT_EQ(install(spec.name), 0);
        log.clear();
        fs::remove(action_log);
    }

    own_vrt plan_update(const std::string &request) {
        vrt *transaction = nullptr;
        vrm_pre_update(repo.handle(), &catalogue, request.c_str(), nullptr, nullptr, nullptr,
                       &transaction);
        EXPECT_TRUE(transaction) << "no plan for " << request;
        return own_vrt(transaction);
    }
    int carry_out(own_vrt &transaction, int verbose = 0, int rmpkg = 0) {
        vrt *raw = transaction.get();
        return vrm_exe_update(repo.handle(), &raw, &catalogue, verbose, rmpkg);
    }
    int update(const PackageSpec &spec, int verbose = 0, int rmpkg = 0) {
        offer(spec);
        own_vrt transaction = plan_update(spec.name);
        return transaction ? carry_out(transaction, verbose, rmpkg) : -1000;
    }

    std::string version_of(const std::string &name) {
        const own_vri info(vrm_vrl_info(repo.handle(), name.c_str()));
        return info ? info->version : "none";
    }
    // That foo 1.0 is registered as before and nothing of an update is left.
    void expect_untouched_registration(const std::string &what) {
        EXPECT_EQ(version_of("foo"), "1.0") << what;
        EXPECT_THAT(read_all(repo.in("installed/foo/inst.txt")),
                    testing::Not(testing::HasSubstr("evrkUpdateTime")))
            << what;
        EXPECT_THAT(read_all(repo.in("fileindex/foo")), testing::HasSubstr("/srv/t/foo\n")) << what;
        expect_no_leftovers(what);
        EXPECT_FALSE(exists(staged("foo_any_2.0"))) << what;
        EXPECT_THAT(history(), testing::IsEmpty()) << what;
    }
    void expect_no_leftovers(const std::string &what = "") {
        EXPECT_FALSE(exists(repo.in("installed/.foo.new"))) << what;
        EXPECT_FALSE(exists(repo.in("installed/.foo.old"))) << what;
        EXPECT_FALSE(exists(repo.in("fileindex/.foo.new"))) << what;
        EXPECT_FALSE(exists(repo.in("fileindex/.foo.old"))) << what;
    }

    const PackageSpec foo1 = simple("foo");
    const PackageSpec foo2 = version(simple("foo"), "2.0");
};
