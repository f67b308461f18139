#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "kit/temp_dir.h"

// The names of types and of source files.
//
// A type is written in snake_case, as functions and constants are. Parameters of templates begin
// with a capital.
//
// A function is declared in the header that has the name of its source: word.h for word.cpp, and
// for word_more.cpp where the source of a header was split by subject.

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// Types of the tables that window programs are built with, and of the digest's usual three calls.
constexpr std::array older_types = {"MyTable", "VraTable", "SHA1_CTX"};

// Headers of an interface that others implement: backends, programs, a file for each word.
constexpr std::array interfaces = {"vrm/vrc_backend.h", "ui/vrmui.h", "pvrm/words.h"};

template <size_t n>
bool contains(const std::array<const char *, n> &list, const std::string &name) {
    return std::find(list.begin(), list.end(), name) != list.end();
}

struct source_file {
    std::string name;  // from src/
    std::vector<std::string> lines;
};

std::vector<source_file> files_of(const fs::path &root) {
    std::vector<source_file> files;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        const std::string kind = entry.path().extension();
        if (kind == ".h" || kind == ".cpp") {
            source_file file{fs::relative(entry.path(), root).generic_string(), {}};
            std::ifstream in(entry.path());
            for (std::string line; std::getline(in, line);) {
                file.lines.push_back(line);
            }
            files.push_back(std::move(file));
        }
    }
    std::sort(files.begin(), files.end(),
              [](const source_file &a, const source_file &b) { return a.name < b.name; });
    return files;
}

// "<file>: <type>" for each type with a capital in its name. A class that is only announced is
// somebody else's.
std::vector<std::string> types_with_capitals(const fs::path &root) {
    static const std::regex type(
        R"(^\s*(?:struct|class|union|enum|enum class|using)\s+(\w*[A-Z]\w*)\s*(?:final\s*)?[:={].*)");
    std::vector<std::string> found;
    for (const source_file &file : files_of(root)) {
        for (const std::string &line : file.lines) {
            std::smatch match;
            if (std::regex_match(line, match, type) && !contains(older_types, match[1])) {
                found.push_back(file.name + ": " + match[1].str());
            }
        }
    }
    return found;
}

// The name of the function whose declaration or definition begins in a line, which is not indented.
std::string function_of(const std::string &line) {
    static const std::regex function(
        R"(^(?!static|inline|constexpr|using|typedef|template|return|namespace|friend|TEST))"
        R"((?:[A-Za-z_][\w:<>,*&]*\s+[*&]*)+(\w+)\(.*)");
    std::smatch match;
    return std::regex_match(line, match, function) ? match[1].str() : "";
}

bool is_source_of(const std::string &source, const std::string &header) {
    const std::string stem = header.substr(0, header.size() - 2);
    return source == stem + ".cpp" || source.starts_with(stem + "_");
}

// "<header>: <function> is in <source>" for each function of a header that sources of other names
// define.
std::vector<std::string> misplaced_functions(const fs::path &root) {
    const std::vector<source_file> files = files_of(root);
    std::map<std::string, std::vector<std::string>> sources_of;
    for (const source_file &file : files) {
        for (const std::string &line : file.lines) {
            if (file.name.ends_with(".cpp") && !line.ends_with(";")) {
                sources_of[function_of(line)].push_back(file.name);
            }
        }
    }
    std::vector<std::string> found;
    for (const source_file &file : files) {
        if (!file.name.ends_with(".h") || contains(interfaces, file.name)) {
            continue;
        }
        for (const std::string &line : file.lines) {
            const std::string function = function_of(line);
            const auto sources = sources_of.find(function);
            if (function.empty() || sources == sources_of.end()) {
                continue;
            }
            const std::vector<std::string> &in = sources->second;
            if (std::none_of(in.begin(), in.end(), [&](const std::string &source) {
                    return is_source_of(source, file.name);
                })) {
                found.push_back(file.name + ": " + function + " is in " + in.front());
            }
        }
    }
    return found;
}

}  // namespace

TEST(SourceTree, NamesTypesInSnakeCase) {
    EXPECT_THAT(types_with_capitals(fs::path(VRM_SOURCE_DIR) / "src"), IsEmpty());
}

TEST(SourceTree, DefinesFunctionsWhereTheirHeaderSays) {
    EXPECT_THAT(misplaced_functions(fs::path(VRM_SOURCE_DIR) / "src"), IsEmpty());
}

TEST(NamesTest, FindATypeWithACapital) {
    TempDir dir;
    dir.write("a.h",
              "class Fl_Box;\nclass good_one {\nstruct BadOne {\n    enum class Bad {\n"
              "using Other = int;\nclass MyTable : public list_table {\n");
    EXPECT_THAT(types_with_capitals(dir.path()),
                ElementsAre("a.h: BadOne", "a.h: Bad", "a.h: Other"));
}

TEST(NamesTest, FindAFunctionInASourceOfAnotherName) {
    TempDir dir;
    dir.write("support/a.h",
              "int one(int n);\nchar **two();\nstd::vector<int> three();\n"
              "static int four();\nconst char *nowhere(int);\n");
    dir.write("support/a.cpp", "int one(int n) {\n");
    dir.write("support/a_more.cpp", "char **two() {\n");
    dir.write("support/b.cpp", "std::vector<int> three() {\nint four() {\n    one(1);\n");
    EXPECT_THAT(misplaced_functions(dir.path()),
                ElementsAre("support/a.h: three is in support/b.cpp"));
}

TEST(NamesTest, FindSomethingToLookAt) {
    const auto files = files_of(fs::path(VRM_SOURCE_DIR) / "src");
    EXPECT_THAT(files, SizeIs(testing::Ge(200U)));
    const auto header = std::find_if(files.begin(), files.end(), [](const auto &file) {
        return file.name == "support/array.h";
    });
    ASSERT_NE(header, files.end());
    EXPECT_GE(std::count_if(header->lines.begin(), header->lines.end(),
                            [](const auto &line) { return !function_of(line).empty(); }),
              10);
}
