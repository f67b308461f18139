// The package info record: what the engine knows of one package, wherever it was found.
//
// Two texts carry a record, both in the dialect of support/ldif.h, each one block of attribute
// lines that ends with the text or at the first empty line:
//
//   description   the head of a package file, and desc.txt of an installed package
//   install info  inst.txt of an installed package: evrkInstallTime, evrkInstallType,
//                 evrkInstallHead for the type D, one evrkUpdateTime line per update
//
// The record itself, `vri`, is declared in the interface to backends, which it crosses. All strings
// belong to the record. In a record that was parsed, name, version and description are not null,
// arch is not the unknown one, and flag is 1.
#pragma once

#include "support/ekva.h"
#include "support/own.h"
#include "vrm/vrc_backend.h"

// Builds a record from its texts.
//
// `mode` says where they come from: 1 the catalogue, 2 the inventory, any other number a package
// file. Only the catalogue's description holds evrkFileSize and the two URIs and needs no
// evrmVersion; only an installed package has an install info text, `inst`, which is ignored in the
// other modes. `label` names the package in a debug line. Result: a new record, freed with
// vrk_info_free, or null when something required is missing or malformed or memory fails; the log
// says what, save for a missing name, version or description. A text whose first line does not
// parse is reported on stderr. Names are taken as they are, also those that could be no part of a
// path.
//
// A text that refers to another file (":<", or ":" after a name with ";binary"), in any attribute
// and at any place, gives null and an ERROR line; no file is opened.
vri *vrk_info_parse(const char *label, int32_t mode, const char *description, const char *inst);

// Turns a record into pairs of attribute and value, in the order in which reports print them; an
// absent string is a pair with a null value. `mode` is that of vrk_info_parse. A null `info` gives
// a template: the keys of the mode, all values null. Result: a new record, freed with ekva_free.
s_ekva **vrk_info_ekva(const vri *info, int32_t mode);

// A deep copy, without the backend's further attributes; null for null and when memory fails. Freed
// with vrk_info_free.
vri *vrk_info_copy(const vri *info);

// Frees a record with all it owns; null is accepted.
void vrk_info_free(vri *info);

// Whether a record meets a request: 1 or 0. Each of `name`, `variant`, `version` and `filter` may
// be null, which asks for nothing.
//
// `name` is a shell pattern, or the name itself. A record whose name misses is still admitted when
// one pair of `filter` fits an attribute of it (as vrk_info_ekva gives them in `mode`), the pair's
// value being a pattern too; so a filter only ever widens a search by name. `version` must be
// equal. `variant` must be equal, and "" and "default" stand for the default variant.
int vrm_vri_match(const vri *info, int mode, const char *name, const char *variant,
                  const char *version, int ignored, s_ekva *const *filter);

// Sorts a null-terminated list in place by name, records of one name keeping their order, and logs
// at DEBUG how long it took.
void vrm_vri_list_sort(vri ***list);
// The sort itself.
void vrm_vri_list_bsort(vri ***list);
// Compares the names of two list elements, for qsort.
int vri_compare(const void *a, const void *b);
// The sort through qsort: records of one name may change their order.
void vrm_vri_list_qsort(vri ***list);

// Frees a null-terminated list with its records; null is accepted.
void vrm_vri_list_free(vri **list);

// The package's unique name in the stage area and in the log: "name_variant_arch_version", or
// "name_arch_version" without a variant. The text is cut at 1024 bytes and stands in static storage
// until the next call.
char *vrk_puname(const vri *info);

// Takes a puname apart: a new record, freed with ekva_free, with evrkName, evrkVariant if there is
// one, evrkVersion and evrkArchitecture; null when it cannot be one, with the reason on the log,
// and with ENOMEM in errno when memory fails. The decoding rests on this: of the four parts only
// the architecture x86_64 holds an underscore.
s_ekva **vrk_puname_decode(const char *puname);

using own_vri = std::unique_ptr<vri, release_with<vrk_info_free>>;
using own_vri_list = std::unique_ptr<vri *, release_with<vrm_vri_list_free>>;
