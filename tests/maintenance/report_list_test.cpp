// The reports of packages and of actions, and the writer that carries a list to a stream.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "kit/capture.h"
#include "kit/event_receiver.h"
#include "kit/failing_memory.h"
#include "kit/lower_limit.h"
#include "maintenance/report_kit.h"
#include "support/ldif.h"
#include "transaction/vrt.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<std::string> lists_in_tmp() {
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().filename().string().starts_with("vri_list")) {
            found.push_back(entry.path());
        }
    }
    return found;
}

class ListReport : public Report {
 protected:
    ListReport() {
        bare_->install_time = 1700000000;
        bare_->install_type = 'X';
        list_ = {bare_.get(), full_.get()};
        user_.table_result = 0;
    }
    int count() const {
        return static_cast<int>(list_.size());
    }
    int write(FILE *out, int mode, int format, int deps = 0) {
        return vrm_vrk_list_write(out, list_.data(), count(), mode, format, deps);
    }
    std::string to_file(int mode, int format) {
        return written([&](FILE *out) { EXPECT_EQ(write(out, mode, format), 0); });
    }

    own_vri full_ = full_package();
    own_vri bare_ = bare_package();
    std::vector<vri *> list_;
};

using ListText = ListReport;
using ListLdif = ListReport;
using ListCsv = ListReport;
using ListTable = ListReport;
using ListFile = ListReport;
using Ftable = ListReport;

}  // namespace

// ---- Text ----

TEST_F(ListText, ColumnsStayAlignedWhereNamesAreCut) {
    const char *const long_name = "abcdefghijklmnopqrstuvwxyz1234";
    const own_vri plain = package_of(long_name, "3", "A name of thirty characters");
    own_vri in_variant = package_of(long_name, "3.1", "The same in a variant");
    in_variant->variant = strdup("x");
    list_.push_back(plain.get());
    list_.push_back(in_variant.get());
    EXPECT_EQ(to_file(2, 1), expected("list.text"));
    // The form and every unknown format are the same.
    EXPECT_EQ(to_file(2, 6), expected("list.text"));
    EXPECT_EQ(to_file(1, 3), expected("list.text"));
    EXPECT_EQ(to_file(7, -1), expected("list.text"));
}

TEST_F(ListText, OfNothingIsItsHeader) {
    list_.clear();
    EXPECT_EQ(to_file(2, 1), expected("empty.text"));
    EXPECT_EQ(written([](FILE *out) { vrm_vrk_list_write(out, nullptr, 0, 2, 1, 0); }),
              expected("empty.text"));
}

TEST_F(ListText, TellsItsStepsToTheLog) {
    to_file(2, 1);
    EXPECT_THAT(log_.at(LEVEL_DEBUG),
                ElementsAre("Writing list to file", "Opening table", "adding 1 entry",
                            "adding 2 entry", "Closing table"));
    EXPECT_THAT(user_.files, IsEmpty());
    EXPECT_THAT(user_.messages, IsEmpty());
}

// ---- LDIF ----

TEST_F(ListLdif, HoldsWhatTheModeKnows) {
    EXPECT_EQ(to_file(1, 2), expected("catalogue.ldif"));
    EXPECT_EQ(to_file(2, 2), expected("installed.ldif"));
    EXPECT_THAT(log_.at(LEVEL_DEBUG), testing::Contains("Ldif needs no header"));
}

TEST_F(ListLdif, IsReadByTheReaderOfTheFormat) {
    free(full_->description);
    full_->description = strdup(" begins with a blank, größer als sonst\nand with two lines");
    const std::string text = to_file(1, 2);
    s_ekva ***records = nullptr;
    ASSERT_EQ(ldif2ekva_list(&records, text.c_str(), nullptr), 2);
    const own_ekva_list owner(records);
    EXPECT_STREQ(ekva_getval(records[1], "evrkName"), "editor");
    EXPECT_EQ(ekva_cntval(records[1], "evrkDependency"), 2);
    EXPECT_THAT(text, HasSubstr("\nevrkDescription:: "));
}

TEST_F(ListLdif, OfNothingIsAnEmptyLine) {
    list_.clear();
    EXPECT_EQ(to_file(2, 2), "\n");
}

// ---- CSV ----

TEST_F(ListCsv, RowsAreAsTheRecordsAre) {
    EXPECT_EQ(to_file(1, 4), expected("catalogue.delimited"));
    EXPECT_EQ(to_file(2, 4), expected("installed.delimited"));
    const std::string own = to_file(3, 4);
    EXPECT_EQ(own.substr(0, own.find('\n')),
              "evrkName,evrkVariant,evrkVersion,evrkArchitecture,evrkCreator,evrkDescription,"
              "evrkDependency,evrkRsaSigSubj");
}

