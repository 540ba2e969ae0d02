// A picture file being written: cairo writes through it (its *_for_stream
// surfaces and PNG writer), so that a failure is known with the system's
// own reason (no such directory, permission denied, disk full) rather than
// cairo's one word for every write error.
#ifndef TRACERY_PREVIEW_PICTURE_FILE_H
#define TRACERY_PREVIEW_PICTURE_FILE_H

#include <cairo.h>

#include <cstdio>
#include <string>

class PictureFile {
  public:
    PictureFile() = default;
    ~PictureFile() { close(); }
    PictureFile(const PictureFile&) = delete;
    PictureFile& operator=(const PictureFile&) = delete;

    // Creates (or truncates) the file; false when it cannot, with the reason.
    bool open(const std::string& name);
    bool is_open() const { return file_ != nullptr; }
    // cairo's write function; the closure is the PictureFile.
    static cairo_status_t write(void* closure, const unsigned char* data, unsigned int length);
    // Writes out what is buffered; false when any byte failed to reach the
    // file, now or before.
    bool flush();
    // Writes out what is buffered and closes the file; false when any byte
    // failed to reach it, now or before.
    bool close();
    // Whether a write has failed, and the system's reason for the first
    // failure ("" when none has).
    bool failed() const { return error_ != 0; }
    std::string reason() const;

  private:
    FILE* file_ = nullptr;
    int error_ = 0;  // errno of the first failure
};

#endif  // TRACERY_PREVIEW_PICTURE_FILE_H
