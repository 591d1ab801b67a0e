// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::library {

// Rules for addresses a person types, drops or pastes: what counts as an address, its host, and
// the name a shortcut to it starts with. Pure functions, safe from any thread.
class WebAddress
{
public:
    WebAddress() = delete;

    // The pieces of a "scheme://authority/path?query#fragment" address.
    struct Parts
    {
        std::string scheme; // lower case
        std::string userInfo;
        std::string host; // lower case, IPv6 without its brackets; may be empty ("file:///")
        std::optional<unsigned> port;
        std::string path; // as written: empty or starting with "/"
        std::string query;
        std::string fragment;

        bool operator==(const Parts&) const = default;
    };

    // What a person typed as an address: "example.com" becomes "https://example.com",
    // "localhost:8080" becomes "http://localhost:8080", a link into an app is kept as it is.
    // Nothing for empty text, text with spaces, a host without a dot that is not localhost, and
    // schemes that must not be opened from a shortcut (file, javascript, data, ...).
    static std::optional<std::string> normalized(std::string_view typed);

    // The host in lower case ("mail.google.com"), or nothing when the address has none.
    static std::optional<std::string> host(std::string_view address);

    // A readable name: the product of a well-known host ("Gmail"), else the host's main label
    // capitalised ("news.example.co.uk" -> "Example"); for a link into an app, its template's
    // name. Never empty unless the address is.
    static std::string suggestedName(std::string_view address);

    // Nothing unless the address has the "scheme://" form with a well-formed scheme and port.
    static std::optional<Parts> parts(std::string_view address);

    // The path's non-empty segments, percent-decoded.
    static std::vector<std::string> pathSegments(std::string_view path);
    // The first value of a query key, percent-decoded with "+" read as a space.
    static std::optional<std::string> queryValue(std::string_view query, std::string_view key);
    // "%XX" sequences decoded; malformed ones are kept as written.
    static std::string percentDecoded(std::string_view text);
};

} // namespace kit::library
