#include "package/vrs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "kit/time_zone.h"
#include "package/certificate.h"
#include "package/checked_keys.h"
#include "support/own.h"

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

// The moment so many days from now, as `openssl ca` takes it.
std::string in_days(int days) {
    const time_t when = time(nullptr) + days * 86400;
    char text[20];
    struct tm parts;
    gmtime_r(&when, &parts);
    strftime(text, sizeof text, "%Y%m%d%H%M%SZ", &parts);
    return text;
}

std::string log_date(const std::string &label, time_t date) {
    char text[40];
    struct tm parts;
    localtime_r(&date, &parts);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return "vrs_vferify_rsa: " + label + ": " + text;
}

class VrsFverifyRsa : public testing::Test {
 protected:
    VrsFverifyRsa() : dirs_(ekva_init(4)) {
        s_ekva **record = dirs_.release();
        ekva_addval(&record, "certstore", (dir_ / "certstore").c_str(), 0);
        dirs_.reset(record);
        handle_.dirs = record;
        handle_.dir = const_cast<char *>(dir_.path().c_str());
        fs::create_directories(dir_ / "certstore");
        payload_ = dir_.write("payload", "the payload of a package");
    }

    std::string trust(const Signer &signer) {
        return signer.trust_in(dir_ / "certstore");
    }

    int verify(const std::string &subject, const std::string &signature) {
        const own_file stream(fopen(payload_.c_str(), "r"));
        return verify(subject, signature, stream.get());
    }
    int verify(const std::string &subject, const std::string &signature, FILE *stream) {
        const int result = vrs_fverify_rsa(
            &handle_, subject.c_str(), reinterpret_cast<const unsigned char *>(signature.data()),
            static_cast<int32_t>(signature.size()), stream);
        EXPECT_EQ(ERR_peek_error(), 0u) << "errors are left in the queue of OpenSSL";
        return result;
    }
    int verify(const Signer &signer) {
        return verify(signer.subject, signer.sign(payload_));
    }

    TempDir dir_;
    own_ekva dirs_;
    vrm_handle handle_ = {};
    std::string payload_;
    const Signer &signer_ = Signer::standard();
};

}  // namespace

TEST_F(VrsFverifyRsa, AcceptsWhatATrustedSignerSigned) {
    trust(signer_);
    const LogCapture log;
    EXPECT_EQ(verify(signer_), 1);
    const std::vector<std::string> debug = log.at(LEVEL_DEBUG);
    ASSERT_EQ(debug.size(), 5u);
    EXPECT_EQ(debug[2], "vrs_vferify_rsa: Certificate is valid");
    EXPECT_EQ(debug[3], "vrs_vferify_rsa: Got 24 bytes of package data");
    EXPECT_EQ(debug[4], "Package signature succesfuly verified");
    EXPECT_EQ(log.lines().size(), 5u);
}

TEST_F(VrsFverifyRsa, TellsTheDatesInLocalTime) {
    const TimeZone zone("EAST-5:30");
    const Signer signer =
        Signer::make(dir_, "/O=Dated/CN=x", "-startdate 20200102030405Z -enddate 20400203040506Z");
    trust(signer);
    const LogCapture log;
    EXPECT_EQ(verify(signer), 1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, log_date("Valid from", 1577934245)));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrs_vferify_rsa: Valid from: 2020-01-02 08:34:05"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrs_vferify_rsa: Valid until: 2040-02-03 09:35:06"));
}

TEST_F(VrsFverifyRsa, ReadsFromWhereTheStreamStandsToItsEnd) {
    trust(signer_);
    const std::string signature = signer_.sign(payload_);
    payload_ = dir_.write("package", "the head that isn't signed\nthe payload of a package");
    const own_file stream(fopen(payload_.c_str(), "r"));
    fseek(stream.get(), 27, SEEK_SET);
    EXPECT_EQ(verify(signer_.subject, signature, stream.get()), 1);
    EXPECT_EQ(ftell(stream.get()), 51);
    EXPECT_EQ(fseek(stream.get(), 0, SEEK_SET), 0) << "the stream stays open";

    // Another head in front changes nothing.
    payload_ = dir_.write("package", "THE HEAD THAT ISN'T SIGNED\nthe payload of a package");
    const own_file changed(fopen(payload_.c_str(), "r"));
    fseek(changed.get(), 27, SEEK_SET);
    EXPECT_EQ(verify(signer_.subject, signature, changed.get()), 1);
}