TEST_F(ListCsv, AnEmptyArrayOfDependenciesIsNoField) {
    bare_->deps = static_cast<char **>(calloc(1, sizeof(char *)));
    list_ = {bare_.get()};
    EXPECT_THAT(to_file(2, 4), HasSubstr("\nbase,,1,any,,The base,0,1700000000,,X\n"));
}

// ---- The table of the user interface ----

TEST_F(ListTable, HasItsColumns) {
    EXPECT_EQ(write(nullptr, 2, 5), 0);
    EXPECT_EQ(user_.table_title, "Found 2 matching installed packages");
    EXPECT_THAT(user_.table_widths, ElementsAre("20", "10", "10", "35"));
    EXPECT_THAT(user_.table_rows,
                ElementsAre(ElementsAre("Name", "Variant", "Version", "Description"),
                            ElementsAre("base", "", "1", "The base"),
                            ElementsAre("editor", "small", "2.10", "A small editor")));
    EXPECT_THAT(user_.row_numbers, ElementsAre(1, 2));
    EXPECT_THAT(log_.at(LEVEL_DEBUG),
                ElementsAre("Writing list to ui", "adding 1 entry", "adding 2 entry"));
}

TEST_F(ListTable, ShowsDependenciesWhenAsked) {
    EXPECT_EQ(write(nullptr, 1, 5, 1), 0);
    EXPECT_EQ(user_.table_title, "Found 2 matching packages in catalogue");
    EXPECT_THAT(user_.table_widths, ElementsAre("20", "10", "10", "35", "30"));
    EXPECT_THAT(
        user_.table_rows,
        ElementsAre(ElementsAre("Name", "Variant", "Version", "Description", "Dependencies"),
                    ElementsAre("base", "", "1", "The base", ""),
                    ElementsAre("editor", "small", "2.10", "A small editor", "libtext,terminal")));
}

TEST_F(ListTable, HasNoTitleInOtherModes) {
    EXPECT_EQ(written([&](FILE *out) { EXPECT_EQ(write(out, 3, 5), 0); }), "");
    EXPECT_EQ(user_.table_title, "");
    EXPECT_THAT(user_.table_rows, SizeIs(3));
}

TEST_F(ListTable, EndsAtOnceWhereThereAreNone) {
    user_.table_result = -1;
    EXPECT_EQ(write(nullptr, 2, 5), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("Error creating ui table"));
    EXPECT_THAT(user_.table_rows, SizeIs(1));
    EXPECT_THAT(user_.files, IsEmpty());
}

TEST_F(ListTable, EveryResultButZeroIsAFailureOfARow) {
    user_.table_results = {0, 0, 7};
    EXPECT_EQ(write(nullptr, 2, 5), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("Error adding entry to ui table"));
    user_.table_results = {7};
    EXPECT_EQ(write(nullptr, 2, 5), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("Error adding entry to ui table", "Error creating ui table"));
}

TEST_F(ListTable, AnEndBelowZeroIsAFailure) {
    user_.table_results = {0, 0, 0, -3};
    EXPECT_EQ(write(nullptr, 2, 5), -3);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("Error writing ui table"));
    user_.table_results = {0, 0, 0, 3};
    EXPECT_EQ(write(nullptr, 2, 5), 0);
    EXPECT_THAT(log_.at(LEVEL_ERROR), SizeIs(1));
}

// ---- The temporary file ----

TEST_F(ListFile, IsShownAndGoneAfterwards) {
    EXPECT_EQ(write(nullptr, 2, 2), 0);
    ASSERT_THAT(user_.files, SizeIs(1));
    EXPECT_EQ(user_.files[0].content, expected("installed.ldif"));
    EXPECT_EQ(user_.files[0].path.substr(0, 13), "/tmp/vri_list");
    EXPECT_EQ(user_.files[0].path.size(), strlen("/tmp/vri_listXXXXXX"));
    EXPECT_FALSE(exists(user_.files[0].path));
    EXPECT_THAT(log_.at(LEVEL_DEBUG),
                ElementsAre("Writing list to ui", "Opening table", "Ldif needs no header",
                            "adding 1 entry", "adding 2 entry", "Closing table", "Writing table"));
}

