// Nothing that the signature doesn't cover is believed: package files with another's head,
// catalogues that say something else, and files that are exchanged on the way.
#include "transaction/executor_fixture.h"
#include "transaction/fetch.h"
#include "transaction/plan_update.h"
#include "transaction/scripts.h"
#include "transaction/update.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class SignedRecord : public ExecutorTest {
 protected:
    // Puts a package file into the catalogue whose head is that of `head`, in front of the signed
    // payload of `payload`.
    std::string offer_with_head(const PackageSpec &head, const PackageSpec &payload) {
        const std::string path = files / (head.name + ".vrk");
        make_package_with_head(head, payload, path);
        catalogue.files[head.name] = path;
        return path;
    }
    // The same with the payload's bytes, signed as they are.
    void offer_payload(const PackageSpec &head, const std::string &bytes) {
        const TempDir temp;
        temp.write("payload", bytes);
        std::ofstream(temp / "signature", std::ios::binary)
            << Signer::standard().sign(temp / "payload");
        const std::string path = files / (head.name + ".vrk");
        write_package(path, "EVRM20",
                      description_of(head) + "evrkRsaSigSubj: " + Signer::standard().subject +
                          "\nevrkRsaSigData:: " +
                          must_run("openssl base64 -A -in " + (temp / "signature")) + "\n",
                      temp / "payload");
        catalogue.files[head.name] = path;
    }

    void install_now(const PackageSpec &spec) {
        offer(spec);
        ASSERT_EQ(install(spec.name), 0);
        log.clear();
    }
    int update(const std::string &request) {
        vrt *transaction = nullptr;
        vrm_pre_update(repo.handle(), &catalogue, request.c_str(), nullptr, nullptr, nullptr,
                       &transaction);
        own_vrt owner(transaction);
        EXPECT_TRUE(transaction) << "no plan for " << request;
        return transaction ? vrm_exe_update(repo.handle(), &transaction, &catalogue, 0, 0) : -1000;
    }

    // Every file of the machine that a change may touch, with its content; the stage area aside.
    std::map<std::string, std::string> machine() const {
        std::map<std::string, std::string> all;
        for (const std::string &dir : {live, repo.in("installed"), repo.in("fileindex")}) {
            for (const auto &entry : fs::recursive_directory_iterator(dir)) {
                all[entry.path().string()] =
                    entry.is_regular_file() ? read_all(entry.path().string()) : "";
            }
        }
        all[action_log] = exists(action_log) ? read_all(action_log) : "none";
        return all;
    }

    // Installs `name`, which must be refused with one reason and change nothing.
    void expect_refused(const std::string &name, const std::string &puname,
                        const std::string &why) {
        const auto before = machine();
        log.clear();
        EXPECT_EQ(install(name), -1);
        EXPECT_EQ(machine(), before);
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    ElementsAre("vrm_install_vrk: cannot install " + name + ".vrk: " + why,
                                StartsWith("installation of " + puname + " failed with rc=-1")));
        EXPECT_TRUE(exists(staged(puname) + "/new")) << "left for a look at it";
        EXPECT_TRUE(exists(staged(puname) + ".vrk"));
    }
    void expect_update_refused(const std::string &name, const std::string &why) {
        const auto before = machine();
        EXPECT_EQ(update(name), -1);
        EXPECT_EQ(machine(), before);
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    Contains("vrm_update_vrk: cannot install " + name + ".vrk: " + why));
    }

    // A script that would leave a trace on the machine.
    static PackageSpec with_scripts(PackageSpec spec) {
        for (const char *script : {"00-add.sh", "99-add.sh", "99-cfg.sh"}) {
            spec.init[script] = "echo ran >>/srv/t/ran\n";
        }
        return spec;
    }
    static PackageSpec version(PackageSpec spec, const std::string &version) {
        spec.version = version;
        return spec;
    }
};

}  // namespace

TEST_F(SignedRecord, AnOldPayloadUnderAHigherVersionIsRefused) {
    const PackageSpec old = with_scripts(simple("hello"));
    install_now(version(simple("hello"), "2.0"));
    offer_with_head(version(old, "3.0"), old);
    expect_update_refused("hello",
                          "its head says hello 3.0, its signed description says hello 1.0");
    const own_vri entry(vrm_vrl_info(repo.handle(), "hello"));
    EXPECT_STREQ(entry->version, "2.0");
}

TEST_F(SignedRecord, APayloadUnderAnotherNameIsRefused) {
    install_now(simple("pam"));
    offer_with_head(version(simple("pam"), "999"), with_scripts(simple("hello")));
    expect_update_refused("pam", "its head says pam 999, its signed description says hello 1.0");
    EXPECT_EQ(read_all(live + "/pam"), "file of pam\n");

    offer_with_head(simple("bash"), with_scripts(simple("other")));
    expect_refused("bash", "bash_any_1.0",
                   "its head says bash 1.0, its signed description says other 1.0");
}

