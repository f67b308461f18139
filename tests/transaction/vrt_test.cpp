#include "transaction/vrt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "support/arch.h"
#include "transaction/plan_order.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

char **new_array(const std::vector<std::string> &texts) {
    char **const array = static_cast<char **>(calloc(texts.size() + 1, sizeof(char *)));
    for (size_t i = 0; i < texts.size(); ++i) {
        array[i] = strdup(texts[i].c_str());
    }
    return array;
}

vri *new_info(const std::string &name, const std::string &version = "1",
              const std::vector<std::string> &deps = {}) {
    vri *const info = static_cast<vri *>(calloc(1, sizeof(vri)));
    info->name = strdup(name.c_str());
    info->version = strdup(version.c_str());
    info->arch = arch_any;
    info->deps = deps.empty() ? nullptr : new_array(deps);
    return info;
}

// A dependency record as the walks make them.
struct Dependency {
    std::string name;
    char status = 'R';
    char action = 'I';
    std::vector<std::string> needs = {};
    int circular = 0;
    bool known = true;
};

vrd *new_vrd(const Dependency &dependency) {
    vrd *const record = static_cast<vrd *>(calloc(1, sizeof(vrd)));
    record->status = dependency.status;
    record->action = dependency.action;
    record->name = strdup(dependency.name.c_str());
    record->cand = strdup("top");
    record->info = dependency.known ? new_info(dependency.name, "1", dependency.needs) : nullptr;
    record->weight = 99;
    record->circular = dependency.circular;
    return record;
}

vrd **new_vrds(const std::vector<Dependency> &dependencies) {
    vrd **const array = static_cast<vrd **>(calloc(dependencies.size() + 1, sizeof(vrd *)));
    for (size_t i = 0; i < dependencies.size(); ++i) {
        array[i] = new_vrd(dependencies[i]);
    }
    return array;
}

own_vrt new_vrt(const std::string &name, const std::vector<Dependency> &dependencies = {},
                char action = 'I') {
    own_vrt transaction(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    transaction->name = strdup(name.c_str());
    transaction->source = 'R';
    transaction->action = action;
    transaction->mark = 'N';
    transaction->info = new_info(name);
    transaction->num_deps = static_cast<int32_t>(dependencies.size());
    transaction->deps = dependencies.empty() ? nullptr : new_vrds(dependencies);
    transaction->scripts = ekva_new(1, 1);
    transaction->hookcmds = ekva_new(1, 1);
    return transaction;
}

// "name action status", of each entry.
std::vector<std::string> entries_of(vra *const *list) {
    std::vector<std::string> entries;
    for (size_t i = 0; list && list[i]; ++i) {
        EXPECT_STREQ(list[i]->name, list[i]->info->name);
        entries.push_back(std::string(list[i]->name) + " " + list[i]->action + " " +
                          list[i]->status);
    }
    return entries;
}

class VraList : public testing::Test {
 protected:
    ~VraList() override {
        vrm_vra_list_free(list);
    }
    int add(const own_vrt &transaction) {
        return vrm_vra_list_add_vrt(transaction.get(), &list);
    }

    vra **list = nullptr;
};

}  // namespace

TEST_F(VraList, TakesATransactionWithoutDependencies) {
    const LogCapture log;
    EXPECT_EQ(add(new_vrt("foo")), 1);
    EXPECT_THAT(entries_of(list), ElementsAre("foo I N"));
    EXPECT_THAT(
        log.at(LEVEL_DEBUG),
        ElementsAre("checking if foo is already in the vra", "foo can be added vra",
                    "Allocating list for 1 entries", "checking if foo is already in the vra",
                    "Adding foo to vra at pos 0", "Added 1 entries to vra_list, new size: 1 (1)"));
}

TEST_F(VraList, PutsTheTopPackageAheadOfItsDependencies) {
    EXPECT_EQ(add(new_vrt("foo", {{"b", 'R', 'I'}, {"a", 'L', 'I'}}, 'U')), 3);
    EXPECT_THAT(entries_of(list), ElementsAre("foo U N", "b I R", "a I L"));
}

