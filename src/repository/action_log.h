// The action log: the history of what was installed, updated and deleted, one sentence a line.
//
//   <date>: installed <puname> as requested by user
//   <date>: installed <puname> as dependency of <head>
//   <date>: updated <old puname> to <new puname> as requested by user
//   <date>: deleted <puname> as dependency of <head>
//
// and so on for all three actions with both reasons. The date is local time, as in
// "2024-01-31 12:00:00". The sentence is for people and for the parser alike, which counts its
// words by the blanks between them:
//
//   word   install, deletion           update
//   0, 1   the date, the time and ":"  the date, the time and ":"
//   2      "installed" or "deleted"    "updated"
//   3      the package                 the old package
//   5      "requested" or "dependency" the new package
//   7      "user" or the head          "requested" or "dependency"
//   9                                  "user" or the head
//
// Lines are only ever appended. The file's path is fixed and follows no repository root.
#pragma once

#include "support/ekva.h"

inline constexpr char vrm_action_log_dir[] = "/var/lib/vrm";
inline constexpr char vrm_action_log_name[] = "install.log";

// Appends the sentence of a finished step: `action` 1 install, 2 update, 3 delete. The package is
// `vrk_puname_new`, in an update that takes the place of `vrk_puname_old`. `head` is the name of
// the package on whose behalf it was done, null for a request by the user. When the last line of
// the file is torn it is ended first. A failure is only logged, for the step itself is done.
void vrm_log_action(int action, const char *vrk_puname_old, const char *vrk_puname_new,
                    const char *head);

// The record of one line, which is given without its newline:
//
//   evrkLogDate            date and time as in the line, without the colon
//   evrkLogTime            the same in seconds since the epoch, decimal
//   evrkLogAction          "install", "update" or "remove"
//   evrkLogPkgUid          the package as the line has it, of an update the old one
//   evrkLogPkgName         what that is made of; the variant only when there is one
//   evrkLogPkgVariant
//   evrkLogPkgVersion
//   evrkLogPkgArchitecture
//   evrkLogNewPkgUid       of an update: the new package; its architecture is not kept
//   evrkLogNewPkgVariant
//   evrkLogNewPkgVersion
//   evrkLogReason          "user" or "dependency"; missing when the line gives another reason
//   evrkLogDependent       with "dependency": the head; null when the line ends before it
//
// The reader is lenient where a torn or edited line still makes sense: of the action only the first
// letter counts, and so it is with the reason. The result is a new record of mode 4 for ekva_free.
// Null for null, for a line that is none of these sentences (which is logged, at DEBUG for a
// package that makes no sense, at WARNING for too few words, else at ERROR), and when memory fails,
// which is logged at ERROR too.
s_ekva **vrm_parse_log(const char *line);
