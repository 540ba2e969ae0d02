// The current transformation, its stack, named coordinate systems and
// motion blocks.
#ifndef TRACERY_RI_TRANSFORMS_H
#define TRACERY_RI_TRANSFORMS_H

#include "math/transformation.h"
#include "ri/ri.h"

constexpr int XFORM_STACK_MAX = 128;

// The current transformation; null means the identity has not been made.
extern Transformation* curxform;
// 0 outside motion blocks, else 1 + the number of samples given so far.
extern int motion_level;
// Number of times given to the open motion block.
extern int n_motion_levels;

// The motion rule for requests that take part in motion blocks: inside a
// block, counts one sample; returns 1 when the request must be ignored
// (a third or later sample).
int motion_guard();

// Concatenates xform_scratch (filled through xform_scratch_matrix()) onto
// the current transformation.
void apply_xform(int rotation_flag);
float (*xform_scratch_matrix())[4];

class NamedTransformation {
  public:
    NamedTransformation(const char* name, Transformation* xform);
    RtToken name;
    Transformation* xform;
    NamedTransformation* next;
};

class NamedTransformationList {
  public:
    ~NamedTransformationList();
    void add(const char* name, Transformation* xform);
    Transformation* find(const char* name);
    // Deletes every entry.
    void clear();
    NamedTransformation* head = nullptr;
};

extern NamedTransformationList named_transformation_list;

// Number of open RiTransformBegin levels, those past the full stack
// included (for tests and diagnostics).
int transform_stack_depth();

// Empties the stack and the named list, makes the current transformation the
// not-yet-made identity and zeroes the motion counters (block_level is left
// alone). For tests and for code that runs without RiBegin.
void reset_transform_state();

#endif  // TRACERY_RI_TRANSFORMS_H
