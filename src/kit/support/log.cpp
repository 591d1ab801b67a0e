// SPDX-License-Identifier: MIT
#include "kit/support/log.h"

#include <cstdio>
#include <string>

namespace kit::support {

namespace {

void write(std::string_view level, std::string_view subsystem, std::string_view message)
{
    std::string line;
    line.reserve(subsystem.size() + message.size() + level.size() + 4);
    line.append(subsystem).append(": ").append(level).append(message).push_back('\n');
    // One fwrite per line keeps lines from different threads whole.
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace

void Logger::info(std::string_view message) const
{
    write("", m_subsystem, message);
}

void Logger::error(std::string_view message) const
{
    write("error: ", m_subsystem, message);
}

} // namespace kit::support
