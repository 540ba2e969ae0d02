// The picture file cairo writes through, keeping the errno of the first
// failure.
#include "preview/picture_file.h"

#include <cerrno>
#include <cstring>

namespace {

// The errno of a failure, or EIO when the call failed without setting one.
int failure_errno() {
    return errno != 0 ? errno : EIO;
}

}  // namespace

bool PictureFile::open(const std::string& name) {
    close();
    error_ = 0;
    errno = 0;
    file_ = std::fopen(name.c_str(), "wb");
    if (file_ == nullptr) error_ = failure_errno();
    return file_ != nullptr;
}

cairo_status_t PictureFile::write(void* closure, const unsigned char* data, unsigned int length) {
    auto* self = static_cast<PictureFile*>(closure);
    if (self->file_ == nullptr || self->error_ != 0) return CAIRO_STATUS_WRITE_ERROR;
    errno = 0;
    if (std::fwrite(data, 1, length, self->file_) != length) {
        self->error_ = failure_errno();
        return CAIRO_STATUS_WRITE_ERROR;
    }
    return CAIRO_STATUS_SUCCESS;
}

bool PictureFile::flush() {
    errno = 0;
    if (file_ != nullptr && std::fflush(file_) != 0 && error_ == 0) error_ = failure_errno();
    return error_ == 0;
}

bool PictureFile::close() {
    if (file_ == nullptr) return error_ == 0;
    errno = 0;
    if (std::fflush(file_) != 0 && error_ == 0) error_ = failure_errno();
    errno = 0;
    if (std::fclose(file_) != 0 && error_ == 0) error_ = failure_errno();
    file_ = nullptr;
    return error_ == 0;
}

std::string PictureFile::reason() const {
    return error_ != 0 ? std::strerror(error_) : "";
}
