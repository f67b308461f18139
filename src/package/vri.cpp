#include "package/vri.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/arch.h"
#include "support/array.h"
#include "support/base64.h"
#include "support/log.h"

void vrk_info_free(vri *info) {
    if (!info) {
        return;
    }
    free(info->name);
    free(info->variant);
    free(info->version);
    free(info->creator);
    free(info->description);
    arr_free(info->deps);
    free(info->filehash);
    free(info->absolute_uri);
    free(info->relative_uri);
    free(info->install_head);
    free(info->update_times);
    free(info->rsa_sig_subj);
    free(info->rsa_sig_data);
    ekva_free(info->ekva);
    free(info);
}

// Each copies one field of a record and is false when memory fails.

static bool copy_text(const char *text, char **copy) {
    *copy = text ? strdup(text) : nullptr;
    return *copy || !text;
}

static bool copy_dependencies(char *const *deps, char ***copy) {
    *copy = arr_copy(deps);
    return *copy || !deps;
}

static bool copy_times(const int64_t *times, int64_t **copy) {
    if (!times) {
        return true;
    }
    size_t count = 0;
    while (times[count] != 0) {
        count++;
    }
    *copy = static_cast<int64_t *>(calloc(count + 1, sizeof(int64_t)));
    if (*copy) {
        std::copy_n(times, count, *copy);
    }
    return *copy != nullptr;
}

static bool copy_signature(const vri *info, vri *copy) {
    copy->rsa_sig_len = info->rsa_sig_len;
    if (!info->rsa_sig_data || info->rsa_sig_len < 1) {
        return true;
    }
    const auto length = static_cast<size_t>(info->rsa_sig_len);
    copy->rsa_sig_data = static_cast<unsigned char *>(calloc(length + 1, 1));
    if (copy->rsa_sig_data) {
        std::copy_n(info->rsa_sig_data, length, copy->rsa_sig_data);
    }
    return copy->rsa_sig_data != nullptr;
}

vri *vrk_info_copy(const vri *info) {
    own_vri copy(info ? static_cast<vri *>(calloc(1, sizeof(vri))) : nullptr);
    if (!copy) {
        return nullptr;
    }
    copy->arch = info->arch;
    copy->flag = info->flag;
    copy->datasize = info->datasize;
    copy->filesize = info->filesize;
    copy->install_time = info->install_time;
    copy->install_type = info->install_type;
    copy->sig_status = info->sig_status;
    const bool whole =
        copy_text(info->name, &copy->name) && copy_text(info->variant, &copy->variant) &&
        copy_text(info->version, &copy->version) && copy_text(info->creator, &copy->creator) &&
        copy_text(info->description, &copy->description) &&
        copy_dependencies(info->deps, &copy->deps) && copy_text(info->filehash, &copy->filehash) &&
        copy_text(info->absolute_uri, &copy->absolute_uri) &&
        copy_text(info->relative_uri, &copy->relative_uri) &&
        copy_text(info->install_head, &copy->install_head) &&
        copy_times(info->update_times, &copy->update_times) &&
        copy_text(info->rsa_sig_subj, &copy->rsa_sig_subj) && copy_signature(info, copy.get());
    return whole ? copy.release() : nullptr;
}

// The word of evrkSignature. Expired and not yet valid certificates have none.
static const char *signature_word(int32_t status) {
    switch (status) {
        case 1:
            return "Verified";
        case -1:
            return "Missing";
        case -2:
            return "Untrusted";
        case -3:
            return "Invalid";
        default:
            return nullptr;
    }
}

static void add(s_ekva ***rec, const char *key, const char *val) {
    ekva_addval(rec, key, val, 0);
}

static void add_number(s_ekva ***rec, const char *key, int64_t number) {
    char text[24];
    snprintf(text, sizeof text, "%" PRId64, number);
    add(rec, key, text);
}

static void add_signature_data(s_ekva ***rec, const vri *info) {
    if (!info->rsa_sig_data) {
        return;
    }
    const auto length = static_cast<size_t>(info->rsa_sig_len);
    const size_t size = 2 * length + 10;
    const own_string text(static_cast<char *>(malloc(size)));
    if (text && lutil_b64_ntop(info->rsa_sig_data, length, text.get(), size) >= 0) {
        add(rec, "evrkRsaSigData;binary", text.get());
    }
}

