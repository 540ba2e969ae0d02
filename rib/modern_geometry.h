// Readers of the geometry requests beyond the classic table: subdivision
// meshes, curves, NURBS curves, points and blobbies.
#ifndef TRACERY_RIB_MODERN_GEOMETRY_H
#define TRACERY_RIB_MODERN_GEOMETRY_H

struct REACTION;

// The parse function of their rows: reads the positional arguments and the
// parameter list, checks the list's sizes and makes the call.
void RIB_parse_modern_geometry(const char* keyword, REACTION* row);

#endif  // TRACERY_RIB_MODERN_GEOMETRY_H
