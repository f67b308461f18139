// The kinds of events, each with its level in the log and its log line. The texts of these lines
// are here and nowhere else.
//
// {package}, {path}, {other}, {found}, {who}, {status}, {number} and {total} are the values of the
// event. {reason} is the system's text for its `error` or, without one, `other`. {ending} is what
// the wait status `status` says. A kind of the level 0 is not logged. Scripts of users match these
// lines, so spelling and line feeds stay as they are.
#pragma once

// clang-format off

#define VRM_EVENTS_OF_PACKAGE(X)                                                                   \
    X(package_file_short, LEVEL_ERROR, "Only {number} of {total} bytes read{other}")               \
    X(package_magic_unknown, LEVEL_ERROR, "Not a valid/supported package file")                    \
    X(description_size_unreadable, LEVEL_ERROR, "Failed to read description size")                 \
    X(package_head_unparsable, LEVEL_ERROR, "Failed to parse package header")                      \
    X(package_not_found, LEVEL_ERROR, "Failed to stat {path}")                                     \
    X(package_not_opened, LEVEL_ERROR, "Failed to open {path} for reading")                        \
    X(package_format_missing, LEVEL_INFO, "vrk_info_parse: Unspecified package format")            \
    X(package_format_unknown, LEVEL_INFO, "vrk_info_parse: Unknown package format {other}")        \
    X(architecture_missing, LEVEL_INFO, "vrk_info_parse: Unspecified architecture\n")              \
    X(architecture_unknown, LEVEL_INFO, "vrk_info_parse: Unsupported architecture: {other}\n")     \
    X(reference_refused, LEVEL_ERROR,                                                              \
      "vrk_info_parse: refusing a reference to another file in attribute {other}")                 \
    X(install_info_missing, LEVEL_ERROR,                                                           \
      "vrk_info_parse: No install info found, package is corrupt")                                 \
    X(install_time_missing, LEVEL_ERROR,                                                           \
      "vrk_info_parse: No install time found, package is corrupt")                                 \
    X(install_time_invalid, LEVEL_ERROR, "vrk_info_parse: Failed to parse install time")           \
    X(update_time_missing, LEVEL_ERROR,                                                            \
      "vrk_info_parse: Failure reading update time, package is corrupt")                           \
    X(update_time_invalid, LEVEL_ERROR, "vrk_info_parse: Failed to parse update time")             \
    X(install_type_missing, LEVEL_ERROR,                                                           \
      "vrk_info_parse: No install type found, package is corrupt")                                 \
    X(install_type_empty, LEVEL_ERROR, "vrk_info_parse: Failed to parse install type")             \
    X(install_type_invalid, LEVEL_ERROR, "vrk_info_parse: Invalid install type: {other}")          \
    X(install_head_missing, LEVEL_ERROR,                                                           \
      "vrk_info_parse: No install head found, package is corrupt")                                 \
    X(puname_missing, LEVEL_ERROR, "vrk_puname_decode: No puname given")                           \
    X(puname_without_name, LEVEL_ERROR,                                                            \
      "vrk_puname_decode: could not determine package name in puname <{package}>")                 \
    X(puname_without_version, LEVEL_ERROR,                                                         \
      "vrk_puname_decode: could not determine package version in puname <{package}>")

#define VRM_EVENTS_OF_SIGNATURE(X)                                                                 \
    X(signer_unparsable, LEVEL_INFO, "Failure parsing signer {other}")                             \
    X(certificate_missing, LEVEL_INFO, "Failure reading {path}\n")                                 \
    X(certificate_unreadable, LEVEL_INFO, "Failure reading {path}\n")                              \
    X(certificate_of_another, LEVEL_INFO, "Subjects do not match")                                 \
    X(certificate_not_yet_valid, LEVEL_INFO, "Certificate is not yet valid")                       \
    X(certificate_expired, LEVEL_INFO, "Certificate has expired")                                  \
    X(certificate_key_unusable, LEVEL_INFO, "failure loading public key")                          \
    X(certificate_key_short, LEVEL_ERROR, "The signer's RSA key of {number} bits is too short")    \
    X(certificate_key_unsound, LEVEL_ERROR, "The signer's RSA key is not sound")                   \
    X(payload_not_digested, LEVEL_INFO, "read erro in BIO_read")                                   \
    X(signature_not_loaded, LEVEL_INFO, "failure loading signature")                               \
    X(signature_not_started, LEVEL_INFO, "EVP_DigestVerifyInit: failure initializing signature")   \
    X(signature_wrong, LEVEL_ERROR, "Failure verifiying package signature")                        \
    X(signer_missing, LEVEL_ERROR, "No signature subject found")                                   \
    X(signature_missing, LEVEL_ERROR, "No signature data found")                                   \
    X(signer_missing_noted, LEVEL_WARNING, "No signature subject found")                           \
    X(signature_missing_noted, LEVEL_WARNING, "No signature data found")                           \
    X(signature_not_trusted, LEVEL_ERROR, "Failure verifying signature of {path}")

