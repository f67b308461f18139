// The kit itself: what other tests rest on.
#include <gtest/gtest.h>

#include "kit/capture.h"
#include "kit/package_maker.h"
#include "kit/scripted_user.h"
#include "kit/temp_dir.h"
#include "ui/vrmui.h"

TEST(Capture, HandsBackWhatAStreamGot) {
    EXPECT_EQ(stderr_of([] { fputs("to stderr", stderr); }), "to stderr");
    EXPECT_EQ(stdout_of([] { fputs("to stdout", stdout); }), "to stdout");
}

TEST(Capture, ShellGivesOutputAndStatus) {
    const ShellResult result = shell("echo out; echo err >&2; exit 3");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "out\nerr\n");
    EXPECT_EQ(must_run("printf %s " + shell_word("it's")), "it's");
}

TEST(PackageMaker, PackageHasHeadAndSignedPayload) {
    const TempDir dir;
    PackageSpec spec;
    spec.data["/usr/bin/tool"] = "binary\n";
    spec.init["00-add.sh"] = "exit 0\n";
    make_package(spec, dir / "foo.vrk");
    const std::string bytes = read_all(dir / "foo.vrk");
    ASSERT_EQ(bytes.substr(0, 6), "EVRM20");
    const size_t size = std::stoul(bytes.substr(6, 5));
    const std::string head = bytes.substr(11, size);
    EXPECT_EQ(head.substr(0, 33), "evrmVersion: 2.0\nevrkName: foo\nev");
    EXPECT_NE(head.find("\nevrkRsaSigSubj: /O=Test/CN=Builder\nevrkRsaSigData:: "),
              std::string::npos);
    dir.write("payload", bytes.substr(11 + size));
    EXPECT_EQ(must_run("gzip -dc < " + shell_word(dir / "payload") + " | cpio -t --quiet"),
              "data\ndata/usr\ndata/usr/bin\ndata/usr/bin/tool\nhash\nhash/data.txt\n"
              "hash/info.txt\nhash/init.txt\ninfo\ninfo/desc.txt\ninit\ninit/00-add.sh\n");
    dir.write("signature", Signer::standard().sign(dir / "payload"));
    must_run("openssl x509 -noout -pubkey -in " + shell_word(Signer::standard().cert_file) + " > " +
             shell_word(dir / "public") + " && openssl dgst -sha1 -verify " +
             shell_word(dir / "public") + " -signature " + shell_word(dir / "signature") + " " +
             shell_word(dir / "payload"));
}

TEST(PackageMaker, TreeHasItsHashLists) {
    const TempDir dir;
    PackageSpec spec;
    spec.data["b"] = "";
    spec.data["a b"] = "x";
    spec.conf["etc/foo.conf"] = "";
    spec.dump["kept"] = "";
    spec.without_list = {"dump"};
    spec.hash_lists["conf"] = "own\n";
    spec.modes["data/b"] = 0750;
    write_tree(spec, dir / "tree");
    EXPECT_EQ(read_all(dir / "tree/hash/data.txt"),
              "11f6ad8ec52a2984abaafd7c3b516503785c2072:a b\n"
              "da39a3ee5e6b4b0d3255bfef95601890afd80709:b\n");
    EXPECT_EQ(read_all(dir / "tree/hash/conf.txt"), "own\n");
    EXPECT_FALSE(exists(dir / "tree/hash/dump.txt"));
    EXPECT_EQ(must_run("stat -c %a " + shell_word(dir / "tree/data/b")), "750\n");
    EXPECT_EQ(sha1_of(dir / "tree/data/b"), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(Signer, DatesAndSubjectAreAsAsked) {
    const TempDir dir;
    const Signer expired = Signer::make(dir, "/C=DE/O=Test/OU=Old/CN=Then",
                                        "-startdate 20010101000000Z -enddate 20020101000000Z");
    EXPECT_EQ(expired.subject, "/C=DE/O=Test/OU=Old/CN=Then");
    EXPECT_EQ(must_run("openssl x509 -noout -dates -in " + shell_word(expired.cert_file)),
              "notBefore=Jan  1 00:00:00 2001 GMT\nnotAfter=Jan  1 00:00:00 2002 GMT\n");
    const Signer later =
        Signer::make(dir, "/CN=Later", "-startdate 20450101000000Z -enddate 20490101000000Z");
    EXPECT_EQ(must_run("openssl x509 -noout -startdate -in " + shell_word(later.cert_file)),
              "notBefore=Jan  1 00:00:00 2045 GMT\n");
    const std::string stored = later.trust_in(dir / "store");
    EXPECT_EQ(must_run("openssl x509 -noout -subject_hash -in " + shell_word(stored)) + ".crt",
              stored.substr((dir / "store/").size(), 8) + "\n.crt");
}

TEST(ScriptedUser, AnswersFromItsListAndRecordsTheQuestion) {
    ScriptedUser &user = ScriptedUser::fresh();
    user.answers = {"0"};
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 1), 0);
    EXPECT_EQ(vrmui_yesno(vrmui, "Still sure?", 1), 1);
    ASSERT_EQ(user.questions.size(), 2U);
    EXPECT_EQ(user.questions[0].text, "Sure?");
    EXPECT_EQ(user.questions[0].default_answer, "1");
    ScriptedUser::fresh();
    EXPECT_TRUE(user.questions.empty());
}
