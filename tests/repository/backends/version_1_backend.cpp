// A backend of version 1 of the interface, as it was built before there were numbers: with its own
// copy of the records, whose layout programs have to keep. It fills every field that crosses.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {

struct s_ekva {
    char *key;
    char *val;
};

struct vri {
    char *name;
    char *variant;
    char *version;
    char *creator;
    int32_t arch;
    char *description;
    char **deps;
    int32_t flag;
    uint64_t datasize;
    uint64_t filesize;
    char *filehash;
    char *absolute_uri;
    char *relative_uri;
    int64_t install_time;
    char install_type;
    char *install_head;
    int64_t *update_times;
    char *rsa_sig_subj;
    unsigned char *rsa_sig_data;
    int32_t rsa_sig_len;
    int32_t sig_status;
    s_ekva **ekva;
};

void *vrc_connect(s_ekva **sys_conf, void *) {
    return sys_conf;
}

int vrc_refresh(void *) {
    return 0;
}

int vrc_findpkg(void *, const char *, const char *, const char *, int, s_ekva **, vri ***out) {
    auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup("name");
    record->variant = strdup("variant");
    record->version = strdup("version");
    record->creator = strdup("creator");
    record->arch = 8;
    record->description = strdup("description");
    record->deps = static_cast<char **>(calloc(2, sizeof(char *)));
    record->deps[0] = strdup("dependency");
    record->flag = 7;
    record->datasize = UINT64_C(0x123456789a);
    record->filesize = UINT64_C(0xa987654321);
    record->filehash = strdup("hash");
    record->absolute_uri = strdup("/absolute");
    record->relative_uri = strdup("relative");
    record->install_time = INT64_C(0x100000001);
    record->install_type = 'D';
    record->install_head = strdup("head");
    record->update_times = static_cast<int64_t *>(calloc(2, sizeof(int64_t)));
    record->update_times[0] = INT64_C(0x100000002);
    record->rsa_sig_subj = strdup("subject");
    record->rsa_sig_data = reinterpret_cast<unsigned char *>(strdup("data"));
    record->rsa_sig_len = 4;
    record->sig_status = -5;
    record->ekva = static_cast<s_ekva **>(calloc(2, sizeof(s_ekva *)));
    record->ekva[0] = static_cast<s_ekva *>(calloc(1, sizeof(s_ekva)));
    record->ekva[0]->key = strdup("key");
    record->ekva[0]->val = strdup("value");
    *out = static_cast<vri **>(calloc(2, sizeof(vri *)));
    (*out)[0] = record;
    return 1;
}

int vrc_readpkg(void *, vri *package, FILE *out) {
    return fprintf(out, "%s", package->name);
}

void vrc_release(void *) {}

// Not what it is from version 2 on: a program that called it would be wrong.
void vrc_set_report(void *) {
    abort();
}

}  // extern "C"
