#include "pvrm/removal_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "pvrm/installed_list.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using names = std::vector<std::string>;

removal_plan plan_of(const std::vector<installed> &packages, const names &requests,
                     bool keep_deps = false) {
    return {list_of(packages).get(), requests, keep_deps};
}

// Each removal as "top part part".
names removals_of(const removal_plan &plan) {
    names texts;
    for (const removal_plan::removal &removal : plan.removals()) {
        std::string &text = texts.emplace_back(removal.name);
        for (const removal_plan::part &part : removal.parts) {
            text += " " + part.name;
        }
    }
    return texts;
}

}  // namespace

TEST(RemovalPlan, ASharedDependencyGoesWithTheLastThatNeedsIt) {
    const std::vector<installed> all = {{"bz2", {}, "zip"}, {"unzip", {"bz2"}}, {"zip", {"bz2"}}};
    EXPECT_THAT(removals_of(plan_of(all, {"zip", "unzip"})), ElementsAre("zip", "unzip bz2"));
    EXPECT_THAT(removals_of(plan_of(all, {"unzip", "zip"})), ElementsAre("unzip", "zip bz2"));
    EXPECT_THAT(removals_of(plan_of(all, {"zip"})), ElementsAre("zip"));
    EXPECT_THAT(removals_of(plan_of(all, {"zip", "unzip"}, true)), ElementsAre("zip", "unzip"));
}

TEST(RemovalPlan, WhatIsNotInstalledPlaysNoPart) {
    EXPECT_THAT(removals_of(plan_of({}, {"a"})), IsEmpty());
    EXPECT_THAT(removals_of(plan_of({{"b", {"gone"}, "gone"}}, {"a", "b", "b"})), ElementsAre("b"));
}

TEST(RemovalPlan, WhatAPackageThatStaysNeedsIsHeld) {
    const auto plan =
        plan_of({{"a", {"b"}}, {"b", {"c"}}, {"c", {"d"}, "b"}, {"d", {}, "c"}}, {"d", "b", "c"});
    EXPECT_THAT(removals_of(plan), IsEmpty());
    EXPECT_THAT(plan.holders("b"), ElementsAre("a"));
    EXPECT_THAT(plan.holders("c"), ElementsAre("b"));
    EXPECT_THAT(plan.holders("d"), ElementsAre("c"));
    EXPECT_FALSE(plan.goes("b"));
}

TEST(RemovalPlan, WhatWasAskedForOrCameForOneThatStaysDoesNotGoAlong) {
    EXPECT_THAT(removals_of(plan_of({{"a", {"b", "c"}}, {"b"}, {"c", {}, "x"}, {"x"}}, {"a"})),
                ElementsAre("a"));
}

TEST(RemovalPlan, WhatCameForAPackageDoesNotHoldItAndIsLeft) {
    const auto plan = plan_of({{"a", {"b"}}, {"b", {"a"}, "a"}, {"z"}}, {"a", "z"}, true);
    EXPECT_THAT(removals_of(plan), ElementsAre("a", "z"));
    EXPECT_THAT(plan.left_without("a"), ElementsAre("b"));
}

TEST(RemovalPlan, WhatCameForAPackageHoldsItWhenSomethingElseNeedsThat) {
    const auto plan =
        plan_of({{"a", {"b"}}, {"b", {"a"}, "a"}, {"q", {"b"}}, {"z"}}, {"a", "z"}, true);
    EXPECT_THAT(removals_of(plan), ElementsAre("z"));
    EXPECT_THAT(plan.holders("a"), ElementsAre("b"));
    EXPECT_THAT(plan.left_without("a"), IsEmpty());
}

TEST(RemovalPlan, ARequestedDependencyGoesWithWhatNeedsIt) {
    const std::vector<installed> all = {{"a", {"x"}}, {"b"}, {"x", {"b"}, "a"}};
    EXPECT_THAT(removals_of(plan_of(all, {"b", "x", "a"})), ElementsAre("a x", "b"));
    EXPECT_THAT(removals_of(plan_of(all, {"b", "x", "a"}, true)), ElementsAre("a", "x", "b"));
}

