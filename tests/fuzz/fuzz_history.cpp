// The reader of the history, whose lines hold names of packages, and the forms in which it is
// shown.

#include <string>

#include "fuzz.h"
#include "repository/action_log.h"
#include "support/array.h"
#include "support/csv.h"
#include "support/ldif.h"
#include "support/own.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    own_array lines(str2arr(text_of(data, size).c_str(), '\n'));
    for (char **line = lines.get(); line && *line; line++) {
        const own_ekva record(vrm_parse_log(*line));
        if (!record) {
            continue;
        }
        for (const char *key : {"evrkLogDate", "evrkLogTime", "evrkLogAction", "evrkLogPkgUid",
                                "evrkLogPkgName", "evrkLogPkgVersion"}) {
            CHECK(ekva_cntval(record.get(), key) == 1 && ekva_getval(record.get(), key));
        }
        CHECK(std::string(ekva_getval(record.get(), "evrkLogDate")).size() == 19);
        const own_string entry(ekva2ldif(record.get()));
        CHECK(entry);
        const own_string row(ekva2csv(record.get(), ';', 0, 0));
        CHECK(row);
    }
    return 0;
}
