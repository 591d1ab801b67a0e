// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace testing_support {

// A fresh folder under the system's temporary folder, removed with everything in it on destruction.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path file(std::string_view name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

std::string readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, std::string_view contents);

} // namespace testing_support