#define VRM_EVENTS_OF_UNPACKING(X)                                                                 \
    X(package_end_not_reached, LEVEL_ERROR, "Failure going to end of {path}: {reason}")            \
    X(package_start_not_reached, LEVEL_ERROR,                                                      \
      "Failure going to start of {path} of size {number}: {reason}")                               \
    X(payload_not_readable, LEVEL_ERROR,                                                           \
      "Failed to read archive by archive_read_open_FILE: {other}")                                 \
    X(payload_not_opened, LEVEL_ERROR, "Failed to read archive by archive_read_open_FILE")         \
    X(payload_damaged, LEVEL_ERROR, "Failed to parse archive by archive_read_open_FILE")           \
    X(member_write_reason, LEVEL_INFO, "archive_write_data_block: {reason}")                       \
    X(member_data_not_written, LEVEL_ERROR, "Failed to copy data: {other}")                        \
    X(member_head_not_written, LEVEL_ERROR,                                                        \
      "Failed to write header by archive_write_header: {other}")                                   \
    X(member_not_finished, LEVEL_ERROR,                                                            \
      "Failed to write archive by archive_write_finish_entry: {other}")                            \
    X(working_directory_unknown, LEVEL_ERROR, "Failed to read pwd")                                \
    X(stage_directory_not_entered, LEVEL_ERROR, "Failed to change to installation dir {path}")     \
    X(working_directory_lost, LEVEL_ERROR, "Failed to return to previous dir {path}")

#define VRM_EVENTS_OF_HASH_LISTS(X)                                                                \
    X(hash_line_short, LEVEL_ERROR, "Line is smaller than 42 bytes, bye")                          \
    X(hash_list_not_read, LEVEL_ERROR, "Failed to read {path}")                                    \
    X(file_not_digested, LEVEL_ERROR, "failed to generate sha1 of {path}")

#define VRM_EVENTS_OF_FILES(X)                                                                     \
    X(file_not_opened, LEVEL_ERROR, "Failed to open {path} for reading: {reason}\n")               \
    X(list_not_opened, LEVEL_ERROR, "Failed to open {path} for reading: {reason}")                 \
    X(file_not_created, LEVEL_ERROR, "Failed to open {path} for writing: {reason}\n")              \
    X(file_not_written, LEVEL_ERROR, "Failed to write {path}: {reason}\n")                         \
    X(file_not_copied, LEVEL_ERROR, "Failed to read {path}: {reason}\n")                           \
    X(file_not_read, LEVEL_ERROR, "Failed to read {path}: {reason}")                               \
    X(file_not_found, LEVEL_ERROR, "Failed to stat {path}: {reason}\n")                            \
    X(mode_not_set, LEVEL_WARNING, "Failed to set permission on {path}: {reason}\n")               \
    X(owner_not_set, LEVEL_WARNING, "Failed to set owner of {path}: {reason}\n")                   \
    X(set_id_bits_dropped, LEVEL_WARNING,                                                          \
      "Failed to keep set-id and group bits of {path}, as its owner is another\n")                 \
    X(attributes_not_read, LEVEL_WARNING, "Failed to read attributes of {path}: {reason}\n")       \
    X(attribute_not_set, LEVEL_WARNING,                                                            \
      "Failed to set attribute {other} of {path}: {reason}\n")                                     \
    X(times_not_set, LEVEL_WARNING, "Failed to set times of {path}: {reason}\n")                   \
    X(target_not_regular, LEVEL_ERROR, "{path} is not a regular file, refusing to remove it")      \
    X(path_not_removed, LEVEL_ERROR, "can't remove '{path}'")                                      \
    X(path_not_found, LEVEL_ERROR, "can't stat '{path}'")                                          \
    X(directory_not_returned_to, LEVEL_ERROR, "can't return to '{path}'")                          \
    X(directory_not_closed, LEVEL_ERROR, "can't close '{path}'")

#define VRM_EVENTS_OF_LISTS_OF_LINKS_AND_PERMISSIONS(X)                                            \
    X(list_broke_off, LEVEL_ERROR, "{who}: Failed to read {path}: {reason}")                       \
    X(list_line_refused, LEVEL_ERROR, "{who}: Refusing line no {number} in {path}: {other}")       \
    X(perm_list_not_opened, LEVEL_ERROR, "vrm_vrf_perms: Failed to open perm file {path}")         \
    X(perm_mode_invalid, LEVEL_ERROR,                                                              \
      "vrm_vrf_perms: Failed to convert mode {other} for {path} to something meaningful: "         \
      "{reason}")                                                                                  \
    X(perm_mode_not_set, LEVEL_ERROR,                                                              \
      "vrm_vrf_perms: Failed to set mode of {path} to {other}: {reason}")                          \
    X(link_directory_not_entered, LEVEL_ERROR,                                                     \
      "vrm_vrf_links: Failed to change to directory {path}, skipping everything until the "        \
      "next directory entry")                                                                      \
    X(link_not_created, LEVEL_ERROR,                                                               \
      "vrm_vrf_links: Failed to create symbolic link named {path} pointing to {other}: "           \
      "{reason}")                                                                                  \
    X(link_directory_unknown, LEVEL_ERROR, "vrm_vrf_links: Failed to read pwd")                    \
    X(link_list_not_opened, LEVEL_ERROR, "vrm_vrf_links: Failed to open link file {path}")         \
    X(link_directory_lost, LEVEL_ERROR, "Failed to change to initial directory {path}")

