#include "transaction/interrupt.h"

volatile sig_atomic_t vrm_stop_requested = 0;