static void add_install_info(s_ekva ***rec, const vri *info) {
    add_number(rec, "evrkInstallTime", info->install_time);
    if (!info->update_times) {
        add(rec, "evrkUpdateTime", nullptr);
    } else {
        for (const int64_t *time = info->update_times; *time != 0; time++) {
            add_number(rec, "evrkUpdateTime", *time);
        }
    }
    const char type[] = {info->install_type, '\0'};
    add(rec, "evrkInstallType", type);
    if (info->install_type == 'D') {
        add(rec, "evrkInstallHead", info->install_head);
    }
}

// The keys alone. It has no evrkDataSize and no evrkSignature, and the mode of the inventory keeps
// the signature keys which a filled record of that mode lacks: reports rely on this set and order.
static s_ekva **template_of(int32_t mode) {
    s_ekva **rec = ekva_new(40, 4);
    for (const char *key :
         {"evrkName", "evrkVariant", "evrkVersion", "evrkArchitecture", "evrkCreator",
          "evrkDescription", "evrkDependency", "evrkRsaSigSubj", "evrkRsaSigData;binary"}) {
        add(&rec, key, nullptr);
    }
    if (mode == 1) {
        for (const char *key :
             {"evrkFileSize", "evrkFileHash", "evrkAbsoluteURI", "evrkRelativeURI"}) {
            add(&rec, key, nullptr);
        }
    } else if (mode == 2) {
        for (const char *key :
             {"evrkInstallTime", "evrkUpdateTime", "evrkInstallType", "evrkInstallHead"}) {
            add(&rec, key, nullptr);
        }
    }
    return rec;
}

s_ekva **vrk_info_ekva(const vri *info, int32_t mode) {
    if (!info) {
        return template_of(mode);
    }
    s_ekva **rec = ekva_new(40, 4);
    add(&rec, "evrkName", info->name);
    add(&rec, "evrkVariant", info->variant);
    add(&rec, "evrkVersion", info->version);
    add(&rec, "evrkArchitecture", vrm_arch_getname(info->arch));
    add(&rec, "evrkCreator", info->creator);
    if (const char *word = signature_word(info->sig_status)) {
        add(&rec, "evrkSignature", word);
    }
    add(&rec, "evrkDescription", info->description);
    if (!info->deps) {
        add(&rec, "evrkDependency", nullptr);
    } else {
        for (char *const *dep = info->deps; *dep; dep++) {
            add(&rec, "evrkDependency", *dep);
        }
    }
    // Sizes are read and printed as signed numbers.
    add_number(&rec, "evrkDataSize", static_cast<int64_t>(info->datasize));
    if (mode == 2) {
        add_install_info(&rec, info);
        return rec;
    }
    add(&rec, "evrkRsaSigSubj", info->rsa_sig_subj);
    add_signature_data(&rec, info);
    if (mode == 1) {
        add_number(&rec, "evrkFileSize", static_cast<int64_t>(info->filesize));
        add(&rec, "evrkFileHash", info->filehash);
        add(&rec, "evrkAbsoluteURI", info->absolute_uri);
        add(&rec, "evrkRelativeURI", info->relative_uri);
    }
    return rec;
}

int vri_compare(const void *a, const void *b) {
    const vri *first = *static_cast<vri *const *>(a);
    const vri *second = *static_cast<vri *const *>(b);
    return strcmp(first->name ? first->name : "", second->name ? second->name : "");
}

static size_t count_of(vri *const *list) {
    size_t count = 0;
    while (list[count]) {
        count++;
    }
    return count;
}

void vrm_vri_list_bsort(vri ***list) {
    if (!list || !*list) {
        return;
    }
    // Swapping neighbours that are strictly greater is a stable sort, which this is in less time:
    // catalogues have tens of thousands of records.
    std::stable_sort(*list, *list + count_of(*list),
                     [](const vri *a, const vri *b) { return vri_compare(&a, &b) < 0; });
}

void vrm_vri_list_sort(vri ***list) {
    const auto start = std::chrono::steady_clock::now();
    vrm_vri_list_bsort(list);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    log_debug("vrm_vri_list_sort(): bsort took %.5f seconds\n", took.count());
}

void vrm_vri_list_qsort(vri ***list) {
    if (list && *list) {
        qsort(*list, count_of(*list), sizeof(vri *), vri_compare);
    }
}

void vrm_vri_list_free(vri **list) {
    if (!list) {
        return;
    }
    for (vri **info = list; *info; info++) {
        vrk_info_free(*info);
    }
    free(list);
}