#define VRM_EVENTS_OF_INVENTORY(X)                                                                 \
    X(inventory_not_opened, LEVEL_WARNING, "Failure opening <{path}> for reading: {reason}")       \
    X(inventory_not_read, LEVEL_WARNING, "Failure reading <{path}>: {reason}")                     \
    X(inventory_not_closed, LEVEL_WARNING, "Failure closing <{path}>: {reason}")                   \
    X(entry_damaged, LEVEL_WARNING, "Failure parsing info for <{package}>, skipping entry")        \
    X(file_index_not_read, LEVEL_ERROR, "vrm_vrl_file_list: Failed to read {path}: {reason}")      \
    X(owner_path_not_found, LEVEL_ERROR, "Failure opening <{path}>: {reason}")                     \
    X(owner_link_unresolved, LEVEL_ERROR, "{path} is a symbolic link, but cannot be resolved")     \
    X(owner_link_resolved, LEVEL_INFO, "{path} is a symbolic link to {other}")                     \
    X(owner_index_not_opened, LEVEL_ERROR, "Failure opening <{path}> for reading: {reason}")       \
    X(owner_index_not_read, LEVEL_ERROR, "Failure reading <{path}>: {reason}")

#define VRM_EVENTS_OF_CATALOGUE(X)                                                                 \
    X(backend_refused, LEVEL_ERROR,                                                                \
      "backend {path} was built for interface {number}; this program supports {other}")            \
    X(catalogue_directory_unreadable, LEVEL_WARNING,                                               \
      "{who}: cannot read the directory {path}: {reason}")                                         \
    X(catalogue_directory_cut, LEVEL_WARNING,                                                      \
      "{who}: cannot read all of the directory {path}: {reason}")                                  \
    X(catalogue_file_damaged, LEVEL_WARNING, "{who}: skipping {path}: {reason}")                   \
    X(catalogue_file_skipped, LEVEL_WARNING, "{who}: skipping {path}: {reason}")                   \
    X(catalogue_warning, LEVEL_WARNING, "{who}: {reason}")                                         \
    X(catalogue_error, LEVEL_ERROR, "{who}: {reason}")                                             \
    X(catalogue_not_connected, LEVEL_ERROR, "vrc-http: Not connected")                             \
    X(search_directory_not_opened, LEVEL_INFO, "Failure opening <{path}> for reading: {reason}")   \
    X(search_limit_passed, LEVEL_WARNING,                                                          \
      "More than {number} package files of {package}, passing over {path}")

#define VRM_EVENTS_OF_HOOKS_AND_SCRIPTS(X)                                                         \
    X(hook_condition_invalid, LEVEL_ERROR,                                                         \
      "vrm_hook_match_attr: parsed cond: <{other}> is not a valid attribute condition")            \
    X(hook_without_condition, LEVEL_INFO, "vrm_hooks_parse: no hook cond")                         \
    X(hook_without_command, LEVEL_INFO, "vrm_hooks_parse: no hook exec")                           \
    X(hook_condition_short, LEVEL_INFO, "vrm_hooks_parse: invalid cond")                           \
    X(hook_condition_malformed, LEVEL_INFO, "vrm_hooks_parse: invalid cond <{other}>")             \
    X(hook_kind_unknown, LEVEL_INFO, "vrm_hooks_parse: unknown cond type: <{other}>")              \
    X(variable_name_long, LEVEL_WARNING,                                                           \
      "vrm_scriptenv_del: Overlong env variable name, skipping entry {number}")                    \
    X(script_description_not_read, LEVEL_WARNING,                                                  \
      "vrm_scripts_exe: failed to read package description for {package}")                         \
    X(script_description_unparsable, LEVEL_WARNING,                                                \
      "vrm_scripts_exe: failed to read package info for {package}")                                \
    X(configured, LEVEL_INFO, "Configured {package}, rc = {status}")                               \
    X(configuration_failed, LEVEL_INFO, "Configured {package}, rc = {status}")                     \
    X(hook_failed, LEVEL_INFO, "Configured {package}, rc = {status}")                              \
    X(hook_lost, LEVEL_ERROR,                                                                      \
      "vrm_scripts_exe: out of memory, {other} will not run for {package}")                        \
    X(configuration_lost, LEVEL_ERROR, "{who}: out of memory, {other} will not run for {package}") \
    X(script_not_noted, LEVEL_WARNING,                                                             \
      "cannot write {path}: {reason}; if the program is killed while {other} runs, "               \
      "the next change does not wait for it")

