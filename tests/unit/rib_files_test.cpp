// Tests of the reader's input files that are not plain files: a named pipe is
// read (named on the command line or through ReadArchive) while its writer is
// still writing; directories and devices are refused by name.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "rib/rib_files.h"
#include "state_fixture.h"
#include "support/declarations.h"

namespace {

class InputFiles : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        char pattern[] = "/tmp/tracery_pipe_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        pipe_ = dir_ + "/scene.pipe";
        ASSERT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
    }
    void TearDown() override {
        unlink(pipe_.c_str());
        rmdir(dir_.c_str());
        InterfaceStateTest::TearDown();
    }

    // The pipe's writing end once a reader has opened it; null if none comes
    // within five seconds, so that a reader that never opens the pipe fails
    // the test instead of hanging it.
    FILE* open_writer() {
        for (int tries = 0; tries < 500; ++tries) {
            int fd = open(pipe_.c_str(), O_WRONLY | O_NONBLOCK);
            if (fd >= 0) {
                fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
                return fdopen(fd, "w");
            }
            usleep(10000);
        }
        return nullptr;
    }

    // Writes text into the pipe from another thread, in two parts with a
    // pause between, so that the reader meets an empty pipe in mid-stream.
    std::thread feed(const std::string& text) {
        return std::thread([this, text] {
            FILE* f = open_writer();
            if (f == nullptr) return;
            size_t half = text.size() / 2;
            std::fwrite(text.data(), 1, half, f);
            std::fflush(f);
            usleep(50000);
            std::fwrite(text.data() + half, 1, text.size() - half, f);
            std::fclose(f);
        });
    }

    std::string dir_;
    std::string pipe_;
};

TEST_F(InputFiles, NamedPipeIsReadToItsEnd) {
    std::thread writer =
        feed("Declare \"pipe_first\" \"float\"\nDeclare \"pipe_second\" \"point\"\n");
    EXPECT_EQ(ParseRIB(pipe_.c_str(), nullptr, 1, 1), 0);
    writer.join();
    EXPECT_EQ(declaration_list.size("pipe_first"), 4);
    EXPECT_EQ(declaration_list.size("pipe_second"), 12);
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(InputFiles, NamedPipeThroughReadArchive) {
    std::thread writer = feed("Declare \"pipe_archived\" \"color\"\n");
    RiBegin(nullptr);
    run("ReadArchive \"" + pipe_ + "\"\nDeclare \"after_pipe\" \"float\"\n");
    writer.join();
    EXPECT_EQ(declaration_list.size("pipe_archived"), 12);
    EXPECT_EQ(declaration_list.size("after_pipe"), 4);
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(InputFiles, DirectoriesAndDevicesAreRefusedByName) {
    EXPECT_EQ(open_rib_file(dir_.c_str(), true), nullptr);
    EXPECT_TRUE(only_report(RIE_BADFILE, RIE_ERROR, dir_ + ": a directory, not a RIB file"));
    capture.clear();
    EXPECT_EQ(ParseRIB("/dev/zero", nullptr, 1, 1), -1);
    EXPECT_TRUE(
        only_report(RIE_BADFILE, RIE_ERROR, "/dev/zero: a character device, not a RIB file"));
    capture.clear();
    EXPECT_EQ(ParseRIB("/dev/null", nullptr, 0, 0), -1);  // refused, silently when not asked
    EXPECT_EQ(capture.count(), 0u);
}

}  // namespace
