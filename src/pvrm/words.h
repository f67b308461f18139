// The words of the tool, one function each. Each takes what the command line said and gives the
// exit status of the tool.
#pragma once

#include <string>
#include <vector>

#include "pvrm/options.h"

// What the exit status of the tool means. Scripts and the window rely on it: `pvrm help` and the
// manual page tell the same table.
enum exit_status : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,         // something that was asked for did not happen
    EXIT_WRONG_USAGE = 2,    // the command line makes no sense; nothing was done
    EXIT_NOT_PERMITTED = 3,  // the caller may not change the system; nothing was done
    // Another process is changing the repository, or a script that was left running has not ended;
    // nothing was done.
    EXIT_LOCKED = 4,
};

// `restricted`: whether that counts only which the restricted mode permits.
int word_allowed(bool restricted);
int word_refresh(const common_options &options);
int word_cleanup(const common_options &options);
// `abandon`: gives up what can't be recovered.
int word_recover(const common_options &options, bool abandon);
int word_saved(const common_options &options, const saved_options &what);
int word_install(const common_options &options, const install_options &what);
int word_remove(const common_options &options, const remove_options &what);
int word_upgrade(const common_options &options, const std::vector<std::string> &requests);
// `format` is one of report_format.h, or empty.
int word_list(const common_options &options, const std::string &pattern, const std::string &format);
int word_search(const common_options &options, const std::string &pattern,
                const std::string &format);
int word_info(const common_options &options, const std::string &what, const std::string &format);
int word_files(const common_options &options, const std::string &what);
int word_owner(const common_options &options, const std::string &path);
int word_depends(const common_options &options, const std::string &what,
                 const std::vector<std::string> &dirs);
int word_verify(const common_options &options, const std::vector<std::string> &names);
int word_check(const common_options &options);
int word_orphans(const common_options &options);
int word_why(const common_options &options, const std::string &name);
int word_log(const common_options &options, const std::string &format, bool oldest_first);
int word_config(const common_options &options, const config_options &what);
int word_init(const common_options &options);
int word_trust(const common_options &options, const trust_options &what);
// `signer` is a subject, or the beginning of a fingerprint.
int word_distrust(const common_options &options, const std::string &signer);
