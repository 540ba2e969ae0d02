// The block-structure globals shared by every interface procedure: the
// nesting bit set, the one renderer and the count of runs.
#include "ri/renderer.h"

int block_level = 0;
Renderer* renderer = nullptr;
long interface_runs = 0;