TEST_F(SignedRecord, APayloadWithoutADescriptionIsRefused) {
    offer_payload(simple("foo"), "");
    expect_refused("foo", "foo_any_1.0", "it has no signed description (info/desc.txt)");
    offer_payload(simple("bar"), "no archive\n");
    expect_refused("bar", "bar_any_1.0", "it has no signed description (info/desc.txt)");
    PackageSpec spec = with_scripts(simple("baz"));
    spec.desc_in_info = false;
    offer(spec);
    expect_refused("baz", "baz_any_1.0", "it has no signed description (info/desc.txt)");
    spec = with_scripts(simple("qux"));
    spec.info["desc.txt"] = "evrkName: qux\n";
    offer(spec);
    expect_refused("qux", "qux_any_1.0",
                   "its signed description (info/desc.txt) is not a valid description");
}

TEST_F(SignedRecord, AnEarlierAttemptDoesNotVouchForAPayload) {
    PackageSpec spec = simple("foo");
    offer_payload(spec, "");
    const TempDir left;
    write_tree(spec, left / "new");
    fs::create_directories(staged("foo_any_1.0"));
    fs::copy(left / "new", staged("foo_any_1.0") + "/new", fs::copy_options::recursive);
    expect_refused("foo", "foo_any_1.0", "it has no signed description (info/desc.txt)");
}

TEST_F(SignedRecord, EveryFieldOfTheHeadMustBeSigned) {
    struct example {
        PackageSpec head;
        std::string puname, why;
    };
    const PackageSpec sound = with_scripts(simple("foo", {"dep"}));
    PackageSpec deps = sound, arch = sound, variant = sound, size = sound, creator = sound,
                description = sound;
    deps.deps = {};
    arch.arch = "x86_64";
    variant.variant = "small";
    size.more = "evrkDataSize: 1\n";
    creator.creator = "Somebody";
    description.description = "$(touch /srv/t/ran)";
    const std::string both = "its head and its signed description differ in the ";
    offer(simple("dep"));
    ASSERT_EQ(install("dep"), 0);
    for (const example &given :
         {example{deps, "foo_any_1.0", both + "dependencies"},
          example{arch, "foo_x86_64_1.0",
                  "its head says foo 1.0 for x86_64, its signed description says foo 1.0 for any"},
          example{variant, "foo_small_any_1.0",
                  "its head says foo 1.0 variant \"small\", its signed description says foo 1.0 "
                  "without a variant"},
          example{size, "foo_any_1.0", both + "data size"},
          example{creator, "foo_any_1.0", both + "creator"},
          example{description, "foo_any_1.0", both + "description"}}) {
        offer_with_head(given.head, sound);
        expect_refused("foo", given.puname, given.why);
    }
}

TEST_F(SignedRecord, TheCatalogueMustSayTheSame) {
    offer(with_scripts(simple("foo")));
    own_vrt transaction = plan("foo");
    free(transaction->info->version);
    transaction->info->version = strdup("2.0");
    auto before = machine();
    EXPECT_EQ(run(transaction), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_vrk: cannot install foo.vrk: the catalogue says foo 2.0, its "
                        "signed description says foo 1.0"));

    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    transaction = plan("top");
    free(transaction->deps[0]->info->creator);
    transaction->deps[0]->info->creator = strdup("Somebody");
    before = machine();
    EXPECT_EQ(run(transaction), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_vrk: cannot install dep.vrk: the catalogue and its signed "
                        "description differ in the creator"));

    // A record that was not looked up in the catalogue.
    transaction = plan(files / "foo.vrk");
    free(transaction->info->description);
    transaction->info->description = strdup("other");
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_vrk: cannot install foo.vrk: the plan and its signed "
                        "description differ in the description"));
}

// They are in no plan; what a catalogue doesn't know it doesn't say differently.
TEST_F(SignedRecord, ACatalogueNeedNotKnowCreatorAndDataSize) {
    PackageSpec spec = simple("foo");
    spec.more = "evrkDataSize: 12\n";
    offer(spec);
    own_vrt transaction = plan("foo");
    free(transaction->info->creator);
    transaction->info->creator = nullptr;
    transaction->info->datasize = 0;
    EXPECT_EQ(run(transaction), 0);
    const own_vri entry(vrm_vrl_info(repo.handle(), "foo"));
    EXPECT_STREQ(entry->creator, "Test");
    EXPECT_EQ(entry->datasize, 12U);
}

