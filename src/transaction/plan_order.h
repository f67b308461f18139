// The order in which the dependencies of a transaction are carried out.
#pragma once

#include "transaction/vrt.h"

// Orders a transaction's dependencies in place and sets their weights. What is installed has weight
// 0. The others start with 1, and gain 1 for every pass over the array in which something that they
// need was still missing; a circular one waits for nothing. Higher weights come first, equal ones
// keep their order: executors work from the last record to the first, so that what needs nothing
// comes first. The candidate isn't read. A name that never becomes available, which no walk leaves
// in the array, ends the passes rather than prolonging them for ever.
void vrds_sort(const vri *candidate, vrd ***deps);
