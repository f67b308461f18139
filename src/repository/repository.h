// The repository: opening, closing and locking it, and the user's own configuration.
//
// Below the root stand the directories `installed`, `stagearea`, `fileindex`, `certstore` and
// `scriptdir`, whose paths the handle's `dirs` record gives by these names, and the file `lock`.
// The lock file holds the process id of its last taker as text, for people to read; what counts is
// the record lock on the open file, which the system drops when the process ends, however it ends.
// While the lock is held, the scripts of packages are noted in the file `script.running`
// (running_script.h).
//
// Everything here reports on stderr, as the log may not stand yet.
#pragma once

#include <sys/types.h>

#include "support/handle.h"
#include "support/own.h"

inline constexpr char vrm_default_root[] = "/var/lib/vrm";
inline constexpr char vrm_default_conf[] = "/etc/vrm.conf";

// Opens the repository below `root` with the configuration file `conf`; null means the defaults
// above. The configuration must name the machine's architecture (`arch_name`) and may name the
// distribution (`dist_name`, `dist_vers`). Hooks are read from vrm_hooks_dir, whatever the root.
// No directory is made or looked for: the function that misses one says so. The result is a new
// handle without the lock, for vrm_close, or null. The reason is on stderr unless memory failed.
vrm_handle *vrm_open(const char *root, const char *conf);

// Releases a handle and all it holds, and removes the lock file if the handle holds the lock. Null
// is accepted. Always 0.
int vrm_close(vrm_handle *handle);

// Takes the lock on the repository without waiting. The result is 0 and `locked` is 1, or -1 with
// the reason on stderr. The lock stays with the process until it ends, and for that the file stays
// open: closing any descriptor of it would drop the lock. Taking it again succeeds. Children that
// run another program inherit neither the lock nor the descriptor.
int vrm_lock(vrm_handle *handle);

// Gives the lock up by removing the lock file, so that the next taker works on a new one. 0 also
// when the lock isn't held; -1 when the file could not be removed, and the lock is kept.
int vrm_unlock(vrm_handle *handle);

// The process that holds the lock on the repository, this one included, or 0 when there is none or
// it can't be told. For messages only: the answer may be out of date as soon as it is given.
pid_t vrm_lock_holder(vrm_handle *handle);

// Reads `.vrmrc` in the home directory of the calling user. Under sudo that is the user who called
// sudo, by the number in the environment variable SUDO_UID. The result is a new record for
// ekva_free, or null when there is no such user or no such file.
s_ekva **vrm_read_rc();

// Copies the values of some keys, a comma-separated list, from `source` into the record `*opts`,
// which is made when it is null. A key that `*opts` has keeps its value, so that in a chain of
// calls the earlier source wins. The result is the number of keys that `source` has.
int vrm_merge_opts(s_ekva ***opts, s_ekva *const *source, const char *keys);

using own_handle = std::unique_ptr<vrm_handle, release_with<vrm_close>>;
