// The reports of one package.
#include "maintenance/report.h"

#include <gmock/gmock.h>

#include "kit/capture.h"
#include "maintenance/report_kit.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

class PackageReport : public Report {
 protected:
    std::string to_file(const vri *package, unsigned mode, unsigned format) {
        return written([&](FILE *out) {
            stderr_text_ =
                stderr_of([&] { EXPECT_EQ(vrm_vrk_info_write(package, out, mode, format, 1), 0); });
        });
    }
    std::string to_user(const vri *package, unsigned mode, unsigned format) {
        stderr_text_ =
            stderr_of([&] { EXPECT_EQ(vrm_vrk_info_write(package, nullptr, mode, format, 1), 0); });
        EXPECT_THAT(user_.messages, SizeIs(1));
        return user_.messages.empty() ? "" : user_.messages.back();
    }
    Fields form_of(const vri *package, unsigned mode) {
        EXPECT_EQ(vrm_vrk_info_write(package, nullptr, mode, 6, 1), 0);
        EXPECT_THAT(user_.forms, SizeIs(1));
        if (user_.forms.empty()) {
            return {};
        }
        EXPECT_EQ(user_.forms[0].heading, "Package details");
        const Fields fields = user_.forms[0].fields;
        user_.forms.clear();
        return fields;
    }
    static std::string value(const Fields &fields, const std::string &key) {
        for (const auto &[name, text] : fields) {
            if (name == key) {
                return text;
            }
        }
        return "(none)";
    }

    std::string stderr_text_;
    own_vri full_ = full_package();
    own_vri bare_ = bare_package();
};

using PackageForm = PackageReport;
using PackageText = PackageReport;
using PackageLdif = PackageReport;
using PackageLine = PackageReport;

}  // namespace

// ---- The form ----

TEST_F(PackageForm, ShowsAnInstalledPackage) {
    EXPECT_THAT(
        form_of(full_.get(), 2),
        ElementsAre(Pair("Name", "editor"), Pair("Variant", "small"), Pair("Version", "2.10"),
                    Pair("Architecture", "x86_64"), Pair("Creator", "Jane Doe <jane@example.org>"),
                    Pair("Description", "A small editor"),
                    Pair("Signature", "Successfully verified"), Pair("Dependency", "libtext"),
                    Pair("Dependency", "terminal"), Pair("Data size", "1.50 MB"),
                    Pair("Installed at", "2023-11-14 22:13:20"),
                    Pair("Installed as", "Dependency of desk"),
                    Pair("Last updated at", "2024-07-03 09:46:40")));
    EXPECT_THAT(log_.at(LEVEL_DEBUG), ElementsAre("vrm_vrk_info_write: list_format = 6"));
    EXPECT_THAT(user_.messages, IsEmpty());
}

TEST_F(PackageForm, ShowsTheFileSizeOfAPackageFileAlone) {
    const Fields fields = form_of(full_.get(), 3);
    EXPECT_EQ(value(fields, "File size"), "2.0 kB");
    EXPECT_EQ(fields.back().first, "File size");
    const Fields installed = form_of(full_.get(), 2);
    EXPECT_EQ(value(installed, "File size"), "(none)");
    EXPECT_EQ(value(installed, "Installed at"), "2023-11-14 22:13:20");
}

TEST_F(PackageForm, OfTheCatalogueShowsNeither) {
    EXPECT_EQ(form_of(full_.get(), 1).back(),
              std::make_pair(std::string("Data size"), std::string("1.50 MB")));
}

// The user interface can't draw a field without a value.
TEST_F(PackageForm, HasACreatorAlsoWhereThereIsNone) {
    EXPECT_THAT(form_of(bare_.get(), 2),
                ElementsAre(Pair("Name", "base"), Pair("Version", "1"), Pair("Architecture", "any"),
                            Pair("Creator", ""), Pair("Description", "The base"),
                            Pair("Data size", "0 bytes")));
    vri nothing = {};
    EXPECT_THAT(form_of(&nothing, 3),
                ElementsAre(Pair("Name", ""), Pair("Version", ""), Pair("Architecture", ""),
                            Pair("Creator", ""), Pair("Data size", "0 bytes"),
                            Pair("File size", "0 bytes")));
}

TEST_F(PackageForm, TellsTheSignatureInWords) {
    const std::pair<int, const char *> words[] = {
        {1, "Successfully verified"},
        {0, "(none)"},
        {-1, "Missing signature"},
        {-2, "Untrusted signature"},
        {-4, "(none)"},
        {-3, "Invalid signature"},
        {-5, "(none)"},
    };
    for (const auto &[status, text] : words) {
        full_->sig_status = status;
        EXPECT_EQ(value(form_of(full_.get(), 3), "Signature"), text) << status;
    }
}

TEST_F(PackageForm, TellsWhyAPackageIsInstalled) {
    full_->install_type = 'X';
    EXPECT_EQ(value(form_of(full_.get(), 2), "Installed as"), "Explicit request");
    full_->install_type = 'D';
    free(full_->install_head);
    full_->install_head = strdup(std::string(300, 'h').c_str());
    EXPECT_EQ(value(form_of(full_.get(), 2), "Installed as"),
              "Dependency of " + std::string(240, 'h'));  // 254 characters in all
    full_->install_type = 0;
    EXPECT_EQ(value(form_of(full_.get(), 2), "Installed as"), "(none)");
}

