#include "maintenance/dry_run.h"

bool dry_run = false;
