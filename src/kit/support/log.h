// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace kit::support {

// One named logger per subsystem, writing lines to standard error (journald collects them).
// Safe to use from any thread.
class Logger
{
public:
    explicit constexpr Logger(std::string_view subsystem)
        : m_subsystem(subsystem)
    {}

    void info(std::string_view message) const;
    void error(std::string_view message) const;

private:
    std::string_view m_subsystem;
};

} // namespace kit::support
