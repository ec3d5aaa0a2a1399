// The interposed entry points, asked as a program on the board asks them.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fb.h>
#include <linux/videodev2.h>
#include <mqueue.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
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

int exitStatusOf(pid_t child)
{
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

mqd_t makeQueue()
{
    mq_attr attributes = {};
    attributes.mq_maxmsg = 4;
    attributes.mq_msgsize = 16;
    const mqd_t queue = ::mq_open("/zentcam", O_RDWR | O_CREAT, 0662, &attributes);
    EXPECT_NE(queue, -1) << std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): one thread
    return queue;
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

BOARD_TEST(Shim, ADuplicateKeepsTheHandleOpen, {})
{
    const int first = ::open("/dev/fb1", O_RDWR);
    const std::array duplicates{::dup(first), ::fcntl(first, F_DUPFD_CLOEXEC, 0), ::dup2(first, 100),
                                ::dup3(first, 101, O_CLOEXEC)};
    ::close(first);
    for (const int duplicate : duplicates) {
        EXPECT_TRUE(isFramebuffer(duplicate));
        EXPECT_EQ(calls("fb1", "close"), 0U);
        ::close(duplicate);
    }
    EXPECT_EQ(calls("fb1", "close"), 1U);
}

BOARD_TEST(Shim, ADescriptorPutInAHandlesPlaceIsNoDevice, {})
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

BOARD_TEST(Shim, AForkedChildDoesNotEndItsParentsHandle, {})
{
    const int handle = ::open("/dev/fb1", O_RDWR);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(handle);
        ::_exit(0);
    }
    EXPECT_EQ(exitStatusOf(child), 0);
    EXPECT_EQ(calls("fb1", "close"), 0U);
    EXPECT_TRUE(isFramebuffer(handle));
    ::close(handle);
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

BOARD_TEST(Shim, AStreamReachesTheBoardsFile, {})
{
    ASSERT_TRUE(support::writeFile("/velmarine/f/stream", "content"));
    EXPECT_EQ(readFile(onMachine("/velmarine/f/stream")), "content");
    EXPECT_EQ(readFile("/velmarine/f/stream"), "content");
}

BOARD_TEST(Shim, FilesAreRenamedAndRemovedOnTheBoard, {})
{
    ASSERT_TRUE(support::writeFile("/velmarine/f/old", "x"));
    ASSERT_EQ(::rename("/velmarine/f/old", "/velmarine/f/new"), 0);
    EXPECT_EQ(readFile(onMachine("/velmarine/f/new")), "x");
    ASSERT_EQ(::symlink("/velmarine/f/new", "/velmarine/f/link"), 0);
    EXPECT_EQ(readFile("/velmarine/f/link"), "x");
    ASSERT_EQ(::truncate("/velmarine/f/new", 0), 0);
    EXPECT_EQ(readFile(onMachine("/velmarine/f/new")), "");
    ASSERT_EQ(std::remove("/velmarine/f/new"), 0);
    EXPECT_NE(::access(onMachine("/velmarine/f/new").c_str(), F_OK), 0);
}

BOARD_TEST(Shim, DirectoriesAreTheBoards, {})
{
    ASSERT_EQ(::mkdir("/velmarine/f/folder", 0755), 0);
    struct stat record = {};
    EXPECT_EQ(::stat(onMachine("/velmarine/f/folder").c_str(), &record), 0);
    ASSERT_EQ(::stat("/velmarine/f/folder", &record), 0);
    EXPECT_TRUE(S_ISDIR(record.st_mode));
    ASSERT_TRUE(support::writeFile("/velmarine/f/folder/file", "x"));
    DIR* directory = ::opendir("/velmarine/f/folder");
    ASSERT_NE(directory, nullptr);
    bool found = false;
    while (const dirent* entry = ::readdir(directory)) {  // NOLINT(concurrency-mt-unsafe): one thread
        found = found || std::strcmp(entry->d_name, "file") == 0;
    }
    ::closedir(directory);
    EXPECT_TRUE(found);
}

BOARD_TEST(Shim, WhatIsNotTheBoardsIsTheMachines, {})
{
    const support::Folder folder;
    ASSERT_TRUE(support::writeFile(folder.file("VelCam.log"), "x"));
    EXPECT_NE(::access(onMachine(folder.file("VelCam.log")).c_str(), F_OK), 0);
    EXPECT_NE(::access("/velmarinex", F_OK), 0);
    EXPECT_EQ(::access("/proc/self/mounts", F_OK), 0);
}

BOARD_TEST(Shim, ThePlayerOfTheBoardIsStarted, {})
{
    const std::string player = onMachine("/usr/bin/gst-launch-1.0");
    ASSERT_TRUE(support::writeFile(player, "#!/bin/sh\n[ \"$1 $2\" = 'filesrc location=x' ] && exit 42\n"));
    ASSERT_EQ(::chmod(player.c_str(), 0755), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl("/usr/bin/gst-launch-1.0", "gst-launch-1.0", "filesrc", "location=x", nullptr);
        ::_exit(1);
    }
    EXPECT_EQ(exitStatusOf(child), 42);
}

void* receive(void* queue)
{
    std::array<char, 16> message{};
    ::mq_receive(*static_cast<mqd_t*>(queue), message.data(), message.size(), nullptr);
    return nullptr;
}

BOARD_TEST(Shim, AThreadThatWaitsForAMessageCanBeCancelled, {})
{
    mqd_t queue = makeQueue();
    pthread_t thread{};
    ASSERT_EQ(::pthread_create(&thread, nullptr, receive, &queue), 0);
    ::pthread_cancel(thread);
    void* result = nullptr;
    ::pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    ::mq_close(queue);
}

BOARD_TEST(Shim, APlannedWriteFailsAndNoOther, (Command{"--fault", "write@/velmarine/f/cam.avi#2=ENOSPC"}))
{
    const int file = ::open("/velmarine/f/cam.avi", O_WRONLY | O_CREAT, 0644);
    const int other = ::open("/velmarine/f/other", O_WRONLY | O_CREAT, 0644);
    EXPECT_EQ(::write(file, "abcd", 4), 4);
    EXPECT_EQ(::write(other, "abcd", 4), 4);
    errno = 0;
    EXPECT_EQ(::write(file, "abcd", 4), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(::write(file, "efgh", 4), 4);
    EXPECT_EQ(readFile("/velmarine/f/cam.avi"), "abcdefgh");
}

BOARD_TEST(Shim, AShortWriteMovesHalf, (Command{"--fault", "write@*/cam.avi#*=short"}))
{
    const int file = ::open("/velmarine/f/cam.avi", O_WRONLY | O_CREAT, 0644);
    EXPECT_EQ(::write(file, "abcde", 5), 2);
    EXPECT_EQ(::write(file, "c", 1), 1);
    EXPECT_EQ(readFile("/velmarine/f/cam.avi"), "abc");
}

BOARD_TEST(Shim, AWriteThatAlwaysFailsSparesStandardOutput, (Command{"--fault", "write@*#*=EIO"}))
{
    EXPECT_EQ(::write(STDOUT_FILENO, "\n", 1), 1);
    EXPECT_FALSE(support::writeFile("/velmarine/f/file", "x"));
}

BOARD_TEST(Shim, APlannedOpenFailsForStreamsToo, (Command{"--fault", "open@/velmarine/f/file#1+=EACCES"}))
{
    EXPECT_FALSE(support::writeFile("/velmarine/f/file", "x"));
    EXPECT_EQ(::open("/velmarine/f/file", O_RDWR | O_CREAT, 0644), -1);
    EXPECT_EQ(errno, EACCES);
}

BOARD_TEST(Shim, APlannedOpenOfADeviceFails, (Command{"--fault", "open@/dev/video0#1=EBUSY"}))
{
    EXPECT_EQ(::open("/dev/video0", O_RDWR), -1);
    EXPECT_EQ(errno, EBUSY);
    const int handle = ::open("/dev/video0", O_RDWR);
    EXPECT_GE(handle, 0);
    ::close(handle);
}

BOARD_TEST(Shim, APlannedMappingFails, (Command{"--fault", "mmap@/dev/fb1#1=ENOMEM"}))
{
    const int handle = ::open("/dev/fb1", O_RDWR);
    EXPECT_EQ(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, handle, 0), MAP_FAILED);
    EXPECT_EQ(errno, ENOMEM);
    void* mapped = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, handle, 0);
    EXPECT_NE(mapped, MAP_FAILED);
    ::munmap(mapped, 4096);
    ::close(handle);
}

