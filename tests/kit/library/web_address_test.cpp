// SPDX-License-Identifier: MIT
#include "kit/library/web_address.h"

#include <gtest/gtest.h>

using namespace kit::library;

namespace {

struct Row
{
    std::string input;
    std::optional<std::string> expected;
};

TEST(WebAddressNormalized, TurnsTypedTextIntoAnAddress)
{
    const std::vector<Row> rows{
        {"example.com", "https://example.com"},
        {"  Example.COM/Path?q=A#Top \n", "https://example.com/Path?q=A#Top"},
        {"https://x.y/z", "https://x.y/z"},
        {"HTTP://Sub.X.Y", "http://sub.x.y"},
        {"https://Ada@Example.com:8443/", "https://Ada@example.com:8443/"},
        {"http://intranet/wiki", "http://intranet/wiki"},
        {"example.com.", "https://example.com."},
        {"bücher.de", "https://bücher.de"},
        // Local servers rarely speak TLS.
        {"localhost", "http://localhost"},
        {"localhost:8080", "http://localhost:8080"},
        {"app.localhost:3000/x", "http://app.localhost:3000/x"},
        {"127.0.0.1:3000/api", "http://127.0.0.1:3000/api"},
        {"[::1]:8080", "http://[::1]:8080"},
        // Links into apps are kept as typed, scheme aside.
        {"slack://open?team=T1", "slack://open?team=T1"},
        {"Spotify:album:1", "spotify:album:1"},
        {"mailto:ada@example.com", "mailto:ada@example.com"},
        {"x-apple.systempreferences:com.apple.Sound-Settings.extension",
         "x-apple.systempreferences:com.apple.Sound-Settings.extension"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(WebAddress::normalized(row.input), row.expected) << row.input;
    }
}

TEST(WebAddressNormalized, RefusesWhatIsNotAnAddress)
{
    for (const char* text : {
             "",
             "   ",
             "exa mple.com",
             "https://exa mple.com",
             "example.com/a b",
             "example",
             "1.5",
             "a..b.com",
             "-bad.com",
             "ada@example.com",
             "example.com:",
             "example.com:99999",
             "https://example.com:0",
             "https://",
             "http:example.com",
             "1ab://x.y",
             "slack://",
             "javascript:alert(1)",
             "JavaScript:alert(1)",
             "data:text/html,hi",
             "file:///etc/passwd",
             "ftp://example.com",
             "https://[::1",
         }) {
        EXPECT_EQ(WebAddress::normalized(text), std::nullopt) << '"' << text << '"';
    }
}

TEST(WebAddressHost, IsLowerCaseWithoutUserOrPort)
{
    const std::vector<Row> rows{
        {"https://Mail.Google.com/mail/u/0", "mail.google.com"},
        {"https://user:pw@example.com:8443/x?y#z", "example.com"},
        {"http://[::1]:8080/", "::1"},
        {"example.com/x", "example.com"},
        {"localhost:8080", "localhost"},
        {"spotify:album:1", std::nullopt},
        {"file:///tmp/x", std::nullopt},
        {"not an address", std::nullopt},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(WebAddress::host(row.input), row.expected) << row.input;
    }
}

TEST(WebAddressSuggestedName, NamesTheSiteOrTheApp)
{
    struct NameRow
    {
        std::string address;
        std::string name;
    };
    const std::vector<NameRow> rows{
        {"https://mail.google.com/mail/u/0/#inbox", "Gmail"},
        {"https://calendar.google.com", "Google Calendar"},
        {"https://docs.google.com/spreadsheets/d/1", "Google Sheets"},
        {"https://docs.google.com/document/d/1", "Google Docs"},
        {"https://www.google.com/maps/place/x", "Google Maps"},
        {"https://www.google.com/search?q=x", "Google"},
        {"https://github.com/org/repo", "GitHub"},
        {"https://www.github.com", "GitHub"},
        {"https://news.ycombinator.com", "Hacker News"},
        {"https://acme.slack.com/archives/C1", "Slack"},
        // Otherwise the registrable name, capitalised.
        {"https://news.example.co.uk/story", "Example"},
        {"https://shop.example.com.au", "Example"},
        {"https://www.example.jp", "Example"},
        {"https://EXAMPLE.COM", "Example"},
        {"https://example.com.", "Example"},
        {"example.org/x", "Example"},
        {"https://my-site.net", "My Site"},
        {"https://ada.github.io/blog", "Ada"},
        {"https://docs.ada.netlify.app", "Ada"},
        {"https://wiki/", "Wiki"},
        {"https://xn--bcher-kva.de", "xn--bcher-kva"},
        {"http://localhost:8080", "localhost"},
        {"http://192.168.1.10/admin", "192.168.1.10"},
        // Links into apps take their template's name, or their app's.
        {"slack://channel?team=T1&id=C1", "Slack channel"},
        {"spotify:album:abc", "Spotify album"},
        {"x-apple.systempreferences:com.apple.Bluetooth-Settings.extension", "Bluetooth"},
        {"raycast://confetti", "Raycast"},
        {"mailto:ada@example.com", "Email"},
        {"foo-bar://x", "Foo Bar"},
        {"not an address", "not an address"},
        {"", ""},
    };
    for (const NameRow& row : rows) {
        EXPECT_EQ(WebAddress::suggestedName(row.address), row.name) << row.address;
    }
}

TEST(WebAddressParts, SplitsAndDecodes)
{
    auto parts = WebAddress::parts("HTTPS://u@Host.com:81/a/b%20c?x=1#f");
    ASSERT_TRUE(parts);
    EXPECT_EQ(*parts, (WebAddress::Parts{"https", "u", "host.com", 81, "/a/b%20c", "x=1", "f"}));
    EXPECT_FALSE(WebAddress::parts("example.com/x"));
    EXPECT_FALSE(WebAddress::parts("https://host:http/"));

    EXPECT_EQ(WebAddress::pathSegments("/a//b%2Fc/"), (std::vector<std::string>{"a", "b/c"}));
    EXPECT_EQ(WebAddress::queryValue("a=1&b=x+y%21&b=2", "b"), "x y!");
    EXPECT_EQ(WebAddress::queryValue("flag&a=1", "flag"), "");
    EXPECT_EQ(WebAddress::queryValue("a=1", "b"), std::nullopt);
    EXPECT_EQ(WebAddress::percentDecoded("%41%62%zz%4"), "Ab%zz%4");
}

} // namespace
