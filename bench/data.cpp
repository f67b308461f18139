#include "bench/data.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

namespace fs = std::filesystem;

namespace {

constexpr const char *syllables[] = {"ba",  "cor", "den", "ex",  "fi",  "gno", "har", "in",  "jo",
                                     "kor", "lum", "mer", "net", "o",   "per", "qua", "ras", "sys",
                                     "tor", "ul",  "vid", "web", "xen", "yar", "zip"};
constexpr const char *prefixes[] = {"",         "",      "",      "lib",    "lib",     "lib",
                                    "python3-", "perl-", "ruby-", "fonts-", "golang-", "node-"};
constexpr const char *suffixes[] = {"",        "",      "",       "-dev", "-doc",
                                    "-common", "-data", "-utils", "2",    "-bin"};
constexpr const char *words[] = {
    "library",     "for",       "reading",  "and",     "writing",  "files",     "of",
    "the",         "a",         "small",    "fast",    "server",   "client",    "tool",
    "graphical",   "interface", "system",   "network", "protocol", "documents", "images",
    "development", "runtime",   "common",   "support", "modern",   "text",      "editor",
    "viewer",      "compiler",  "language", "bindings"};

template <typename T, size_t N>
T pick(std::mt19937 &random, T const (&from)[N]) {
    return from[random() % N];
}

std::string make_name(std::mt19937 &random) {
    std::string name = pick(random, prefixes);
    for (size_t parts = 2 + random() % 3; parts > 0; parts--) {
        name += pick(random, syllables);
    }
    return name + pick(random, suffixes);
}

std::string make_version(std::mt19937 &random) {
    std::string version = std::to_string(random() % 9) + "." + std::to_string(random() % 30);
    if (random() % 2) {
        version += "." + std::to_string(random() % 20);
    }
    return random() % 4 ? version : version + "+dfsg-" + std::to_string(1 + random() % 9);
}

std::string make_description(std::mt19937 &random) {
    std::string text;
    for (size_t count = 5 + random() % 8; count > 0; count--) {
        text += pick(random, words) + std::string(count > 1 ? " " : "");
    }
    return text;
}

std::string describe(const bench_package &package) {
    std::string text = "evrmVersion: 2.0\nevrkName: " + package.name +
                       "\nevrkVersion: " + package.version +
                       "\nevrkArchitecture: any\nevrkCreator: Bench\n" +
                       "evrkDescription: " + package.description + "\n";
    for (const std::string &dependency : package.dependencies) {
        text += "evrkDependency: " + dependency + "\n";
    }
    return text + "evrkDataSize: 123456\n";
}

void write_file(const fs::path &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

// A gzip stream of an empty cpio archive ("newc", the trailer alone), stored without compression.
std::string empty_payload() {
    std::string archive =
        "070701000000000000000000000000000000000000000100000000000000000000000000000000000000000000"
        "00"
        "000000000B00000000TRAILER!!!";
    archive.resize(512);
    uint32_t crc = ~0u;
    for (const char c : archive) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; bit++) {
            crc = (crc >> 1) ^ (crc & 1 ? 0xedb88320u : 0u);
        }
    }
    crc = ~crc;
    const auto byte = [](uint32_t value, int shift) {
        return static_cast<char>(value >> shift & 255);
    };
    const auto size = static_cast<uint32_t>(archive.size());
    std::string gzip = {
        '\x1f',         '\x8b',        8, 0, 0, 0, 0, 0, 0, 3, 1, byte(size, 0), byte(size, 8),
        byte(~size, 0), byte(~size, 8)};
    gzip += archive;
    for (const uint32_t value : {crc, size}) {
        for (int shift = 0; shift < 32; shift += 8) {
            gzip += byte(value, shift);
        }
    }
    return gzip;
}

}  // namespace

std::vector<bench_package> make_packages(size_t count) {
    std::mt19937 random(1);
    std::set<std::string> names;
    std::vector<bench_package> packages;
    while (packages.size() < count) {
        std::string name = make_name(random);
        if (!names.insert(name).second) {
            name += std::to_string(packages.size());
            names.insert(name);
        }
        bench_package package = {name, make_version(random), make_description(random), {}};
        // Few of most packages, many of some.
        size_t dependencies = random() % 6;
        if (random() % 20 == 0) {
            dependencies += random() % 30;
        }
        std::set<size_t> chosen;
        while (!packages.empty() && chosen.size() < std::min(dependencies, packages.size())) {
            chosen.insert(random() % packages.size());
        }
        for (const size_t i : chosen) {
            package.dependencies.push_back(packages[i].name);
        }
        packages.push_back(std::move(package));
    }
    return packages;
}

