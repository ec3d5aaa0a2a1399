#pragma once

#include <optional>

#include "paths/Paths.h"

/// Which descriptors of this process are handles of the board's devices.
///
/// As in the kernel, an open makes one handle; descriptors that were duplicated from each other are the same
/// one, and the device hears of its end when the last of them is closed.
///
/// Threads: any, also before `main` and inside a sanitizer's runtime: a fixed table of atomic words, no lock,
///          no allocation. Not seen: descriptors closed behind libc's back (fclose of a stream over one, a
///          program that was started by exec); a number that is opened again is forgotten then.
namespace shim::handles {

/// Numbers from here on are never handles.
constexpr unsigned kDescriptors = 65536;

/// Notes a fresh handle of a device; false when the table is full.
bool add(int fd, board::paths::Node node);

std::optional<board::paths::Node> nodeOf(int fd);

/// `to` was made a duplicate of `from`, whatever it has been before.
void duplicate(int from, int to);

/// The descriptor is closed, or about to be. The device whose last descriptor this was in the process that
/// opened it, if any: it is to be told.
std::optional<board::paths::Node> release(int fd);

}  // namespace shim::handles
