// fltk-vrm, the window of the package manager. It reads by itself and hands every change of the
// system to the privileged tool.

#include "gui/loop.h"
#include "gui/model/package_rows.h"
#include "gui/start_up.h"
#include "gui/state.h"
#include "repository/repository.h"

int main(int argc, char **argv) {
    if (const start_up_result failure = start_up(argc, argv); failure != STARTED) {
        return failure;
    }
    run_loop();
    package_rows_free();
    vrm_close(vrm);
    vrm = nullptr;
    // The connection, the configuration, the log and the other lists go with the process.
    return 0;
}
