// The planners give the same plans from a snapshot as from the tree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/snapshot.h"
#include "repository/vrc.h"
#include "support/arch.h"
#include "transaction/plan_install.h"
#include "transaction/plan_removal.h"
#include "transaction/plan_update.h"
#include "transaction/removal.h"
#include "ui/vrmui.h"

namespace fs = std::filesystem;

namespace {

constexpr int packages = 24;

std::string name_of(int number) {
    return "p" + std::to_string(number);
}

// Packages in version 2.0 of all names, the later ones not installed; each needs some others.
std::vector<std::vector<std::string>> offered(packages + 6);

int fake_findpkg(void *, const char *name, const char *, const char *, int, s_ekva **, vri ***out) {
    for (size_t i = 0; i < offered.size(); i++) {
        if (name_of(static_cast<int>(i)) != name) {
            continue;
        }
        auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
        record->name = strdup(name);
        record->version = strdup("2.0");
        record->description = strdup("In the catalogue");
        record->arch = arch_any;
        record->deps = static_cast<char **>(calloc(offered[i].size() + 1, sizeof(char *)));
        for (size_t d = 0; d < offered[i].size(); d++) {
            record->deps[d] = strdup(offered[i][d].c_str());
        }
        *out = static_cast<vri **>(calloc(2, sizeof(vri *)));
        **out = record;
        return 1;
    }
    return 0;
}

std::string text_of(vrt *made) {
    const own_vrt plan(made);
    if (!plan) {
        return "none";
    }
    std::string text =
        std::string(plan->name) + plan->source + plan->action + " " + vrk_puname(plan->info) + ":";
    for (int i = 0; i < plan->num_deps; i++) {
        const vrd *dep = plan->deps[i];
        text += std::string(" ") + dep->name + "/" + dep->cand + "/" + dep->status + dep->action +
                std::to_string(dep->weight) + std::to_string(dep->circular);
        text += dep->info ? std::string("/") + vrk_puname(dep->info) : "";
    }
    return text;
}

// Each inventory has packages that need each other at random, of which many came as dependencies,
// and a few entries that are not what they should be.
class PlanFromSnapshot : public testing::TestWithParam<unsigned> {
 protected:
    PlanFromSnapshot() : random(GetParam()) {
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = fake_findpkg;
        for (auto &needs : offered) {
            needs = some_names(packages + 6);
        }
        for (int i = 0; i < packages; i++) {
            PackageSpec spec;
            spec.name = name_of(i);
            spec.deps = some_names(packages);
            const bool asked_for = random() % 3 == 0;
            repo.install(spec, {},
                         asked_for
                             ? "evrkInstallTime: 1700000000\nevrkInstallType: X\n"
                             : "evrkInstallTime: 1700000000\nevrkInstallType: D\n"
                               "evrkInstallHead: " +
                                   name_of(static_cast<int>(random() % (packages + 2))) + "\n");
        }
        std::ofstream(repo.in("installed/p3/desc.txt")) << "evrkName: p3\n";
        fs::remove(repo.in("installed/p5/inst.txt"));
        fs::copy_file(repo.in("installed/p8/desc.txt"), repo.in("installed/p7/desc.txt"),
                      fs::copy_options::overwrite_existing);
    }

    std::vector<std::string> some_names(int among) {
        std::vector<std::string> names;
        for (auto left = random() % 3; left > 0; left--) {
            names.push_back(name_of(static_cast<int>(random() % static_cast<unsigned>(among))));
        }
        return names;
    }

    // What a planner gives, with what it says to the user.
    template <class Plan>
    std::string outcome(const Plan &plan) {
        ScriptedUser::fresh();
        vrt *out = nullptr;
        const std::string made = text_of(plan(&out));
        return made + "\n" + vrmui->text;
    }

    std::mt19937 random;
    TestRepo repo;
    LogCapture log;
    inventory_snapshot snapshot{repo.handle()};
};

}  // namespace

TEST_P(PlanFromSnapshot, Removals) {
    int plans = 0;
    for (int i = 0; i < packages + 2; i++) {
        const std::string name = name_of(i);
        for (const int mode : {1, 2}) {
            const std::string from_tree = outcome(
                [&](vrt **out) { return vrm_pre_delete(repo.handle(), name.c_str(), mode, out); });
            EXPECT_EQ(
                outcome([&](vrt **out) { return plan_removal(snapshot, name.c_str(), mode, out); }),
                from_tree);
            plans += !from_tree.starts_with("none");
        }
    }
    EXPECT_GT(plans, 0);
    // The damaged ones are read again for their reasons.
    EXPECT_LT(snapshot.readings(), size_t{2} * packages);
}

TEST_P(PlanFromSnapshot, InstallationsUpdatesAndTrees) {
    int plans = 0;
    for (int i = 0; i < packages + 7; i++) {
        const std::string name = name_of(i);
        const auto compare = [&](const auto &tree, const auto &view) {
            const std::string from_tree = outcome(tree);
            EXPECT_EQ(outcome(view), from_tree);
            plans += !from_tree.starts_with("none");
        };
        vrm_handle *const handle = repo.handle();
        const char *const asked = name.c_str();
        compare(
            [&](vrt **out) {
                return vrm_pre_install(handle, &offered, asked, nullptr, nullptr, nullptr, out);
            },
            [&](vrt **out) {
                return plan_install(snapshot, &offered, asked, nullptr, nullptr, nullptr, out);
            });
        compare(
            [&](vrt **out) {
                return vrm_pre_update(handle, &offered, asked, nullptr, nullptr, nullptr, out);
            },
            [&](vrt **out) {
                return plan_update(snapshot, &offered, asked, nullptr, nullptr, nullptr, out);
            });
        compare(
            [&](vrt **out) { return vrm_walk(handle, &offered, asked, nullptr, nullptr, out); },
            [&](vrt **out) { return plan_tree(snapshot, &offered, asked, nullptr, nullptr, out); });
        EXPECT_EQ(outlook_of_update(snapshot, &offered, asked, nullptr, nullptr),
                  vrm_update_outlook(handle, &offered, asked, nullptr, nullptr));
    }
    EXPECT_GT(plans, packages);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlanFromSnapshot, testing::Range(1u, 5u));
