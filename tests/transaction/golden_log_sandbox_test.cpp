// The log of a change, line by line, DEBUG included: of each executor a success, and a failure of
// each stage that can fail. The files are in tests/transaction/golden; its README.md says how they
// are written anew.
#include <regex>

#include "kit/golden.h"
#include "kit/sorted_directories.h"
#include "transaction/change_cases.h"

using testing::ElementsAreArray;

namespace {

const std::string golden_directory = std::string(VRM_SOURCE_DIR) + "/tests/transaction/golden";

// Temporary directories of the tests, and so the repository, on the file system of what is
// installed: there files are linked and moved, elsewhere they are copied.
class OneFileSystem {
 protected:
    OneFileSystem() {
        fs::create_directories("/srv/tmp");
        setenv("TMPDIR", "/srv/tmp", 1);
    }
    ~OneFileSystem() {
        unsetenv("TMPDIR");
    }
    OneFileSystem(const OneFileSystem &) = delete;
    OneFileSystem &operator=(const OneFileSystem &) = delete;
};

class LoggedChange : public CaseOfChange {
 protected:
    // Makes the change of a case. Its log is compared.
    void expect_log_of(const change_case &wanted, const std::string &name) {
        prepare_case(wanted);
        EXPECT_EQ(run_case(wanted), wanted.result);
        expect_golden(golden_directory + "/" + name + ".log", text());
        forget_hooks();
    }

    // The log with what is another in each run replaced.
    std::string text() const {
        std::string text = log.text();
        for (const auto &[what, by] :
             {std::pair<std::string, std::string>{repo.root(), "REPO"}, {files.path(), "FILES"}}) {
            for (size_t at = 0; (at = text.find(what, at)) != std::string::npos;) {
                text.replace(at, what.size(), by);
            }
        }
        // A package's size depends on what it was made of: inodes and times are in its head.
        for (const auto &[what, by] : {
                 std::pair<const char *, const char *>{"Got \\d+ bytes of package",
                                                       "Got SIZE bytes of package"},
                 {"(Valid (from|until)): [-0-9: ]+", "$1: TIME"},
             }) {
            text = std::regex_replace(text, std::regex(what), by);
        }
        return text;
    }

    const SortedDirectories sorted = {};
};

class GoldenLog : public OneFileSystem,
                  public LoggedChange,
                  public testing::WithParamInterface<change_case> {};

class GoldenLogOfTwoFileSystems : public LoggedChange,
                                  public testing::WithParamInterface<change_case> {};

std::vector<change_case> successes() {
    std::vector<change_case> all = all_cases();
    std::erase_if(all, [](const change_case &one) { return one.result != 0; });
    return all;
}

}  // namespace

TEST_P(GoldenLog, IsAsKept) {
    expect_log_of(GetParam(), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(, GoldenLog, testing::ValuesIn(all_cases()), name_of_case);

TEST_P(GoldenLogOfTwoFileSystems, IsAsKept) {
    expect_log_of(GetParam(), GetParam().name + "-two-file-systems");
}

INSTANTIATE_TEST_SUITE_P(, GoldenLogOfTwoFileSystems, testing::ValuesIn(successes()), name_of_case);

// Several packages: the order of their lines, and rmpkg.
TEST_F(LoggedChange, OfSeveralPackages) {
    offer(simple("low"));
    PackageSpec middle = simple("middle", {"low"});
    offer(middle);
    prepare(operation::install, {}, version(simple("foo", {"middle"}), "1.0"));
    EXPECT_EQ(change(1), 0);
    expect_golden(golden_directory + "/install-dependencies.log", text());

    offer(simple("new"));
    offer(version(simple("foo", {"middle", "new"}), "2.0"));
    what_ = operation::update;
    plan_anew();
    EXPECT_EQ(change(1), 0);
    expect_golden(golden_directory + "/update-dependencies.log", text());

    what_ = operation::removal;
    plan_anew();
    EXPECT_EQ(change(), 0);
    expect_golden(golden_directory + "/removal-dependencies.log", text());
}

// A file that no test reads would be taken for an expectation.
TEST(GoldenLogs, AreAllOfACase) {
    std::vector<std::string> names = {"README.md", "install-dependencies.log",
                                      "update-dependencies.log", "removal-dependencies.log"};
    for (const change_case &one : all_cases()) {
        names.push_back(one.name + ".log");
    }
    for (const change_case &one : successes()) {
        names.push_back(one.name + "-two-file-systems.log");
    }
    std::sort(names.begin(), names.end());
    EXPECT_THAT(tree(golden_directory), ElementsAreArray(names));
}
