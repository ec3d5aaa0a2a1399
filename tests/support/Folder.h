#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace support {

/// A temporary folder of one test's own, by its real path; it goes with its owner.
class Folder {
public:
    Folder()
    {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/velcam-test-XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) {
            path_ = std::filesystem::canonical(pattern).string();
        }
    }
    ~Folder()
    {
        if (!path_.empty()) {
            std::error_code ignored;  // nothing is left to report to
            std::filesystem::remove_all(path_, ignored);
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// The whole content of a file, empty when there is none.
inline std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// Replaces a file, with the folders that lead to it.
inline bool writeFile(const std::string& path, const std::string& content)
{
    std::error_code ignored;  // the stream says whether it worked
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    return file.flush().good();
}

}  // namespace support
