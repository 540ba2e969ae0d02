// The program with its primitives dropped: every request is read, checked
// and carried out as in tracery, except that each accepted geometric
// primitive goes to an empty geometry hook instead of being drawn or dumped.
// The preview benchmark (tools/run_preview_bench.py) times it beside the
// program, so the cost of drawing is the difference of the two.
#include "driver/command_line.h"
#include "rib/parameters.h"

namespace {

void drop_primitive(const RibGeometryCall&) {}

}  // namespace

int main(int argc, char** argv) {
    rib_geometry_hook = drop_primitive;
    return run_program(argc, argv);
}