TEST_F(VrsFverifyRsa, AcceptsPayloadsLargerThanItsBuffer) {
    trust(signer_);
    std::string large;
    for (int i = 0; large.size() < 100000; ++i)
        large += std::to_string(i);
    payload_ = dir_.write("payload", large);
    const LogCapture log;
    EXPECT_EQ(verify(signer_), 1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrs_vferify_rsa: Got " + std::to_string(large.size()) +
                                         " bytes of package data"));
}

TEST_F(VrsFverifyRsa, VerifiesAnEmptyPayload) {
    trust(signer_);
    payload_ = dir_.write("payload", "");
    EXPECT_EQ(verify(signer_), 1);
    EXPECT_EQ(verify(signer_.subject, std::string(256, '\x01')), -3);
}

TEST_F(VrsFverifyRsa, RefusesAChangedPayload) {
    trust(signer_);
    const std::string signature = signer_.sign(payload_);
    payload_ = dir_.write("payload", "The payload of a package");
    const LogCapture log;
    EXPECT_EQ(verify(signer_.subject, signature), -3);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failure verifiying package signature"));
}

TEST_F(VrsFverifyRsa, RefusesSignaturesThatAreNone) {
    trust(signer_);
    const std::string signature = signer_.sign(payload_);
    EXPECT_EQ(verify(signer_.subject, ""), -3);
    EXPECT_EQ(verify(signer_.subject, signature + "x"), -3);
    EXPECT_EQ(verify(signer_.subject, signature.substr(1)), -3);
    const own_file stream(fopen(payload_.c_str(), "r"));
    EXPECT_EQ(vrs_fverify_rsa(&handle_, signer_.subject.c_str(), nullptr, -1, stream.get()), -3);
}

TEST_F(VrsFverifyRsa, DoesNotTrustASubjectThatDoesNotParse) {
    const LogCapture log;
    int result = 0;
    EXPECT_EQ(stderr_of([&] { result = verify("O=Test/CN=Builder", "x"); }),
              "Subject does not start with '/'.\n");
    EXPECT_EQ(result, -2);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{"INFO", "Failure parsing signer O=Test/CN=Builder"}));
}

TEST_F(VrsFverifyRsa, DoesNotTrustASignerOutsideTheStore) {
    const std::string path = trust(signer_);
    fs::remove(path);
    const LogCapture log;
    EXPECT_EQ(verify(signer_), -2);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{"INFO", "Failure reading " + path}));
    EXPECT_TRUE(log.has_line_end(LEVEL_INFO, "Failure reading " + path));
    handle_.dirs = nullptr;
    EXPECT_EQ(verify(signer_), -2);
}

TEST_F(VrsFverifyRsa, DoesNotTrustAStoreFileWithoutCertificate) {
    const std::string path = trust(signer_);
    const std::string key = read_all(signer_.key_file);
    for (const std::string &content : {std::string(), std::string("no PEM at all\n"), key}) {
        fs::remove(path);
        dir_.write("certstore/" + fs::path(path).filename().string(), content);
        const LogCapture log;
        EXPECT_EQ(verify(signer_), -2);
        EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{"INFO", "Failure reading " + path}));
    }
}

TEST_F(VrsFverifyRsa, DoesNotWaitForAPipeInTheStore) {
    const std::string path = trust(signer_);
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const LogCapture log;
    alarm(120);  // to wait would be to wait for ever
    EXPECT_EQ(verify(signer_), -2);
    alarm(0);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{"INFO", "Failure reading " + path}));
}

TEST_F(VrsFverifyRsa, AcceptsACertificateWithTrustSettings) {
    const std::string path = trust(signer_);
    must_run("openssl x509 -trustout -addreject serverAuth -in " + signer_.cert_file + " -out " +
             path);
    ASSERT_TRUE(read_all(path).starts_with("-----BEGIN TRUSTED CERTIFICATE-----"));
    EXPECT_EQ(verify(signer_), 1);
}