TEST_F(ListFile, ThatTheUserInterfaceCannotShowIsNoFailure) {
    user_.table_result = -1;
    EXPECT_EQ(write(nullptr, 2, 1), 0);
    ASSERT_THAT(user_.files, SizeIs(1));
    EXPECT_FALSE(exists(user_.files[0].path));
    EXPECT_THAT(log_.at(LEVEL_ERROR), IsEmpty());
}

// A row that lacks a cell would pass for one of a package that has none.
TEST_F(ListTable, HasWholeRowsOrFailsWhenMemoryDoes) {
    vri *const *const packages = list_.data();
    int copies = 0, result = -1;
    for (; result != 0 && copies < 1000; copies++) {
        log_.clear();
        strdups_left = copies;
        result = vrm_vrk_list_write(nullptr, packages, 2, 2, 5, 1);
        strdups_left = -1;
        if (result != 0) {
            EXPECT_EQ(result, -1);
            EXPECT_THAT(log_.at(LEVEL_ERROR),
                        ElementsAre("vrm_vrk_list_write: there is not enough memory"));
        }
    }
    EXPECT_GT(copies, 20);
    EXPECT_LT(copies, 1000);
}

// Files can't be opened or written, the log's own among them: so the events are watched.
namespace {

struct WatchedErrors {
    std::vector<std::string> errors;

    const EventReceiver receiver = EventReceiver([this](const event &happened) {
        if (event_level(happened.kind) == LEVEL_ERROR) {
            errors.push_back(event_line(happened));
        }
    });
};

}  // namespace

TEST_F(ListFile, ThatCannotBeMadeIsAFailure) {
    const WatchedErrors log;
    vri *const *const packages = list_.data();
    int result = 0;
    {
        // Called as it is: the sanitizer needs a descriptor to check what methods are called on.
        const LowerLimit no_more_files(RLIMIT_NOFILE, 3);
        result = vrm_vrk_list_write(nullptr, packages, 2, 2, 1, 0);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.errors, ElementsAre("Error creating tempfile for list: Too many open files"));
    EXPECT_THAT(user_.files, IsEmpty());
}

TEST_F(ListFile, ThatIsNotWhollyWrittenIsNotShownAndGone) {
    const std::vector<std::string> before = lists_in_tmp();
    const WatchedErrors log;
    int result = 0;
    {
        const LowerLimit small_files(RLIMIT_FSIZE, 100);
        result = write(nullptr, 2, 1);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.errors, ElementsAre("Error creating tempfile for list: File too large"));
    EXPECT_THAT(user_.files, IsEmpty());
    EXPECT_EQ(lists_in_tmp(), before);
}

// ---- The writer ----

TEST_F(Ftable, KeepsItsArgumentsAndCountsItsRows) {
    const own_ekva columns(vrk_info_ekva(nullptr, 1));
    const own_ekva record(vrk_info_ekva(bare_.get(), 1));
    const std::string text = written([&](FILE *out) {
        const own_heap<vrm_ftable> table(vrm_ftable_new(out, "title", columns.get(), 1, 1, 5));
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->deps, 5);
        EXPECT_EQ(table->mode, 1);
        EXPECT_EQ(table->format, 1);
        EXPECT_EQ(table->stream, out);
        EXPECT_EQ(table->rows, 0);
        EXPECT_EQ(vrm_ftable_add(table.get(), record.get()), 0);
        EXPECT_EQ(vrm_ftable_add(table.get(), record.get()), 0);
        EXPECT_EQ(table->rows, 2);
        EXPECT_EQ(vrm_ftable_end(table.get(), nullptr), 0);
    });
    EXPECT_THAT(text, testing::Not(HasSubstr("title")));
}

TEST_F(Ftable, TheTextsHeaderIsWrittenAtOnce) {
    const std::string path = dir_ / "header";
    const own_file out(fopen(path.c_str(), "w"));
    const own_ekva columns(vrk_info_ekva(nullptr, 2));
    const own_heap<vrm_ftable> table(vrm_ftable_new(out.get(), "", columns.get(), 2, 1, 0));
    EXPECT_EQ(read_all(path) + "\n", expected("empty.text"));
}