#define VRM_EVENTS_OF_HISTORY(X)                                                                   \
    X(history_not_opened, LEVEL_ERROR,                                                             \
      "vrm_log_action: failed to open {path} for writing: {reason}")                               \
    X(history_not_written, LEVEL_ERROR, "vrm_log_action: failed to write to {path}: {reason}")     \
    X(history_without_package, LEVEL_ERROR, "vrm_log_action: No vrk_puname_new specified")         \
    X(history_without_old_package, LEVEL_ERROR, "vrm_log_action: No vrk_puname_old specified")     \
    X(history_action_invalid, LEVEL_ERROR, "vrm_log_action: invalid action specified")             \
    X(history_date_invalid, LEVEL_ERROR, "vrm_parse_log: invalid date: {other}")                   \
    X(history_date_unparsable, LEVEL_ERROR, "vrm_parse_log: falure parsing date: {other}")         \
    X(history_line_unparsable, LEVEL_ERROR, "vrm_parse_log: failure parsing line <{other}>")       \
    X(history_line_short, LEVEL_WARNING,                                                           \
      "vrm_parse_log: line <{other}> has only {number} parts skipping")                            \
    X(history_letter_invalid, LEVEL_ERROR, "vrm_parse_log: invalid action: {other}")               \
    X(history_line_skipped, LEVEL_ERROR, "skipping invalid line {number}: <{other}>\n")            \
    X(history_found, LEVEL_INFO, "log file <{path}>\n")                                            \
    X(history_not_read, LEVEL_ERROR, "failure reading log file <{path}>\n")

#define VRM_EVENTS_OF_PLANNING(X)                                                                  \
    X(not_a_package_file, LEVEL_INFO, "{path} is not a valid package file, skipping")              \
    X(update_not_a_package_file, LEVEL_INFO, "{path} is not a valid package file")                 \
    X(not_in_catalogue, LEVEL_INFO, "{package} was not found in the package catalogue")            \
    X(already_installed, LEVEL_INFO, "{package} is already installed")                             \
    X(update_not_installed, LEVEL_INFO, "{package} is not installed")                              \
    X(architecture_differs, LEVEL_INFO,                                                            \
      "Package arch {found} doesn't match local arch {other}, bye")                                \
    X(dependency_not_found, LEVEL_INFO,                                                            \
      "{who}: Failed to resovle dependency {other} for {package}")                                 \
    X(dependency_gone, LEVEL_WARNING,                                                              \
      "dependency {package} has already ben deleted, this should not really happen")               \
    X(dependents_not_closed, LEVEL_WARNING,                                                        \
      "vrm_chk_delete_reqs: Failure closing directory {path}")                                     \
    X(removal_not_installed, 0, "{package} is not installed, skipping")                            \
    X(removal_needed, 0, "{package} cannot be deleted, {other} depends on it")                     \
    X(removal_entry_of_another, LEVEL_WARNING,                                                     \
      "not removing {package}: its entry in the inventory is that of {other}")                     \
    X(not_removable, LEVEL_INFO, "{package} cannot be removed")

#define VRM_EVENTS_OF_FETCHING(X)                                                                  \
    X(not_locked, LEVEL_ERROR, "{who}: no lock on local repository")                               \
    X(interrupted, LEVEL_ERROR, "interrupted, not going on with {package}")                        \
    X(stage_path_long, LEVEL_ERROR, "{who}: path in the stage area is too long: {path}")           \
    X(stage_area_refused, LEVEL_ERROR, "{who}: refusing stage area {path}: {reason}")              \
    X(stage_directory_refused, LEVEL_ERROR, "{who}: refusing stage directory {path}: {reason}")    \
    X(backups_in_the_way, LEVEL_ERROR,                                                             \
      "vrm_clear_stage: backups of an interrupted change in {path}, not going on with {package}")  \
    X(other_backups_found, LEVEL_WARNING,                                                          \
      "vrm_clear_stage: backups of an interrupted change of {package} in {path}")                  \
    X(stage_not_cleared, LEVEL_ERROR, "vrm_clear_stage: Failed to clear {path}")                   \
    X(identity_refused, LEVEL_ERROR,                                                               \
      "{who}: refusing package <{package}>: its {other} is not allowed")                           \
    X(dependency_refused, LEVEL_ERROR,                                                             \
      "{who}: refusing dependency {package} of <{other}>: that name is not allowed")               \
    X(staged_file_refused, LEVEL_ERROR, "{who}: refusing staged file {path}: {other}")             \
    X(staged_file_not_created, LEVEL_ERROR, "{who}: Failed to open {path} for writing: {reason}")  \
    X(staged_file_not_written, LEVEL_ERROR, "{who}: Failed to write {path}: {reason}")             \
    X(fetched_size_wrong, LEVEL_ERROR,                                                             \
      "{who}: Failed to get {total} bytes from vrc_readpkg into {path}. rc = {status}")            \
    X(fetched_file_exchanged, LEVEL_ERROR,                                                         \
      "{who}: the fetched file {path} is not the planned file: its SHA-1 is {found}, not {other}") \
    X(copied_file_exchanged, LEVEL_ERROR,                                                          \
      "{who}: {path} is not the planned file: its SHA-1 is {found}, not {other}")                  \
    X(staged_file_not_read, LEVEL_ERROR, "{who}: Failed to read {path}: {reason}")                 \
    X(package_not_staged, LEVEL_ERROR, "{who}: Failed to copy {other} to {path}")                  \
    X(fetching, LEVEL_INFO, "getting {package}.vrk")                                               \
    X(fetching_dependency, LEVEL_INFO, "retrieving {package}.vrk")                                 \
    X(copying, LEVEL_INFO, "copying {package}.vrk")

