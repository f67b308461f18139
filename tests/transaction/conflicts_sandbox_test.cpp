// The files of two versions, in a repository with packages.
#include "transaction/conflicts.h"
#include "transaction/update_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> texts(char **array) {
    const own_array owner(array);
    std::vector<std::string> all;
    for (char **text = array; text && *text; text++) {
        all.emplace_back(*text);
    }
    return all;
}

// Null-terminated paths below the live directory.
class Paths {
 public:
    Paths(std::initializer_list<const char *> names) {
        for (const char *name : names) {
            texts_.push_back(live + "/" + name);
        }
        for (std::string &text : texts_) {
            array_.push_back(text.data());
        }
        array_.push_back(nullptr);
    }
    operator char **() {
        return array_.data();
    }

 private:
    std::vector<std::string> texts_;
    std::vector<char *> array_;
};

class LocalUpdate : public Update {
 protected:
    int check(char **old_files, char **new_files) {
        char **del_files = nullptr, **add_files = nullptr;
        const int rc =
            vrm_chk_local_update(repo.handle(), old_files, new_files, &del_files, &add_files);
        has_del = del_files != nullptr;
        has_add = add_files != nullptr;
        del = texts(del_files);
        add = texts(add_files);
        return rc;
    }
    bool debug(const std::string &text) {
        return log.has(LEVEL_DEBUG, "vrm_chk_local_update: " + text);
    }

    bool has_del = false, has_add = false;
    std::vector<std::string> del, add;
};

}  // namespace

TEST_F(LocalUpdate, ListsThatAreMissingOrEmptyGiveTheSame) {
    EXPECT_EQ(check(nullptr, nullptr), 0);
    EXPECT_FALSE(has_del || has_add);
    Paths none{}, nothing{};
    EXPECT_EQ(check(none, nothing), 0);
    EXPECT_TRUE(has_del && has_add);
    EXPECT_THAT(del, IsEmpty());
    EXPECT_THAT(add, IsEmpty());
    Paths only{"x"};
    EXPECT_EQ(check(nullptr, only), 0);
    EXPECT_FALSE(has_del);
    EXPECT_THAT(add, ElementsAre(live + "/x"));
}

TEST_F(LocalUpdate, SplitsTheListsInTheirOrder) {
    for (const char *name : {"both", "only-old"}) {
        put(live + "/" + name, "");
    }
    Paths before{"only-old", "both", "gone"}, after{"new", "both"};
    EXPECT_EQ(check(before, after), 0);
    EXPECT_THAT(add, ElementsAre("/srv/t/new", "/srv/t/both"));
    EXPECT_THAT(del, ElementsAre("/srv/t/only-old"));
    EXPECT_TRUE(debug("Checking for local existence of /srv/t/new"));
    EXPECT_TRUE(debug("/srv/t/new is not on disk, adding it to add_files"));
    EXPECT_TRUE(
        debug("/srv/t/both is on disk and belongs to the old package, adding it to add_files"));
    EXPECT_TRUE(debug("/srv/t/only-old is not in new files, adding it to del_files"));
    EXPECT_THAT(ScriptedUser::instance().questions, IsEmpty());
}

TEST_F(LocalUpdate, FileOfAnotherPackageEndsIt) {
    put(live + "/x", "");
    repo.install(simple("other"), {"/srv/t/x"});
    Paths before{}, after{"x"};
    EXPECT_EQ(check(before, after), -1);
    EXPECT_FALSE(has_del || has_add);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_chk_local_update: /srv/t/x is on disk and belongs to package other, "
                        "aborting"));
}

TEST_F(LocalUpdate, AsksAboutFilesOfNobody) {
    for (const char *name : {"a", "b", "c", "d"}) {
        put(live + "/" + name, "");
    }
    Paths after{"a", "b", "c", "d"};
    ScriptedUser::instance().answers = {"l", "r", "L"};
    EXPECT_EQ(check(nullptr, after), 0);
    EXPECT_THAT(add, ElementsAre("/srv/t/b"));
    const auto &questions = ScriptedUser::instance().questions;
    ASSERT_EQ(questions.size(), 3u);
    EXPECT_EQ(questions[0].text,
              "The file /srv/t/a already exists on the filesystem. Choose your action");
    EXPECT_EQ(questions[0].default_answer, "r");
    EXPECT_EQ(questions[0].choices.size(), 5u);
    EXPECT_TRUE(debug("/srv/t/a is on disk, but does not belong to any package, skipping"));
    EXPECT_TRUE(debug("/srv/t/b is on disk, but does not belong to any package, will overwrite"));
    EXPECT_TRUE(debug("/srv/t/d is on disk, but does not belong to any package, skipping"));

    ScriptedUser::fresh().answers = {"R"};
    EXPECT_EQ(check(nullptr, after), 0);
    EXPECT_EQ(add.size(), 4u);
    EXPECT_EQ(ScriptedUser::instance().questions.size(), 1u);
}

TEST_F(LocalUpdate, AbortAndNoAnswerEndIt) {
    put(live + "/a", "");
    Paths after{"a"};
    for (const char *answer : {"a", ""}) {
        ScriptedUser &user = ScriptedUser::fresh();
        if (*answer) {
            user.answers = {answer};
        }
        log.clear();
        EXPECT_EQ(check(nullptr, after), -1);
        EXPECT_FALSE(has_add);
        EXPECT_TRUE(
            log.has(LEVEL_ERROR,
                    "aborting installation on already existing file not belonging to any package"));
    }
}
