#pragma once

#include <cstdio>
#include <string>

#include "FileWindow.h"

namespace recording {

/// A file that appears under its name only when it is complete: until then it is a temporary file beside it.
///
/// Threads:  one.
/// Lifetime: prepare() makes the temporary file; commit() renames it. One that was not committed goes with
///           its owner.
/// Errors:   false, with a text in error().
class OutputFile {
public:
    enum class Existing { kRefuse, kReplace };

    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    OutputFile(OutputFile&&) = delete;
    OutputFile& operator=(OutputFile&&) = delete;

    /// Refuses the input itself under any of its names, what is not a regular file, and an existing file
    /// unless it may be replaced.
    bool prepare(const std::string& path, const std::string& input, Existing existing);

    /// The name under which a library may write the content.
    const std::string& temporaryPath() const { return temporary_; }

    bool write(Bytes bytes);
    bool commit();

    const std::string& error() const { return error_; }

private:
    bool mayTake(const std::string& input);
    bool makeTemporary();
    bool failed(int error);

    std::string path_;
    std::string temporary_;
    Existing existing_ = Existing::kRefuse;
    std::FILE* file_ = nullptr;
    std::string error_;
};

}  // namespace recording
