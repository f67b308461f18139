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
exit_status word_allowed(bool restricted);
exit_status word_refresh(const common_options &options);
exit_status word_cleanup(const common_options &options);
// `abandon`: gives up what can't be recovered.
exit_status word_recover(const common_options &options, bool abandon);
exit_status word_saved(const common_options &options, const saved_options &what);
exit_status word_install(const common_options &options, const install_options &what);
exit_status word_remove(const common_options &options, const remove_options &what);
exit_status word_upgrade(const common_options &options, const std::vector<std::string> &requests);
// `format` is one of report_format.h, or empty.
exit_status word_list(const common_options &options, const std::string &pattern,
                      const std::string &format);
exit_status word_search(const common_options &options, const std::string &pattern,
                        const std::string &format);
exit_status word_info(const common_options &options, const std::string &what,
                      const std::string &format);
exit_status word_files(const common_options &options, const std::string &what);
exit_status word_owner(const common_options &options, const std::string &path);
exit_status word_depends(const common_options &options, const std::string &what,
                         const std::vector<std::string> &dirs);
exit_status word_verify(const common_options &options, const std::vector<std::string> &names);
exit_status word_check(const common_options &options);
exit_status word_orphans(const common_options &options);
exit_status word_why(const common_options &options, const std::string &name);
exit_status word_log(const common_options &options, const std::string &format, bool oldest_first);
exit_status word_config(const common_options &options, const config_options &what);
exit_status word_init(const common_options &options);
exit_status word_trust(const common_options &options, const trust_options &what);
// `signer` is a subject, or the beginning of a fingerprint.
exit_status word_distrust(const common_options &options, const std::string &signer);
