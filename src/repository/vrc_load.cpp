// The loader of catalogue backends.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "repository/vrc.h"
#include "support/log.h"

vrc_connect_function pvrm_vrc_connect;
vrc_refresh_function pvrm_vrc_refresh;
vrc_findpkg_function pvrm_vrc_findpkg;
vrc_readpkg_function pvrm_vrc_readpkg;
vrc_release_function pvrm_vrc_release;

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
}

void *vrm_vrc_load(const char *filename) {
    void *library = dlopen(filename, RTLD_LAZY);
    if (!library) {
        fprintf(stderr, "Failed to load backend %s: %s\n", filename, dlerror());
        return nullptr;
    }
    dlerror();
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

static std::string base_name(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

static void set_string(char **place, const std::string &text) {
    free(*place);
    *place = strdup(text.c_str());
    if (!*place) {
        throw std::bad_alloc();
    }
}

void *vrm_vrc_load_configured(s_ekva *const *sys_conf) try {
    vrc_backend = ekva_getval(sys_conf, "vrc_backend");
    if (vrc_backend) {
        set_string(&vrc_filename, base_name(vrc_backend));
        log_say(LEVEL_DEBUG, "%s specified as catalogue backend", vrc_backend);
    } else {
        set_string(&vrc_filename, vrm_default_backend);
        log_say(LEVEL_DEBUG, "No catalogue backend speficied, using %.1900s", vrc_filename);
    }
    set_string(&vrc_fullname, std::string(vrm_backend_dir) + "/" + vrc_filename);
    log_say(LEVEL_DEBUG, "Loading vrm backend %s", vrc_fullname);
    vrc_backend_handle = vrm_vrc_load(vrc_fullname);
    return vrc_backend_handle;
} catch (const std::bad_alloc &) {
    return nullptr;
}
