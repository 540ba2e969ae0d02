// The renderer class chain (Renderer, which is the option record, and the
// pass-through PreviewRenderer) and the block-structure globals that every
// interface procedure reads.
#ifndef TRACERY_RI_RENDERER_H
#define TRACERY_RI_RENDERER_H

#include "ri/options.h"

class GState;
struct Transformation;

// Bits of block_level.
enum BlockBits { BLOCK_GLOBAL = 1, BLOCK_FRAME = 2, BLOCK_WORLD = 4, BLOCK_MOTION = 8 };

// Nesting state: a bit set of BlockBits; its low three bits are the lifetime
// tag of pooled allocations.
extern int block_level;

class Renderer : public GOptions {
  public:
    Renderer();
    virtual ~Renderer();
    Renderer(const Renderer&) = delete;
    Renderer& operator=(const Renderer&) = delete;

    virtual void Render();
    virtual void worldbegin();
    virtual void worldend();
    virtual void framebegin(long frame);
    virtual void frameend();
    // Hook for RiColor: make rgb the drawing colour (the previewer draws in it).
    virtual void set_color(const float rgb[3]);

    // The writable current graphics state (copied first when shared).
    GState* ready_gstate();

    GState* gstate;
    int reserved[4];
};

class PreviewRenderer : public Renderer {
  public:
    ~PreviewRenderer() override;
    void Render() override;
    void worldbegin() override;
    void worldend() override;
    void framebegin(long frame) override;
    void frameend() override;
};

// The renderer made by RiBegin; null before the first RiBegin and after RiEnd.
extern Renderer* renderer;
// The number of RiBegin calls so far: what is counted per run of the
// interface (a budget of work) starts afresh when it changes.
extern long interface_runs;

// Returns the interface to its state before the first RiBegin (for tests and
// the fuzz driver): deletes the live renderer, sets block_level to 0, empties
// the attribute, option and transformation stacks and the graphics state and
// allocation pools, and forgets object numbers and the once-only warnings.
void reset_interface_state();

#endif  // TRACERY_RI_RENDERER_H
