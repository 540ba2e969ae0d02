// Retained objects of a RIB stream: ObjectBegin ... ObjectEnd is recorded,
// not carried out, and each ObjectInstance draws the recorded requests where
// it stands.
#ifndef TRACERY_RIB_OBJECTS_H
#define TRACERY_RIB_OBJECTS_H

#include <cstddef>

// Bytes that all recorded objects may hold together (their text, handle and
// file name, and OBJECT_RECORD_BYTES for each): 128 MB. An object that
// would pass it is reported and not kept.
extern size_t object_bytes_max;
constexpr size_t OBJECT_RECORD_BYTES = 64;
// Deepest nesting of instances inside instances.
constexpr int OBJECT_DEPTH_MAX = 64;
// The most instances drawn inside other instances, and bytes of their
// recorded text, in one run of the interface (from RiBegin to RiEnd); past
// either, instances inside instances are skipped for the rest of the run,
// with one report. Instances written in the files themselves are not
// counted: their number follows the files' size. The bounds are variables
// so that tests and the fuzz targets can lower them.
extern long long object_nested_instances_max;
extern long long object_nested_bytes_max;

// The readers of ObjectBegin, ObjectEnd (met outside a definition) and
// ObjectInstance.
void read_object_begin();
void read_object_end();
void read_object_instance();

// Forgets every object (at program exit).
void release_objects();

#endif  // TRACERY_RIB_OBJECTS_H