TEST(RemovalPlan, CirclesGoWhenNothingOutsideHoldsThem) {
    const std::vector<installed> all = {
        {"a", {"b"}}, {"b", {"a"}}, {"c", {"d"}, "d"}, {"d", {"c"}, "c"}, {"e", {"c"}}};
    EXPECT_THAT(removals_of(plan_of(all, {"a"})), IsEmpty());
    EXPECT_THAT(removals_of(plan_of(all, {"a", "b"})), ElementsAre("b", "a"));
    EXPECT_THAT(removals_of(plan_of(all, {"e"})), ElementsAre("e d c"));
    EXPECT_THAT(removals_of(plan_of(all, {"c", "d"})), IsEmpty());
    // All of a circle comes from somewhere, also when each came for the other.
    EXPECT_THAT(removals_of(plan_of(all, {"c", "d", "e"})), ElementsAre("e", "d", "c"));
}

TEST(RemovalPlan, ACircleIsRemovedAfterWhatNeedsAPartOfIt) {
    const std::vector<installed> all = {{"b", {"c"}}, {"c", {"b"}}, {"d", {"c"}}};
    EXPECT_THAT(removals_of(plan_of(all, {"c", "b", "d"})), ElementsAre("d", "b", "c"));
    EXPECT_THAT(removals_of(plan_of(all, {"b", "c", "d"})), ElementsAre("d", "c", "b"));
}

TEST(RemovalPlan, TheRequestsKeepTheirOrderWhereTheyCan) {
    EXPECT_THAT(removals_of(plan_of({{"a"}, {"b", {"a"}}, {"c"}}, {"c", "a", "b"})),
                ElementsAre("c", "b", "a"));
}

TEST(RemovalPlan, WhatFailsHoldsWhatItNeeds) {
    auto plan = plan_of({{"a", {"b", "s"}}, {"b", {}, "a"}, {"c", {"s"}}, {"s", {}, "a"}, {"t"}},
                        {"a", "c", "t"});
    plan.note_stays("a");
    EXPECT_FALSE(plan.goes("b"));
    EXPECT_FALSE(plan.goes("s"));
    EXPECT_TRUE(plan.goes("c"));
    EXPECT_TRUE(plan.goes("t"));
    EXPECT_THAT(plan.holders("s"), ElementsAre("a"));
}

TEST(RemovalPlan, WhatCameForAPackageAndRefusesToGoHoldsIt) {
    auto circle = plan_of({{"a", {"t"}, "t"}, {"t", {"a"}}}, {"t", "a"});
    circle.note_stays("a");
    EXPECT_FALSE(circle.goes("t"));
    EXPECT_THAT(circle.holders("t"), ElementsAre("a"));
    EXPECT_THAT(circle.left_without("t"), IsEmpty());

    auto unlisted = plan_of({{"a", {"t"}, "t"}, {"t"}}, {"t", "a"});
    unlisted.note_stays("a");
    EXPECT_FALSE(unlisted.goes("t"));
}

TEST(RemovalPlan, WhatIsGoneIsNotHeldAndHoldsNothing) {
    auto plan = plan_of({{"a", {"b"}}, {"b", {"a", "c"}}, {"c"}}, {"a", "b", "c"});
    plan.note_gone("b");
    plan.note_stays("a");
    EXPECT_TRUE(plan.goes("c"));
}

TEST(RemovalPlan, ALongChainIsNoDanger) {
    std::vector<installed> all;
    for (int i = 0; i < 30000; i++) {
        const std::string name = std::to_string(i);
        all.push_back({name, {std::to_string(i + 1)}, i == 0 ? "" : std::to_string(i - 1)});
    }
    const auto plan = plan_of(all, {"0", "50"});
    ASSERT_EQ(plan.removals().size(), 1U);
    EXPECT_EQ(plan.removals()[0].parts.size(), all.size() - 1);
}

// ---- Any subset of sixty packages, held against the definition
// -----------------------------------

namespace {

struct model {
    std::map<std::string, installed> packages;
    std::map<std::string, names> dependents;  // without the package itself
    std::set<std::string> requests, stay;     // what stays by now; the rest of `may_go` goes
    std::set<std::string> may_go;
    std::set<std::string> gone, tried;  // what became of them so far

