// The reports of one package.
#include <ctime>
#include <string>

#include "maintenance/report.h"
#include "support/arch.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/own.h"
#include "support/text.h"
#include "support/vdef.h"
#include "ui/vrmui.h"

namespace {

// The last of the update times, 0 for none.
int64_t last_update(const vri *package) {
    int64_t last = 0;
    for (const int64_t *time = package->update_times; time && *time != 0; time++) {
        last = *time;
    }
    return last;
}

// Where a report goes: a stream, or the text of the user interface.
class report_sink {
 public:
    explicit report_sink(FILE *out) : out_(out) {}

    void put(const std::string &text) const {
        if (out_) {
            fputs(text.c_str(), out_);
        } else {
            vrmui_line_add(vrmui, text.c_str());
        }
    }
    void label(const char *name, const char *value) const {
        put(std::string(name) + ": " + value + "\n");
    }
    void label_if_set(const char *name, const char *value) const {
        if (value) {
            label(name, value);
        }
    }
    // What isn't set has no line.
    void ldif(const char *key, const char *value) const {
        if (value) {
            write_ldif(key, value, 0, 0);
        }
    }
    void ldif_bytes(const char *key, const unsigned char *bytes, int32_t length) const {
        if (bytes && length >= 1) {
            write_ldif(key, reinterpret_cast<const char *>(bytes), length, 1);
        }
    }
    void end_of_ldif_entry() const {
        write_ldif(nullptr, "", 0, 0);
    }

 private:
    void write_ldif(const char *key, const char *value, int32_t length, int binary) const {
        if (out_) {
            ldif_fwrite(out_, key, value, length, binary);
        } else {
            ldif_uiwrite(key, value, static_cast<unsigned>(length), binary != 0);
        }
    }

    FILE *out_;
};

// ---- The form ----

// The user interface can't draw a field without a value.
class form_record {
 public:
    void add(const char *key, const std::string &value) {
        add_pair(&rec_, key, value.c_str());
    }
    void add_if_set(const char *key, const char *value) {
        if (value) {
            add(key, value);
        }
    }
    s_ekva *const *get() const {
        return rec_.get();
    }

