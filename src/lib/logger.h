#pragma once

#include <sys/types.h>

#include <mutex>
#include <string>

#include "lib/diskfnts.h"

/// The log: lines go to a working file (and to standard output) during the run, and at its end from there to
/// the persistent log, whose size is then limited.
///
/// Threads:  log_item() and write_text() from any; lines do not mix. setLevel() before others log, clear()
///           while none does.
/// Lifetime: no file is kept open. Destruction calls process(); lines of a run that ended without it are
///           carried over by the next one.
/// Errors:   false when a line did not get into the working file; process() and clear() are silent.
class logger {
public:
    enum LOG_TYPE : int { LOG_DEBUG = 0, LOG_NOTICE = 1, LOG_WARNING = 2, LOG_ERROR = 3 };

    /// Both directories end in "/". `maxSize` bytes are what the persistent log may have at the end of a run;
    /// `compact` picks short lines and five kept generations (file.0 to file.4) instead of full lines and
    /// none.
    logger(std::string tempDir, std::string logDir, std::string file, u_int32_t maxSize, bool compact);
    logger(const logger&) = delete;
    logger(logger&&) = delete;
    logger& operator=(const logger&) = delete;
    logger& operator=(logger&&) = delete;
    ~logger();

    /// The lowest LOG_TYPE that log_item() writes.
    void setLevel(u_int8_t level);

    /// Writes one line: time, severity, text. False when the level filters it or the working file cannot be
    /// opened.
    bool log_item(const std::string& text, LOG_TYPE type);
    bool log_item(const char* text, LOG_TYPE type);

    /// Appends text as it stands to the working file, at every level; echoes it as a line at level LOG_DEBUG
    /// only.
    bool write_text(const std::string& text);

    /// Moves the working log to the end of the persistent one, and rotates or removes that when it is above
    /// the limit.
    void process();

    /// Removes the working log, the persistent one and its generations.
    void clear();

private:
    std::string time_format() const;
    std::string workingFile() const { return cTempPath + cLogFile; }
    std::string persistentFile() const { return cLogPath + cLogFile; }
    std::string generation(int n) const;
    void moveToPersistent();
    void rotate();

    std::string cLogPath;
    std::string cTempPath;
    std::string cLogFile;
    u_int32_t cMaxSize;  ///< bytes
    bool cCompactFormat;
    u_int8_t cLevel = LOG_DEBUG;
    diskfnts dfn;
    std::mutex mutex;  ///< the working file and standard output
};
