// The loader of catalogue backends.
#include <dlfcn.h>

#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "repository/vrc.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "support/text.h"

vrc_connect_function pvrm_vrc_connect;
vrc_refresh_function pvrm_vrc_refresh;
vrc_findpkg_function pvrm_vrc_findpkg;
vrc_readpkg_function pvrm_vrc_readpkg;
vrc_release_function pvrm_vrc_release;
vrc_set_report_function pvrm_vrc_set_report;
vrc_count_function pvrm_vrc_count;

const char *vrc_backend;
char *vrc_filename;
char *vrc_fullname;
void *vrc_backend_handle;
void *vrc;

// It is the error text that tells, not the address: a symbol's address may be null.
template <typename Function>
static bool resolve(void *library, const char *symbol, Function *function) {
    void *address = dlsym(library, symbol);
    if (const char *error = dlerror()) {
        fprintf(stderr, "Failure resolving vrm_%s: %s\n", symbol, error);
        return false;
    }
    *function = reinterpret_cast<Function>(address);
    return true;
}

static void forget_functions() {
    pvrm_vrc_connect = nullptr;
    pvrm_vrc_refresh = nullptr;
    pvrm_vrc_findpkg = nullptr;
    pvrm_vrc_readpkg = nullptr;
    pvrm_vrc_release = nullptr;
    pvrm_vrc_set_report = nullptr;
    pvrm_vrc_count = nullptr;
}

// The version that a backend was built for. It is data, so nothing of the backend runs for it.
static uint32_t abi_of(void *library) {
    const auto *abi = static_cast<const uint32_t *>(dlsym(library, "vrc_abi"));
    return abi ? *abi : 1;
}

// The name of the file that is loaded.
static char backend_name[256];

static void set_backend_name(const char *filename) {
    const char *slash = strrchr(filename, '/');
    snprintf(backend_name, sizeof backend_name, "%s", slash ? slash + 1 : filename);
}

static bool is_supported(void *library) {
    return guarded(false, [&] {
        const uint32_t abi = abi_of(library);
        if (abi >= vrm_oldest_backend_abi && abi <= VRC_ABI) {
            return true;
        }
        char supported[40];
        snprintf(supported, sizeof supported, "%" PRIu32 " to %d", vrm_oldest_backend_abi, VRC_ABI);
        const event refused{.kind = event_kind::backend_refused,
                            .path = backend_name,
                            .other = supported,
                            .number = abi};
        report(refused);
        // Once: a program may have the errors of its log on stderr.
        if (!llog || (llog->stderr_levels & LEVEL_ERROR) == 0) {
            fprintf(stderr, "%s\n", event_line(refused).c_str());
        }
        return false;
    });
}

// Functions that a backend may do without. One of version 1 has none, whatever its symbols are.
static void resolve_optional(void *library) {
    pvrm_vrc_set_report = nullptr;
    pvrm_vrc_count = nullptr;
    if (abi_of(library) > 1) {
        pvrm_vrc_set_report =
            reinterpret_cast<vrc_set_report_function>(dlsym(library, "vrc_set_report"));
        pvrm_vrc_count = reinterpret_cast<vrc_count_function>(dlsym(library, "vrc_count"));
    }
    dlerror();
}

void *vrm_vrc_load(const char *filename) {
    void *library = dlopen(filename, RTLD_LAZY);
    if (!library) {
        fprintf(stderr, "Failed to load backend %s: %s\n", filename, dlerror());
        return nullptr;
    }
    set_backend_name(filename);
    if (!is_supported(library)) {
        forget_functions();
        dlclose(library);
        return nullptr;
    }
    resolve_optional(library);
    if (resolve(library, "vrc_connect", &pvrm_vrc_connect) &&
        resolve(library, "vrc_refresh", &pvrm_vrc_refresh) &&
        resolve(library, "vrc_findpkg", &pvrm_vrc_findpkg) &&
        resolve(library, "vrc_readpkg", &pvrm_vrc_readpkg) &&
        resolve(library, "vrc_release", &pvrm_vrc_release)) {
        return library;
    }
    forget_functions();
    dlclose(library);
    return nullptr;
}

int vrm_vrc_close(void *library) {
    return dlclose(library);
}

// ---- Reports

// The size of a report of the first version that had reports; later ones only append fields.
static constexpr size_t smallest_report =
    offsetof(vrc_report, package) + sizeof(vrc_report::package);

static event_kind kind_of(uint32_t reported) {
    switch (static_cast<vrc_report_kind>(reported)) {
        case VRC_REPORT_DIRECTORY:
            return event_kind::catalogue_directory_unreadable;
        case VRC_REPORT_DIRECTORY_PART:
            return event_kind::catalogue_directory_cut;
        case VRC_REPORT_DAMAGED:
            return event_kind::catalogue_file_damaged;
        case VRC_REPORT_SKIPPED:
            return event_kind::catalogue_file_skipped;
        case VRC_REPORT_WARNING:
            return event_kind::catalogue_warning;
        case VRC_REPORT_ERROR:
            break;
    }
    return event_kind::catalogue_error;
}

void vrm_vrc_report(const vrc_report *given, const char *backend) noexcept {
    const auto out_of_memory = [&] { report({.kind = event_kind::memory_short, .who = backend}); };
    guarded(out_of_memory, [&] {
        if (!given || given->size < smallest_report || given->kind < VRC_REPORT_DIRECTORY ||
            given->kind > VRC_REPORT_ERROR) {
            return;
        }
        std::string text = given->text ? given->text : "";
        const bool has_both = !text.empty() && given->error != 0;
        if (has_both) {
            text += std::string(": ") + strerror(given->error);
        } else if (text.empty() && given->error == 0) {
            text = "no reason given";
        }
        report({.kind = kind_of(given->kind),
                .who = backend,
                .package = given->package ? given->package : "",
                .path = given->path && *given->path ? given->path : "(not named)",
                .other = text,
                .error = has_both ? 0 : given->error});
    });
}

// In log lines vrc-dirs.so is vrc-dirs.
static void take_report(const vrc_report *given, void *) {
    char name[sizeof backend_name];
    memcpy(name, backend_name, sizeof name);
    char *const dot = strrchr(name, '.');
    if (dot && strcmp(dot, ".so") == 0) {
        *dot = '\0';
    }
    vrm_vrc_report(given, name);
}

int vrm_vrc_watch(void *connection) {
    if (!pvrm_vrc_set_report || !connection) {
        return 0;
    }
    pvrm_vrc_set_report(connection, take_report, nullptr);
    return 1;
}

// ---- The configured backend

static void set_string(char **place, const std::string &text) {
    free(*place);
    *place = strdup(text.c_str());
    if (!*place) {
        throw std::bad_alloc();
    }
}

void *vrm_vrc_load_configured(s_ekva *const *sys_conf) {
    return guarded(nullptr, [&] {
        vrc_backend = ekva_getval(sys_conf, "vrc_backend");
        if (vrc_backend) {
            set_string(&vrc_filename, base_name(vrc_backend));
            log_debug("%s specified as catalogue backend", vrc_backend);
        } else {
            set_string(&vrc_filename, vrm_default_backend);
            log_debug("No catalogue backend speficied, using %.1900s", vrc_filename);
        }
        set_string(&vrc_fullname, std::string(vrm_backend_dir) + "/" + vrc_filename);
        log_debug("Loading vrm backend %s", vrc_fullname);
        vrc_backend_handle = vrm_vrc_load(vrc_fullname);
        return vrc_backend_handle;
    });
}
