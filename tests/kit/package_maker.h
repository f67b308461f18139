// Package files for tests, made by the standard commands cpio, gzip and openssl and by bytes
// written here, never by the code under test.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "kit/temp_dir.h"

// A key and a self-signed certificate, made by the openssl command. Making one takes a moment:
// tests share them through Signer::standard().
struct Signer {
    std::string key_file;   // PEM
    std::string cert_file;  // PEM
    std::string subject;    // the one-line form, such as "/O=Test/CN=Builder"

    // A signer of this process with a certificate that is valid now.
    static const Signer &standard();
    // Another one, in the given directory. `validity` is "-days 30", from now, or with both dates
    // "-startdate 20010101000000Z -enddate 20020101000000Z". The certificate holds a UTCTime for a
    // date before 2050 and a GeneralizedTime from then on.
    static Signer make(const TempDir &dir, const std::string &subject,
                       const std::string &validity = "-days 365");

    // Puts the certificate into a store under its subject hash; returns the path.
    std::string trust_in(const std::string &certstore) const;
    // The raw signature (RSASSA-PKCS1-v1_5 with SHA-1) of a file's bytes.
    std::string sign(const std::string &file) const;
};

// The description of a package in a package file, with nothing that may be left out.
inline const std::string least_head =
    "evrmVersion: 2.0\nevrkName: foo\nevrkVersion: 1.2\nevrkArchitecture: any\n"
    "evrkDescription: A tool\n";

struct PackageSpec {
    std::string name = "foo";
    std::string variant = {};  // empty: no attribute
    std::string version = "1.0";
    std::string arch = "any";
    std::string creator = "Test";
    std::string description = "A test package";
    std::vector<std::string> deps = {};
    std::string more = {};  // further lines of the description, each with its line end

    // The texts above stand in the description as they are: one that is no safe LDIF value (a line
    // end, bytes above 127) goes to `more` in the form that it needs.

    // Files by path relative to the fork, content, and mode 0644 (init: 0755).
    std::map<std::string, std::string> data = {}, conf = {}, dump = {}, init = {}, info = {};
    std::map<std::string, unsigned> modes = {};  // by "fork/path", where it is another

    // Lines of the hash lists are made from the files; an entry here replaces the list of a fork.
    std::map<std::string, std::string> hash_lists = {};
    std::set<std::string> without_list = {};  // forks without a hash list although they have files
    bool desc_in_info = true;  // puts info/desc.txt, the description without signature

    const Signer *signer = nullptr;  // null: Signer::standard()
    bool sign = true;
    std::string magic = "EVRM20";
    std::string format = "2.0";  // evrmVersion
};

// The description text: the attributes that the package is asked to have, without signature.
std::string description_of(const PackageSpec &spec);
// Writes the tree of the payload below a directory, as it would be packed.
void write_tree(const PackageSpec &spec, const std::string &dir);
// Packs a directory's members to a gzip-compressed cpio archive ("newc"), sorted by name.
void pack_tree(const std::string &dir, const std::string &archive);
// Puts a head in front of an archive.
void write_package(const std::string &path, const std::string &magic, const std::string &head,
                   const std::string &archive);
// All of it: the package file `path`.
void make_package(const PackageSpec &spec, const std::string &path);
// A package file that says of itself what `head` says, in front of the signed payload of `payload`:
// what anybody can make of a signed package.
void make_package_with_head(const PackageSpec &head, const PackageSpec &payload,
                            const std::string &path);

// A certificate of an RSA key of any numbers, "0x..." or decimal, also of such as no tool would
// make: its path in `dir`. Signed by the standard signer.
std::string certificate_of_numbers(const TempDir &dir, const std::string &subject,
                                   const std::string &modulus, const std::string &exponent);

// The SHA-1 of a file by the sha1sum command.
std::string sha1_of(const std::string &path);