TEST_F(VraList, HoldsCopies) {
    own_vrt transaction = new_vrt("foo", {{"a"}});
    add(transaction);
    EXPECT_NE(list[0]->info, transaction->info);
    EXPECT_NE(list[1]->info, transaction->deps[0]->info);
    transaction.reset();
    EXPECT_THAT(entries_of(list), ElementsAre("foo I N", "a I R"));
}

TEST_F(VraList, StaysAsItIsWhenATransactionIsAddedAgain) {
    const own_vrt transaction = new_vrt("foo", {{"a"}});
    EXPECT_EQ(add(transaction), 2);
    vra **const before = list;
    const LogCapture log;
    EXPECT_EQ(add(transaction), 2);
    EXPECT_EQ(list, before);
    EXPECT_THAT(entries_of(list), ElementsAre("foo I N", "a I R"));
    EXPECT_THAT(
        log.at(LEVEL_DEBUG),
        ElementsAre("checking if foo is already in the vra",
                    "foo is already in the vra (foo_any_1)", "checking if a is already in the vra",
                    "a is already in the vra (a_any_1)", "No new additions"));
}

TEST_F(VraList, TakesASharedDependencyOnce) {
    add(new_vrt("foo", {{"a", 'L', 'I'}}));
    const LogCapture log;
    EXPECT_EQ(add(new_vrt("bar", {{"a", 'R', 'U'}, {"b"}})), 4);
    EXPECT_THAT(entries_of(list), ElementsAre("foo I N", "a I L", "bar I N", "b I R"));
    EXPECT_THAT(
        log.at(LEVEL_DEBUG),
        ElementsAre("checking if bar is already in the vra", "bar can be added vra",
                    "checking if a is already in the vra", "a is already in the vra (a_any_1)",
                    "checking if b is already in the vra", "b can be added vra",
                    "Reallocating list for 4 entries", "checking if bar is already in the vra",
                    "Adding bar to vra at pos 2", "checking if a is already in the vra",
                    "a is already in the vra (a_any_1)", "checking if b is already in the vra",
                    "Adding b to vra", "Added 2 entries to vra_list, new size: 4 (4)"));
}

TEST_F(VraList, LeavesOutWhatIsInstalledOrUnknown) {
    EXPECT_EQ(add(new_vrt("foo", {{"a", 'I', 'N'}, {"b", 'U', 0, {}, 0, false}, {"c", 'I', 'D'}})),
              2);
    EXPECT_THAT(entries_of(list), ElementsAre("foo I N", "c D I"));
}

