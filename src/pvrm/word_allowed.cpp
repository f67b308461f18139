#include "pvrm/exit_status.h"
#include "pvrm/privilege.h"
#include "pvrm/words.h"

int word_allowed(bool restricted) {
    return may_change_system(restricted) ? EXIT_DONE : EXIT_NOT_PERMITTED;
}
