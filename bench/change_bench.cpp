// The installation, the update and the removal of a package of 20,000 files by the installed tool,
// beside the bare work on the same bytes by standard commands. All go to the system's fixed paths,
// so this runs in the throwaway root only.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "bench/bench.h"
#include "bench/commands.h"
#include "bench/data.h"
#include "bench/report.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t files = 20000;
constexpr int runs = 3;

const std::string work = bench_dir + "/changes";
const std::string live = "/srv/bench-live";
const std::string bare_live = work + "/live";
const std::string repository = "/var/lib/vrm";

std::string package(int version) {
    return work + "/bench-many_any_" + std::to_string(version) + ".0.vrk";
}

// Packs a version, and takes its signature out for openssl.
void make_package(int version) {
    const std::string tree = work + "/tree", file = package(version);
    write_source_tree(tree, "bench-many", live, files, version);
    must(cost_of_shell("vrk-build pack " + tree + " --key " + work + "/key.pem --cert " + work +
                       "/cert.pem -o " + file + " && rm -r " + tree),
         "making the package");
    must(cost_of_shell("set -e; head -c \"$(( 11 + $(dd if=" + file +
                       " bs=1 skip=6 count=5 2>/dev/null | sed 's/^0*//') ))\" " + file +
                       " | tail -c +12 | sed -n '/^evrkRsaSigData/,/^[^ ]/{s/^evrkRsaSigData:: "
                       "//p;s/^ //p}' | tr -d '\\n' | openssl base64 -d -A >" +
                       file + ".signature"),
         "taking the signature out");
}

void make_packages() {
    fs::create_directories(work);
    must(cost_of_shell("cd " + work +
                       " && vrk-build keygen '/O=Bench/CN=Bench' --key key.pem --cert cert.pem && "
                       "pvrm trust --yes cert.pem && "
                       "openssl x509 -in cert.pem -pubkey -noout >public.pem"),
         "making the key");
    make_package(1);
    make_package(2);
}

std::string script(const std::string &name, const std::string &text) {
    const std::string path = work + "/" + name + ".sh";
    std::ofstream(path) << "set -e\ncd " << work << "\n" << text;
    return path;
}

// Copy of the file, signature, unpacking, digest of each file.
std::string staging(int version) {
    const std::string file = package(version);
    return "mkdir new\noffset=$((11 + 10#$(dd if=" + file +
           " bs=1 skip=6 count=5 2>/dev/null)))\ncp " + file +
           " staged.vrk\ntail -c +$((offset + 1)) staged.vrk | openssl dgst -sha1 -verify "
           "public.pem -signature " +
           file +
           ".signature >/dev/null\n(cd new && tail -c +$((offset + 1)) ../staged.vrk | gzip -dc | "
           "cpio -idm --quiet\nfind data -type f -print0 | xargs -0 sha1sum >/dev/null)\n";
}

const std::string placing =
    "mkdir -p " + bare_live + "\ncp -rp new/data" + live + "/. " + bare_live + "\nrm -r new\n";

// What is taken away or written over is saved first, and the backups go at the end.
std::string saving(const char *what) {
    return std::string("mkdir old\n") + what + " | cpio -pdm --quiet old\n";
}

const std::string bare_install = staging(1) + placing;
const std::string bare_update = staging(2) + saving("find live -type f") +
                                "find live -type f -name 'file*[13579]' -print0 | xargs -0 rm\n" +
                                placing + "rm -r old\n";
const std::string bare_removal =
    saving("find live -type f") + "find live -type f -print0 | xargs -0 rm\nrm -r old\n";

// One kind of change, as it comes out over the runs.
struct change {
    const char *what;
    double factor;  // how many times the bare work it may take
    std::string bare;
    std::vector<std::string> command;
    double bare_seconds = 1e9;
    double seconds = 1e9;

    void measure() {
        const process_cost plain = cost_of({"bash", bare}, 1);
        must(plain, std::string("the bare work of ") + what);
        bare_seconds = std::min(bare_seconds, plain.seconds);
        const process_cost cost = cost_of(command, 1);
        must(cost, what);
        seconds = std::min(seconds, cost.seconds);
    }
};

}  // namespace

void measure_changes() {
    make_packages();
    change changes[] = {
        {"pvrm install, 20000 files",
         1,
         script("install", bare_install),
         {"pvrm", "install", "--yes", package(1)}},
        {"pvrm upgrade, 20000 files, half renamed",
         1.5,
         script("update", bare_update),
         {"pvrm", "upgrade", "--yes", package(2)}},
        {"pvrm remove, 20000 files",
         1.5,
         script("removal", bare_removal),
         {"pvrm", "remove", "--yes", "bench-many"}},
    };
    for (int run = 0; run < runs; run++) {
        for (change &one : changes) {
            one.measure();
        }
        for (const std::string &path : std::vector<std::string>{
                 live, bare_live, repository + "/stagearea/bench-many_any_1.0.vrk",
                 repository + "/stagearea/bench-many_any_2.0.vrk"}) {
            fs::remove_all(path);
        }
    }
    for (const change &one : changes) {
        add_figure({one.what, one.seconds, "s", one.factor * one.bare_seconds,
                    told("bare work", one.bare_seconds)});
    }
}