TEST_F(VraList, TakesARepeatedNameByItsFirstRecordThoughItCountsBoth) {
    const LogCapture log;
    EXPECT_EQ(add(new_vrt("foo", {{"a", 'L', 'I'}, {"a", 'R', 'I'}, {"foo"}})), 2);
    EXPECT_THAT(entries_of(list), ElementsAre("foo I N", "a I L"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Added 4 entries to vra_list, new size: 4 (2)"));
}

TEST_F(VraList, GoesByTheBareName) {
    add(new_vrt("foo"));
    const own_vri other(new_info("foo", "2"));
    const own_vri cased(new_info("Foo"));
    EXPECT_EQ(vrm_vra_list_new_vri(list, other.get()), 0);
    EXPECT_NE(vrm_vra_list_new_vri(list, cased.get()), 0);
}

TEST_F(VraList, TellsOfALookup) {
    add(new_vrt("foo"));
    const own_vri foo(new_info("foo", "2"));
    const own_vri bar(new_info("bar"));
    const LogCapture log;
    vrm_vra_list_new_vri(list, foo.get());
    vrm_vra_list_new_vri(list, bar.get());
    EXPECT_THAT(log.at(LEVEL_DEBUG), ElementsAre("checking if foo is already in the vra",
                                                 "foo is already in the vra (foo_any_1)",
                                                 "checking if bar is already in the vra"));
}

TEST_F(VraList, HasNothingWhenItIsNullOrEmpty) {
    const own_vri foo(new_info("foo"));
    vra *empty[1] = {};
    EXPECT_EQ(vrm_vra_list_new_vri(nullptr, foo.get()), 1);
    EXPECT_EQ(vrm_vra_list_new_vri(empty, foo.get()), 1);
}

TEST_F(VraList, StaysNullWhenThereIsNothingToAdd) {
    own_vrt transaction = new_vrt("foo", {{"a", 'I', 'N'}});
    vrk_info_free(transaction->info);
    transaction->info = nullptr;
    EXPECT_EQ(add(transaction), 0);
    EXPECT_EQ(list, nullptr);
}

TEST_F(VraList, TakesThousandsOfDependencies) {
    std::vector<Dependency> dependencies;
    for (int i = 0; i < 20000; ++i) {
        dependencies.push_back({"package" + std::to_string(i)});
    }
    const own_vrt transaction = new_vrt("foo", dependencies);
    EXPECT_EQ(add(transaction), 20001);
    EXPECT_EQ(add(transaction), 20001);
    EXPECT_STREQ(list[20000]->name, "package19999");
}

TEST_F(VraList, TakesThousandsOfTransactions) {
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(add(new_vrt("package" + std::to_string(i), {{"shared"}})), i + 2);
    }
    EXPECT_STREQ(list[1]->name, "shared");
    EXPECT_STREQ(list[5000]->name, "package4999");
}

TEST(ActionWord, IsOneForEachLetter) {
    EXPECT_STREQ(vra_action_word('U'), "update");
    EXPECT_STREQ(vra_action_word('I'), "install");
    EXPECT_STREQ(vra_action_word('D'), "delete");
    for (const char other : {'N', 'u', '\0'}) {
        EXPECT_EQ(vra_action_word(other), nullptr);
    }
}

TEST_F(VraList, StaysApartFromAnother) {
    vra **other = nullptr;
    for (const std::string name : {"a", "b", "c"}) {
        add(new_vrt(name));
        const own_vrt next = new_vrt(name + "2", {{"a"}});
        vrm_vra_list_add_vrt(next.get(), &other);
    }
    EXPECT_THAT(entries_of(list), ElementsAre("a I N", "b I N", "c I N"));
    EXPECT_THAT(entries_of(other), ElementsAre("a2 I N", "a I R", "b2 I N", "c2 I N"));
    vrm_vra_list_free(other);
}

TEST_F(VraList, TakesAgainWhatWasTakenOut) {
    for (const char *name : {"a", "b", "c"}) {
        add(new_vrt(name));
    }
    vra *const gone[] = {list[1], nullptr};
    list[1] = std::exchange(list[2], nullptr);
    EXPECT_EQ(add(new_vrt("b")), 3);
    EXPECT_EQ(add(new_vrt("c")), 3);
    EXPECT_THAT(entries_of(list), ElementsAre("a I N", "c I N", "b I N"));
    vrk_info_free(gone[0]->info);
    free(gone[0]->name);
    free(gone[0]);
}

TEST_F(VraList, KnowsNothingOfAListThatWasFreed) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(add(new_vrt("a", {{"b"}})), 2);
        vrm_vra_list_free(std::exchange(list, nullptr));
    }
}

TEST_F(VraList, IsWholeAsFarAsMemoryGoes) {
    const own_vrt transaction = new_vrt("foo", {{"a"}, {"b"}});
    const std::vector<std::string> whole = {"foo I N", "a I R", "b I R"};
    std::set<size_t> counts;
    for (int copies = 0; copies < 12; ++copies) {
        strdups_left = copies;
        const int count = add(transaction);
        strdups_left = -1;
        EXPECT_EQ(static_cast<size_t>(count), entries_of(list).size());
        counts.insert(entries_of(list).size());
        EXPECT_EQ(add(transaction), 3) << copies;
        EXPECT_THAT(entries_of(list), testing::UnorderedElementsAreArray(whole)) << copies;
        vrm_vra_list_free(std::exchange(list, nullptr));
    }
    EXPECT_TRUE(counts.contains(0));
    EXPECT_TRUE(counts.contains(3));
    growing_fails = true;
    EXPECT_EQ(add(transaction), 0);
    growing_fails = false;
    EXPECT_EQ(list, nullptr);
}