TEST_F(VrsFverifyRsa, DoesNotTrustASubjectOfAnotherSpelling) {
    trust(signer_);
    const std::string signature = signer_.sign(payload_);
    ASSERT_EQ(signer_.subject, "/O=Test/CN=Builder");
    for (const char *subject :
         {"/O=test/CN=Builder", "/O=Test/CN=Builder/", "/O=Test /CN=Builder"}) {
        const LogCapture log;
        EXPECT_EQ(verify(subject, signature), -2) << subject;
        EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{"INFO", "Subjects do not match"}));
    }
}

TEST_F(VrsFverifyRsa, RefusesAnExpiredCertificate) {
    const Signer signer = Signer::make(dir_, "/O=Old/CN=x",
                                       "-startdate " + in_days(-30) + " -enddate " + in_days(-1));
    trust(signer);
    const LogCapture log;
    EXPECT_EQ(verify(signer), -4);
    EXPECT_EQ(log.at(LEVEL_INFO), std::vector<std::string>{"Certificate has expired"});
}

TEST_F(VrsFverifyRsa, RefusesACertificateThatIsNotYetValid) {
    const Signer signer =
        Signer::make(dir_, "/O=New/CN=x", "-startdate " + in_days(1) + " -enddate " + in_days(30));
    trust(signer);
    const LogCapture log;
    EXPECT_EQ(verify(signer), -5);
    EXPECT_EQ(log.at(LEVEL_INFO), std::vector<std::string>{"Certificate is not yet valid"});
}

TEST_F(VrsFverifyRsa, CountsAGeneralizedTimeAsExpiredAndTestsTheStartFirst) {
    const Signer late = Signer::make(dir_, "/O=Late/CN=x",
                                     "-startdate " + in_days(-1) + " -enddate 20600101000000Z");
    trust(late);
    EXPECT_EQ(verify(late), -4);
    const Signer both = Signer::make(dir_, "/O=Both/CN=x",
                                     "-startdate " + in_days(1) + " -enddate 20600101000000Z");
    trust(both);
    EXPECT_EQ(verify(both), -5);
}

TEST_F(VrsFverifyRsa, FailsOnAKeyThatItCannotLoad) {
    const std::string path = trust(signer_);
    must_run("openssl x509 -in " + signer_.cert_file + " -outform DER -out " + (dir_ / "der"));
    std::string der = read_all(dir_ / "der");
    // The algorithm of the key becomes one that nobody knows.
    const std::string rsa("\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01", 9);
    const size_t at = der.find(rsa);
    ASSERT_NE(at, std::string::npos);
    der[at + 8] = '\x6f';
    dir_.write("der", der);
    const std::string body = must_run("openssl base64 -in " + (dir_ / "der"));
    fs::remove(path);
    dir_.write("certstore/" + fs::path(path).filename().string(),
               "-----BEGIN CERTIFICATE-----\n" + body + "-----END CERTIFICATE-----\n");
    const LogCapture log;
    EXPECT_EQ(verify(signer_), 0);
    EXPECT_EQ(log.at(LEVEL_INFO), std::vector<std::string>{"failure loading public key"});
}

TEST_F(VrsFverifyRsa, FailsOnAKeyThatTakesNoDigest) {
    Signer signer;
    signer.key_file = dir_ / "ed.key";
    signer.cert_file = dir_ / "ed.crt";
    must_run("openssl req -x509 -newkey ed25519 -nodes -days 30 -subj /O=Curve/CN=x -keyout " +
             signer.key_file + " -out " + signer.cert_file + " 2>&1");
    trust(signer);
    const LogCapture log;
    EXPECT_EQ(verify("/O=Curve/CN=x", "x"), 0);
    EXPECT_EQ(log.at(LEVEL_INFO),
              std::vector<std::string>{"EVP_DigestVerifyInit: failure initializing signature"});
}

TEST_F(VrsFverifyRsa, RefusesASignatureByAShortKey) {
    Signer signer;
    signer.subject = "/O=Short/CN=x";
    signer.key_file = dir_ / "short.key";
    signer.cert_file = dir_ / "short.crt";
    const auto make = [&signer](int bits) {
        must_run("openssl req -x509 -newkey rsa:" + std::to_string(bits) +
                 " -nodes -days 30 -subj " + signer.subject + " -keyout " + signer.key_file +
                 " -out " + signer.cert_file + " 2>&1");
    };
    make(1016);
    trust(signer);
    {
        const LogCapture log;
        EXPECT_EQ(verify(signer), -3);
        EXPECT_EQ(log.at(LEVEL_ERROR),
                  std::vector<std::string>{"The signer's RSA key of 1016 bits is too short"});
    }
    make(1024);
    trust(signer);
    EXPECT_EQ(verify(signer), 1);
}

