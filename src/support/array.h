// String arrays: null-terminated arrays of heap strings. Null is an empty array to a reader.
//
// What returns an array hands it to the caller, who frees it with arr_free. When memory fails, what
// returns a pointer returns null.
#pragma once

// The index of the first entry equal to the text, or -1.
int pos_array(char *const *array, const char *text);

// 1 when an entry equals the text, else 0; in_array_i does so without regard to case.
int in_array(char *const *array, const char *text);
int in_array_i(char *const *array, const char *text);

// The number of entries; 0 for null.
int arr_count(char *const *array);

// A deep copy. Null for null; an empty array stays an empty array.
char **arr_copy(char *const *array);

// Appends copies of all entries of `other` to the array. The result takes the array's place; it is
// null for a null array. When memory fails the array is freed. `other` may be null.
char **arr_tail(char **array, char *const *other);

// The same, without entries that are present already, one appended just before among them.
char **arr_tailx(char **array, char *const *other);

// Appends the fields of a comma-separated text, by arr_tailx when `dedupe` is not 0, else by
// arr_tail. The text may be null. The result takes the array's place.
char **arr_adds(char **array, int dedupe, const char *text);

// The entries joined by the separator in a new heap string. Null for null, "" for an empty array.
char *arr2str(char *const *array, char separator);

// The fields of the text between the separators, as a new array. Empty fields are dropped, and so
// are all behind the 1000th. Null when there is no field.
char **str2arr(const char *text, char separator);

// The same, each field cut down to its first word (_clean_key).
char **str2arr_trim(const char *text, char separator);

// Frees the entries and the array. Null is accepted.
void arr_free(char **array);

// Appends a copy of the text at index `count`, and a null behind it. The caller keeps the count and
// the capacity, which is set to a positive value before the first call; with a count of 0 the array
// is allocated, whatever *array was. The result is the new count: `count` itself when the text is
// null or memory failed.
int arr_t21_add(char ***array, const char *text, int count, int *capacity);

// The same for an array of string arrays, to which a deep copy of `array` is appended.
int aarr_t21_add(char ****arrays, char *const *array, int count, int *capacity);

// Sorts the array in place, ascending and stable: neighbours are exchanged when `compare` (null:
// strcmp) gives more than 0.
void arr_sortx(char ***array, int (*compare)(const char *, const char *));

// Compares two numbers (0 for what is none): their difference, cut to an int. Numbers less than 1
// apart are equal.
int list_cmp_num(const char *a, const char *b);

// Compares two dotted addresses field by field, missing ones as 0: 1, -1 or 0.
int list_cmp_addr(const char *a, const char *b);
