// Hooks: commands that are tied to package changes by a condition.
//
// A hook is a file with the extension .vrh in vrm_hooks_dir, read when the repository is opened. It
// holds attribute lines in the dialect of support/ldif.h:
//
//   evrhType   when the hook applies; the engine asks for "99-cfg", after an install or update
//   evrhName   a name for the log, optional
//   evrhCond   the condition, KIND:ARGUMENT, at least six characters long
//   evrhExec   the command, a mask of support/cmd.h over the package's attributes
//
// Type and key are compared exactly, case included. Of the other attributes the first value counts.
// The kinds of conditions, whose arguments are masks over the package's attributes too:
//
//   data, conf, dump  a shell pattern; true when a file of this fork of the package matches it. A
//                     file is its path below the fork with a leading slash, and `*` matches slashes
//   attr              NAME=PATTERN; true when a value of this attribute of the package matches
//   info              known, and never true, on purpose
//
// A faulty hook is never in the way of a package: it is skipped, with a line on the log when it is
// tried. The commands that a package's hooks give are run at the end of the whole transaction, by
// vrm_exe_hooks of transaction/scripts.h. They must begin with a slash; any other text would be
// taken for a script of the package there.
#pragma once

#include "package/vri.h"
#include "support/handle.h"

inline constexpr char vrm_hooks_dir[] = "/etc/vrm/hooks.d";

// 1 when the path has exactly the extension "vrh" and is a regular file or a link to one, else 0.
int vrm_file_is_vrh(const char *path);

// The attributes of one hook file as a new record, freed with ekva_free; null with the reason on
// stderr when the file can't be read or holds no attribute. What they say is not checked here.
s_ekva **vrm_hook_read(const char *path);

// The hooks of a directory in the order of readdir, as a new list of records, freed with
// ekva_list_free. Links are left out. Null when the directory can't be opened, which is no failure
// and not told, or holds no hook. A file that can't be read is told on stderr and left out, and so
// is what comes behind the place where the directory can't be read any further.
s_ekva ***vrm_hooks_read(const char *dir);

// Whether an `attr` condition holds: 1 or 0. `package` holds the package's attributes, `argument`
// is the condition without its kind. Attribute names compare without regard to case.
int vrm_hook_match_attr(s_ekva *const *package, const char *argument);

// Whether a file condition holds: 1 or 0. `files` is null-terminated, or null for no files.
int vrm_hook_match_file(s_ekva *const *package, const char *argument, char *const *files);

// The commands of all hooks of a type whose conditions a package meets, in the order of the hooks,
// one for each line of a hook that names the type, as a new string array for arr_free; null when
// there is none. `context` is 1 in an install and 2 in an update and changes nothing. `data`,
// `conf` and `dump` are the files of the package's forks, each null-terminated or null.
char **vrm_hooks_parse(vrm_handle *handle, const vri *info, int context, const char *type,
                       char *const *data, char *const *conf, char *const *dump);
