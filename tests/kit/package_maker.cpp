#include "kit/package_maker.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "kit/capture.h"

namespace fs = std::filesystem;

namespace {

void write_bytes(const std::string &path, const std::string &bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    out.close();
    ASSERT_TRUE(out) << "cannot write " << path;
}

// What the openssl commands need to be told, so that the machine's own configuration plays no part.
std::string openssl_config(const std::string &dir) {
    return "[req]\n"
           "distinguished_name = name\n"
           "string_mask = utf8only\n"
           "[name]\n"
           "[ca]\n"
           "default_ca = own\n"
           "[own]\n"
           "database = " +
           dir +
           "/index.txt\n"
           "new_certs_dir = " +
           dir +
           "\n"
           "rand_serial = yes\n"
           "default_md = sha256\n"
           "policy = anything\n"
           "[anything]\n"
           "commonName = optional\n"
           "countryName = optional\n"
           "stateOrProvinceName = optional\n"
           "localityName = optional\n"
           "organizationName = optional\n"
           "organizationalUnitName = optional\n"
           "emailAddress = optional\n";
}

std::string base64(const std::string &bytes) {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const size_t given = std::min<size_t>(3, bytes.size() - at);
        unsigned group = 0;
        for (size_t i = 0; i < 3; i++) {
            group = group << 8 | (i < given ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        }
        for (size_t i = 0; i < 4; i++) {
            out += i <= given ? digits[group >> (18 - 6 * i) & 63] : '=';
        }
    }
    return out;
}

std::string line(const std::string &attribute, const std::string &value) {
    return attribute + ": " + value + "\n";
}

// The files of a fork in the form of a hash list.
std::string hash_list_of(const std::string &fork_dir) {
    const std::string found = must_run("cd " + shell_word(fork_dir) +
                                       " && find . -type f -printf '%P\\0' | LC_ALL=C sort -z"
                                       " | xargs -0 -r sha1sum -z -b --");
    // Each is 40 digits, " *", the path and a null byte.
    std::string list;
    for (size_t at = 0; at < found.size();) {
        const size_t end = found.find('\0', at);
        list += found.substr(at, 40) + ":" + found.substr(at + 42, end - at - 42) + "\n";
        at = end + 1;
    }
    return list;
}

}  // namespace

const Signer &Signer::standard() {
    static const TempDir dir;
    static const Signer signer = make(dir, "/O=Test/CN=Builder");
    return signer;
}

Signer Signer::make(const TempDir &dir, const std::string &subject, const std::string &validity) {
    static int made = 0;
    const std::string own = dir / ("signer" + std::to_string(++made));
    write_bytes(own + "/openssl.cnf", openssl_config(own));
    write_bytes(own + "/index.txt", "");
    Signer signer;
    signer.key_file = own + "/key.pem";
    signer.cert_file = own + "/cert.pem";
    const std::string config = " -config " + shell_word(own + "/openssl.cnf");
    const std::string key_and_subject = " -newkey rsa:2048 -nodes -sha256 -utf8 -subj " +
                                        shell_word(subject) + " -keyout " +
                                        shell_word(signer.key_file);
    if (validity.find("date ") == std::string::npos) {
        must_run("openssl req -x509" + config + key_and_subject + " -out " +
                 shell_word(signer.cert_file) + " " + validity);
    } else {
        // Only `openssl ca` takes dates, and it signs a request.
        const std::string request = shell_word(own + "/request.pem");
        must_run("openssl req -new" + config + key_and_subject + " -out " + request);
        must_run("openssl ca -selfsign -preserveDN -batch -notext" + config + " -keyfile " +
                 shell_word(signer.key_file) + " -in " + request + " -out " +
                 shell_word(signer.cert_file) + " " + validity);
    }
    const std::string printed = must_run("openssl x509 -noout -subject -nameopt compat -in " +
                                         shell_word(signer.cert_file));
    const std::string before = "subject=";
    EXPECT_EQ(printed.compare(0, before.size(), before), 0) << printed;
    signer.subject = printed.substr(before.size(), printed.find('\n') - before.size());
    return signer;
}

std::string certificate_of_numbers(const TempDir &dir, const std::string &subject,
                                   const std::string &modulus, const std::string &exponent) {
    const Signer &issuer = Signer::standard();
    const std::string key = dir / "numbers.key", path = dir / "numbers.pem";
    dir.write("numbers.conf",
              "asn1=SEQUENCE:key\n[key]\na=SEQUENCE:algorithm\nb=BITWRAP,SEQUENCE:numbers\n"
              "[algorithm]\na=OID:rsaEncryption\nb=NULL\n"
              "[numbers]\na=INTEGER:" +
                  modulus + "\nb=INTEGER:" + exponent + "\n");
    must_run("openssl asn1parse -genconf " + shell_word(dir / "numbers.conf") + " -noout -out " +
             shell_word(dir / "numbers.der") + " && openssl pkey -pubin -inform DER -in " +
             shell_word(dir / "numbers.der") + " -out " + shell_word(key));
    must_run("openssl x509 -new -days 30 -force_pubkey " + shell_word(key) + " -subj " +
             shell_word(subject) + " -CA " + shell_word(issuer.cert_file) + " -CAkey " +
             shell_word(issuer.key_file) + " -out " + shell_word(path) + " 2>&1");
    return path;
}

