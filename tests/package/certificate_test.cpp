#include "package/certificate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "kit/capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

// What the openssl command prints, without the line end.
std::string openssl(const std::string &arguments) {
    std::string printed = must_run("openssl " + arguments + " 2>&1");
    printed.resize(printed.find_last_not_of('\n') + 1);
    return printed;
}

// A certificate of a key of its own. `more` is for the openssl command.
own_x509 make_certificate(const TempDir &dir, const std::string &key, const std::string &more) {
    openssl("req -x509 -newkey " + key + " -nodes -keyout " + (dir / "key") + " -out " +
            (dir / "cert") + " " + more);
    return certificate_read(dir / "cert", nullptr);
}

std::string fault_of(const std::string &key, const std::string &more) {
    const TempDir dir;
    const own_x509 certificate = make_certificate(dir, key, more);
    EXPECT_NE(certificate, nullptr);
    return certificate ? certificate_fault(certificate.get()) : "";
}

}  // namespace

TEST(CertificateRead, SaysWhyThereIsNone) {
    const TempDir dir;
    std::string why;
    EXPECT_EQ(certificate_read(dir / "none", &why), nullptr);
    EXPECT_EQ(why, "cannot open " + (dir / "none") + ": No such file or directory");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    alarm(120);  // to wait would be to wait for ever
    EXPECT_EQ(certificate_read(dir / "fifo", &why), nullptr);
    alarm(0);
    EXPECT_EQ(why, (dir / "fifo") + " is not a regular file");
    for (const std::string &content :
         {std::string(), std::string("text\n"), read_all(Signer::standard().key_file)}) {
        const std::string path = dir.write("junk", content);
        EXPECT_EQ(certificate_read(path, &why), nullptr);
        EXPECT_EQ(why, path + " holds no certificate in PEM form");
    }
    EXPECT_EQ(certificate_read(dir / "none", nullptr), nullptr);
    EXPECT_EQ(ERR_peek_error(), 0u) << "errors are left in the queue of OpenSSL";
}

TEST(CertificateRead, AsksForNoPassphrase) {
    const TempDir dir;
    openssl("rsa -aes128 -passout pass:x -in " + Signer::standard().key_file + " -out " +
            (dir / "locked"));
    alarm(120);
    EXPECT_EQ(certificate_read(dir / "locked", nullptr), nullptr);
    alarm(0);
}

TEST(Certificate, IsNamedAsOpensslNamesIt) {
    const Signer &signer = Signer::standard();
    const own_x509 certificate = certificate_read(signer.cert_file, nullptr);
    ASSERT_NE(certificate, nullptr);
    EXPECT_EQ(certificate_subject(certificate.get()), signer.subject);
    EXPECT_THAT(openssl("x509 -noout -fingerprint -sha256 -in " + signer.cert_file),
                testing::EndsWith("=" + certificate_fingerprint(certificate.get())));
    EXPECT_EQ(stored_certificate_name(X509_get_subject_name(certificate.get())),
              openssl("x509 -noout -subject_hash -in " + signer.cert_file) + ".crt");
    EXPECT_EQ(certificate_fault(certificate.get()), "");
    EXPECT_EQ(rsa_key_bits(X509_get0_pubkey(certificate.get())), 2048);
    EXPECT_EQ(rsa_key_bits(nullptr), 0);
}

TEST(Certificate, HasTrueDatesAndTheVerificationsValidity) {
    const TempDir dir;
    const Signer late =
        Signer::make(dir, "/O=Late/CN=x", "-startdate 20200102030405Z -enddate 20600102030405Z");
    const own_x509 certificate = certificate_read(late.cert_file, nullptr);
    ASSERT_NE(certificate, nullptr);
    const auto dates = dates_of_certificate(certificate.get());
    ASSERT_TRUE(dates);
    EXPECT_EQ(dates->from, 1577934245);
    EXPECT_EQ(dates->until, time_t{2840238245});
    EXPECT_EQ(certificate_validity(certificate.get(), 1577934244), validity::not_yet);
    EXPECT_EQ(certificate_validity(certificate.get(), 1577934245), validity::expired);
    EXPECT_THAT(certificate_fault(certificate.get()), StartsWith("its dates pass the year 2049"));

    const Signer usual =
        Signer::make(dir, "/O=Usual/CN=x", "-startdate 20200102030405Z -enddate 20400102030405Z");
    const own_x509 other = certificate_read(usual.cert_file, nullptr);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(certificate_validity(other.get(), 1577934244), validity::not_yet);
    EXPECT_EQ(certificate_validity(other.get(), 1577934245), validity::valid);
    EXPECT_EQ(certificate_validity(other.get(), time_t{2209086245}), validity::valid);
    EXPECT_EQ(certificate_validity(other.get(), time_t{2209086246}), validity::expired);
}