// What is left over is found by the leak check of the test build.
TEST(Release, AcceptsNull) {
    vrm_vra_list_free(nullptr);
    vrt_free(nullptr);
    vrd_free(nullptr);
}

TEST(Release, AcceptsNullFields) {
    vrt_free(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    vrd empty = {};
    vrd_free(&empty);
}

TEST(Release, OfADependencyLeavesTheRecordToItsOwner) {
    vrd record = {};
    record.name = strdup("name");
    record.cand = strdup("cand");
    record.extra = strdup("extra");
    record.info = new_info("name");
    vrd_free(&record);
}

TEST(Release, OfATransactionTakesItsDependencies) {
    own_vrt transaction = new_vrt("foo", {{"a"}, {"b", 'U', 0, {}, 0, false}});
    transaction->deps[0]->extra = strdup("extra");
    ekva_addval(&transaction->scripts, "a", "99-cfg.sh", 0);
}

namespace {

// The records of a transaction in their order.
class Order {
 public:
    explicit Order(const std::vector<Dependency> &dependencies) : deps_(new_vrds(dependencies)) {
        for (size_t i = 0; deps_[i]; ++i) {
            records_.push_back(deps_[i]);
        }
    }
    ~Order() {
        for (vrd *record : records_) {
            vrd_free(record);
            free(record);
        }
        free(deps_);
    }
    Order(const Order &) = delete;
    Order &operator=(const Order &) = delete;

    void sort() {
        vrds_sort(nullptr, &deps_);
    }
    // By the passes that define the order.
    void sort_by_passes() {
        std::set<std::string> resolved;
        for (vrd *record : records_) {
            record->weight = record->status == 'I' ? 0 : 1;
            if (record->status == 'I') {
                resolved.insert(record->name);
            }
        }
        for (bool changed = true; changed;) {
            changed = false;
            for (vrd *record : records_) {
                if (resolved.count(record->name) > 0) {
                    continue;
                }
                bool waits = false;
                for (size_t i = 0; !record->circular && record->info && record->info->deps &&
                                   record->info->deps[i];
                     ++i) {
                    waits = waits || resolved.count(record->info->deps[i]) == 0;
                }
                if (waits) {
                    ++record->weight;
                    changed = true;
                } else {
                    resolved.insert(record->name);
                }
            }
        }
        for (size_t length = records_.size(); length > 1; --length) {
            for (size_t i = 0; i + 1 < length; ++i) {
                if (deps_[i]->weight < deps_[i + 1]->weight) {
                    std::swap(deps_[i], deps_[i + 1]);
                }
            }
        }
    }
    // "name weight", of each record.
    std::vector<std::string> weighted() const {
        std::vector<std::string> found;
        for (size_t i = 0; deps_[i]; ++i) {
            found.push_back(std::string(deps_[i]->name) + " " + std::to_string(deps_[i]->weight));
        }
        return found;
    }

 private:
    vrd **deps_;
    std::vector<vrd *> records_;
};

std::vector<std::string> sorted(const std::vector<Dependency> &dependencies) {
    Order order(dependencies);
    order.sort();
    return order.weighted();
}

}  // namespace

TEST(VrdsSort, PutsWhatNeedsNothingLast) {
    EXPECT_THAT(sorted({{"a", 'R', 'I', {"b"}}, {"b", 'R', 'I', {"c"}}, {"c", 'R', 'I'}}),
                ElementsAre("a 3", "b 2", "c 1"));
}

TEST(VrdsSort, ResolvesWithinAPassWhatStandsBehindItsDependency) {
    EXPECT_THAT(sorted({{"c", 'R', 'I'}, {"b", 'R', 'I', {"c"}}, {"a", 'R', 'I', {"b"}}}),
                ElementsAre("c 1", "b 1", "a 1"));
}

TEST(VrdsSort, EndsOnACircle) {
    EXPECT_THAT(sorted({{"a", 'R', 'I', {"b"}}, {"b", 'R', 'I', {"a"}, 1}}),
                ElementsAre("a 2", "b 1"));
    EXPECT_THAT(sorted({{"a", 'R', 'I', {"b"}, 1}, {"b", 'R', 'I', {"a"}}}),
                ElementsAre("a 1", "b 1"));
}

TEST(VrdsSort, GivesWhatIsInstalledNoWeight) {
    EXPECT_THAT(sorted({{"a", 'I', 'N', {"missing"}}, {"b", 'R', 'I', {"a"}}, {"a", 'R', 'I'}}),
                ElementsAre("b 1", "a 1", "a 0"));
}

TEST(VrdsSort, KeepsTheOrderOfEqualWeights) {
    EXPECT_THAT(
        sorted({{"c"}, {"x", 'R', 'I', {"d"}}, {"a"}, {"y", 'R', 'I', {"d"}}, {"d"}, {"b"}}),
        ElementsAre("x 2", "y 2", "c 1", "a 1", "d 1", "b 1"));
}

TEST(VrdsSort, TakesDuplicates) {
    EXPECT_THAT(
        sorted({{"a", 'R', 'I', {"b"}}, {"a", 'R', 'I', {"b"}}, {"b"}, {"a", 'R', 'I', {"b"}}}),
        ElementsAre("a 2", "a 2", "b 1", "a 1"));
}

TEST(VrdsSort, AcceptsShortArrays) {
    EXPECT_THAT(sorted({}), IsEmpty());
    EXPECT_THAT(sorted({{"a"}}), ElementsAre("a 1"));
    vrd **nothing = nullptr;
    vrds_sort(nullptr, &nothing);
    EXPECT_EQ(nothing, nullptr);
}

TEST(VrdsSort, EndsThoughANameIsNeverResolved) {
    EXPECT_THAT(sorted({{"a"}, {"b", 'R', 'I', {"nowhere"}}}), ElementsAre("b 2", "a 1"));
}

TEST(VrdsSort, GivesTheWeightsAndTheOrderOfThePasses) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; ++round) {
        // Without circles: a package needs only those of a higher number.
        const size_t packages = 2 + random() % 12;
        std::vector<Dependency> dependencies;
        for (size_t number = 0; number < packages; ++number) {
            Dependency dependency = {std::to_string(number)};
            if (random() % 6 == 0) {
                dependency.status = 'I';
                dependency.action = 'N';
            }
            for (size_t needed = number + 1; needed < packages; ++needed) {
                if (random() % 3 == 0) {
                    dependency.needs.push_back(std::to_string(needed));
                }
            }
            dependencies.push_back(dependency);
            if (random() % 5 == 0) {  // again, as another walk may find it
                dependency.circular = static_cast<int>(random() % 2);
                dependencies.push_back(dependency);
            }
        }
        // Then circles, each with a record that is told to be in one.
        for (Dependency &dependency : dependencies) {
            if (random() % 8 == 0) {
                dependency.circular = 1;
                dependency.needs.push_back("0");
            }
        }
        std::shuffle(dependencies.begin(), dependencies.end(), random);
        Order expected(dependencies);
        expected.sort_by_passes();
        EXPECT_EQ(sorted(dependencies), expected.weighted());
    }
}

TEST(VrdsSort, TakesAChainOfThousands) {
    constexpr int length = 20000;
    std::vector<Dependency> dependencies;
    for (int i = 0; i < length; ++i) {
        dependencies.push_back({std::to_string(i)});
        if (i + 1 < length) {
            dependencies.back().needs = {std::to_string(i + 1)};
        }
    }
    const std::vector<std::string> found = sorted(dependencies);
    EXPECT_EQ(found.front(), "0 20000");
    EXPECT_EQ(found.back(), "19999 1");
}