TEST_F(SignedRecord, AControlCharacterInTheAddressIsNotShown) {
    offer(simple("foo"));
    own_vrt transaction = plan("foo");
    free(transaction->info->relative_uri);
    transaction->info->relative_uri = strdup("pool/\nERROR: forged");
    transaction->info->datasize = 5;
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_vrk: cannot install foo_any_1.0.vrk: the catalogue and its "
                        "signed description differ in the data size"));
}

TEST_F(SignedRecord, AFileExchangedBetweenPlanAndFetchIsRefused) {
    offer(simple("foo"));
    own_vrt transaction = plan("foo");
    // Of the same size, and signed: only its SHA-1 differs.
    PackageSpec other = simple("foo");
    other.data["srv/t/foo"] = "file of fox\n";
    const std::string file = catalogue.files["foo"];
    const auto size = fs::file_size(file);
    make_package(other, file);
    transaction->info->filesize = fs::file_size(file);
    EXPECT_NEAR(static_cast<double>(fs::file_size(file)), static_cast<double>(size), 20);
    const auto before = machine();
    EXPECT_EQ(run(transaction), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_exe_install: the fetched file " + staged("foo_any_1.0") +
                            ".vrk is not the planned file: its SHA-1 is " + sha1_of(file) +
                            ", not " + transaction->info->filehash));
    EXPECT_FALSE(exists(staged("foo_any_1.0") + ".vrk"));
    EXPECT_FALSE(exists(staged("foo_any_1.0")));

    // A catalogue that knows no digest leaves it at the size.
    free(transaction->info->filehash);
    transaction->info->filehash = nullptr;
    EXPECT_EQ(run(transaction), 0);
    EXPECT_EQ(read_all(live + "/foo"), "file of fox\n");
}

TEST_F(SignedRecord, AFileExchangedBetweenPlanAndCopyIsRefused) {
    const std::string file = files / "foo.vrk";
    make_package(simple("foo"), file);
    own_vrt transaction = plan(file);
    PackageSpec other = simple("foo");
    other.data["srv/t/foo"] = "file of fox\n";
    make_package(other, file);
    const auto before = machine();
    EXPECT_EQ(run(transaction), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_exe_install: " + file + " is not the planned file: its SHA-1 is " +
                            sha1_of(file) + ", not " + transaction->info->filehash));
    EXPECT_FALSE(exists(staged("foo_any_1.0") + ".vrk"));
    EXPECT_TRUE(exists(file));

    EXPECT_EQ(vrm_stage_file(repo.handle(), transaction->info, 0), -1);
    EXPECT_FALSE(exists(staged("foo_any_1.0") + ".vrk"));
}

TEST_F(SignedRecord, AStagedFileThatTheUserNamesIsKeptWhenItChanged) {
    const std::string file = staged("foo_any_1.0") + ".vrk";
    make_package(simple("foo"), file);
    own_vrt transaction = plan(file);
    make_package(with_scripts(simple("foo")), file);
    EXPECT_EQ(run(transaction), -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre(StartsWith("vrm_exe_install: " + file + " is not the planned file")));
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(machine(), Contains(testing::Key(action_log)));
    EXPECT_FALSE(is_installed("foo"));
}

// Its files are those of its record's name: the update would delete another package's.
TEST_F(SignedRecord, AnEntryOfAnotherPackageIsNotUpdated) {
    install_now(simple("pam"));
    install_now(simple("hello"));
    fs::remove_all(repo.in("installed/pam"));
    fs::copy(repo.in("installed/hello"), repo.in("installed/pam"), fs::copy_options::recursive);
    offer(version(simple("pam"), "2.0"));
    offer(version(simple("hello"), "2.0"));
    vrt *transaction = nullptr;
    vrm_pre_update(repo.handle(), &catalogue, "hello", nullptr, nullptr, nullptr, &transaction);
    own_vrt owner(transaction);
    ASSERT_TRUE(transaction);
    vrk_info_free(transaction->info);
    transaction->info = vrm_vrf_info(repo.handle(), catalogue.files["pam"].c_str(), 0);
    const auto before = machine();
    EXPECT_EQ(vrm_exe_update(repo.handle(), &transaction, &catalogue, 0, 0), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_update_vrk: cannot update pam: its entry in the inventory is that of "
                        "hello"));
}