#define VRM_EVENTS_OF_PROVING(X)                                                                   \
    X(unpacking, LEVEL_INFO, "unpacking {package}.vrk")                                            \
    X(unpacking_failed, LEVEL_ERROR, "{who}: Failure unpacking {path} to {other}")                 \
    X(verifying, LEVEL_INFO, "verifying {package}")                                                \
    X(listed_content_differs, LEVEL_ERROR,                                                         \
      "vrm_chk_files: verify of {other}{path} failed: file not found in {other}.txt or "           \
      "hashes do not match")                                                                       \
    X(file_not_listed, LEVEL_ERROR,                                                                \
      "vrm_chk_sub_files: verify of {other} / {path} failed: file not found in {other}.txt")       \
    X(fork_not_hashed, LEVEL_WARNING, "vrm_chk_sub_files: Failure hashing {other} files")          \
    X(fork_without_list, LEVEL_ERROR,                                                              \
      "vrm_chk_sub_files: Failure reading hash values for {other} in package")                     \
    X(fork_not_proven, LEVEL_ERROR, "vrm_chk_all_files: Failure checking {other} files in {path}") \
    X(install_not_proven, LEVEL_ERROR,                                                             \
      "vrm_install_vrk: Failure checking info files for {package} in {path}")                      \
    X(update_not_proven, LEVEL_ERROR,                                                              \
      "vrm_update_vrk: Failure checking files for {package} in {path}")                            \
    X(package_not_believed, LEVEL_ERROR, "{who}: cannot install {path}: {other}")                  \
    X(entry_of_another, LEVEL_ERROR,                                                               \
      "vrm_update_vrk: cannot update {package}: its entry in the inventory is that of {other}")

#define VRM_EVENTS_OF_CONFLICTS(X)                                                                 \
    X(file_owned_by_another, LEVEL_ERROR,                                                          \
      "aborting installation, {path} exists and belongs to package {package}")                     \
    X(update_file_owned_by_another, LEVEL_ERROR,                                                   \
      "vrm_chk_local_update: {path} is on disk and belongs to package {package}, aborting")        \
    X(file_will_be_replaced, LEVEL_ERROR, "Ok, will overwrite {path}")                             \
    X(file_will_stay, LEVEL_ERROR, "Ok, will skip writing {path} to disk")                         \
    X(install_aborted_by_user, LEVEL_ERROR, "aborting installation due to user request")           \
    X(update_aborted_by_user, LEVEL_ERROR,                                                         \
      "aborting installation on already existing file not belonging to any package")               \
    X(link_listed_otherwise, LEVEL_ERROR,                                                          \
      "{who}: the link {path} would point to {other}, but the package {package} has it pointing "  \
      "to {found}")                                                                                \
    X(link_over_owned_file, LEVEL_ERROR,                                                           \
      "{who}: the link {path} to {other} would replace a file that belongs to the package "        \
      "{package}")                                                                                 \
    X(links_not_known, LEVEL_ERROR, "{who}: cannot read {path}: {reason}")                         \
    X(copy_not_kept, LEVEL_ERROR, "cannot keep a copy of {path} in {other}: {reason}")             \
    X(copies_not_written, LEVEL_ERROR, "cannot write the copies in {path} to the disk: {reason}")  \
    X(replaced_file_kept, LEVEL_INFO, "the replaced file {path} is kept as {other}")               \
    X(install_conflicts, LEVEL_ERROR, "vrm_install_vrk: Aborting")                                 \
    X(update_conflicts, LEVEL_ERROR, "Failure processing update, rc={status}")

