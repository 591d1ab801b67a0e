// SPDX-License-Identifier: MIT
#include "support/temp_dir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace testing_support {

TempDir::TempDir()
{
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vantorel-test-XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        throw std::runtime_error("could not make a temporary folder");
    }
    m_path = buffer.data();
}

TempDir::~TempDir()
{
    std::error_code ec;
    // A test may have made parts read-only; give them back before removing.
    for (auto it = std::filesystem::recursive_directory_iterator(m_path, ec);
         it != std::filesystem::recursive_directory_iterator();
         it.increment(ec)) {
        std::filesystem::permissions(
            it->path(), std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    }
    std::filesystem::permissions(
        m_path, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_path, ec);
}

std::string readFile(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const std::filesystem::path& file, std::string_view contents)
{
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
}

} // namespace testing_support