TEST_F(SignedRecord, HooksSeeTheSignedRecordAndTheVerifiedSigner) {
    hook("data:*",
         "/bin/echo ${evrkName} ${evrkVersion} ${evrkCreator} ${evrkRsaSigSubj} "
         "${evrkSignature}");
    PackageSpec spec = simple("foo");
    // A signer of its own choice in the signed text is not the one that was verified.
    spec.info["desc.txt"] = description_of(spec) + "evrkRsaSigSubj: /CN=$(touch /srv/t/ran)\n";
    offer(spec);
    own_vrt transaction = plan("foo");
    EXPECT_EQ(run(transaction), 0);
    EXPECT_STREQ(ekva_getval(transaction->hookcmds, "foo"),
                 "/bin/echo foo 1.0 Test /O=Test/CN=Builder Verified");
}

TEST_F(SignedRecord, NothingOfAnUnsignedHeadReachesAShell) {
    hook("data:*", "/bin/echo \"${evrkDescription} ${evrkCreator} ${evrkDependency}\"");
    const PackageSpec sound = simple("foo");
    PackageSpec description = sound, creator = sound, dependency = sound;
    description.description = "A $(touch /srv/t/ran) thing";
    creator.creator = "`touch /srv/t/ran`";
    for (const PackageSpec &head : {description, creator}) {
        offer_with_head(head, sound);
        own_vrt transaction = plan("foo");
        const auto before = machine();
        EXPECT_EQ(run(transaction), -1);
        vrm_exe_hooks(transaction->hookcmds);
        EXPECT_EQ(machine(), before);
        EXPECT_EQ(ekva_getval(transaction->hookcmds, "foo"), nullptr);
    }
}

TEST_F(SignedRecord, ASoundPackageSaysWhatItAlwaysSaid) {
    offer(simple("foo"));
    EXPECT_EQ(install("foo", 1), 0);
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
    EXPECT_THAT(
        log.at(LEVEL_INFO),
        ElementsAre("getting foo_any_1.0.vrk", "unpacking foo_any_1.0.vrk", "verifying foo_any_1.0",
                    "installing foo_any_1.0", "installation of foo_any_1.0 succeeded"));
}

// ---- What brings dependencies in ----

TEST_F(SignedRecord, ADependencyThatOnlyTheHeadClaimsIsNotInstalled) {
    offer(with_scripts(simple("extra")));
    offer_with_head(simple("foo", {"extra"}), simple("foo"));
    const auto before = machine();
    const std::string refusal =
        "vrm_exe_install: cannot install foo.vrk: its head and its signed description differ in "
        "the dependencies";
    EXPECT_EQ(install("foo"), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre(refusal));

    // The same of a dependency.
    offer(simple("top", {"foo"}));
    log.clear();
    EXPECT_EQ(install("top"), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre(refusal));
}

TEST_F(SignedRecord, ADependencyOfAnUpgradeThatOnlyTheHeadClaimsIsNotInstalled) {
    install_now(simple("foo"));
    offer(with_scripts(simple("extra")));
    offer_with_head(version(simple("foo", {"extra"}), "2.0"), version(simple("foo"), "2.0"));
    const auto before = machine();
    EXPECT_EQ(update("foo"), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                Contains("vrm_exe_update: cannot install foo.vrk: its head and its signed "
                         "description differ in the dependencies"));
}

TEST_F(SignedRecord, ADependencyOfAPackageThatNobodySignedIsNotInstalled) {
    offer(with_scripts(simple("extra")));
    PackageSpec spec = simple("foo", {"extra"});
    spec.sign = false;
    offer(spec);
    const auto before = machine();
    EXPECT_EQ(install("foo"), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "Failure verifying signature of " + staged("foo_any_1.0") + ".vrk"));
}

TEST_F(SignedRecord, ADependencyThatOnlyTheCatalogueClaimsIsNotInstalled) {
    offer(with_scripts(simple("extra")));
    offer(simple("foo", {"extra"}));
    own_vrt transaction = plan("foo");
    // The package is not the one that the record is of, and the catalogue knows no hash.
    const std::string file = offer(simple("foo"));
    vri *record = transaction->info;
    free(record->filehash);
    record->filehash = nullptr;
    record->filesize = fs::file_size(file);
    const auto before = machine();
    EXPECT_EQ(run(transaction), -1);
    EXPECT_EQ(machine(), before);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_exe_install: cannot install foo.vrk: the catalogue and its signed "
                            "description differ in the dependencies"));
}

TEST_F(SignedRecord, OnlyARecordOfTheCatalogueMayKnowNoCreator) {
    const std::string file = offer(simple("foo"));
    for (const bool is_file : {true, false}) {
        own_vrt transaction = plan(is_file ? file : "foo");
        free(transaction->info->creator);
        transaction->info->creator = nullptr;
        EXPECT_EQ(run(transaction), is_file ? -1 : 0);
        EXPECT_EQ(is_installed("foo"), !is_file);
    }
}