std::vector<bench_package> make_package_with_300_dependencies() {
    bench_package top = {"bench-top", "1.0", "needs three hundred others", {}};
    std::vector<bench_package> all;
    for (int i = 0; i < 20; i++) {
        bench_package middle = {"bench-middle" + std::to_string(i), "1.0", "needs fourteen", {}};
        for (int j = 0; j < 14; j++) {
            const std::string name = "bench-leaf" + std::to_string(14 * i + j);
            middle.dependencies.push_back(name);
            all.push_back({name, "1.0", "needs nothing", {}});
        }
        top.dependencies.push_back(middle.name);
        all.push_back(std::move(middle));
    }
    all.insert(all.begin(), std::move(top));
    return all;
}

void write_catalogue(const std::string &dir, const std::vector<bench_package> &packages) {
    const std::string payload = empty_payload();
    for (const bench_package &package : packages) {
        const fs::path folder = fs::path(dir) / package.name.substr(0, 1);
        fs::create_directories(folder);
        const std::string head = describe(package);
        char size[8];
        snprintf(size, sizeof size, "%05zu", head.size());
        write_file(folder / (package.name + ".vrk"), std::string("EVRM20") + size + head + payload);
    }
}

void make_catalogue(const std::string &dir, size_t size) {
    if (fs::exists(dir)) {
        return;
    }
    const pid_t child = fork();
    if (child == 0) {
        auto packages = make_package_with_300_dependencies();
        const auto others = make_packages(size - packages.size());
        packages.insert(packages.end(), others.begin(), others.end());
        write_catalogue(dir, packages);
        write_as_text(dir + ".txt", packages);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
}

void write_as_text(const std::string &path, const std::vector<bench_package> &packages) {
    std::ofstream out(path);
    for (const bench_package &package : packages) {
        out << describe(package) << "\n";
    }
}

std::string path_of(const std::string &package, size_t number) {
    return "/usr/share/" + package + "/directory" + std::to_string(number % 10) + "/file-" +
           std::to_string(number) + ".dat";
}

void give_heads(std::vector<bench_package> *packages) {
    std::mt19937 random(3);
    std::map<std::string, std::string> dependents;
    for (const bench_package &package : *packages) {
        for (const std::string &dependency : package.dependencies) {
            dependents[dependency] = package.name;
        }
    }
    for (bench_package &package : *packages) {
        const auto dependent = dependents.find(package.name);
        switch (random() % 10) {
            case 0:
            case 1:
                break;
            case 2:
                package.head = "gone";
                break;
            case 3:
                package.head = (*packages)[random() % packages->size()].name;
                break;
            default:
                package.head = dependent == dependents.end() ? "" : dependent->second;
        }
    }
}

void write_inventory(const std::string &root, const std::vector<bench_package> &packages,
                     size_t files) {
    for (const bench_package &package : packages) {
        const fs::path entry = fs::path(root) / "installed" / package.name;
        fs::create_directories(entry);
        fs::create_directories(fs::path(root) / "fileindex");
        write_file(entry / "desc.txt", describe(package));
        write_file(
            entry / "inst.txt",
            "evrkInstallTime: 1700000000\nevrkInstallType: " +
                (package.head.empty() ? "X\n" : "D\nevrkInstallHead: " + package.head + "\n"));
        std::string index;
        for (size_t i = 0; i < files; i++) {
            index += path_of(package.name, i) + "\n";
        }
        write_file(fs::path(root) / "fileindex" / package.name, index);
    }
}

void write_source_tree(const std::string &dir, const std::string &name, const std::string &live,
                       size_t files, int version) {
    std::mt19937 random(2);
    fs::create_directories(dir);
    write_file(fs::path(dir) / "package.ldif", "evrkName: " + name +
                                                   "\nevrkVersion: " + std::to_string(version) +
                                                   ".0\nevrkArchitecture: any\n"
                                                   "evrkDescription: many files\n");
    std::string block(16384, '\0');
    for (char &c : block) {
        c = static_cast<char>("abcdefghijklmnopqrstuvwxyz \n"[random() % 28]);
    }
    for (size_t i = 0; i < files; i++) {
        const char *base = version > 1 && i % 2 ? "renamed" : "file";
        const fs::path path = dir + "/data" + live + "/directory" + std::to_string(i % 200) + "/" +
                              base + std::to_string(i);
        fs::create_directories(path.parent_path());
        const size_t start = random() % 8192, size = 200 + random() % 8000;
        write_file(path,
                   std::to_string(version) + "." + std::to_string(i) + block.substr(start, size));
    }
}
