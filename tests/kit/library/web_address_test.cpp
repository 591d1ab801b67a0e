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
        {"HTTP://Sub.X.Y", "http://sub.x.y"},
        {"https://Ada@Example.com:8443/", "https://Ada@example.com:8443/"},
        {"http://intranet/wiki", "http://intranet/wiki"},
        {"bücher.de", "https://bücher.de"},
        // Local servers rarely speak TLS.
        {"localhost:8080", "http://localhost:8080"},
        {"app.localhost:3000/x", "http://app.localhost:3000/x"},
        {"127.0.0.1:3000/api", "http://127.0.0.1:3000/api"},
        {"[::1]:8080", "http://[::1]:8080"},
        // Links into apps are kept as typed, scheme aside.
        {"slack://open?team=T1", "slack://open?team=T1"},
        {"Spotify:album:1", "spotify:album:1"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(WebAddress::normalized(row.input), row.expected) << row.input;
    }
}

TEST(WebAddressNormalized, RefusesWhatIsNotAnAddress)
{
    const std::vector<std::vector<std::string>> groups{
        {"", "exa mple.com", "example.com/a b", "example", "1.5", "a..b.com", "-bad.com"},
        {"ada@example.com", "example.com:99999", "https://example.com:0", "https://[::1"},
        {"https://", "http:example.com", "slack://"},
        {"javascript:alert(1)", "JavaScript:alert(1)", "data:text/html,hi", "file:///etc/passwd"},
    };
    for (const auto& texts : groups) {
        for (const std::string& text : texts) {
            EXPECT_EQ(WebAddress::normalized(text), std::nullopt) << '"' << text << '"';
        }
    }
}

TEST(WebAddressHost, IsLowerCaseWithoutUserOrPort)
{
    const std::vector<Row> rows{
        {"https://Mail.Google.com/mail/u/0", "mail.google.com"},
        {"https://user:pw@example.com:8443/x?y#z", "example.com"},
        {"http://[::1]:8080/", "::1"},
        {"example.com/x", "example.com"},
        {"spotify:album:1", std::nullopt},
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
        {"https://docs.google.com/document/d/1", "Google Docs"},
        {"https://www.google.com/maps/place/x", "Google Maps"},
        {"https://www.google.com/search?q=x", "Google"},
        {"https://github.com/org/repo", "GitHub"},
        {"https://acme.slack.com/archives/C1", "Slack"},
        // Otherwise the registrable name, capitalised.
        {"https://news.example.co.uk/story", "Example"},
        {"https://my-site.net", "My Site"},
        {"https://ada.github.io/blog", "Ada"},
        {"https://xn--bcher-kva.de", "xn--bcher-kva"},
        {"http://localhost:8080", "localhost"},
        // Links into apps take their template's name, or their app's.
        {"slack://channel?team=T1&id=C1", "Slack channel"},
        {"x-apple.systempreferences:com.apple.Bluetooth-Settings.extension", "Bluetooth"},
        {"mailto:ada@example.com", "Email"},
        {"not an address", "not an address"},
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
