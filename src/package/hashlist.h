// Hash lists: which files a fork of a package holds, and their digests.
//
// The forks are the top directories of an unpacked payload:
//
//   data/   mirror of the root directory: what is copied to the live system
//   conf/   the same for configuration files, copied only where none stands yet
//   dump/   files that are only kept in the package's directory
//   init/   the package's scripts
//   info/   desc.txt and, where needed, perm.txt and link.txt
//   hash/   data.txt, conf.txt, dump.txt, init.txt, info.txt: the lists of the other five
//
// A list's line is the SHA-1 of a file as 40 hexadecimal digits, a colon, and the file's path
// relative to the fork, with no slash in front and no blanks around; empty lines are skipped. In
// memory a list is a record of hash as key and path, with a slash in front, as value. Files with
// the same content are pairs with the same key.
#pragma once

#include "package/file_digests.h"
#include "support/ekva.h"

// Reads the list of a fork, "<dir>/hash/<fork>.txt", into a new record at `hashes`, freed with
// ekva_free. Result: 0, also when there is no list, which leaves `hashes` untouched; -1 on a
// malformed line, with the record filled as far as it came.
int vrm_vrf_vrk_hashes(const char *dir, const char *fork, s_ekva ***hashes);

// Hashes all files below a directory into the record at `hashes`, in the order in which the
// directories list them. A null record is made once a directory has been found.
//
// `relative` is the part of the tree to walk, as a path below `root` with a slash in front. A null
// one stands for all of it and becomes a buffer of 4097 bytes with an empty text, which the caller
// frees. Links are followed to regular files; whatever else is no directory is an error, and no
// pipe or device is ever opened. Result: 0, also when the root doesn't exist; -1 on failure, with
// the record filled as far as it came.
int vrm_vrf_hash_files(const char *root, char **relative, s_ekva ***hashes);

// The same for all of a fork of the package that is unpacked at `root`. A file whose digest is in
// `known`, unless that is null, is not read again.
int hash_fork(const char *root, const char *fork, const file_digests *known, s_ekva ***hashes);
