// SPDX-License-Identifier: MIT
// Bar files are read and written without building a JSON tree: a 10,000-shortcut bar is about
// 10 MB, and a tree of it costs several times the time and memory of the records themselves.
// The result is the same as the record codings in library_json.cpp, which the tests and the
// fuzzer hold it to.
#include "kit/library/record_stream.h"

namespace kit::library {

Library decodeLibrary(std::string_view text)
{
    try {
        return RecordReader(text).library();
    } catch (const JsonReadError& error) {
        throw DecodeError(error.what());
    }
}

std::string encodeLibrary(const Library& library)
{
    // About a kilobyte a shortcut; reserving saves the string's regrowth copies.
    size_t estimate = 64;
    for (const Shortcut* s : library.allShortcuts()) {
        estimate += s->target.kind() == Target::Kind::Url ? 1024 : 384;
    }
    return RecordWriter(estimate).library(library);
}

} // namespace kit::library