    bool goes(const std::string &name) const {
        return may_go.contains(name) && !stay.contains(name);
    }
    bool is_needed_by_staying(const std::string &name) {
        return std::any_of(dependents[name].begin(), dependents[name].end(),
                           [&](const std::string &other) { return !goes(other); });
    }
    bool must_stay(const std::string &name) {
        const bool requested = requests.contains(name);
        bool wanted = requested;  // by a request, or by what goes
        for (const std::string &other : dependents[name]) {
            const bool is_exempt = requested && !tried.contains(other) &&
                                   packages.at(other).head == name && !goes(other) &&
                                   !is_needed_by_staying(other);
            if (!goes(other) && !is_exempt) {
                return true;
            }
            wanted = wanted || goes(other);
        }
        const std::string &head = packages.at(name).head;
        return !wanted || (!requested && packages.contains(head) && !goes(head));
    }
    void settle() {
        for (bool changed = true; changed;) {
            changed = false;
            for (const std::string &name : may_go) {
                if (!stay.contains(name) && !gone.contains(name) && must_stay(name)) {
                    changed = stay.insert(name).second;
                }
            }
        }
    }
    std::set<std::string> going() const {
        std::set<std::string> gone_names;
        std::copy_if(may_go.begin(), may_go.end(), std::inserter(gone_names, gone_names.end()),
                     [this](const std::string &name) { return goes(name); });
        return gone_names;
    }
};

// What must go, by trying again and again what the definition says until nothing changes.
model model_of(const std::vector<installed> &all, const names &requests, bool keep_deps) {
    model state;
    for (const installed &package : all) {
        state.packages[package.name] = package;
        for (const std::string &dep : package.deps) {
            if (dep != package.name) {
                state.dependents[dep].push_back(package.name);
            }
        }
    }
    for (const std::string &name : requests) {
        state.requests.insert(name);
        state.may_go.insert(name);
    }
    // At most the dependencies that can be reached from the requests.
    for (bool grew = !keep_deps; grew;) {
        grew = false;
        for (const installed &package : all) {
            const names &dependents = state.dependents[package.name];
            const bool reached =
                std::any_of(dependents.begin(), dependents.end(),
                            [&](const std::string &other) { return state.may_go.contains(other); });
            if (reached && !package.head.empty()) {
                grew = state.may_go.insert(package.name).second || grew;
            }
        }
    }
    state.settle();
    return state;
}

class some_system {
 public:
    explicit some_system(unsigned seed) : random_(seed) {
        for (int i = 0; i < 60; i++) {
            installed package = {name_of(i)};
            for (int left = below(4); left > 0; left--) {
                // Mostly one further on, so that chains and shares arise; now and then any other,
                // which makes circles.
                package.deps.push_back(name_of(below(8) == 0 ? below(62) : i + 1 + below(12)));
            }
            packages.push_back(package);
        }
        for (installed &package : packages) {
            if (below(3) > 0) {
                package.head = head_for(package.name);
            }
        }
    }

    names any_subset() {
        names chosen;
        const int chance = 1 + below(9);
        for (const installed &package : packages) {
            if (below(10) < chance) {
                chosen.push_back(package.name);
            }
        }
        std::shuffle(chosen.begin(), chosen.end(), random_);
        return chosen;
    }

    std::vector<installed> packages;

 private:
    static std::string name_of(int number) {
        return "p" + std::to_string(number);
    }
    int below(int limit) {
        return static_cast<int>(random_() % static_cast<unsigned>(limit));
    }
    // As a rule one that needs it, now and then one that is gone or that does not need it.
    std::string head_for(const std::string &name) {
        names dependents;
        for (const installed &other : packages) {
            if (std::find(other.deps.begin(), other.deps.end(), name) != other.deps.end()) {
                dependents.push_back(other.name);
            }
        }
        if (!dependents.empty() && below(6) > 0) {
            return dependents[static_cast<size_t>(below(static_cast<int>(dependents.size())))];
        }
        return below(2) == 0 ? "gone" : name_of(below(60));
    }

    std::mt19937 random_;
};

// For each package that goes, all that go too and lead to it.
std::map<std::string, std::set<std::string>> all_that_lead_to(const std::vector<installed> &all,
                                                              const std::set<std::string> &going) {
    std::map<std::string, names> dependents;
    for (const installed &package : all) {
        for (const std::string &dep : going.contains(package.name) ? package.deps : names()) {
            dependents[dep].push_back(package.name);
        }
    }
    std::map<std::string, std::set<std::string>> found;
    for (const std::string &name : going) {
        names todo = {name};
        while (!todo.empty()) {
            const std::string next = todo.back();
            todo.pop_back();
            for (const std::string &dependent : dependents[next]) {
                if (found[name].insert(dependent).second) {
                    todo.push_back(dependent);
                }
            }
        }
    }
    return found;
}

}  // namespace

