#include <cstring>

#include "support/event.h"
#include "support/ldif.h"
#include "support/own.h"
#include "ui/vrmui.h"

int32_t ldif_uiwrite(const char *key, const char *value, unsigned length, unsigned binary) {
    if (!vrmui || !value) {
        return 0;
    }
    const size_t bytes = binary ? length : strlen(value);
    int32_t written = 0;
    const own_string line(
        ldif_write(nullptr, &written, key, value, static_cast<int32_t>(bytes), binary ? 1 : 0));
    if (!line) {
        report({.kind = event_kind::memory_short, .who = "ldif_uiwrite"});
        return 0;
    }
    vrmui_line_add(vrmui, line.get());
    return written;
}
