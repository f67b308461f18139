#include "bench/many_files.h"

#include <filesystem>
#include <fstream>

#include "bench/commands.h"
#include "bench/data.h"

namespace fs = std::filesystem;

const std::string changes_dir = "/var/tmp/vrm-bench/changes";
const std::string live_dir = "/srv/bench-live";
const std::string bare_live_dir = changes_dir + "/live";

namespace {

// Takes the signature of a package file out for openssl.
void write_signature(const std::string &file) {
    must(cost_of_shell("set -e; head -c \"$(( 11 + $(dd if=" + file +
                       " bs=1 skip=6 count=5 2>/dev/null | sed 's/^0*//') ))\" " + file +
                       " | tail -c +12 | sed -n '/^evrkRsaSigData/,/^[^ ]/{s/^evrkRsaSigData:: "
                       "//p;s/^ //p}' | tr -d '\\n' | openssl base64 -d -A >" +
                       file + ".signature"),
         "taking the signature out");
}

std::string script(const std::string &name, const std::string &text) {
    std::string path = changes_dir + "/" + name + ".sh";
    std::ofstream(path) << "set -e\ncd " << changes_dir << "\n" << text;
    return path;
}

// Copy of the file, signature, unpacking, digest of each file.
std::string staging(int version) {
    const std::string file = many_files_package(version);
    return "mkdir new\noffset=$((11 + 10#$(dd if=" + file +
           " bs=1 skip=6 count=5 2>/dev/null)))\ncp " + file +
           " staged.vrk\ntail -c +$((offset + 1)) staged.vrk | openssl dgst -sha1 -verify "
           "public.pem -signature " +
           file +
           ".signature >/dev/null\n(cd new && tail -c +$((offset + 1)) ../staged.vrk | gzip -dc | "
           "cpio -idm --quiet\nfind data -type f -print0 | xargs -0 sha1sum >/dev/null)\n";
}

std::string placing() {
    return "mkdir -p " + bare_live_dir + "\ncp -rp new/data" + live_dir + "/. " + bare_live_dir +
           "\nrm -r new\n";
}

// What is taken away or written over is saved first, and the backups go at the end.
std::string saving() {
    return "mkdir old\nfind live -type f | cpio -pdm --quiet old\n";
}

}  // namespace

std::string many_files_package(int version) {
    return changes_dir + "/bench-many_any_" + std::to_string(version) + ".0.vrk";
}

std::string pack_for_bench(const std::string &name, const std::string &live, size_t files,
                           int version) {
    const std::string tree = changes_dir + "/tree";
    std::string file = changes_dir + "/" + name + "_any_" + std::to_string(version) + ".0.vrk";
    write_source_tree(tree, name, live, files, version);
    must(cost_of({"vrk-build", "pack", tree, "--key", changes_dir + "/key.pem", "--cert",
                  changes_dir + "/cert.pem", "-o", file},
                 1),
         "making a package");
    fs::remove_all(tree);
    return file;
}

void make_many_files_packages() {
    fs::create_directories(changes_dir);
    must(cost_of_shell("cd " + changes_dir +
                       " && vrk-build keygen '/O=Bench/CN=Bench' --key key.pem --cert cert.pem && "
                       "pvrm trust --yes cert.pem && "
                       "openssl x509 -in cert.pem -pubkey -noout >public.pem"),
         "making the key");
    for (const int version : {1, 2}) {
        write_signature(pack_for_bench("bench-many", live_dir, many_files, version));
    }
}

std::string bare_install_script() {
    return script("install", staging(1) + placing());
}

std::string bare_update_script() {
    return script("update", staging(2) + saving() +
                                "find live -type f -name 'file*[13579]' -print0 | xargs -0 rm\n" +
                                placing() + "rm -r old\n");
}

std::string bare_removal_script() {
    return script("removal", saving() + "find live -type f -print0 | xargs -0 rm\nrm -r old\n");
}
