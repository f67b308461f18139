#include "pvrm/exit_status.h"
#include "pvrm/privilege.h"
#include "pvrm/words.h"

int word_allowed() {
    return may_change_system() ? EXIT_DONE : EXIT_NOT_PERMITTED;
}