TEST(CertificateFault, IsAKeyThatIsShortOrOfAnotherType) {
    EXPECT_EQ(fault_of("rsa:2040", "-days 30 -subj /O=x"),
              "its RSA key has 2040 bits, and at least 2048 are needed; make a new key and "
              "certificate");
    EXPECT_EQ(fault_of("rsa:2048", "-days 30 -subj /O=x"), "");
    const std::string other = "its key is not an RSA key, and packages are signed with RSA";
    EXPECT_EQ(fault_of("ed25519", "-days 30 -subj /O=x"), other);
    EXPECT_EQ(fault_of("ec -pkeyopt ec_paramgen_curve:P-256", "-days 30 -subj /O=x"), other);
    EXPECT_EQ(fault_of("rsa-pss -pkeyopt rsa_keygen_bits:2048", "-days 30 -subj /O=x"), other);
}

TEST(CertificateFault, IsAKeyThatEverybodyCanSignFor) {
    const TempDir dir;
    std::string modulus =
        openssl("rsa -noout -modulus -in " + Signer::standard().key_file).substr(8);
    const auto fault = [&dir](const std::string &numbers, const std::string &exponent) {
        const own_x509 certificate = certificate_read(
            certificate_of_numbers(dir, "/O=x", "0x" + numbers, exponent), nullptr);
        return certificate ? certificate_fault(certificate.get()) : "not read";
    };
    const std::string unsound =
        "its RSA key is not sound, anybody could sign with it; make a new key and certificate";
    EXPECT_EQ(fault(modulus, "65537"), "");
    EXPECT_EQ(fault(modulus, "1"), unsound);
    EXPECT_EQ(fault(modulus, "2"), unsound);
    // A number of 2,048 bits whose factors everybody finds, and one that takes too long.
    EXPECT_EQ(fault("8" + std::string(510, '0') + "1", "65537"), unsound);
    EXPECT_EQ(fault("1" + std::string(4095, '0') + "1", "65537"),
              "its RSA key has 16385 bits, and at most 16384 can be used; make a new key and "
              "certificate");
    // The same answers once more, though a key that passed is not checked twice.
    EXPECT_EQ(fault(modulus, "65537"), "");
    EXPECT_EQ(fault(modulus, "1"), unsound);
}

TEST(CertificateFault, IsAUseThatExcludesSignatures) {
    const std::string may_not =
        "it may not sign, as its key usage lacks digitalSignature; use a certificate for "
        "signatures";
    const std::string usual = "-days 30 -subj /O=x ";
    EXPECT_EQ(fault_of("rsa:2048", usual + "-addext keyUsage=keyCertSign,cRLSign"), may_not);
    EXPECT_EQ(fault_of("rsa:2048", usual + "-addext keyUsage=critical,keyEncipherment"), may_not);
    EXPECT_EQ(fault_of("rsa:2048", usual + "-addext keyUsage=digitalSignature,keyCertSign"), "");
    // The certificate of an authority that says nothing of its use, as openssl req makes them.
    EXPECT_EQ(fault_of("rsa:2048", usual + "-addext basicConstraints=critical,CA:TRUE"), "");
}

TEST(CertificateFault, IsASubjectThatPackagesCannotName) {
    EXPECT_THAT(fault_of("rsa:2048", "-days 30 -multivalue-rdn -subj /O=a+OU=b"),
                HasSubstr("can't be written in a package"));
}

TEST(CertificatePem, IsWhatWasRead) {
    const TempDir dir;
    const own_x509 certificate = make_certificate(dir, "rsa:2048", "-subj /O=O/CN=A");
    ASSERT_NE(certificate, nullptr);
    EXPECT_EQ(certificate_pem(certificate.get()), read_all(dir / "cert"));
    EXPECT_EQ(private_key_pem(own_pkey(X509_get_pubkey(certificate.get())).get()), "");
    EXPECT_EQ(errno, ENOMEM);
}