#define VRM_EVENTS_OF_CHANGING(X)                                                                  \
    X(running_pre_install, LEVEL_INFO, "executing pre-install script for {package}")               \
    X(running_post_install, LEVEL_INFO, "executing post-install script for {package}")             \
    X(installing, LEVEL_INFO, "installing {package}")                                              \
    X(updating, LEVEL_INFO, "updating {package}")                                                  \
    X(conf_installed_new, LEVEL_INFO, "installing new config file {path}")                         \
    X(conf_kept_existing, LEVEL_INFO, "keeping existing config file {path}")                       \
    X(conf_installed_missing, LEVEL_INFO, "installing missing config file {path}")                 \
    X(conf_kept_modified, LEVEL_INFO, "keeping modified config file {path}")                       \
    X(conf_replaced, LEVEL_INFO, "overwriting unmodified config file {path}")                      \
    X(pre_install_failed, LEVEL_ERROR,                                                             \
      "vrm_install_vrk: pre-install script got an error, aborting")                                \
    X(post_install_failed, LEVEL_ERROR,                                                            \
      "vrm_install_vrk: post-install script got an error, aborting")                               \
    X(pre_update_failed, LEVEL_ERROR, "Pre-Install script ended with errors, aborting update")     \
    X(post_update_failed, LEVEL_ERROR, "Post-Install script ended with errors, aborting update")   \
    X(pre_delete_failed, LEVEL_ERROR, "vrm_one_delete: pre-delete got an error, aborting")         \
    X(post_delete_failed, LEVEL_ERROR, "vrm_one_delete: post-delete got an error, aborting")       \
    X(file_not_installed, LEVEL_ERROR, "{who}: Failed to install {other} to {path}")               \
    X(data_not_updated, LEVEL_ERROR, "Failure installing {other} to {path}")                       \
    X(old_file_not_saved, LEVEL_ERROR,                                                             \
      "Failure backing up previous version of {path}, will rollback and abort.")                   \
    X(old_file_not_removed, LEVEL_WARNING,                                                         \
      "Failed to remove old file {path}: {reason}, continuing")                                    \
    X(registered_file_missing, LEVEL_WARNING,                                                      \
      "vrm_one_delete: Failed to access registered file {path}: {reason}, skipping")               \
    X(registered_file_not_saved, LEVEL_ERROR,                                                      \
      "vrm_one_delete: Failed to backup {path}, not good. We try a rollback and leave.")           \
    X(registered_file_not_removed, LEVEL_WARNING,                                                  \
      "vrm_one_delete: Failed to remove registered file {path}: {reason}, but we go on")           \
    X(not_restored, LEVEL_ERROR,                                                                   \
      "vrm_install_rollback: Failure restoring {path}, you're in deep shit. We still try "         \
      "to do the rest.")                                                                           \
    X(nothing_to_restore, LEVEL_INFO, "vrm_install_rollback: no files to restore registered")      \
    X(backup_list_not_read, LEVEL_ERROR, "vrm_install_rollback: Failure reading {path}")           \
    X(new_file_stays, 0, "{path} of {package} was made and stays")                                 \
    X(replaced_file_lost, 0, "{path} was lost in the rollback of {package}")                       \
    X(rollback_finished, LEVEL_ERROR, "vrm_install_rollback: finished")

#define VRM_EVENTS_OF_REGISTERING(X)                                                               \
    X(registration_not_copied, LEVEL_ERROR, "{who}: Failed to copy {other} for package {package}") \
    X(entry_not_registered, LEVEL_ERROR,                                                           \
      "Failed to register package {package} in local inventory")                                   \
    X(install_record_not_written, LEVEL_ERROR,                                                     \
      "{who}: Failed to write install info for package {package}")                                 \
    X(file_index_not_written, LEVEL_ERROR,                                                         \
      "{who}: Failed to write fileindex for package {package}")                                    \
    X(broken_swap_undone, LEVEL_WARNING,                                                           \
      "vrm_undo_broken_swaps: the update of {package} was cut off while it was entered, "          \
      "its old entry is back")                                                                     \
    X(left_links_not_noted, LEVEL_WARNING,                                                         \
      "Failed to write the links that {package} leaves to {path}: {reason}")

#define VRM_EVENTS_OF_RECOVERY(X)                                                                  \
    X(change_not_recorded, LEVEL_ERROR,                                                            \
      "{who}: Failed to record the change in {path}: {reason}")                                    \
    X(foreign_record, LEVEL_ERROR,                                                                 \
      "{who}: {path} is the record of a change that was cut off, not going on")                    \
    X(directory_holds_others, LEVEL_ERROR,                                                         \
      "{who}: {package} replaces the directory {path}, which holds {other}")                        \
    X(old_kind_not_removed, LEVEL_ERROR, "{who}: Failed to remove {path}: {reason}")               \
    X(space_lacking, LEVEL_ERROR, "{who}: {path} has {found} free, {other} are needed")             \
    X(path_not_saved, LEVEL_ERROR, "{who}: Failed to save {path} before the change: {reason}")     \
    X(path_immutable, LEVEL_ERROR, "{who}: {path} is immutable or append-only, not going on")      \
    X(not_entered, LEVEL_WARNING, "Failed to enter {package} as {path}: {reason}")                 \
    X(path_not_put_back, LEVEL_ERROR, "Failed to put {path} back from {other}: {reason}")          \
    X(old_version_in_place, LEVEL_INFO, "all files of the old version are in place")               \
    X(sync_was_slow, LEVEL_INFO,                                                                   \
      "waited {number} s until the change of {package} was on the disk")                           \
    X(change_undone, LEVEL_WARNING, "the {other} of {package} was cut off, and is undone")         \
    X(change_finished, LEVEL_WARNING, "the {other} of {package} was cut off, and is finished")     \
    X(cut_off_script_ran, LEVEL_WARNING,                                                           \
      "{other} of {package} had run before the change was cut off")                                \
    X(change_to_undo, LEVEL_INFO, "the {other} of {package} was cut off, and would be undone")     \
    X(change_to_finish, LEVEL_INFO,                                                                \
      "the {other} of {package} was cut off, and would be finished")                               \
    X(record_not_read, LEVEL_ERROR, "Failed to read {path}: {reason}")                             \
    X(recovery_failed, LEVEL_ERROR,                                                                \
      "Failed to recover from a change that was cut off: {path}: {reason}")                        \
    X(change_abandoned, LEVEL_WARNING,                                                             \
      "the record of a change that was cut off was moved to {path}")

