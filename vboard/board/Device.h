#pragma once

#include <sys/ioctl.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "board/Board.h"

namespace board {

class Device;
struct FaultAction;

/// One request that a device knows: its number, its name for the report and the fault plan, and who answers
/// it.
struct Request {
    uint32_t code;
    const char* name;
    bool takesRecord;  ///< the argument is a pointer to a record (else it is the value itself)
    int (*answer)(Device& device, void* argument);
};

/// A device of the board as the kernel shows it: a table of requests, each answered by a typed function.
///
/// Results are 0 or more, or a negative errno; the entry points alone turn that into -1 and `errno`.
/// Threads: any; a device that keeps state of its own guards it.
class Device {
public:
    Device(Board& board, const char* name, const char* path) : board_(board), name_(name), path_(path) {}
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// Looks the request up, counts it, asks the fault plan, answers it. The request is cut to 32 bits: a
    /// caller's int may arrive sign-extended.
    int ioctl(unsigned long request, void* argument);

    /// Whether the node is there and may be opened now: 0 or a negative errno.
    virtual int open() { return 0; }
    /// One handle less; the last one ends what the handles had going.
    virtual void close() {}
    /// The file of the board's folder that a handle is a descriptor of, so that a mapping of the handle works
    /// as it is.
    virtual const char* backingFile() const = 0;

    const char* name() const { return name_; }  ///< "video0", as in the report
    const char* path() const { return path_; }  ///< "/dev/video0"

protected:
    struct Table {
        const Request* first;
        size_t count;
    };
    virtual Table requests() const = 0;

    /// Lets a fault change the device, which then answers the request as it is by now; false for a fault
    /// that is no more than a failing request.
    virtual bool befall(const FaultAction& /*fault*/) { return false; }
    /// False once the node has disappeared from under its handles.
    virtual bool isPresent() const { return true; }

    Board& board() const { return board_; }
    /// Notes for the report why a call was refused, and gives the error back.
    int refuse(const char* call, int error, const std::string& reason) const;

private:
    const Request* find(uint32_t code) const;

    Board& board_;
    const char* name_;
    const char* path_;
};

namespace detail {

template <typename Method>
struct MethodOf;
template <typename Owner, typename Argument>
struct MethodOf<int (Owner::*)(Argument)> {
    using OwnerType = Owner;
    using ArgumentType = Argument;
};

}  // namespace detail

/// Makes a row of a device's table from a member function `int method(Record&)`, or `int method(int)` for a
/// request whose argument is a value. The compiler checks that the request's number carries the record's
/// size.
template <uint32_t Code, auto Method>
constexpr Request request(const char* name)
{
    using Traits = detail::MethodOf<decltype(Method)>;
    using Owner = typename Traits::OwnerType;
    using Argument = typename Traits::ArgumentType;
    if constexpr (std::is_reference_v<Argument>) {
        using Record = std::remove_const_t<std::remove_reference_t<Argument>>;
        // Old framebuffer requests (0x46xx) carry no size.
        static_assert(_IOC_SIZE(Code) == sizeof(Record) || _IOC_SIZE(Code) == 0,
                      "number and record disagree");
        return {Code, name, true, [](Device& device, void* argument) {
                    return (static_cast<Owner&>(device).*Method)(*static_cast<Record*>(argument));
                }};
    } else {
        return {Code, name, false, [](Device& device, void* argument) {
                    return (static_cast<Owner&>(device).*
                            Method)(static_cast<Argument>(reinterpret_cast<intptr_t>(argument)));
                }};
    }
}

}  // namespace board
