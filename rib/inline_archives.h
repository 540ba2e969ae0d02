// Inline archives (ArchiveBegin name ... ArchiveEnd) recorded by the reader
// and replayed by ReadArchive.
#ifndef TRACERY_RIB_INLINE_ARCHIVES_H
#define TRACERY_RIB_INLINE_ARCHIVES_H

bool inline_archive_defined(const char* name);
// Bytes a replay of the recorded archive reads (0 when there is none).
long long inline_archive_size(const char* name);
// Reads the recorded requests as a stream of their own (the caller saves
// and restores the reader state around it).
void replay_inline_archive(const char* name, const char* searchpath, int echo);
// Forgets every recorded archive.
void release_inline_archives();

#endif  // TRACERY_RIB_INLINE_ARCHIVES_H