#define VRM_EVENTS_OF_OUTCOMES(X)                                                                  \
    X(dependency_install_failed, LEVEL_ERROR,                                                      \
      "Installation of {package} failed with rc={status}\n")                                       \
    X(install_failed, LEVEL_ERROR, "installation of {package} failed with rc={status}\n")          \
    X(installed_dependency, LEVEL_INFO, "installation of {package} succeeded")                     \
    X(installed, LEVEL_INFO, "installation of {package} succeeded\n")                              \
    X(update_failed, LEVEL_ERROR, "update of {package} failed with rc={status}\n")                 \
    X(updated, LEVEL_INFO, "update of {package} succeeded")                                        \
    X(removal_failed, LEVEL_ERROR,                                                                 \
      "vrm_exe_delete: Removal of {package} failed with rc={status}\n")                            \
    X(removed, LEVEL_INFO, "removal of {package} succeeded")

#define VRM_EVENTS_OF_CLEANUP(X)                                                                   \
    X(cleanup_directory_not_opened, LEVEL_INFO, "failure opening <{path}> for reading: {reason}")  \
    X(cleanup_directory_not_read, LEVEL_WARNING, "failure reading <{path}>: {reason}")             \
    X(old_entry_not_measured, LEVEL_ERROR, "failed to dudir {path}")                               \
    X(old_file_not_measured, LEVEL_ERROR, "failed to stat {path}")                                 \
    X(old_entry_found, LEVEL_INFO, "installed: found {path} of size {number}")                     \
    X(old_entry_kept, LEVEL_INFO, "installed: keeping {path}")                                     \
    X(old_entry_removed, LEVEL_INFO, "installed: removing {path}")                                 \
    X(old_index_found, LEVEL_INFO, "fileindex: found {path} of size {number}")                     \
    X(old_index_kept, LEVEL_INFO, "fileindex: keeping {path}")                                     \
    X(old_index_removed, LEVEL_INFO, "fileindex: removing {path}")                                 \
    X(staged_file_found, LEVEL_INFO, "stagearea: found {path} of size {number}")                   \
    X(staged_file_kept, LEVEL_INFO, "stagearea: keeping {path}")                                   \
    X(staged_file_removed, LEVEL_INFO, "stagearea: removing {path}")                               \
    X(old_entry_not_removed, LEVEL_ERROR, "installed: failed to remove {path}")                    \
    X(cleanup_aborted, LEVEL_ERROR, "aborting cleanup")                                            \
    X(cleanup_done, LEVEL_INFO, "cleanup deleted: {other}")

