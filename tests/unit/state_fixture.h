// Test fixture for the interface state: every test starts from a fresh
// interface (as before the first RiBegin) with reports captured, and leaves
// it fresh again.
#ifndef TRACERY_TESTS_UNIT_STATE_FIXTURE_H
#define TRACERY_TESTS_UNIT_STATE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "ri/renderer.h"

class InterfaceStateTest : public ::testing::Test {
  protected:
    void SetUp() override { reset_interface_state(); }
    void TearDown() override { reset_interface_state(); }

    // Whether exactly one report was made, with this code, severity and text.
    ::testing::AssertionResult only_report(int code, int severity, const std::string& text) {
        if (capture.count() == 1) {
            const CapturedError& e = capture.errors()[0];
            if (e.code == code && e.severity == severity && e.message == text) {
                return ::testing::AssertionSuccess();
            }
        }
        ::testing::AssertionResult failure = ::testing::AssertionFailure();
        failure << capture.count() << " reports:";
        for (const CapturedError& e : capture.errors()) {
            failure << " [" << e.code << "/" << e.severity << " \"" << e.message << "\"]";
        }
        return failure;
    }

    ScopedErrorCapture capture;
};

#endif  // TRACERY_TESTS_UNIT_STATE_FIXTURE_H