BOARD_TEST(Shim, APlannedMessageIsNotSent, (Command{"--fault", "mq_send@/zentcam#1=EAGAIN"}))
{
    const mqd_t queue = makeQueue();
    EXPECT_EQ(::mq_send(queue, "a", 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(::mq_send(queue, "b", 1, 0), 0);
    std::array<char, 16> message{};
    EXPECT_EQ(::mq_receive(queue, message.data(), message.size(), nullptr), 1);
    EXPECT_EQ(message[0], 'b');
    ::mq_close(queue);
}

BOARD_TEST(Shim, APlannedHangEndsWithASignal, (Command{"--fault", "VIDIOC_QUERYCAP@/dev/video0#1=hang"}))
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr);
    const int handle = ::open("/dev/video0", O_RDWR);
    // Repeated: one that came before the wait began would be lost.
    const itimerval soon{{0, 20000}, {0, 20000}};
    ::setitimer(ITIMER_REAL, &soon, nullptr);
    v4l2_capability record = {};
    EXPECT_EQ(::ioctl(handle, VIDIOC_QUERYCAP, &record), -1);
    EXPECT_EQ(errno, EINTR);
    const itimerval never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(::ioctl(handle, VIDIOC_QUERYCAP, &record), 0);
    ::close(handle);
}

}  // namespace
