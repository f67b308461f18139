#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "kit/temp_dir.h"

// The rule of who may include what.
//
// The library's folders stand in an order. A file of one includes headers of its own folder and of
// those before it. A program, a backend and a tool includes the library, engine.h and its own
// folder. Includes are written in quotes and from src/.
//
// engine.h includes every public header of the library. A header is public unless its opening
// comment says "private to" whom it is; a private one is for the library's own files.

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::array library = {"vrm",        "support",     "ui",         "package",
                                "repository", "transaction", "maintenance"};
constexpr std::array programs = {"gui", "pvrm"};
constexpr std::array groups_of_programs = {"backends", "tools"};

struct Include {
    size_t line;
    std::string path;
    bool quoted;
};

// 0 for the first folder of the library; -1 for any other name.
int rank_of(const std::string &folder) {
    const auto found = std::find(library.begin(), library.end(), folder);
    return found == library.end() ? -1 : static_cast<int>(found - library.begin());
}

template <size_t n>
bool names(const std::array<const char *, n> &list, const std::string &name) {
    return std::find(list.begin(), list.end(), name) != list.end();
}

std::string folder_of(const std::string &path) {
    const size_t slash = path.find('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

// What counts as one program: gui and pvrm, and each folder below backends and tools. Their own
// files, directly in backends or tools, are one program too. Empty for anything else.
std::string program_of(const std::string &path) {
    const std::string top = folder_of(path);
    if (names(groups_of_programs, top)) {
        const std::string below = folder_of(path.substr(top.size() + 1));
        return below.empty() ? top : top + "/" + below;
    }
    return names(programs, top) ? top : "";
}

std::vector<Include> includes_of(const fs::path &file) {
    std::vector<Include> result;
    std::ifstream in(file);
    std::string text;
    for (size_t line = 1; std::getline(in, text); line++) {
        const auto skip_blanks = [&](size_t from) {
            return std::min(text.find_first_not_of(" \t", from), text.size());
        };
        size_t at = skip_blanks(0);
        if (text[at] != '#') {
            continue;
        }
        at = skip_blanks(at + 1);
        if (text.compare(at, 7, "include") != 0) {
            continue;
        }
        at = skip_blanks(at + 7);
        const bool quoted = text[at] == '"';
        const size_t end = text.find(quoted ? '"' : '>', at + 1);
        if (end != std::string::npos) {
            result.push_back({line, text.substr(at + 1, end - at - 1), quoted});
        }
    }
    return result;
}

bool is_private(const fs::path &header) {
    std::ifstream in(header);
    std::string line;
    while (std::getline(in, line) && line.starts_with("//")) {
        if (line.find("rivate to ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

// What is wrong with one include, or nothing.
std::string reason_against(const fs::path &root, const std::string &file, const Include &include) {
    const std::string target_folder = folder_of(include.path);
    const bool ours = rank_of(target_folder) >= 0 || !program_of(include.path).empty() ||
                      include.path == "engine.h";
    if (!include.quoted) {
        return ours ? "is of this tree and so is written in quotes" : "";
    }
    if (!ours || include.path.find("..") != std::string::npos) {
        return "is not written from src/";
    }
    if (!fs::is_regular_file(root / include.path)) {
        return "does not exist";
    }
    if (file == "engine.h") {
        return "";
    }
    if (const int rank = rank_of(folder_of(file)); rank >= 0) {
        const int target = rank_of(target_folder);
        if (target < 0) {
            return "stands above the library";
        }
        return target > rank ? "is of a folder above " + folder_of(file) : "";
    }
    if (rank_of(target_folder) >= 0) {
        return is_private(root / include.path) ? "is private to the library" : "";
    }
    if (include.path != "engine.h" && program_of(include.path) != program_of(file)) {
        return "is another program's";
    }
    return "";
}

// One line for each break of the rule: "<file>:<line>: <include> <reason>" or "<file>: <reason>".
std::vector<std::string> breaks_of_rule(const fs::path &root) {
    std::vector<std::string> result;
    std::set<std::string> in_engine;
    for (const Include &include : includes_of(root / "engine.h")) {
        in_engine.insert(include.path);
    }
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        const std::string file = fs::relative(entry.path(), root).generic_string();
        const std::string kind = entry.path().extension();
        if (!entry.is_regular_file() || (kind != ".h" && kind != ".cpp")) {
            continue;
        }
        const bool in_library = rank_of(folder_of(file)) >= 0;
        if (!in_library && program_of(file).empty() && file != "engine.h") {
            result.push_back(file + ": stands in no folder of the tree");
            continue;
        }
        for (const Include &include : includes_of(entry.path())) {
            const std::string reason = reason_against(root, file, include);
            if (!reason.empty()) {
                result.push_back(file + ":" + std::to_string(include.line) + ": " + include.path +
                                 " " + reason);
            }
        }
        if (in_library && kind == ".h") {
            const bool is_public = !is_private(entry.path());
            if (is_public != in_engine.contains(file)) {
                result.push_back(file + (is_public ? ": is public but not in engine.h"
                                                   : ": is private but in engine.h"));
            }
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}

// A small tree that keeps the rule; each test below breaks it in one place.
class IncludeRule : public testing::Test {
 protected:
    IncludeRule() {
        dir.write("engine.h", "#include \"support/low.h\"\n#include \"package/mid.h\"\n");
        dir.write("support/low.h", "// Low.\n#include <string>\n");
        dir.write("package/mid.h", "// Mid.\n#include \"support/low.h\"\n");
        dir.write("package/inner.h",
                  "// Shared by two files.\n// Private to packages.\n#include <sys/stat.h>\n");
        dir.write("package/mid.cpp", "#include \"package/mid.h\"\n#include \"package/inner.h\"\n");
        dir.write("pvrm/terminal.h", "#include \"package/mid.h\"\n");
        dir.write("pvrm/main.cpp", "#include \"engine.h\"\n#include \"pvrm/terminal.h\"\n");
        dir.write("backends/dirs/dirs.h", "#include \"support/low.h\"\n");
        dir.write("tools/build.cpp", "#include \"package/mid.h\"\n");
    }
    std::vector<std::string> breaks() const {
        return breaks_of_rule(dir.path());
    }
    // A file of this content breaks the rule once.
    void expect_break(const std::string &file, const std::string &content,
                      const std::string &reported) {
        dir.write(file, content);
        EXPECT_THAT(breaks(), ElementsAre(reported));
    }
    TempDir dir;
};

}  // namespace

TEST(SourceTree, KeepsTheIncludeRule) {
    EXPECT_THAT(breaks_of_rule(fs::path(VRM_SOURCE_DIR) / "src"), IsEmpty());
}

// Were the walk to find no file or no include, the test above would pass for ever.
TEST(SourceTree, IsReallyRead) {
    const fs::path root = fs::path(VRM_SOURCE_DIR) / "src";
    EXPECT_THAT(includes_of(root / "engine.h"), SizeIs(testing::Ge(30U)));
    EXPECT_FALSE(includes_of(root / "package/vri.h").empty());
}

TEST_F(IncludeRule, IsKeptByASoundTree) {
    EXPECT_THAT(breaks(), IsEmpty());
}

TEST_F(IncludeRule, RefusesAFolderAboveOnesOwn) {
    expect_break("support/low.cpp", "#include \"support/low.h\"\n\n#  include \"package/mid.h\"\n",
                 "support/low.cpp:3: package/mid.h is of a folder above support");
}

TEST_F(IncludeRule, RefusesAProgramInTheLibrary) {
    expect_break("package/mid.cpp", "#include \"pvrm/terminal.h\"\n",
                 "package/mid.cpp:1: pvrm/terminal.h stands above the library");
}

TEST_F(IncludeRule, RefusesTheWholeEngineInTheLibrary) {
    expect_break("package/mid.cpp", "#include \"engine.h\"\n",
                 "package/mid.cpp:1: engine.h stands above the library");
}

TEST_F(IncludeRule, RefusesAnotherProgram) {
    dir.write("gui/main.cpp", "#include \"pvrm/terminal.h\"\n");
    dir.write("tools/build.cpp", "#include \"backends/dirs/dirs.h\"\n");
    EXPECT_THAT(breaks(),
                ElementsAre("gui/main.cpp:1: pvrm/terminal.h is another program's",
                            "tools/build.cpp:1: backends/dirs/dirs.h is another program's"));
}

TEST_F(IncludeRule, RefusesAnotherBackend) {
    expect_break("backends/web/web.cpp", "#include \"backends/dirs/dirs.h\"\n",
                 "backends/web/web.cpp:1: backends/dirs/dirs.h is another program's");
}

TEST_F(IncludeRule, RefusesAPrivateHeaderInAProgram) {
    expect_break("pvrm/main.cpp", "#include \"package/inner.h\"\n",
                 "pvrm/main.cpp:1: package/inner.h is private to the library");
}

TEST_F(IncludeRule, RefusesPathsThatDontStartAtTheRoot) {
    dir.write("package/mid.cpp", "#include \"mid.h\"\n#include \"package/../package/mid.h\"\n");
    EXPECT_THAT(
        breaks(),
        ElementsAre("package/mid.cpp:1: mid.h is not written from src/",
                    "package/mid.cpp:2: package/../package/mid.h is not written from src/"));
}

TEST_F(IncludeRule, RefusesAngleBracketsForOurOwn) {
    dir.write("support/low.h", "// Low.\n#include <package/mid.h>\n");
    EXPECT_THAT(breaks(), ElementsAre("support/low.h:2: package/mid.h is of this tree and so is "
                                      "written in quotes"));
}

TEST_F(IncludeRule, RefusesAHeaderThatIsNotThere) {
    expect_break("package/mid.cpp", "#include \"package/gone.h\"\n",
                 "package/mid.cpp:1: package/gone.h does not exist");
}

TEST_F(IncludeRule, RefusesAPublicHeaderThatTheEngineLeavesOut) {
    expect_break("support/new.h", "// New.\n", "support/new.h: is public but not in engine.h");
}

TEST_F(IncludeRule, RefusesAPrivateHeaderInTheEngine) {
    dir.write("support/low.h", "// Private to the library.\n");
    EXPECT_THAT(breaks(), testing::Contains("support/low.h: is private but in engine.h"));
}

TEST_F(IncludeRule, RefusesAFileOutsideOfTheFolders) {
    expect_break("misc/odd.cpp", "", "misc/odd.cpp: stands in no folder of the tree");
}
