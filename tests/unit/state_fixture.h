// Test fixture for the interface state: every test starts from a fresh
// interface (as before the first RiBegin) with reports captured, and leaves
// it fresh again.
#ifndef TRACERY_TESTS_UNIT_STATE_FIXTURE_H
#define TRACERY_TESTS_UNIT_STATE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "capture.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "rib/requests.h"

class InterfaceStateTest : public ::testing::Test {
  protected:
    void SetUp() override {
        reset_interface_state();
        x11_window_enabled = 0;  // world blocks here open no window
    }
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

    // Reads text as a whole RIB stream; returns what went to standard error.
    std::string run(const std::string& text) {
        input_ = text;
        FILE* f = fmemopen(&input_[0], input_.size(), "r");
        testing::internal::CaptureStderr();
        ParseRIB_stream(f, "test.rib", nullptr, 0);
        fclose(f);
        return testing::internal::GetCapturedStderr();
    }

    ScopedErrorCapture capture;
    std::string input_;
};

#endif  // TRACERY_TESTS_UNIT_STATE_FIXTURE_H