TEST_F(PackageForm, WithoutTimesShowsNone) {
    full_->install_time = 0;
    full_->update_times[0] = 0;
    const Fields fields = form_of(full_.get(), 2);
    EXPECT_EQ(value(fields, "Installed at"), "(none)");
    EXPECT_EQ(value(fields, "Last updated at"), "(none)");
}

// ---- Text ----

TEST_F(PackageText, GoesToAFile) {
    EXPECT_EQ(to_file(full_.get(), 2, 1), expected("package.text"));
    EXPECT_THAT(log_.at(LEVEL_DEBUG), ElementsAre("Writing info to file"));
    // The user interface is emptied and shown nevertheless.
    EXPECT_THAT(user_.messages, ElementsAre(""));
    EXPECT_EQ(stderr_text_, "vrmui_write_info (1) called with:\n\n");
}

TEST_F(PackageText, GoesToTheUserInPlaceOfEarlierText) {
    vrmui_line_new(vrmui, "earlier");
    EXPECT_EQ(to_user(full_.get(), 2, 1), expected("package.text"));
    EXPECT_THAT(log_.at(LEVEL_DEBUG), ElementsAre("Writing info to ui"));
    EXPECT_EQ(stderr_text_,
              "vrmui_write_info (1) called with:\n" + expected("package.text") + "\n");
}

TEST_F(PackageText, WithoutDetailsIsShort) {
    EXPECT_EQ(to_file(bare_.get(), 1, 1), expected("bare.text"));
}

TEST_F(PackageText, WithoutAnInstallTimeHasNoBlankLine) {
    bare_->install_type = 'X';
    EXPECT_EQ(to_file(bare_.get(), 2, 1),
              expected("bare.text") + "Installed as: Explicit request\n");
}

TEST_F(PackageText, WithoutAUserGoesToTheFileAlone) {
    vrmui_free(vrmui);
    vrmui = nullptr;
    for (const unsigned format : {1U, 2U, 4U}) {
        EXPECT_NE(to_file(full_.get(), 2, format), "");
        EXPECT_EQ(vrm_vrk_info_write(full_.get(), nullptr, 2, format, 1), 0);
    }
    EXPECT_THAT(user_.messages, IsEmpty());
}

// ---- LDIF ----

TEST_F(PackageLdif, GoesToAFile) {
    EXPECT_EQ(to_file(full_.get(), 2, 2), expected("package.ldif"));
    EXPECT_THAT(user_.messages, ElementsAre(""));
    EXPECT_EQ(stderr_text_, "");
}

TEST_F(PackageLdif, GoesToTheUserInPlaceOfEarlierText) {
    vrmui_line_new(vrmui, "earlier");
    EXPECT_EQ(to_user(full_.get(), 2, 2), expected("package.ldif"));
    EXPECT_EQ(stderr_text_, "");
}

TEST_F(PackageLdif, WithoutDetailsIsShort) {
    EXPECT_EQ(to_file(bare_.get(), 1, 2), expected("bare.ldif"));
}

TEST_F(PackageLdif, LeavesASignatureOfNoBytesOut) {
    bare_->rsa_sig_data = static_cast<unsigned char *>(calloc(1, 1));
    EXPECT_EQ(to_file(bare_.get(), 1, 2), expected("bare.ldif"));
}

// ---- The delimited line ----

TEST_F(PackageLine, GoesToAFile) {
    EXPECT_EQ(to_file(full_.get(), 2, 4), expected("package.delimited"));
    EXPECT_THAT(user_.messages, ElementsAre(""));
    EXPECT_EQ(stderr_text_, "");
}

TEST_F(PackageLine, GoesToTheUser) {
    EXPECT_EQ(to_user(full_.get(), 2, 4), expected("package.delimited"));
}

TEST_F(PackageLine, WhatIsNotSetIsAnEmptyField) {
    own_vri foo = package_of("foo", "1.0", "text");
    foo->arch = arch_i686;
    foo->deps = str2arr("dep1,dep2", ',');
    EXPECT_EQ(to_file(foo.get(), 1, 4), "foo::1.0:i686::dep1|dep2:text\n");
}

TEST_F(PackageLine, NoDependenciesAreAFieldButAnEmptyArrayIsNone) {
    EXPECT_EQ(to_file(bare_.get(), 1, 4), "base::1:any:::The base\n");
    bare_->deps = static_cast<char **>(calloc(1, sizeof(char *)));
    EXPECT_EQ(to_file(bare_.get(), 1, 4), "base::1:any::The base\n");
}

// ---- The others ----

TEST_F(PackageReport, OfAnotherFormShowsNothing) {
    for (const unsigned format : {0U, 3U, 5U, 7U}) {
        vrmui_line_new(vrmui, "earlier");
        EXPECT_EQ(to_file(full_.get(), 2, format), "");
        EXPECT_STREQ(vrmui->text, "");
    }
    EXPECT_THAT(user_.messages, IsEmpty());
    EXPECT_THAT(user_.table_rows, IsEmpty());
}
