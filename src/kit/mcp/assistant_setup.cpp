// SPDX-License-Identifier: MIT
#include "kit/mcp/assistant_setup.h"

#include <cstdio>

namespace kit::mcp {

namespace {

std::string jsonEscaped(std::string_view text)
{
    std::string out;
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            out += c;
        }
    }
    return out;
}

// Inside double quotes a shell still expands these four.
std::string shellEscaped(std::string_view text)
{
    std::string out;
    for (char c : text) {
        if (c == '"' || c == '\\' || c == '$' || c == '`') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

} // namespace

std::string AssistantSetup::configJSON(std::string_view executable)
{
    std::string text = "{\n  \"mcpServers\": {\n    \"";
    text += kServerKey;
    text += "\": {\n      \"command\": \"";
    text += jsonEscaped(executable);
    text += "\"\n    }\n  }\n}";
    return text;
}

std::string AssistantSetup::addCommand(std::string_view cli,
                                       std::string_view executable,
                                       std::string_view extraFlags)
{
    std::string text(cli);
    text += " mcp add";
    if (!extraFlags.empty()) {
        text += ' ';
        text += extraFlags;
    }
    text += ' ';
    text += kServerKey;
    text += " -- \"";
    text += shellEscaped(executable);
    text += '"';
    return text;
}

} // namespace kit::mcp
