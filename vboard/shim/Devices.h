#pragma once

#include "paths/Paths.h"

/// The board's devices, made at the first open of each.
///
/// Threads: any. Results as a system call's: -1 with `errno`, which is left alone on success.
namespace shim::devices {

/// A new handle: a descriptor of the file behind the device.
int open(board::paths::Node node, int flags);

int call(board::paths::Node node, unsigned long request, void* argument);

/// Tells a device that a handle has gone.
void closed(board::paths::Node node);

}  // namespace shim::devices
