// The package file: a text head that says what the package is, and a payload.
//
//   offset   bytes   content
//   0        6       "EVRM10" or "EVRM20"; both are read alike
//   6        5       N, the size of the description, in decimal digits, blanks or zeros ahead
//   11       N       the description text, see package/vri.h
//   11 + N   rest    the payload: a cpio archive compressed with gzip
//
// A signature stands in the description, as evrkRsaSigSubj and evrkRsaSigData, and covers the
// payload alone: what the head says is as trustworthy as the place the file came from. The payload
// holds the description once more, see package/signed_record.h.
#pragma once

#include "package/file_digests.h"
#include "package/vri.h"
#include "support/handle.h"

// Whether a path has the extension "vrk" and is a regular file, or a link to one: 1 or 0. The file
// is not opened.
int vrk_file_is_vrk(const char *path);

// Reads the head of a package file. The record's URIs, file size and file hash tell of this file,
// whatever the description says. With `verify` set and a `handle` the signature is checked against
// the handle's certificate store and the outcome stands in `sig_status`; a bad signature is not a
// failure here. Result: a new record, freed with vrk_info_free, or null, with the reason on the
// log.
vri *vrm_vrf_info(vrm_handle *handle, const char *path, int verify);

// Lists the payload's files that go to the live system, with the paths they get there; directories
// are among them. `handle` plays no part. Result: a new array, freed with arr_free; null on failure
// and for a payload without such files.
char **vrm_vrf_index(vrm_handle *handle, const char *path);

// Unpacks the payload into the directory `target`, which must exist. With `verify` set nothing is
// unpacked unless the signature holds, which needs a `handle`. Ownership is not restored, and
// members may lie anywhere they say, also outside of `target`: the signature stands behind them.
// Result: 0, or -1 with the reason on the log; part of the payload may then lie in the target,
// which the caller removes. The working directory of the process is the target during the run.
int vrm_vrf_extract(vrm_handle *handle, const char *path, const char *target, int verify);

// The same, and on success `*head` is the record of the head that was read along with the payload,
// freed with vrk_info_free. With `verify` set its rsa_sig_subj is the subject of the certificate
// that verified the payload, and its sig_status is 1. After a failure `*head` is null.
int vrm_vrf_extract_with_head(vrm_handle *handle, const char *path, const char *target, int verify,
                              vri **head);

// The same, and `digests`, unless null, receives the digests of the plain files that were written;
// files that took another way are not among them. The files of the fork data then have the time of
// their writing.
int extract_and_digest(vrm_handle *handle, const char *path, const char *target, int verify,
                       vri **head, file_digests *digests);
