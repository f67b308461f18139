// The looks of the program.
#pragma once

// Sets the colours and puts box types of our own, with rounded corners and soft borders, in place
// of the toolkit's. To be called before any widget exists.
void init_theme();
