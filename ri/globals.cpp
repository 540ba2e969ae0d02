// The block-structure globals shared by every interface procedure: the
// nesting bit set and the one renderer.
#include "ri/renderer.h"

int block_level = 0;
Renderer* renderer = nullptr;
