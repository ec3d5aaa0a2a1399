#pragma once

#include <array>
#include <cerrno>
#include <climits>
#include <type_traits>

#include "shim/Call.h"
#include "shim/Faults.h"

namespace shim {

/// A path as the program names it, turned into the one that the call is to be made with: the board's paths
/// into those below its folder, any other is left as it is.
///
/// Lifetime: get() is good as long as this object and the program's own text are.
/// Threads:  any, also between fork and exec: nothing is allocated.
class MappedPath {
public:
    explicit MappedPath(const char* path);
    ~MappedPath() = default;
    MappedPath(const MappedPath&) = delete;
    MappedPath& operator=(const MappedPath&) = delete;

    /// False when the path below the board's folder would be too long.
    bool valid() const { return valid_; }
    const char* get() const { return path_; }

private:
    const char* path_;
    bool valid_ = true;
    std::array<char, PATH_MAX> there_;  // written only for the board's paths
};

/// What a failed call of this kind gives back.
template <typename Result>
Result failed()
{
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return Result{-1};
    }
}

/// Runs a call on a path: fails it when the fault plan says so, else makes it with the path it stands for.
template <typename Operation>
std::invoke_result_t<Operation, const char*> onPath(Call call, const char* path, Operation operation)
{
    using Result = std::invoke_result_t<Operation, const char*>;
    if (failsByPlan(call, path)) {
        return failed<Result>();
    }
    const MappedPath there(path);
    if (!there.valid()) {
        errno = ENAMETOOLONG;
        return failed<Result>();
    }
    return operation(there.get());
}

/// The same for a call on two paths; the fault plan looks at the first.
template <typename Operation>
int onPaths(Call call, const char* from, const char* to, Operation operation)
{
    return onPath(call, from, [&](const char* mappedFrom) {
        return onPath(Call::kNone, to, [&](const char* mappedTo) { return operation(mappedFrom, mappedTo); });
    });
}

}  // namespace shim
