#pragma once

#include <string>

/// File-system operations on path strings. Holds no state.
///
/// Threads: any; operations on one file have to be serialised by the caller.
/// Errors:  false (or 0 where a number is returned), without a message.
class diskfnts {
public:
    // Predicates. They follow symbolic links, isLink() excepted; false also when the path does not exist.
    static bool isDirectory(std::string path);
    static bool isFile(std::string path);     ///< a regular file
    static bool isDevNode(std::string path);  ///< a character or block device

    /// Whether `path` is a symbolic link. If so, and `target` is given, it receives the link's text.
    static bool isLink(std::string path, std::string* target);

    /// Makes one directory (mode 0755); false when there is one already.
    static bool makeDir(std::string path);

    static int fileMTime(std::string path);  ///< modification time, seconds since the epoch
    static long fileSize(std::string path);  ///< bytes; LONG_MAX for a file that a long cannot count

    /// Reads the whole file. True when it could be opened: bytes that could not be read are zero. What opens
    /// but has no length (a directory, a pipe) reads as empty.
    static bool getFileContents(std::string path, std::string& out);

    /// Replaces the file's contents or appends to them, making the file when missing. True when it could be
    /// opened: write errors are not reported.
    static bool writeFileContents(std::string path, const std::string& contents, bool append);
    static bool writeFileContents(std::string path, const std::string& contents);  ///< replaces

    static bool renameFile(std::string from, std::string to);
    static bool removeFile(std::string path);  ///< a file or an empty directory
    static bool linkFile(std::string target, std::string linkPath);

    /// Copies `source` over, or to the end of, `destination`. `ticks`, when given, counts blocks of 4096
    /// bytes as they are written; `cancel`, when given, may be set by another thread; it is looked at once a
    /// block and ends the copy with false. A failed copy leaves what it had written. A read error ends the
    /// copy like the file's end does.
    static bool copyFile(std::string source, std::string destination, bool append, unsigned int* ticks,
                         const bool* cancel);
    static bool copyFile(std::string source, std::string destination);  ///< replaces, uncounted

    /// Copies and then removes the source; works across file systems. A failed copy leaves the source.
    static bool moveFile(std::string source, std::string destination, unsigned int* ticks);
    static bool moveFile(std::string source, std::string destination);

    /// Writes `path` + "s": the contents of `path` followed by the checksum, which must have 40 characters.
    static bool addTGZChecksum(std::string path, std::string& checksum);

    /// Takes the last 40 bytes of `path` as the checksum and writes those before them to `path` + ".tgz".
    /// False, with nothing written, for a file of fewer than 40 bytes.
    static bool splitTGZChecksum(std::string path, std::string& checksum);
};
