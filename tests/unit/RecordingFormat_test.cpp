#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "Folder.h"
#include "lib/AviWriter.h"

namespace {

constexpr VideoWriter::VIDEO_FORMAT kFormat{30, 10'000'000, 1440, 990, VideoWriter::H264};

struct Row {
    size_t offset, size;
    std::string field, value;
};

/// The rows of the document's table of the header.
std::vector<Row> documentedHeader()
{
    const std::regex form(R"(\| *(\d+) *\| *(\d+) *\| *(.*?) *\| *(.*?) *\|)");
    std::ifstream document(RECORDING_FORMAT_DOCUMENT);
    std::vector<Row> rows;
    bool inTable = false;
    for (std::string line; std::getline(document, line) && !(inTable && line.find("## ") == 0);) {
        inTable = inTable || line.find("<!-- header table") == 0;
        std::smatch cells;
        if (inTable && std::regex_match(line, cells, form)) {
            rows.push_back({std::stoul(cells[1]), std::stoul(cells[2]), cells[3], cells[4]});
        }
    }
    return rows;
}

std::string documentedBytes(const Row& row)
{
    static const std::map<std::string, uint32_t> kParameters{
        {"fps", kFormat.fps},
        {"maxBps", kFormat.maxBps},
        {"width", kFormat.width},
        {"height", kFormat.height},
        {"width*height", kFormat.width * kFormat.height}};
    if (row.value.front() == '"') {
        return row.value.substr(1, row.value.size() - 2);
    }
    const auto parameter = kParameters.find(row.value);
    uint64_t number = parameter != kParameters.end() ? parameter->second : std::stoul(row.value);
    std::string bytes(row.size, '\0');
    for (size_t i = 0; i < bytes.size() && number != 0; ++i) {
        bytes[i] = static_cast<char>(number % 256);
        number /= 256;
    }
    return bytes;
}

TEST(RecordingFormat, TheDocumentDescribesAnotherHeaderThanIsWritten)
{
    const support::Folder folder;
    const std::string path = folder.file("cam.avi");
    AviWriter writer;
    ASSERT_TRUE(writer.start(path, kFormat));
    writer.stop();
    const std::string written = support::readFile(path);

    size_t next = 0;
    for (const Row& row : documentedHeader()) {
        EXPECT_EQ(row.offset, next) << row.field;
        EXPECT_EQ(written.substr(row.offset, row.size), documentedBytes(row))
            << row.field << " at " << row.offset;
        next = row.offset + row.size;
    }
    EXPECT_EQ(written.size(), next);
}

}  // namespace