// What fits a key with the exponent 1 is the padded digest itself.
TEST_F(VrsFverifyRsa, RefusesASignatureThatNeedsNoKey) {
    const std::string modulus =
        must_run("openssl rsa -noout -modulus -in " + signer_.key_file + " | cut -d= -f2");
    Signer open;
    open.subject = "/O=Open/CN=x";
    open.cert_file = certificate_of_numbers(dir_, open.subject, "0x" + modulus.substr(0, 512), "1");
    trust(open);
    const std::string signature =
        std::string("\0\1", 2) + std::string(218, '\xff') +
        std::string("\0\x30\x21\x30\x09\x06\x05\x2b\x0e\x03\x02\x1a\x05\0\x04\x14", 16) +
        must_run("openssl dgst -sha1 -binary " + payload_);
    ASSERT_EQ(signature.size(), 256u);
    const LogCapture log;
    EXPECT_EQ(verify(open.subject, signature), -3);
    EXPECT_EQ(log.at(LEVEL_ERROR), std::vector<std::string>{"The signer's RSA key is not sound"});

    // That another key was checked says nothing of this one.
    const std::string checked = checked_keys_path(&handle_);
    const own_x509 other = certificate_read(signer_.cert_file, nullptr);
    ASSERT_TRUE(note_checked_key(checked, other.get()));
    EXPECT_EQ(verify(open.subject, signature), -3);
    // One that was noted is not checked again.
    const own_x509 noted = certificate_read(open.cert_file, nullptr);
    ASSERT_TRUE(note_checked_key(checked, noted.get()));
    EXPECT_EQ(verify(open.subject, signature), 1);
}

TEST_F(VrsFverifyRsa, FailsOnAStreamThatCannotBeRead) {
    trust(signer_);
    const std::string signature = signer_.sign(payload_);
    const own_file stream(fopen(payload_.c_str(), "a"));
    const LogCapture log;
    EXPECT_EQ(verify(signer_.subject, signature, stream.get()), 0);
    EXPECT_EQ(log.at(LEVEL_INFO), std::vector<std::string>{"read erro in BIO_read"});
}

TEST(VrsSha1File, WritesDigitsOrBytes) {
    const TempDir dir;
    const std::string abc = dir.write("abc", "abc");
    char out[42];
    memset(out, '#', sizeof out);
    EXPECT_EQ(vrs_sha1_file(abc.c_str(), 'x', out), out);
    EXPECT_STREQ(out, "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(out[41], '#');
    memset(out, '#', sizeof out);
    EXPECT_EQ(vrs_sha1_file(abc.c_str(), 'b', out), out);
    EXPECT_EQ(std::string(out, 21), std::string("\xa9\x99\x3e\x36\x47\x06\x81\x6a\xba\x3e\x25\x71"
                                                "\x78\x50\xc2\x6c\x9c\xd0\xd8\x9d#",
                                                21));
}

TEST(VrsSha1File, HashesEmptyAndLargeFiles) {
    const TempDir dir;
    char out[41];
    ASSERT_NE(vrs_sha1_file(dir.write("empty", "").c_str(), 'x', out), nullptr);
    EXPECT_STREQ(out, "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    const std::string large = dir.write("large", std::string(1000000, 'a'));
    ASSERT_NE(vrs_sha1_file(large.c_str(), 'x', out), nullptr);
    EXPECT_STREQ(out, "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(VrsSha1File, GivesNothingForWhatIsNoFile) {
    const TempDir dir;
    char out[41];
    EXPECT_EQ(vrs_sha1_file((dir / "none").c_str(), 'x', out), nullptr);
    EXPECT_EQ(vrs_sha1_file(dir.path().c_str(), 'x', out), nullptr);
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(vrs_sha1_file((dir / "fifo").c_str(), 'x', out), nullptr);
}
