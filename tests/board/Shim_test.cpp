// The interposed entry points, asked as a program on the board asks them.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fb.h>
#include <mqueue.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Folder.h"
#include "OnBoard.h"
#include "board/Board.h"

// NOLINTBEGIN(bugprone-reserved-identifier): what a fortified program is linked with
extern "C" {
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using support::Command;
using support::readFile;

/// Where a file of the board lies on this machine.
std::string onMachine(const std::string& path)
{
    return board::Board::current()->folder() + "/root" + path;
}

uint64_t calls(const char* device, const char* call)
{
    const board::State& state = board::Board::current()->state();
    for (size_t i = 0; i < state.callCountUsed; ++i) {
        const board::CallCount& entry = state.callCounts[i];
        if (std::strcmp(entry.device, device) == 0 && std::strcmp(entry.call, call) == 0) {
            return entry.count;
        }
    }
    return 0;
}

bool isFramebuffer(int fd)
{
    fb_var_screeninfo mode = {};
    return ::ioctl(fd, FBIOGET_VSCREENINFO, &mode) == 0;
}

BOARD_TEST(Shim, NoNameOfOpenMissesADevice, {})
{
    constexpr const char* kNode = "/dev/fb1";
    const std::array handles{::open(kNode, O_RDWR),
                             ::open64(kNode, O_RDWR),
                             ::openat(AT_FDCWD, kNode, O_RDWR),
                             ::openat64(AT_FDCWD, kNode, O_RDWR),
                             ::__open_2(kNode, O_RDWR),
                             ::__open64_2(kNode, O_RDWR),
                             ::__openat_2(AT_FDCWD, kNode, O_RDWR),
                             ::__openat64_2(AT_FDCWD, kNode, O_RDWR)};
    for (const int handle : handles) {
        EXPECT_TRUE(isFramebuffer(handle));
        EXPECT_EQ(::close(handle), 0);
    }
    EXPECT_EQ(calls("fb1", "close"), handles.size());
}

BOARD_TEST(Shim, ADuplicateOrAForkedChildEndsTheHandle, {})
{
    const int first = ::open("/dev/fb1", O_RDWR);
    const std::array duplicates{::dup(first), ::fcntl(first, F_DUPFD_CLOEXEC, 0), ::dup2(first, 100),
                                ::dup3(first, 101, O_CLOEXEC)};
    ::close(first);
    const pid_t child = ::fork();
    if (child == 0) {
        for (const int duplicate : duplicates) {
            ::close(duplicate);
        }
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (const int duplicate : duplicates) {
        EXPECT_TRUE(isFramebuffer(duplicate));
        EXPECT_EQ(calls("fb1", "close"), 0U);
        ::close(duplicate);
    }
    EXPECT_EQ(calls("fb1", "close"), 1U);
}

BOARD_TEST(Shim, ADescriptorPutInAHandlesPlaceIsADevice, {})
{
    const int handle = ::open("/dev/fb1", O_RDWR);
    const int other = ::open("/dev/null", O_RDWR);
    ASSERT_EQ(::dup2(other, handle), handle);
    EXPECT_EQ(calls("fb1", "close"), 1U);
    EXPECT_FALSE(isFramebuffer(handle));
    ::close(other);
    ::close(handle);
    EXPECT_EQ(calls("fb1", "close"), 1U);
}

BOARD_TEST(Shim, ADualLiteHasNoThirdCaptureDevice, (Command{"--cpu", "dual-lite"}))
{
    EXPECT_EQ(::access("/dev/video1", F_OK), 0);
    EXPECT_EQ(::access("/dev/video2", F_OK), -1);
    EXPECT_EQ(::open("/dev/video2", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

BOARD_TEST(Shim, ASuccessfulCallLeavesErrnoAlone, {})
{
    errno = EDOM;
    const int handle = ::open("/dev/fb1", O_RDWR);
    EXPECT_EQ(errno, EDOM);
    EXPECT_TRUE(isFramebuffer(handle));
    EXPECT_EQ(errno, EDOM);
    ::close(handle);
    EXPECT_EQ(errno, EDOM);
    ::close(::open("/velmarine/config/bitrate", O_RDONLY));
    EXPECT_EQ(errno, EDOM);
}

BOARD_TEST(Shim, AFileOrFolderIsTheMachines, {})
{
    ASSERT_EQ(::mkdir("/velmarine/f/folder", 0755), 0);
    ASSERT_TRUE(support::writeFile("/velmarine/f/folder/old", "x"));
    ASSERT_EQ(::rename("/velmarine/f/folder/old", "/velmarine/f/folder/new"), 0);
    EXPECT_EQ(readFile(onMachine("/velmarine/f/folder/new")), "x");
    ASSERT_EQ(::symlink("/velmarine/f/folder/new", "/velmarine/f/link"), 0);
    EXPECT_EQ(readFile("/velmarine/f/link"), "x");
    struct stat record = {};
    ASSERT_EQ(::stat("/velmarine/f/folder", &record), 0);
    EXPECT_TRUE(S_ISDIR(record.st_mode));
    DIR* directory = ::opendir("/velmarine/f/folder");
    ASSERT_NE(directory, nullptr);
    bool found = false;
    while (const dirent* entry = ::readdir(directory)) {  // NOLINT(concurrency-mt-unsafe): one thread
        found = found || std::strcmp(entry->d_name, "new") == 0;
    }
    ::closedir(directory);
    EXPECT_TRUE(found);
    ASSERT_EQ(::truncate("/velmarine/f/folder/new", 0), 0);
    EXPECT_EQ(readFile(onMachine("/velmarine/f/folder/new")), "");
    ASSERT_EQ(std::remove("/velmarine/f/folder/new"), 0);
    EXPECT_NE(::access(onMachine("/velmarine/f/folder/new").c_str(), F_OK), 0);
}

BOARD_TEST(Shim, WhatIsNotTheBoardsIsTheMachines, {})
{
    const support::Folder folder;
    ASSERT_TRUE(support::writeFile(folder.file("VelCam.log"), "x"));
    EXPECT_NE(::access(onMachine(folder.file("VelCam.log")).c_str(), F_OK), 0);
    EXPECT_NE(::access("/velmarinex", F_OK), 0);
    EXPECT_EQ(::access("/proc/self/mounts", F_OK), 0);
}

BOARD_TEST(Shim, APlannedFaultMissesItsCallOrHitsAnother,
           (Command{"--fault", "write@/velmarine/f/cam.avi#2=ENOSPC", "--fault", "write@*/short.avi#*=short",
                    "--fault", "open@/velmarine/f/file#1+=EACCES", "--fault", "mq_send@/zentcam#1=EAGAIN"}))
{
    const int full = ::open("/velmarine/f/cam.avi", O_WRONLY | O_CREAT, 0644);
    const int shorter = ::open("/velmarine/f/short.avi", O_WRONLY | O_CREAT, 0644);
    EXPECT_EQ(::write(full, "abcd", 4), 4);
    EXPECT_EQ(::write(shorter, "abcde", 5), 2);
    errno = 0;
    EXPECT_EQ(::write(full, "abcd", 4), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(::write(full, "efgh", 4), 4);
    EXPECT_EQ(::write(shorter, "c", 1), 1);
    EXPECT_EQ(readFile("/velmarine/f/cam.avi"), "abcdefgh");
    EXPECT_EQ(readFile("/velmarine/f/short.avi"), "abc");

    EXPECT_FALSE(support::writeFile("/velmarine/f/file", "x")) << "a stream is opened too";
    EXPECT_EQ(::open("/velmarine/f/file", O_RDWR | O_CREAT, 0644), -1);
    EXPECT_EQ(errno, EACCES);

    mq_attr attributes = {};
    attributes.mq_maxmsg = 4;
    attributes.mq_msgsize = 16;
    const mqd_t queue = ::mq_open("/zentcam", O_RDWR | O_CREAT, 0662, &attributes);
    ASSERT_NE(queue, -1) << std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): one thread
    EXPECT_EQ(::mq_send(queue, "a", 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(::mq_send(queue, "b", 1, 0), 0);
    std::array<char, 16> message{};
    EXPECT_EQ(::mq_receive(queue, message.data(), message.size(), nullptr), 1);
    EXPECT_EQ(message[0], 'b');
    ::mq_close(queue);
}

BOARD_TEST(Shim, APlannedThreadIsMadeOrAnotherIsNot,
           (Command{"--fault", "pthread_create@board_tests#2=EAGAIN"}))
{
    const auto body = [](void* argument) { return argument; };
    errno = 0;
    int argument = 0;
    for (const int expected : {0, EAGAIN, 0}) {
        pthread_t thread{};
        ASSERT_EQ(::pthread_create(&thread, nullptr, body, &argument), expected);
        void* result = nullptr;
        EXPECT_EQ(expected != 0 ? 0 : ::pthread_join(thread, &result), 0);
        EXPECT_EQ(result, expected != 0 ? nullptr : &argument);
    }
    EXPECT_EQ(errno, 0) << "it is the call's result that tells";
}

BOARD_TEST(Shim, APlannedForkMakesAProcessOrTheNextOneDoesNot,
           (Command{"--fault", "fork@board_tests#1=ENOMEM"}))
{
    ASSERT_EQ(::fork(), -1);
    EXPECT_EQ(errno, ENOMEM);
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(42);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

BOARD_TEST(Shim, AWriteThatAlwaysFailsSparesStandardOutput, (Command{"--fault", "write@*#*=EIO"}))
{
    EXPECT_EQ(::write(STDOUT_FILENO, "\n", 1), 1);
    EXPECT_FALSE(support::writeFile("/velmarine/f/file", "x"));
}

}  // namespace
