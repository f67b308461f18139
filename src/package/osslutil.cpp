#include "package/osslutil.h"

#include <openssl/objects.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "package/ossl_own.h"
#include "support/boundary.h"

BIO *bio_err;

static void bio_err_open() {
    if (!bio_err) {
        bio_err = BIO_new_fp(stderr, BIO_NOCLOSE);
    }
}

time_t asn1_utc_time(const ASN1_TIME *time) {
    if (!time || ASN1_STRING_length(time) < 12) {
        return 0;
    }
    const time_t now = ::time(nullptr);
    struct tm when;
    gmtime_r(&now, &when);
    const long offset = utc_offset();

    const unsigned char *bytes = ASN1_STRING_get0_data(time);
    const std::string digits(bytes, bytes + 12);
    sscanf(digits.c_str(), "%02d%02d%02d%02d%02d%02d", &when.tm_year, &when.tm_mon, &when.tm_mday,
           &when.tm_hour, &when.tm_min, &when.tm_sec);
    const int type = ASN1_STRING_type(time);
    if (type == V_ASN1_UTCTIME && when.tm_year < 70) {
        when.tm_year += 100;
    }
    if (type == V_ASN1_GENERALIZEDTIME) {
        when.tm_year -= 1900;
    }
    when.tm_mon -= 1;
    when.tm_isdst = -1;
    return mktime(&when) + offset;
}

long utc_offset() {
    const time_t now = time(nullptr);
    struct tm parts;
    gmtime_r(&now, &parts);
    parts.tm_isdst = -1;
    const time_t as_utc = mktime(&parts);
    localtime_r(&now, &parts);
    parts.tm_isdst = -1;
    const time_t as_local = mktime(&parts);
    return static_cast<long>(as_local - as_utc);
}

namespace {

struct subject_element {
    std::string type;
    std::string value;
    bool joined = false;  // part of the same multi-valued element as the one before
};

// Takes text up to an unescaped character of `ends` or to the end. The end character is left in
// front of the rest. False if a backslash has nothing behind it.
bool take_part(std::string_view *rest, std::string_view ends, std::string *part) {
    while (!rest->empty() && ends.find(rest->front()) == ends.npos) {
        if (rest->front() == '\\') {
            rest->remove_prefix(1);
            if (rest->empty()) {
                BIO_printf(bio_err, "escape character at end of string\n");
                return false;
            }
        }
        part->push_back(rest->front());
        rest->remove_prefix(1);
    }
    return true;
}

bool split_elements(std::string_view rest, bool multi_value,
                    std::vector<subject_element> *elements) {
    if (rest.empty() || rest.front() != '/') {
        BIO_printf(bio_err, "Subject does not start with '/'.\n");
        return false;
    }
    rest.remove_prefix(1);
    bool joined = false;
    while (!rest.empty()) {
        subject_element element;
        element.joined = joined;
        if (!take_part(&rest, "=", &element.type)) {
            return false;
        }
        if (rest.empty()) {
            BIO_printf(bio_err,
                       "end of string encountered while processing type of subject name element "
                       "#%d\n",
                       static_cast<int>(elements->size()));
            return false;
        }
        rest.remove_prefix(1);
        if (!take_part(&rest, multi_value ? "/+" : "/", &element.value)) {
            return false;
        }
        joined = !rest.empty() && rest.front() == '+';
        if (!rest.empty()) {
            rest.remove_prefix(1);
        }
        elements->push_back(std::move(element));
    }
    return true;
}

// Adds an element to the name, or leaves it out with a word of why. False if the name refuses it.
bool add_element(X509_NAME *name, const subject_element &element, int character_type) {
    const int nid = OBJ_txt2nid(element.type.c_str());
    if (nid == NID_undef) {
        BIO_printf(bio_err, "Subject Attribute %s has no known NID, skipped\n",
                   element.type.c_str());
        return true;
    }
    if (element.value.empty()) {
        BIO_printf(bio_err, "No value provided for Subject Attribute %s, skipped\n",
                   element.type.c_str());
        return true;
    }
    const auto *value = reinterpret_cast<const unsigned char *>(element.value.c_str());
    return X509_NAME_add_entry_by_NID(name, nid, character_type, value, -1, -1,
                                      element.joined ? -1 : 0) != 0;
}

}  // namespace

X509_NAME *x509_str2subj(const char *text, int character_type, int multi_value) {
    bio_err_open();
    const ossl_errors_dropped errors;
    const auto out_of_memory = [] {
        BIO_printf(bio_err, "malloc error\n");
        return nullptr;
    };
    return guarded(out_of_memory, [&]() -> X509_NAME * {
        std::vector<subject_element> elements;
        if (!split_elements(text, multi_value != 0, &elements)) {
            return nullptr;
        }
        own_x509_name name(X509_NAME_new());
        if (!name) {
            return nullptr;
        }
        for (const subject_element &element : elements) {
            if (!add_element(name.get(), element, character_type)) {
                return nullptr;
            }
        }
        return name.release();
    });
}