TEST_F(Ftable, LdifPassesOverWhatHasNoValueAndWhatIsBinary) {
    s_ekva **pairs = ekva_new(5, 4);
    ekva_addval(&pairs, "dn", "cn=größe", 0);
    ekva_addval(&pairs, "a", nullptr, 0);
    ekva_addval(&pairs, "b;binary", "AQID", 0);
    ekva_addval(&pairs, "c", "", 0);
    ekva_addval(&pairs, "d", "größe", 0);
    const own_ekva record(pairs);
    EXPECT_EQ(written([&](FILE *out) {
                  const own_heap<vrm_ftable> table(vrm_ftable_new(out, "", nullptr, 1, 2, 0));
                  vrm_ftable_add(table.get(), record.get());
              }),
              "dn: cn=größe\nc: \nd:: Z3LDtsOfZQ==\n\n");
}

// ---- Actions ----

namespace {

class ActionReport : public Report {
 protected:
    ActionReport() {
        user_.table_result = 0;
        add('U', full_.get());
        add('I', bare_.get());
    }
    void add(char action, vri *package) {
        entries_.push_back({action, 'N', package, package->name});
        list_.assign(entries_.size() + 1, nullptr);
        for (size_t i = 0; i < entries_.size(); i++) {
            list_[i] = &entries_[i];
        }
    }
    int write(int format, int sizes) {
        return vrm_vra_list_write(list_.data(), 0, "Planned", format, sizes);
    }

    own_vri full_ = full_package();
    own_vri bare_ = bare_package();
    std::vector<vra> entries_;
    std::vector<vra *> list_;
};

}  // namespace

TEST_F(ActionReport, IsATable) {
    EXPECT_EQ(write(1, 0), 0);
    EXPECT_EQ(user_.table_title, "Planned");
    EXPECT_THAT(user_.table_widths, ElementsAre("10", "25", "10"));
    EXPECT_THAT(user_.table_rows, ElementsAre(ElementsAre("Action", "Package", "Version"),
                                              ElementsAre("update", "editor", "2.10"),
                                              ElementsAre("install", "base", "1")));
    EXPECT_THAT(user_.row_numbers, ElementsAre(1, 2));
    EXPECT_THAT(log_.at(LEVEL_DEBUG), ElementsAre("adding 1 entry", "adding 2 entry"));
}

TEST_F(ActionReport, IsATableInEveryFormButLdif) {
    for (const int format : {0, 1, 3, 4, 5, 6, 7}) {
        user_.table_rows.clear();
        EXPECT_EQ(write(format, 0), 0);
        EXPECT_THAT(user_.table_rows, SizeIs(3)) << format;
    }
}

TEST_F(ActionReport, ShowsSizesInWholeKilobytes) {
    full_->filesize = 2047;
    add('D', bare_.get());
    add('N', bare_.get());
    EXPECT_EQ(write(5, 1), 0);
    EXPECT_THAT(user_.table_widths, ElementsAre("10", "25", "10", "10", "10"));
    EXPECT_THAT(user_.table_rows,
                ElementsAre(ElementsAre("Action", "Package", "Version", "Package size in kb",
                                        "Installed size in kb"),
                            ElementsAre("update", "editor", "2.10", "      1", "   1536"),
                            ElementsAre("install", "base", "1", "      0", "      0"),
                            ElementsAre("delete", "base", "1", "      0", "      0"),
                            ElementsAre("", "base", "1", "      0", "      0")));
}

TEST_F(ActionReport, OfNothingIsAnEmptyTable) {
    EXPECT_EQ(vrm_vra_list_write(nullptr, 0, nullptr, 1, 0), 0);
    EXPECT_THAT(user_.table_rows, SizeIs(1));
    list_ = {nullptr};
    EXPECT_EQ(write(1, 0), 0);
    user_.table_results = {0, -1};
    EXPECT_EQ(write(1, 0), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("Error writing ui table"));
}

TEST_F(ActionReport, AsLdifNeedsNoTables) {
    user_.table_result = -1;
    add('D', bare_.get());
    add('?', bare_.get());
    int result = -1;
    EXPECT_EQ(stdout_of([&] { result = write(2, 1); }), expected("actions.ldif"));
    EXPECT_EQ(result, 0);
    EXPECT_THAT(user_.table_rows, IsEmpty());
    EXPECT_EQ(stdout_of([&] { result = vrm_vra_list_write(nullptr, 0, nullptr, 2, 0); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ActionReport, FailsWhereATableFails) {
    user_.table_results = {-1};
    EXPECT_EQ(write(1, 0), -1);
    user_.table_results = {0, 2};
    EXPECT_EQ(write(1, 0), -1);
    user_.table_results = {0, 0, 0, 2};
    EXPECT_EQ(write(1, 0), 2);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("Error creating ui table", "Error adding entry to ui table",
                            "Error writing ui table"));
}
