// Records of key and value strings, in which keys may repeat, and lists of such records.
//
// A record is a null-terminated array of pointers to pairs, in order of insertion; callers may walk
// it. Slot 0 of a record made here is its header, a pair whose key is "#EKVA_10:<capacity>:<mode>"
// and whose value is null: the capacity is the number of entries that the record takes before it
// grows, the mode (1 to 4) is kept for copies and decides nothing by itself. A record made by hand
// may do without the header; its maker then leaves room for what is added, since such a record
// cannot tell when it is full.
//
// The pair, `s_ekva`, is declared in the interface to backends; both strings are heap strings of
// the record, the header's too, so that a caller may free one and put another in its place. Arrays,
// pairs and strings are blocks from malloc, and so a record may be handed to a backend and back.
// Code that shortens one by hand clears every slot that it gives up, not only the first: additions
// trust a count kept beside the header and look no further than at the slots around the end.
//
// Nothing here logs: records are filled before the log stands. When memory fails, what returns a
// pointer returns null.
#pragma once

#include <cstdio>

#include "vrm/vrc_backend.h"

// Whether slot 0 of the record is a header: 1, with both numbers stored, or 0 with nothing stored.
// A null record has none.
int _ekva_parse_header(s_ekva *const *rec, int *capacity, int *mode);

// The slot of the first pair, which is 1 where there is a header; null for null.
s_ekva *const *ekva_first_pair(s_ekva *const *rec);

// A new record that holds only its header. Null when the capacity is less than 1, when the mode is
// outside 1 to 4, or when memory fails. The caller frees it with ekva_free.
s_ekva **ekva_new(int capacity, int mode);

// ekva_new with mode 2.
s_ekva **ekva_init(int capacity);

// Frees every key and value, the pairs and the array. Null is accepted.
void ekva_free(s_ekva **rec);

// The number of entries, the header not among them; 0 for null.
int ekva_nument(s_ekva *const *rec);

// Adds copies of a key and a value (which may be null). What happens when the key is there already,
// case aside, is up to the mode:
//   0, 3, 4  the pair is added at the end, whatever is there;
//   1        what is there stays, nothing is added;
//   2        the value of every such pair is replaced, nothing is added; a pair whose value is null
//            keeps its null.
// The result is the index of the new slot plus 1, or, when nothing was added, of the last slot plus
// 1. A result less than 1 is a failure: a null record, or memory. The record grows as needed, which
// may change *rec; if growing fails the record is freed and *rec is null. An addition takes the
// same time in a large record as in a small one, except in modes 1 and 2, which look at every pair.
int ekva_addval(s_ekva ***rec, const char *key, const char *val, int mode);

// The value of the first pair with this key, case aside, or null. The string belongs to the record.
// A null record has no pairs, here and in the three functions below.
char *ekva_getval(s_ekva *const *rec, const char *key);

// The value of the n-th pair with this key, counted from 0, or null. It belongs to the record.
char *ekva_getone(s_ekva *const *rec, const char *key, int n);

// How many pairs have this key.
int ekva_cntval(s_ekva *const *rec, const char *key);

// Copies of all values of the key, in order, as a new string array for arr_free; null when there is
// none. A pair whose value is null gives no entry.
char **ekva_getvals(s_ekva *const *rec, const char *key);

// The key of the first pair, from slot 1 on, whose value equals `value`, case aside, or null. It
// belongs to the record.
char *ekva_getkey(s_ekva *const *rec, const char *value);

// All values of the key joined by the separator in a new heap string; null when there is none.
char *ekva_getvals_str(s_ekva *const *rec, const char *key, char separator);

// A copy of every slot, the header as it stands. Null for null.
s_ekva **ekva_dup(s_ekva *const *rec);

// A new record of the same mode, just large enough for the entries. A record without entries gives
// null: callers test for it. A record without a header gives one of mode 2.
s_ekva **ekva_copy(s_ekva *const *rec);

// Writes a line an entry to stdout, "key: <value>", or "key: NULL". The result is their number.
int ekva_print(s_ekva *const *rec);

// Writes a line an entry to the stream, the key padded to `width` columns, a null value as "NULL"
// within its brackets. The result is the number of lines.
int ekva_fprint(s_ekva *const *rec, FILE *stream, int width);

// The pairs from slot 1 on as "key=value", joined by the separator, in a new heap string; nothing
// stands behind the "=" for a null value. "" for an empty record, null for null.
char *ekva2str(s_ekva *const *rec, char separator);

// A new record of the fields between the separators, each "key=value" read as a line of a
// configuration file, quotes and all (see _split_line). Keys may repeat. Fields without "=" or with
// an empty key are dropped. The empty string gives null. A pair that can't be added is named on
// stderr.
s_ekva **str2ekva(const char *text, char separator);

// Appends a copy of the record (ekva_copy) at index `count`, and a null behind it. The caller keeps
// the count and the capacity, which is set to a positive value before the first call; with a count
// of 0 the list is allocated, whatever *list was. The result is the new count: `count` itself when
// there was nothing to append (a record without entries) or when memory failed.
int ekva_list_add(s_ekva ****list, s_ekva *const *rec, int count, int *capacity);

// Frees each record and the list. Null is accepted.
void ekva_list_free(s_ekva ***list);

// The first record with a pair of exactly this key and this value, or null. Other than within a
// record, case counts here. The record belongs to the list.
s_ekva **ekva_list_get_ekva(s_ekva **const *list, const char *key, const char *value);

// The same for the n-th match, counted from 0. A record with two matching pairs counts twice.
s_ekva **ekva_list_get_ekva_seq(s_ekva **const *list, const char *key, const char *value, int n);

// The number of matching pairs over the list; case counts. A null value counts every pair with the
// key.
int ekva_list_cnt_ekva(s_ekva **const *list, const char *key, const char *value);

// ekva_list_sortx by strcmp.
void ekva_list_sort(s_ekva ****list, const char *key);

// Sorts the list in place, ascending and stable, by the first value of `key` in each record (key
// without regard to case). Neighbours are exchanged when `compare` (null: strcmp) gives more than
// 0. A record without a value for the key stays where it is and lets no other pass.
void ekva_list_sortx(s_ekva ****list, const char *key, int (*compare)(const char *, const char *));
