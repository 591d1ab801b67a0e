// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace desktop::testing {

// A private home for the test process: HOME and the XDG folders point into a temporary folder,
// with a few desktop entries, before Qt or GIO first looks at them. Set up once by main().
struct DesktopEnvironment
{
    std::filesystem::path root;
    // Writes its arguments, one a line, to `recordFile` and exits.
    std::filesystem::path recorder;
    std::filesystem::path recordFile;
    // An entry running `recorder` with URIs; default handler of "vantorel-test:" links.
    std::string recorderID = "vantorel-test-recorder";
    // An entry whose icon is `redIcon`, a plain red square.
    std::string paintedID = "vantorel-test-painted";
    std::filesystem::path redIcon;

    static const DesktopEnvironment& get();
    static void setUp();
};

} // namespace desktop::testing
