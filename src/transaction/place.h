// Taking the files of the old side away, and putting those of the new side in their places: stages
// of a change (transaction/change.h), each with 0 or the code of its failure. Private to the
// library.
#pragma once

struct change;

// Makes the directory for the backups of a removal. What a former run left there must not get into
// a rollback of this one.
int make_backup_directory(change *change);

// Takes the data files away that the new side doesn't have, or all that a removal's file index
// lists, with a backup of each.
int take_files_away(change *change);

// Whether the unpacked data files may go to their places themselves, and not as copies.
bool data_may_move(const change &change);

// Places data and configuration, with a backup of each file that is replaced, and then makes the
// links and sets the permissions, whose results nobody but a DEBUG line has a look at.
int place_files(change *change);

// Takes the links of a removal away.
int take_links_away(change *change);