 private:
    own_ekva rec_{ekva_new(20, 4)};
};

// Expired and not yet valid certificates have no words, nor has what was not checked.
const char *signature_words(int32_t status) {
    switch (status) {
        case 1:
            return "Successfully verified";
        case -1:
            return "Missing signature";
        case -2:
            return "Untrusted signature";
        case -3:
            return "Invalid signature";
        default:
            return nullptr;
    }
}

void add_installation(form_record *form, const vri *package) {
    if (package->install_time > 0) {
        form->add("Installed at", nice_date(package->install_time));
    }
    if (package->install_type == 'X') {
        form->add("Installed as", "Explicit request");
    } else if (package->install_type == 'D') {
        form->add("Installed as",
                  (std::string("Dependency of ") + or_empty(package->install_head)).substr(0, 254));
    }
    if (const int64_t last = last_update(package)) {
        form->add("Last updated at", nice_date(last));
    }
}

int write_form(const vri *package, unsigned mode, unsigned list_format) {
    log_debug("vrm_vrk_info_write: list_format = %d", static_cast<int>(list_format));
    form_record form;
    form.add("Name", or_empty(package->name));
    form.add_if_set("Variant", package->variant);
    form.add("Version", or_empty(package->version));
    form.add("Architecture", or_empty(vrm_arch_getname(package->arch)));
    form.add("Creator", or_empty(package->creator));
    form.add_if_set("Description", package->description);
    form.add_if_set("Signature", signature_words(package->sig_status));
    for (char *const *dep = package->deps; dep && *dep; dep++) {
        form.add("Dependency", *dep);
    }
    form.add("Data size", nice_size(package->datasize));
    if (mode == 3) {
        form.add("File size", nice_size(package->filesize));
    } else if (mode == 2) {
        add_installation(&form, package);
    }
    return vrmui_write_form(vrmui, "Package details", form.get());
}

// ---- Text, LDIF and the delimited line ----

void write_text(const report_sink &sink, const vri *package) {
    sink.label("Name", or_empty(package->name));
    sink.label_if_set("Variant", package->variant);
    sink.label("Version", or_empty(package->version));
    sink.label("Architecture", or_empty(vrm_arch_getname(package->arch)));
    sink.label_if_set("Creator", package->creator);
    for (char *const *dep = package->deps; dep && *dep; dep++) {
        sink.label("Dependency", *dep);
    }
    sink.label_if_set("Description", package->description);
    if (package->install_time > 0) {
        sink.label("\nInstalled at", nice_date(package->install_time).c_str());
    }
    if (package->install_type == 'X') {
        sink.label("Installed as", "Explicit request");
    } else if (package->install_type == 'D') {
        sink.label("Installed as",
                   (std::string("Dependency of ") + or_empty(package->install_head)).c_str());
    }
    if (const int64_t last = last_update(package)) {
        sink.label("Last updated at", nice_date(last).c_str());
    }
}

// Sizes are read and printed as signed numbers.
std::string decimal(uint64_t number) {
    return std::to_string(static_cast<int64_t>(number));
}

void write_ldif(const report_sink &sink, const vri *package) {
    // The name is one line, however long it is.
    sink.put("dn: " + package_dn(package) + "\n");
    sink.ldif("evrkUid", vrk_puname(package));
    sink.ldif("evrkName", package->name);
    sink.ldif("evrkVariant", package->variant);
    sink.ldif("evrkVersion", package->version);
    sink.ldif("evrkArchitecture", vrm_arch_getname(package->arch));
    sink.ldif("evrkCreator", package->creator);
    for (char *const *dep = package->deps; dep && *dep; dep++) {
        sink.ldif("evrkDependency", *dep);
    }
    sink.ldif("evrkDescription", package->description);
    sink.ldif("evrkAbsoluteURI", package->absolute_uri);
    sink.ldif("evrkRelativeURI", package->relative_uri);
    sink.ldif("evrkDataSize", decimal(package->datasize).c_str());
    sink.ldif("evrkFileSize", decimal(package->filesize).c_str());
    sink.ldif("evrkFileHash", package->filehash);
    sink.ldif("evrkRsaSigSubj", package->rsa_sig_subj);
    sink.ldif_bytes("evrkRsaSigData", package->rsa_sig_data, package->rsa_sig_len);
    // Dates for people here, other than the seconds of inst.txt.
    if (package->install_time > 0) {
        sink.ldif("evrkInstallTime", nice_date(package->install_time).c_str());
    }
    if (package->install_type) {
        sink.ldif("evrkInstallType", std::string(1, package->install_type).c_str());
    }
    sink.ldif("evrkInstallHead", package->install_head);
    for (const int64_t *time = package->update_times; time && *time != 0; time++) {
        sink.ldif("evrkUpdateTime", nice_date(*time).c_str());
    }
    sink.end_of_ldif_entry();
}

void write_delimited(const report_sink &sink, const vri *package) {
    std::string line;
    for (const char *field :
         {static_cast<const char *>(package->name), static_cast<const char *>(package->variant),
          static_cast<const char *>(package->version), vrm_arch_getname(package->arch)}) {
        line += std::string(or_empty(field)) + ":";
    }
    line += or_empty(package->creator);
    // An empty array has no field, and no colon ahead of it: such a line is a field shorter.
    if (!package->deps) {
        line += ':';
    }
    for (char *const *dep = package->deps; dep && *dep; dep++) {
        line += (dep == package->deps ? ':' : '|');
        line += *dep;
    }
    sink.put(line + ":" + or_empty(package->description) + "\n");
}

void write_package(const vri *package, FILE *out, unsigned list_format) {
    log_debug(out ? "Writing info to file" : "Writing info to ui");
    if (vrmui) {
        vrmui_line_new(vrmui, "");
    }
    const report_sink sink(out);
    switch (list_format) {
        case FORMAT_TEXT:
            write_text(sink, package);
            break;
        case FORMAT_LDIF:
            write_ldif(sink, package);
            break;
        case FORMAT_DELIMITED:
            write_delimited(sink, package);
            break;
        default:
            return;
    }
    if (vrmui && list_format == FORMAT_TEXT) {
        vrmui_write_info(vrmui, vrmui->text, 1);
    } else if (vrmui) {
        vrmui_write(vrmui, vrmui->text, 0);
    }
}

}  // namespace

int vrm_vrk_info_write(const vri *package, FILE *out, unsigned mode, unsigned list_format,
                       int /*unused*/) {
    return guarded("vrm_vrk_info_write", -1, [&] {
        if (list_format == FORMAT_FORM) {
            return write_form(package, mode, list_format);
        }
        write_package(package, out, list_format);
        return 0;
    });
}
