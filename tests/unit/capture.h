// Test helpers: an error handler that records every report instead of
// printing it, installed for the lifetime of a ScopedErrorCapture.
#ifndef TRACERY_TESTS_UNIT_CAPTURE_H
#define TRACERY_TESTS_UNIT_CAPTURE_H

#include <string>
#include <vector>

#include "ri/ri.h"
#include "support/error.h"

struct CapturedError {
    int code;
    int severity;
    std::string message;  // "" for a null message
    bool has_message;
};

inline std::vector<CapturedError>& captured_errors() {
    static std::vector<CapturedError> errors;
    return errors;
}

inline void capture_handler(RtInt code, RtInt severity, const char* message) {
    captured_errors().push_back({code, severity, message ? message : "", message != nullptr});
    RiLastError = code;
}

class ScopedErrorCapture {
  public:
    ScopedErrorCapture() : saved_(RMError) {
        captured_errors().clear();
        RiErrorHandler(capture_handler);
    }
    ~ScopedErrorCapture() { RiErrorHandler(saved_); }
    const std::vector<CapturedError>& errors() const { return captured_errors(); }
    size_t count() const { return captured_errors().size(); }
    void clear() { captured_errors().clear(); }
    std::vector<std::string> messages() const {
        std::vector<std::string> out;
        for (const CapturedError& e : captured_errors()) out.push_back(e.message);
        return out;
    }

  private:
    RtErrorHandler saved_;
};

#endif  // TRACERY_TESTS_UNIT_CAPTURE_H
