#include "lib/logger.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <utility>

namespace {

constexpr int kGenerations = 5;

const char* tagOf(logger::LOG_TYPE type)
{
    switch (type) {
        case logger::LOG_NOTICE:
            return " [Notice]";
        case logger::LOG_WARNING:
            return " [Warning]";
        case logger::LOG_ERROR:
            return " [Error]";
        case logger::LOG_DEBUG:
            break;
    }
    return " [Debug]";
}

}  // namespace

logger::logger(std::string tempDir, std::string logDir, std::string file, u_int32_t maxSize, bool compact)
    : cLogPath(std::move(logDir)),
      cTempPath(std::move(tempDir)),
      cLogFile(std::move(file)),
      cMaxSize(maxSize),
      cCompactFormat(compact)
{
}

logger::~logger()
{
    process();
}

void logger::setLevel(u_int8_t level)
{
    cLevel = level;
}

bool logger::log_item(const std::string& text, LOG_TYPE type)
{
    if (static_cast<int>(cLevel) > static_cast<int>(type)) {
        return false;
    }
    std::string line = time_format();
    if (!cCompactFormat) {
        line += tagOf(type);
    }
    line += ": ";
    line += text;
    line += "\r\n";

    const std::lock_guard<std::mutex> lock(mutex);
    std::fwrite(line.data(), 1, line.size(), stdout);
    return dfn.writeFileContents(workingFile(), line, true);
}

bool logger::log_item(const char* text, LOG_TYPE type)
{
    return log_item(std::string(text), type);
}

bool logger::write_text(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (cLevel == LOG_DEBUG) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    }
    return dfn.writeFileContents(workingFile(), text, true);
}

void logger::process()
{
    moveToPersistent();

    // The limit counts as a signed number: one of 2^31 or more is below every size.
    if (static_cast<std::int32_t>(cMaxSize) >= dfn.fileSize(persistentFile())) {
        return;
    }
    if (cCompactFormat) {
        rotate();
    }
    dfn.removeFile(persistentFile());  // already gone when it became a generation
}

void logger::clear()
{
    dfn.removeFile(workingFile());
    dfn.removeFile(persistentFile());
    for (int n = 0; n < kGenerations; ++n) {
        if (dfn.isFile(generation(n))) {
            dfn.removeFile(generation(n));
        }
    }
}

std::string logger::time_format() const
{
    constexpr size_t capacity = 80;
    char text[capacity] = "";
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    if (localtime_r(&now, &local) == nullptr) {
        return "";
    }
    std::strftime(text, capacity, cCompactFormat ? "%Y%m%d%H%M%S" : "%m-%d-%Y %H:%M:%S %z", &local);
    return text;
}

std::string logger::generation(int n) const
{
    return persistentFile() + "." + std::to_string(n);
}

// Results are ignored here and in rotate(): there is nowhere to report to, and a log that cannot be kept must
// not pile up in the temporary directory, which is memory.
void logger::moveToPersistent()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (dfn.isFile(workingFile())) {
        dfn.copyFile(workingFile(), persistentFile(), true, nullptr, nullptr);
        dfn.removeFile(workingFile());
    }
}

void logger::rotate()
{
    constexpr int oldest = kGenerations - 1;
    if (dfn.isFile(generation(oldest))) {
        dfn.removeFile(generation(oldest));
    }
    for (int n = oldest - 1; n >= 0; --n) {
        if (dfn.isFile(generation(n))) {
            dfn.renameFile(generation(n), generation(n + 1));
        }
    }
    dfn.renameFile(persistentFile(), generation(0));
}
