// SPDX-License-Identifier: MIT
// A folder of its own for a test, removed with all that is in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include <stdlib.h>

class scratch_dir {
public:
    scratch_dir()
    {
        std::string pattern = testing::TempDir() + "tarnXXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            ADD_FAILURE() << "no scratch folder " << pattern;
        }
        path_ = std::filesystem::canonical(pattern).string();
    }
    ~scratch_dir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    scratch_dir(const scratch_dir &) = delete;
    scratch_dir &operator=(const scratch_dir &) = delete;

    const std::string &path() const { return path_; }
    std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

    // The path of a new file with this content.
    std::string write(std::string_view name, std::string_view content) const
    {
        std::string file = path(name);
        std::FILE *stream = std::fopen(file.c_str(), "wb");
        if (stream == nullptr || std::fwrite(content.data(), 1, content.size(), stream) != content.size() ||
            std::fclose(stream) != 0) {
            ADD_FAILURE() << "cannot write " << file;
        }
        return file;
    }
    std::string make_directory(std::string_view name) const
    {
        std::filesystem::create_directories(path(name));
        return path(name);
    }

private:
    std::string path_;
};

// All that a file holds.
inline std::string file_content(const std::string &path)
{
    std::string content;
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    if (stream == nullptr) {
        ADD_FAILURE() << "cannot read " << path;
        return content;
    }
    char piece[4096];
    for (std::size_t count = 0; (count = std::fread(piece, 1, sizeof piece, stream)) > 0;) {
        content.append(piece, count);
    }
    std::fclose(stream);
    return content;
}