std::string Signer::trust_in(const std::string &certstore) const {
    std::string hash = must_run("openssl x509 -noout -subject_hash -in " + shell_word(cert_file));
    hash.resize(hash.find('\n'));
    const std::string path = certstore + "/" + hash + ".crt";
    fs::create_directories(certstore);
    fs::copy_file(cert_file, path, fs::copy_options::overwrite_existing);
    return path;
}

std::string Signer::sign(const std::string &file) const {
    const TempDir dir;
    must_run("openssl dgst -sha1 -sign " + shell_word(key_file) + " -out " +
             shell_word(dir / "signature") + " " + shell_word(file));
    return read_all(dir / "signature");
}

std::string description_of(const PackageSpec &spec) {
    std::string text = line("evrmVersion", spec.format) + line("evrkName", spec.name);
    if (!spec.variant.empty()) {
        text += line("evrkVariant", spec.variant);
    }
    text += line("evrkVersion", spec.version) + line("evrkArchitecture", spec.arch) +
            line("evrkCreator", spec.creator) + line("evrkDescription", spec.description);
    for (const std::string &dependency : spec.deps) {
        text += line("evrkDependency", dependency);
    }
    return text + spec.more;
}

void write_tree(const PackageSpec &spec, const std::string &dir) {
    std::map<std::string, std::map<std::string, std::string>> forks{{"data", spec.data},
                                                                    {"conf", spec.conf},
                                                                    {"dump", spec.dump},
                                                                    {"init", spec.init},
                                                                    {"info", spec.info}};
    if (spec.desc_in_info) {
        forks["info"].emplace("desc.txt", description_of(spec));  // unless the test gives its own
    }
    fs::create_directories(dir);
    std::map<std::string, std::string> lists = spec.hash_lists;
    for (const auto &[fork, files] : forks) {
        const std::string fork_dir = dir + "/" + fork;
        for (const auto &[path, content] : files) {
            write_bytes(fork_dir + "/" + path, content);
            const auto mode = spec.modes.find(fork + "/" + path);
            const mode_t usual = fork == "init" ? 0755 : 0644;
            chmod((fork_dir + "/" + path).c_str(),
                  mode == spec.modes.end() ? usual : static_cast<mode_t>(mode->second));
        }
        if (!files.empty() && !lists.contains(fork)) {
            lists[fork] = hash_list_of(fork_dir);
        }
    }
    for (const auto &[fork, list] : lists) {
        if (!spec.without_list.contains(fork)) {
            write_bytes(dir + "/hash/" + fork + ".txt", list);
        }
    }
}

void pack_tree(const std::string &dir, const std::string &archive) {
    const TempDir temp;
    const std::string names = shell_word(temp / "names");
    const std::string cpio = shell_word(temp / "cpio");
    must_run("cd " + shell_word(dir) + " && find . -mindepth 1 -printf '%P\\0' > " + names +
             " && LC_ALL=C sort -z -o " + names + " " + names +
             " && cpio --null -o -H newc --quiet -R 0:0 < " + names + " > " + cpio);
    must_run("gzip -n < " + cpio + " > " + shell_word(archive));
}

void write_package(const std::string &path, const std::string &magic, const std::string &head,
                   const std::string &archive) {
    char size[32];
    snprintf(size, sizeof size, "%05zu", head.size());
    ASSERT_LE(head.size(), 99999U) << "the description is too long for a package";
    write_bytes(path, magic + size + head + read_all(archive));
}

void make_package(const PackageSpec &spec, const std::string &path) {
    make_package_with_head(spec, spec, path);
}

void make_package_with_head(const PackageSpec &head_spec, const PackageSpec &spec,
                            const std::string &path) {
    const TempDir temp;
    write_tree(spec, temp / "tree");
    pack_tree(temp / "tree", temp / "archive");
    std::string head = description_of(head_spec);
    if (spec.sign) {
        const Signer &signer = spec.signer ? *spec.signer : Signer::standard();
        head += line("evrkRsaSigSubj", signer.subject) +
                "evrkRsaSigData:: " + base64(signer.sign(temp / "archive")) + "\n";
    }
    write_package(path, head_spec.magic, head, temp / "archive");
}

std::string sha1_of(const std::string &path) {
    // Read from its input, sha1sum prints no name and so never escapes one.
    return must_run("sha1sum < " + shell_word(path)).substr(0, 40);
}
