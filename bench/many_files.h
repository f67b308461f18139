// The package of 20,000 files, in two versions, and the bare work on its bytes by standard
// commands.
#pragma once

#include <string>

#include "bench/bench.h"

constexpr size_t many_files = 20000;

// Where package files, key, certificate and the scripts of the bare work lie.
extern const std::string changes_dir;
// Where the package's files are placed: by the tool, and by the bare work.
extern const std::string live_dir;
extern const std::string bare_live_dir;

// Makes the key, trusts its certificate in the repository at the fixed path, and packs both
// versions. The second has other content throughout and another name for every other file.
void make_many_files_packages();

// Packs a package with this number of files by the same key. Result: the path of the package file.
std::string pack_for_bench(const std::string &name, const std::string &live, size_t files,
                           int version);

std::string many_files_package(int version);

// Scripts for bash, written into changes_dir. Result: the path of the script.
//
// Installation: cp of the package file; openssl dgst -sha1 -verify; gzip -dc | cpio -idm; find |
// xargs sha1sum; cp -rp to where the files belong; rm -r of what was unpacked.
std::string bare_install_script();
// The same for the second version, between the copies that cpio -pdm makes of all old files and
// their deletion; rm of the files whose names went.
std::string bare_update_script();
// cpio -pdm of all files, rm of the files, rm -r of the copies.
std::string bare_removal_script();
