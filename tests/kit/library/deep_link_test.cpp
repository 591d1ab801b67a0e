// SPDX-License-Identifier: MIT
#include "kit/library/deep_link.h"

#include <gtest/gtest.h>

#include <set>

using namespace kit::library;

namespace {

using Values = std::map<std::string, std::string>;

const std::string kNote = "obsidian://open?vault={vault}&file={note}";
const std::string kPhone = "whatsapp://send?phone={phone number}";

TEST(DeepLinkFilling, FollowsTheEncodingRules)
{
    struct Row
    {
        std::string address;
        Values values;
        std::string expected;
    };
    const std::vector<Row> rows{
        {kPhone, {{"phone number", "+90 532 123 45 67"}}, "whatsapp://send?phone=905321234567"},
        {kNote,
         {{"vault", "My Notes"}, {"note", "a/b"}},
         "obsidian://open?vault=My%20Notes&file=a/b"},
        // Empty, blank-only and missing values keep the blank so the editor can flag it.
        {kNote, {{"vault", ""}, {"note", " \n\t"}}, kNote},
        {kNote, {{"vault", "V"}}, "obsidian://open?vault=V&file={note}"},
        {"x://{a}", {{"a", "\u00A0 padded\u2003\n"}}, "x://padded"},
        {"x://{a}", {{"a", "-._~/@:"}}, "x://-._~/@:"},
        {"x://{a}", {{"a", "a&b=c?d#e%f+g"}}, "x://a%26b%3Dc%3Fd%23e%25f%2Bg"},
        {"x://{a}", {{"a", "Çalışma 日本"}}, "x://Çalışma%20日本"},
        {"x://{a}", {{"a", "bad\xFFutf"}}, "x://bad%FFutf"},
        // A value cannot smuggle in a blank of its own.
        {"x://{a}/{b}", {{"a", "{b}"}, {"b", "2"}}, "x://%7Bb%7D/2"},
        // Digits from other scripts' keyboards count as numbers.
        {kPhone, {{"phone number", "٠٥٣٢ ۱۲"}}, "whatsapp://send?phone=053212"},
        {kPhone, {{"phone number", "call me"}}, kPhone},
        // Only blanks ending in "number" are reduced to digits.
        {"x://{numbers}", {{"numbers", "1 2"}}, "x://1%202"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.address + " <- " + (row.values.empty() ? "" : row.values.begin()->second));
        EXPECT_EQ(DeepLinkTemplates::filled(row.address, row.values), row.expected);
    }
}

TEST(DeepLinkBlanks, NamesInOrderOfFirstAppearance)
{
    struct Row
    {
        std::string address;
        std::vector<std::string> names;
    };
    const std::vector<Row> rows{
        {"slack://channel?team={workspace}&id={channel}", {"workspace", "channel"}},
        {"raycast://extensions/{author/extension/command}", {"author/extension/command"}},
        {kPhone, {"phone number"}},
        {"x://{b}/{a}/{b}", {"b", "a"}},
        {"things:///show?id=today", {}},
        {"x://{unclosed", {}},
        {"x://{a{b}", {"b"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.address);
        EXPECT_EQ(DeepLinkTemplates::blanks(row.address), row.names);
        EXPECT_EQ(DeepLinkTemplates::hasBlank(row.address), !row.names.empty());
    }
}

TEST(DeepLinkCatalogue, RowsAreWellFormedAndUnique)
{
    std::set<std::string> ids;
    std::set<std::string> addresses;
    for (const auto& link : DeepLinkTemplates::all()) {
        SCOPED_TRACE(link.id());
        EXPECT_TRUE(ids.insert(link.id()).second);
        EXPECT_TRUE(addresses.insert(link.address).second);
        EXPECT_EQ(link.placeholder.has_value(), DeepLinkTemplates::hasBlank(link.address))
            << "a placeholder exactly when there is something to fill in";
        EXPECT_EQ(link.isComplete(), !DeepLinkTemplates::hasBlank(link.address));
        if (link.placeholder) {
            EXPECT_FALSE(link.placeholder->empty());
        }
        Values sample;
        for (const auto& name : DeepLinkTemplates::blanks(link.address)) {
            sample[name] = "1";
        }
        EXPECT_EQ(DeepLinkTemplates::filled(link.address, sample).find(' '), std::string::npos)
            << "only blank names may hold spaces";
        auto found = DeepLinkTemplates::matching(link.address);
        ASSERT_TRUE(found);
        EXPECT_EQ(*found, link);
    }
    // Matching is exact, character for character.
    EXPECT_FALSE(DeepLinkTemplates::matching("SLACK://open?team={workspace}"));
    EXPECT_FALSE(DeepLinkTemplates::matching("slack://open?team=T123"));
}

TEST(DeepLinkCatalogue, ReadingAFilledAddressGivesBackItsValues)
{
    for (const auto& link : DeepLinkTemplates::all()) {
        if (link.isComplete()) {
            continue;
        }
        SCOPED_TRACE(link.address);
        Values values;
        int index = 0;
        for (const auto& name : DeepLinkTemplates::blanks(link.address)) {
            values[name] = name.ends_with("number") ? "4412345" + std::to_string(index)
                                                    : "v" + std::to_string(index) + "&é x=?";
            ++index;
        }
        std::string address = DeepLinkTemplates::filled(link.address, values);
        ASSERT_FALSE(DeepLinkTemplates::hasBlank(address));
        auto reading = DeepLinkTemplates::reading(address);
        ASSERT_TRUE(reading);
        EXPECT_EQ(reading->link.id(), link.id());
        EXPECT_EQ(reading->values, values);
        EXPECT_EQ(reading->address, address);
    }
}

struct ReadingRow
{
    std::string pasted;
    std::string templateAddress; // empty: nothing fits
    Values values;
};

const std::string kSlackChannel = "slack://channel?team={workspace}&id={channel}";
const std::string kSlackOpen = "slack://open?team={workspace}";
const std::string kSpotifyAlbum = "spotify:album:{album id}";
const std::string kTelegram = "tg://resolve?domain={username}";
const std::string kDiscord = "discord://discord.com/channels/{server}/{channel}";

const std::vector<ReadingRow> kAppLinks{
    {"things:///show?id=today", "things:///show?id=today", {}},
    // A named pane beats the pane by identifier.
    {"x-apple.systempreferences:com.apple.Bluetooth-Settings.extension",
     "x-apple.systempreferences:com.apple.Bluetooth-Settings.extension",
     {}},
    {"x-apple.systempreferences:com.apple.Mouse-Settings.extension",
     "x-apple.systempreferences:com.apple.{pane}",
     {{"pane", "Mouse-Settings.extension"}}},
    // The second blank picks the longer template.
    {"obsidian://open?vault=My%20Notes&file=a/b", kNote, {{"vault", "My Notes"}, {"note", "a/b"}}},
    {"  slack://open?team=T1 \n", kSlackOpen, {{"workspace", "T1"}}},
    {"zoommtg://zoom.us/join?confno=abc", "", {}}, // a number without digits
    {"SPOTIFY:album:1", "", {}},                   // the scheme's case differs
    {"  ", "", {}},
};

const std::vector<ReadingRow> kWebLinks{
    {"https://app.slack.com/client/T0123ABC/C0456DEF",
     kSlackChannel,
     {{"workspace", "T0123ABC"}, {"channel", "C0456DEF"}}},
    {"https://app.slack.com/client/T0123ABC", kSlackOpen, {{"workspace", "T0123ABC"}}},
    // A subdomain is not the workspace's id: that blank stays to be filled.
    {"https://acme.slack.com/archives/C0456DEF/p17000", kSlackChannel, {{"channel", "C0456DEF"}}},
    {"https://acme.slack.com/team/U0789",
     "slack://user?team={workspace}&id={person}",
     {{"person", "U0789"}}},
    {"https://acme.slack.com/files/U0789/F0ABC/report.pdf",
     "slack://file?team={workspace}&id={file}",
     {{"file", "F0ABC"}}},
    {"https://wa.me/905321234567", kPhone, {{"phone number", "905321234567"}}},
    {"https://wa.me/905321234567?text=See%20you+soon",
     "whatsapp://send?phone={phone number}&text={message}",
     {{"phone number", "905321234567"}, {"message", "See you soon"}}},
    {"https://www.figma.com/design/AbC123/My-File?node-id=1-2",
     "figma://file/{file key}",
     {{"file key", "AbC123"}}},
    {"https://www.notion.so/acme/Roadmap-0123abcd?pvs=4",
     "notion://www.notion.so/{page}",
     {{"page", "acme/Roadmap-0123abcd"}}},
    {"https://us02web.zoom.us/j/81234567890?pwd=abc",
     "zoommtg://zoom.us/join?confno={meeting number}",
     {{"meeting number", "81234567890"}}},
    {"https://zoom.us/my/someone", "", {}},
    {"t.me/s/durov", kTelegram, {{"username", "durov"}}},
    {"https://open.spotify.com/playlist/37i9dQZF1DXcBWIGoYBM5M?si=abc",
     "spotify:playlist:{playlist id}",
     {{"playlist id", "37i9dQZF1DXcBWIGoYBM5M"}}},
    {"HTTPS://OPEN.SPOTIFY.COM/intl-de/album/4aawyAB9", kSpotifyAlbum, {{"album id", "4aawyAB9"}}},
    {"https://teams.microsoft.com/l/chat/0/0?users=ada@example.com",
     "msteams:/l/chat/0/0?users={email}",
     {{"email", "ada@example.com"}}},
    {"https://discord.com/channels/123/456", kDiscord, {{"server", "123"}, {"channel", "456"}}},
    {"https://notdiscord.com/channels/1/2", "", {}}, // a lookalike host
};

// Every template whose blanks come from a pasted link is read from some row of its app's web link.
TEST(DeepLinkReading, FitsThePastedLinkAndCoversEveryPastedTemplate)
{
    std::set<std::string> read;
    for (const auto* rows : {&kAppLinks, &kWebLinks}) {
        for (const ReadingRow& row : *rows) {
            SCOPED_TRACE(row.pasted);
            auto reading = DeepLinkTemplates::reading(row.pasted);
            if (row.templateAddress.empty()) {
                EXPECT_FALSE(reading) << reading->link.id();
                continue;
            }
            ASSERT_TRUE(reading);
            EXPECT_EQ(reading->link.address, row.templateAddress);
            EXPECT_EQ(reading->values, row.values);
            // What is stored is the template filled with what was read; blanks not read stay.
            EXPECT_EQ(reading->address, DeepLinkTemplates::filled(row.templateAddress, row.values));
            read.insert(reading->link.id());
        }
    }
    for (const auto& link : DeepLinkTemplates::all()) {
        if (!link.typed && !link.isComplete()) {
            EXPECT_TRUE(read.contains(link.id())) << link.id();
        }
    }
}

} // namespace
