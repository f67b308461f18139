// The records of a change: vrt, one transaction; vrd, one dependency in it; vra, one line of the
// list that gathers what several transactions would do.
//
// A planner makes a vrt, an executor carries it out, vrt_free ends it. A caller that wants to show
// beforehand what several requests would do adds each vrt to one vra list, which copies what it
// needs. What is told here is told on the log at DEBUG.
#pragma once

#include <cstdint>

#include "package/vri.h"

// A dependency that a candidate needs. The two letters are always set together:
//
//   status action
//   U             looked up and not found anywhere, the initial state
//   I      N      already installed, nothing to do
//   L      I      found as a package file in a search directory, to install
//   R      I      found in the catalogue, to install
//   I      D      installed, to delete with its parent
//
// The executor of updates also knows the action U.
struct vrd {
    char status;
    char action;
    char *name;        // the dependency as the candidate names it
    char *cand;        // the candidate that needs it, not the top package
    char *extra;       // always null
    vri *info;         // the package found; null while the status is U
    int32_t weight;    // from vrds_sort; the higher, the longer it had to wait
    int32_t circular;  // 1 when a later step of the walk met the same name again
};

// A transaction: one request for one top package, with the dependencies found for it. It owns all
// that it points at.
struct vrt {
    char *name;   // the request as the caller spelled it: a package name or a package file
    char source;  // 'L' a package file, and every removal; 'R' resolved through the catalogue
    char action;  // 'I' install, 'U' update, 'D' delete; unset in a walk
    vri *info;    // the candidate
    char mark;    // always 'N'
    int32_t num_deps;
    vrd **deps;         // ends with a null; null when empty
    s_ekva **scripts;   // by package name: a script's file name or the absolute path of a hook
                        // command, several for one package possible; null in a walk
    s_ekva **hookcmds;  // by package name: hook commands for the end; null in a walk
    uint64_t
        tot_file_size;  // bytes of the package files of the candidate and the kept dependencies
    uint64_t tot_data_size;  // bytes of their payloads
};

// One line of the action list, which is a null-terminated array of these.
struct vra {
    char action;  // of the transaction for a top package, of the dependency for another
    char status;  // the transaction's mark, or the dependency's status
    vri *info;    // a copy of its own
    char *name;   // the package's name
};

// Adds the top package and then the dependencies of a transaction to a list, which may be null, as
// copies. A package whose name is in the list already, of whatever variant or version, is passed
// over, and so are dependencies without a record or with nothing to do ('N'). When that leaves
// nothing the list stays as it is. The result is the number of entries in the list afterwards; when
// memory fails, some that belong into it are missing. The caller frees the list with
// vrm_vra_list_free. What the list holds is remembered in static data from one call to the next: an
// entry may be taken out of it meanwhile, but none be renamed.
int vrm_vra_list_add_vrt(const vrt *transaction, vra ***list);

// 1 when no entry of the list, which may be null, has the package's name; 0 when one has.
int vrm_vra_list_new_vri(vra *const *list, const vri *package);

// Frees every entry and the list. Null is accepted.
void vrm_vra_list_free(vra **list);

// The word of an action, as screens and reports show it: "update", "install" or "delete" for 'U',
// 'I' and 'D'; null for any other letter.
const char *vra_action_word(char action);

// Frees the transaction with all that it owns, the records of its dependencies among that. Null is
// accepted, and so is any null field.
void vrt_free(vrt *transaction);

// Frees what the dependency holds, but not the record itself: who allocated that frees it, and
// vrt_free does so for the records of a transaction. Null is accepted.
void vrd_free(vrd *dependency);

using own_vrt = std::unique_ptr<vrt, release_with<vrt_free>>;
using own_vra_list = std::unique_ptr<vra *, release_with<vrm_vra_list_free>>;

// A transaction for a request, with the candidate and its sizes. Result: null when memory fails.
own_vrt new_transaction(const char *name, char source, own_vri candidate);

// Adds the sizes of a dependency to the totals of its transaction.
void add_sizes(vrt *plan, const vrd *dep);