#define VRM_EVENTS_OF_AUDITS(X)                                                                    \
    X(audited_not_installed, LEVEL_ERROR, "vrm_chkhash: {package} is not installed")               \
    X(audited_file_missing, LEVEL_ERROR, "vrm_chkhash: {path} not found")                          \
    X(audited_file_changed, LEVEL_ERROR,                                                           \
      "vrm_chkhash: mismatch on {path}: expected: {other}, found: {found}")                        \
    X(conf_missing, LEVEL_ERROR, "{path} was not found on fs, this can happen.\n")                 \
    X(dump_list_unusable, LEVEL_ERROR,                                                             \
      "vrm_chkhash: insternal error reading hases on fork: {other}")                               \
    X(fork_list_unusable, LEVEL_ERROR,                                                             \
      "vrm_chkhash: internal error reading hases on fork: {other}")                                \
    X(head_audit_aborted, LEVEL_ERROR, "aborting chkhead")                                         \
    X(entry_audit_aborted, LEVEL_ERROR, "aborting chkinst")                                        \
    X(audited_entry_not_removed, LEVEL_ERROR, "failed to remove {path}")                           \
    X(entry_invalid, 0, "{package} is not a valid package dir")                                    \
    X(entry_misnamed, 0, "{package} holds the entry of another package, {other}")                  \
    X(entries_counted, 0, "checked {total} entries, {number} valid , {found} invalid")             \
    X(head_gone, 0,                                                                                \
      "{package} was installed as a dependency of {other}, but {other} is no longer installed")    \
    X(head_done, 0,                                                                                \
      "{package} was installed as a dependency of {other}, but {other} no longer needs it")        \
    X(orphan_needed, 0, "{who}: {package} is still needed by {other}")                             \
    X(orphan_not_fixed, LEVEL_INFO, "fixing {package} not yet implemented")                        \
    X(orphan_left, LEVEL_INFO, "leaving {package}")                                                \
    X(entry_kept, LEVEL_INFO, "keeping {package}")                                                 \
    X(entry_removed, LEVEL_INFO, "removing {package}")                                             \
    X(install_type_changed, LEVEL_ERROR,                                                           \
      "{who}: change install_type from {found} to {other} for package {package}")                  \
    X(fixed_record_not_written, LEVEL_ERROR,                                                       \
      "{who}: Failed to write new install info for package {package}")                             \
    X(dependency_missing, 0, "{package} needs {other}, which is not installed")                    \
    X(dependency_entry_damaged, 0, "{package} needs {other}, whose entry is damaged")              \
    X(index_without_entry, 0, "the file index {path} has no entry")                                \
    X(entry_without_index, 0, "{package} has no file index (files: {number})")                     \
    X(list_not_compared, 0, "cannot read {path}: {reason}")                                        \
    X(list_line_not_compared, 0, "{path}, line {number}: {other}")                                 \
    X(place_not_seen, 0, "cannot look at {path} of {package}: {reason}")                           \
    X(link_missing, 0, "the link {path} of {package} to {other} is missing")                       \
    X(link_retargeted, 0,                                                                          \
      "the link {path} of {package} points to {found}, and not to {other}")                        \
    X(link_place_taken, 0,                                                                         \
      "in the place of the link {path} of {package} to {other} is a {found}")                      \
    X(mode_changed, 0, "the mode of {path} of {package} is {found}, and not {other}")              \
    X(mode_path_missing, 0, "{path} of {package}, with the mode {other}, is missing")              \
    X(file_open_to_all, 0, "everybody can write to {path} of {package}: its mode is {found}")      \
    X(link_left, 0,                                                                                \
      "the link {path} to {other} was made by an earlier version of {package}")                    \
    X(link_left_by_removed, 0,                                                                     \
      "the link {path} to {other} was made by {package}, which is not installed")                  \
    X(change_in_progress, 0,                                                                       \
      "another process is changing the repository: {other} were not compared")

#define VRM_EVENTS_OF_REPORTS(X)                                                                   \
    X(report_file_not_created, LEVEL_ERROR, "Error creating tempfile for list: {reason}")          \
    X(report_table_not_made, LEVEL_ERROR, "Failed to initiallize ftable")                          \
    X(report_table_failed, LEVEL_ERROR, "Error creating ui table")                                 \
    X(report_row_failed, LEVEL_ERROR, "Error adding entry to ui table")                            \
    X(report_table_not_shown, LEVEL_ERROR, "Error writing ui table")                               \
    X(report_line_empty, LEVEL_ERROR, "vrm_showlogline: csv_line is empty\n")                      \
    X(text_cut, LEVEL_ERROR, "vrmui_line_add: there is no room for all of the text, it is cut")    \
    X(memory_short, LEVEL_ERROR, "{who}: there is not enough memory")                              \
    X(memory_exhausted, LEVEL_ERROR, "{who}: out of memory")                                       \
    X(change_memory_exhausted, LEVEL_ERROR, "out of memory")

#define VRM_EVENTS(X)                                                                              \
    VRM_EVENTS_OF_PACKAGE(X)                                                                       \
    VRM_EVENTS_OF_SIGNATURE(X)                                                                     \
    VRM_EVENTS_OF_UNPACKING(X)                                                                     \
    VRM_EVENTS_OF_HASH_LISTS(X)                                                                    \
    VRM_EVENTS_OF_FILES(X)                                                                         \
    VRM_EVENTS_OF_LISTS_OF_LINKS_AND_PERMISSIONS(X)                                                \
    VRM_EVENTS_OF_INVENTORY(X)                                                                     \
    VRM_EVENTS_OF_CATALOGUE(X)                                                                     \
    VRM_EVENTS_OF_HOOKS_AND_SCRIPTS(X)                                                             \
    VRM_EVENTS_OF_HISTORY(X)                                                                       \
    VRM_EVENTS_OF_PLANNING(X)                                                                      \
    VRM_EVENTS_OF_FETCHING(X)                                                                      \
    VRM_EVENTS_OF_PROVING(X)                                                                       \
    VRM_EVENTS_OF_CONFLICTS(X)                                                                     \
    VRM_EVENTS_OF_CHANGING(X)                                                                      \
    VRM_EVENTS_OF_REGISTERING(X)                                                                   \
    VRM_EVENTS_OF_RECOVERY(X)                                                                      \
    VRM_EVENTS_OF_OUTCOMES(X)                                                                      \
    VRM_EVENTS_OF_CLEANUP(X)                                                                       \
    VRM_EVENTS_OF_AUDITS(X)                                                                        \
    VRM_EVENTS_OF_REPORTS(X)

// clang-format on
