#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Folder.h"
#include "lib/AviWriter.h"

namespace {

struct Row {
    size_t offset, size;
    std::string field, value;
};

std::string trimmed(const std::string& cell)
{
    const size_t first = cell.find_first_not_of(' ');
    const size_t last = cell.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : cell.substr(first, last - first + 1);
}

/// The rows of the document's table of the header.
std::vector<Row> documentedHeader()
{
    std::ifstream document(RECORDING_FORMAT_DOCUMENT);
    std::vector<Row> rows;
    bool inTable = false;
    for (std::string line; std::getline(document, line);) {
        inTable = inTable || line.find("<!-- header table") == 0;
        if (inTable && line.find("## ") == 0) {
            break;
        }
        if (!inTable || line.empty() || line[0] != '|' ||
            line.find_first_of("0123456789") == std::string::npos) {
            continue;
        }
        std::istringstream cells(line.substr(1));
        std::string cell[4];
        for (std::string& text : cell) {
            std::getline(cells, text, '|');
            text = trimmed(text);
        }
        rows.push_back({std::stoul(cell[0]), std::stoul(cell[1]), cell[2], cell[3]});
    }
    return rows;
}

std::string documentedBytes(const Row& row, const std::map<std::string, uint32_t>& parameters)
{
    if (row.value.front() == '"') {
        return row.value.substr(1, row.value.size() - 2);
    }
    const auto parameter = parameters.find(row.value);
    uint64_t number = parameter != parameters.end() ? parameter->second : std::stoul(row.value);
    std::string bytes(row.size, '\0');
    for (size_t i = 0; i < bytes.size() && number != 0; ++i) {
        bytes[i] = static_cast<char>(number % 256);
        number /= 256;
    }
    return bytes;
}

TEST(RecordingFormat, TheDocumentDescribesAnotherHeaderThanIsWritten)
{
    constexpr uint32_t kWidth = 1440;
    constexpr uint32_t kHeight = 990;
    VideoWriter::VIDEO_FORMAT format;
    format.fps = 30;
    format.maxBps = 10000000;
    format.width = kWidth;
    format.height = kHeight;
    format.fmt = VideoWriter::H264;
    const std::map<std::string, uint32_t> parameters{{"fps", format.fps},
                                                     {"maxBps", format.maxBps},
                                                     {"width", kWidth},
                                                     {"height", kHeight},
                                                     {"width*height", kWidth * kHeight}};

    const support::Folder folder;
    const std::string path = folder.file("cam.avi");
    AviWriter writer;
    ASSERT_TRUE(writer.start(path, format));
    writer.stop();
    const std::string written = support::readFile(path);

    size_t next = 0;
    for (const Row& row : documentedHeader()) {
        EXPECT_EQ(row.offset, next) << row.field;
        EXPECT_EQ(written.substr(row.offset, row.size), documentedBytes(row, parameters))
            << row.field << " at " << row.offset;
        next = row.offset + row.size;
    }
    EXPECT_EQ(written.size(), next);
}

}  // namespace