TEST(RemovalPlan, OfAnySubsetOfSixtyPackagesGoesWhatMustGo) {
    size_t partly = 0, along = 0, held = 0;
    for (unsigned seed = 1; seed <= 300; seed++) {
        SCOPED_TRACE(seed);
        some_system system(seed);
        const names requests = system.any_subset();
        const bool keep_deps = seed % 3 == 0;
        const auto plan = plan_of(system.packages, requests, keep_deps);
        const std::set<std::string> expected =
            model_of(system.packages, requests, keep_deps).going();

        std::set<std::string> going;
        names order;
        for (const removal_plan::removal &removal : plan.removals()) {
            EXPECT_TRUE(std::find(requests.begin(), requests.end(), removal.name) !=
                        requests.end());
            order.push_back(removal.name);
            for (const removal_plan::part &part : removal.parts) {
                order.push_back(part.name);
            }
        }
        going.insert(order.begin(), order.end());
        ASSERT_EQ(going, expected);
        ASSERT_EQ(order.size(), expected.size()) << "a package goes twice";
        for (const installed &package : system.packages) {
            ASSERT_EQ(plan.goes(package.name), expected.contains(package.name));
        }
        for (const std::string &request : requests) {
            ASSERT_EQ(plan.holders(request).empty(), expected.contains(request)) << request;
        }

        // Each comes after all that lead to it, unless it leads to them too.
        auto leading = all_that_lead_to(system.packages, going);
        for (size_t i = 0; i < order.size(); i++) {
            for (size_t later = i + 1; later < order.size(); later++) {
                ASSERT_TRUE(!leading[order[i]].contains(order[later]) ||
                            leading[order[later]].contains(order[i]))
                    << order[i] << " goes before " << order[later] << ", which needs it";
            }
        }
        partly += !expected.empty() && expected.size() < requests.size() ? 1U : 0U;
        along += std::any_of(going.begin(), going.end(),
                             [&](const std::string &name) {
                                 return std::find(requests.begin(), requests.end(), name) ==
                                        requests.end();
                             })
                     ? 1U
                     : 0U;
        held += expected.empty() ? 1U : 0U;
    }
    // The systems are not all of one kind.
    EXPECT_GT(partly, 50U);
    EXPECT_GT(along, 40U);
    EXPECT_LT(held, 200U);
}

TEST(RemovalPlan, OfAnySubsetWhateverFailsStaysWhatMustStay) {
    size_t failures = 0, kept = 0;
    for (unsigned seed = 1; seed <= 300; seed++) {
        SCOPED_TRACE(seed);
        some_system system(seed);
        const names requests = system.any_subset();
        const bool keep_deps = seed % 3 == 0;
        auto plan = plan_of(system.packages, requests, keep_deps);
        model expected = model_of(system.packages, requests, keep_deps);
        names order;
        for (const removal_plan::removal &removal : plan.removals()) {
            order.push_back(removal.name);
            for (const removal_plan::part &part : removal.parts) {
                order.push_back(part.name);
            }
        }
        std::mt19937 random(seed);
        for (const std::string &name : order) {
            ASSERT_EQ(plan.goes(name), expected.goes(name)) << name;
            if (!plan.goes(name)) {
                continue;
            }
            if (random() % 4 == 0) {
                const size_t before = expected.going().size();
                plan.note_stays(name);
                expected.tried.insert(name);
                expected.stay.insert(name);
                expected.settle();
                failures++;
                kept += before - 1 - expected.going().size();
            } else {
                plan.note_gone(name);
                expected.gone.insert(name);
            }
            for (const installed &package : system.packages) {
                ASSERT_EQ(plan.goes(package.name), expected.goes(package.name))
                    << package.name << " after " << name;
            }
            // What stays is left only without what its own removal was not tried for.
            for (const std::string &tried : expected.tried) {
                for (const std::string &need : expected.packages.at(tried).deps) {
                    ASSERT_TRUE(need == tried || expected.gone.contains(need) || !plan.goes(need))
                        << tried << " needs " << need;
                }
            }
        }
    }
    EXPECT_GT(failures, 200U);
    EXPECT_GT(kept, 100U);
}
