// Private to the transactions: the steps that the install and the update of one package share.
#pragma once

#include <string>

#include "support/event.h"
#include "transaction/register.h"
#include "transaction/stage_area.h"
#include "transaction/unpack.h"

struct package_change {
    const char *who;  // begins the messages: the public function that does the change
    vrm_handle *handle;
    vrt *transaction;
    const vri *package;  // the new one: as planned, and from believe_signed_record on as signed
    bool verbose;

    stage_paths stage;
    package_forks forks;  // what was unpacked
    own_vri file_head;    // the head of the staged file, with the signature that was verified
    own_vri signed_record;
};

// Unpacks the staged file to its stage directory (make_stage_directory), and takes its head.
// Result: 0, -1 when that is refused, or the code of vrm_vrf_extract; with an ERROR line.
int unpack_staged(package_change *change);

// Tells what is about to be verified, and verifies it (verify_forks).
int verify_unpacked(package_change *change);

// Compares the plan's record and the head of the staged file with the signed description of what
// was unpacked and verified, and makes the signed record the package of the change. It has the
// verified signature of the head, as hooks may ask for the signer. Result: 0, or -1 with an ERROR
// line when one of the records is missing or they disagree.
int believe_signed_record(package_change *change);

// A script of an install or an update, and the event that says that it runs.
struct add_script {
    const char *file;
    const char *moment;
    event_kind running;
};
inline constexpr add_script before_change{"00-add.sh", "pre", event_kind::running_pre_install};
inline constexpr add_script after_change{"99-add.sh", "post", event_kind::running_post_install};

// Runs a script if the package has it. `old_package` is what is replaced, null in an install;
// `failed` is the kind of event that reports a failure. Result: the script's raw wait status, 0
// without a script.
int run_add_script(const package_change &change, const vri *old_package, const add_script &script,
                   event_kind failed);

// Where a file of the unpacked package lies.
std::string unpacked_path(const package_change &change, const char *fork, const char *path);

// Copies one file of the unpacked package to its place on the system, with a backup of what it
// replaces. False when that fails; vrm_vrf_copy has told why.
bool place_file(const package_change &change, const char *fork, const char *path);

// Removes what a failed copy left of a file that was not there before. No rollback knows of it, and
// the next attempt would keep it as the administrator's own. A dangling link was written through
// and stays.
void remove_half_written(const char *path);

// Notes what is left for the end of the transaction: the package's own configuration script and
// the commands of the hooks that it meets. `context` is that of vrm_hooks_parse, `files` are the
// data files that were written, null for none.
void note_configuration(const package_change &change, int context, char *const *files);
