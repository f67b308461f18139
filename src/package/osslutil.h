// Names and times of certificates.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/x509.h>

#include <ctime>

// Diagnostics of x509_str2subj, on stderr. Null until its first call, which is not for concurrent
// use; lives until the process ends.
extern BIO *bio_err;

// The time of a certificate's date, in seconds since the epoch; 0 for a text of fewer than 12
// characters. A UTC time with a year below 70 is in this century. A generalized time goes through
// the same two-digit fields, so the first two digits of its year are taken as the year: it comes
// out as a date of antiquity, and a certificate with such an end counts as expired. Local time is
// taken off with the offset of this moment, not of the date, which is an hour off for dates on the
// other side of a daylight-saving change.
time_t asn1_utc_time(const ASN1_TIME *time);

// Seconds by which local time is ahead of UTC at this moment.
long utc_offset();

// Makes a name from its one-line form, such as "/O=Test/CN=Builder": a slash, a type, an equals
// sign and a value for each element. A backslash takes the next character literally. With
// `multi_value` not 0 a `+` in a value begins a further type and value of the same element.
// `character_type` is the encoding of the values, such as MBSTRING_ASC. Elements with an unknown
// type or an empty value are left out. Returns a new name, to be freed with X509_NAME_free, or null
// when the text doesn't parse or a value doesn't suit its type. Diagnostics go to `bio_err`, which
// is opened for it.
X509_NAME *x509_str2subj(const char *text, int character_type, int multi_value);
