// SPDX-License-Identifier: MIT
#include "kit/library/deep_link.h"

#include "kit/library/web_address.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

namespace kit::library {

namespace {

// ---- UTF-8 -------------------------------------------------------------------------------

struct CodePoint
{
    char32_t value = 0;
    std::size_t length = 1;
    bool valid = false;
};

CodePoint decodeAt(std::string_view text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    std::size_t length = 0;
    char32_t value = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        value = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        value = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        value = lead & 0x07;
    } else {
        return {};
    }
    if (at + length > text.size()) {
        return {};
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            return {};
        }
        value = (value << 6) | (byte(at + i) & 0x3F);
    }
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    if (value < kSmallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return {}; // overlong forms and surrogates are not characters
    }
    return {value, length, true};
}

bool isUnicodeSpace(char32_t c)
{
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680
           || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F
           || c == 0x205F || c == 0x3000;
}

struct Range
{
    char32_t first;
    char32_t last;
};

// Letters, marks and digits of the common scripts outside ASCII. Anything not listed is
// percent-encoded, which is always a safe answer for an address.
constexpr std::array<Range, 37> kLetterRanges{{
    {0x00AA, 0x00AA}, {0x00B5, 0x00B5},   {0x00BA, 0x00BA}, {0x00C0, 0x00D6}, {0x00D8, 0x00F6},
    {0x00F8, 0x02FF}, {0x0300, 0x036F},   {0x0370, 0x037D}, {0x037F, 0x0386}, {0x0388, 0x03FF},
    {0x0400, 0x0481}, {0x0483, 0x052F},   {0x0531, 0x0587}, {0x0591, 0x05BD}, {0x05BF, 0x05F2},
    {0x0610, 0x061A}, {0x0620, 0x0669},   {0x066E, 0x06D3}, {0x06D5, 0x06FF}, {0x0900, 0x0963},
    {0x0966, 0x0DFF}, {0x0E01, 0x0E3A},   {0x0E40, 0x0E4E}, {0x0E50, 0x0E59}, {0x10A0, 0x10FF},
    {0x1100, 0x11FF}, {0x1E00, 0x1FFF},   {0x3041, 0x3096}, {0x3099, 0x309F}, {0x30A1, 0x30FA},
    {0x30FC, 0x30FF}, {0x3400, 0x4DBF},   {0x4E00, 0x9FFF}, {0xAC00, 0xD7A3}, {0xF900, 0xFAFF},
    {0xFF10, 0xFF5A}, {0x20000, 0x2FA1F},
}};

bool isUnicodeLetterOrDigit(char32_t c)
{
    if (c < 0x80) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    }
    if (c >= 0xFF1A && c <= 0xFF20) {
        return false; // fullwidth punctuation between the fullwidth digits and letters
    }
    if (c >= 0xFF3B && c <= 0xFF40) {
        return false;
    }
    return std::any_of(kLetterRanges.begin(), kLetterRanges.end(), [c](const Range& range) {
        return c >= range.first && c <= range.last;
    });
}

// The zero of each decimal-digit block a phone keyboard may produce.
constexpr std::array<char32_t, 12> kDigitZeros{
    0x0030, 0x0660, 0x06F0, 0x0966, 0x09E6, 0x0A66, 0x0AE6, 0x0BE6, 0x0E50, 0x1040, 0xFF10, 0x0C66};

std::optional<char> asciiDigit(char32_t c)
{
    for (char32_t zero : kDigitZeros) {
        if (c >= zero && c <= zero + 9) {
            return static_cast<char>('0' + (c - zero));
        }
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text)
{
    std::size_t begin = text.size();
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size();) {
        CodePoint point = decodeAt(text, at);
        if (!point.valid || !isUnicodeSpace(point.value)) {
            begin = std::min(begin, at);
            end = at + point.length;
        }
        at += point.length;
    }
    return begin < end ? text.substr(begin, end - begin) : std::string_view();
}

std::string digitsOnly(std::string_view text)
{
    std::string digits;
    for (std::size_t at = 0; at < text.size();) {
        CodePoint point = decodeAt(text, at);
        if (point.valid) {
            if (auto digit = asciiDigit(point.value)) {
                digits += *digit;
            }
        }
        at += point.length;
    }
    return digits;
}

void appendEncodedByte(std::string& out, unsigned char byte)
{
    constexpr std::string_view kHex = "0123456789ABCDEF";
    out += '%';
    out += kHex[byte >> 4];
    out += kHex[byte & 0x0F];
}

std::string percentEncoded(std::string_view text)
{
    constexpr std::string_view kKept = "-._~/@:";
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        CodePoint point = decodeAt(text, at);
        bool keep =
            point.valid
            && (isUnicodeLetterOrDigit(point.value)
                || (point.value < 0x80
                    && kKept.find(static_cast<char>(point.value)) != std::string_view::npos));
        for (std::size_t i = 0; i < point.length; ++i) {
            if (keep) {
                out += text[at + i];
            } else {
                appendEncodedByte(out, static_cast<unsigned char>(text[at + i]));
            }
        }
        at += point.length;
    }
    return out;
}

bool isNumberBlank(std::string_view name)
{
    return name.ends_with("number");
}

void replaceAll(std::string& text, std::string_view what, std::string_view with)
{
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
}

// ---- address shapes ----------------------------------------------------------------------

// One piece of a template's address: literal text or a blank's name.
struct Piece
{
    bool blank = false;
    std::string text;
};

// Splits an address at its blanks. A "{" without a closing "}" and an empty "{}" stay literal;
// in "{a{b}" the blank is "b", the innermost opening.
std::vector<Piece> pieces(std::string_view address)
{
    std::vector<Piece> result;
    std::string literal;
    std::size_t at = 0;
    while (at < address.size()) {
        std::size_t open = address.find('{', at);
        std::size_t close = open == std::string_view::npos ? open : address.find('}', open + 1);
        if (close == std::string_view::npos) {
            break;
        }
        open = address.rfind('{', close);
        literal += address.substr(at, open - at);
        std::string_view name = address.substr(open + 1, close - open - 1);
        if (name.empty()) {
            literal += "{}";
        } else {
            if (!literal.empty()) {
                result.push_back({false, std::move(literal)});
                literal.clear();
            }
            result.push_back({true, std::string(name)});
        }
        at = close + 1;
    }
    literal += address.substr(std::min(at, address.size()));
    if (!literal.empty()) {
        result.push_back({false, std::move(literal)});
    }
    return result;
}

// Characters a pasted value may hold: the delimiters of a query and of a blank end it.
bool mayBeInValue(char c)
{
    auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte == 0x7F) {
        return false;
    }
    return std::string_view("&?#={}").find(c) == std::string_view::npos;
}

bool matchFrom(const std::vector<Piece>& shape,
               std::size_t piece,
               std::string_view text,
               std::size_t at,
               std::map<std::string, std::string>& values)
{
    if (piece == shape.size()) {
        return at == text.size();
    }
    const Piece& current = shape[piece];
    if (!current.blank) {
        return text.substr(at).starts_with(current.text)
               && matchFrom(shape, piece + 1, text, at + current.text.size(), values);
    }
    // Shortest value first, so "/{server}/{channel}" splits "1/2/3" as "1" and "2/3".
    for (std::size_t end = at + 1; end <= text.size() && mayBeInValue(text[end - 1]); ++end) {
        auto [slot, inserted] =
            values.emplace(current.text, std::string(text.substr(at, end - at)));
        if (!inserted && slot->second != text.substr(at, end - at)) {
            continue; // a blank written twice must have one value
        }
        if (matchFrom(shape, piece + 1, text, end, values)) {
            return true;
        }
        if (inserted) {
            values.erase(slot);
        }
    }
    return false;
}

std::optional<std::map<std::string, std::string>> matchShape(const DeepLinkTemplate& link,
                                                             std::string_view text)
{
    std::map<std::string, std::string> values;
    if (!matchFrom(pieces(link.address), 0, text, 0, values)) {
        return std::nullopt;
    }
    for (auto& [name, value] : values) {
        value = WebAddress::percentDecoded(value);
        if (isNumberBlank(name)) {
            value = digitsOnly(value);
        }
        if (trimmed(value).empty()) {
            return std::nullopt;
        }
    }
    return values;
}

std::size_t literalLength(std::string_view address)
{
    std::size_t length = 0;
    for (const Piece& piece : pieces(address)) {
        length += piece.blank ? 0 : piece.text.size();
    }
    return length;
}

// ---- web links -------------------------------------------------------------------------

using Values = std::map<std::string, std::string>;

struct WebReading
{
    std::string_view address; // the template's address
    Values values;
};

bool hostIs(std::string_view host, std::string_view domain)
{
    return host == domain
           || (host.size() > domain.size() && host.ends_with(domain)
               && host[host.size() - domain.size() - 1] == '.');
}

bool allDigits(std::string_view text)
{
    return !text.empty()
           && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

void put(Values& values, std::string name, std::optional<std::string> value)
{
    if (value && !value->empty()) {
        values.emplace(std::move(name), std::move(*value));
    }
}

using Segments = std::vector<std::string>;

// Slack's own web links carry the workspace's id only in the web client's address and in
// app_redirect; a workspace's subdomain cannot be turned into its id, so that blank stays empty.
std::optional<WebReading> slackLink(const WebAddress::Parts& parts, const Segments& path)
{
    constexpr std::string_view kChannel = "slack://channel?team={workspace}&id={channel}";
    constexpr std::string_view kOpen = "slack://open?team={workspace}";
    if (parts.host == "app.slack.com") {
        if (path.size() >= 3 && path[0] == "client") {
            return WebReading{kChannel, {{"workspace", path[1]}, {"channel", path[2]}}};
        }
        if (path.size() == 2 && path[0] == "client") {
            return WebReading{kOpen, {{"workspace", path[1]}}};
        }
        return std::nullopt;
    }
    if (parts.host == "slack.com" || parts.host == "www.slack.com") {
        if (path.size() != 1 || path[0] != "app_redirect") {
            return std::nullopt;
        }
        Values values;
        put(values, "workspace", WebAddress::queryValue(parts.query, "team"));
        put(values, "channel", WebAddress::queryValue(parts.query, "channel"));
        if (values.contains("channel")) {
            return WebReading{kChannel, std::move(values)};
        }
        return WebReading{kOpen, std::move(values)};
    }
    if (path.empty()) {
        return WebReading{kOpen, {}};
    }
    if (path[0] == "archives" && path.size() >= 2) {
        return WebReading{kChannel, {{"channel", path[1]}}};
    }
    if (path[0] == "team" && path.size() >= 2) {
        return WebReading{"slack://user?team={workspace}&id={person}", {{"person", path[1]}}};
    }
    if (path[0] == "files" && path.size() >= 3) {
        return WebReading{"slack://file?team={workspace}&id={file}", {{"file", path[2]}}};
    }
    return std::nullopt;
}

std::optional<WebReading> whatsAppLink(const WebAddress::Parts& parts, const Segments& path)
{
    Values values;
    if (parts.host == "wa.me") {
        if (path.size() != 1) {
            return std::nullopt;
        }
        put(values, "phone number", path[0]);
    } else {
        if (path.size() != 1 || path[0] != "send") {
            return std::nullopt;
        }
        put(values, "phone number", WebAddress::queryValue(parts.query, "phone"));
    }
    if (!values.contains("phone number") || digitsOnly(values["phone number"]).empty()) {
        return std::nullopt;
    }
    put(values, "message", WebAddress::queryValue(parts.query, "text"));
    if (values.contains("message")) {
        return WebReading{"whatsapp://send?phone={phone number}&text={message}", std::move(values)};
    }
    return WebReading{"whatsapp://send?phone={phone number}", std::move(values)};
}

std::optional<WebReading> figmaLink(const WebAddress::Parts&, const Segments& path)
{
    constexpr std::array<std::string_view, 5> kKinds{"file", "design", "board", "proto", "slides"};
    if (path.size() < 2 || std::find(kKinds.begin(), kKinds.end(), path[0]) == kKinds.end()) {
        return std::nullopt;
    }
    return WebReading{"figma://file/{file key}", {{"file key", path[1]}}};
}

std::optional<WebReading> notionLink(const WebAddress::Parts&, const Segments& path)
{
    if (path.empty()) {
        return std::nullopt;
    }
    std::string page = path[0];
    for (std::size_t i = 1; i < path.size(); ++i) {
        page += "/" + path[i];
    }
    return WebReading{"notion://www.notion.so/{page}", {{"page", page}}};
}

std::optional<WebReading> zoomLink(const WebAddress::Parts& parts, const Segments& path)
{
    std::optional<std::string> number;
    bool shortForm = path.size() >= 2 && (path[0] == "j" || path[0] == "s" || path[0] == "w");
    bool webClient = path.size() >= 3 && path[0] == "wc" && path[2] == "join"; // wc/<n>/join
    if (shortForm || webClient) {
        number = path[1];
    } else if (path.size() >= 3 && path[0] == "wc" && path[1] == "join") {
        number = path[2];
    } else if (path.size() == 1 && path[0] == "join") {
        number = WebAddress::queryValue(parts.query, "confno");
    }
    if (!number || !allDigits(*number)) {
        return std::nullopt; // personal links (/my/name) carry no meeting number
    }
    return WebReading{"zoommtg://zoom.us/join?confno={meeting number}",
                      {{"meeting number", *number}}};
}

std::optional<WebReading> telegramLink(const WebAddress::Parts&, const Segments& path)
{
    constexpr std::array<std::string_view, 7> kReserved{
        "joinchat", "addstickers", "addemoji", "share", "proxy", "socks", "c"};
    std::size_t at = !path.empty() && path[0] == "s" ? 1 : 0; // t.me/s/name is the preview page
    if (path.size() <= at) {
        return std::nullopt;
    }
    const std::string& name = path[at];
    bool wellFormed = std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
               || c == '_';
    });
    if (!wellFormed || name.empty()
        || std::find(kReserved.begin(), kReserved.end(), name) != kReserved.end()) {
        return std::nullopt; // invitations ("+abc", "joinchat/...") name no one
    }
    return WebReading{"tg://resolve?domain={username}", {{"username", name}}};
}

std::optional<WebReading> spotifyLink(const WebAddress::Parts&, const Segments& path)
{
    std::size_t at = !path.empty() && path[0].starts_with("intl-") ? 1 : 0;
    if (path.size() < at + 2) {
        return std::nullopt;
    }
    if (path[at] == "playlist") {
        return WebReading{"spotify:playlist:{playlist id}", {{"playlist id", path[at + 1]}}};
    }
    if (path[at] == "album") {
        return WebReading{"spotify:album:{album id}", {{"album id", path[at + 1]}}};
    }
    return std::nullopt;
}

std::optional<WebReading> teamsLink(const WebAddress::Parts& parts, const Segments& path)
{
    if (path != Segments{"l", "chat", "0", "0"}) {
        return std::nullopt;
    }
    auto users = WebAddress::queryValue(parts.query, "users");
    if (!users || users->empty()) {
        return std::nullopt;
    }
    return WebReading{"msteams:/l/chat/0/0?users={email}", {{"email", *users}}};
}

std::optional<WebReading> discordLink(const WebAddress::Parts&, const Segments& path)
{
    if (path.size() < 3 || path[0] != "channels") {
        return std::nullopt; // a message's link has a third id, which the template has no room for
    }
    return WebReading{"discord://discord.com/channels/{server}/{channel}",
                      {{"server", path[1]}, {"channel", path[2]}}};
}

struct WebRule
{
    std::array<std::string_view, 4> domains; // each also matches its subdomains
    std::optional<WebReading> (*read)(const WebAddress::Parts&, const Segments&);
};

constexpr std::array kWebRules{
    WebRule{{"slack.com"}, slackLink},
    WebRule{{"wa.me", "whatsapp.com"}, whatsAppLink},
    WebRule{{"figma.com"}, figmaLink},
    WebRule{{"notion.so", "notion.com"}, notionLink},
    WebRule{{"zoom.us", "zoom.com"}, zoomLink},
    WebRule{{"t.me", "telegram.me", "telegram.dog"}, telegramLink},
    WebRule{{"open.spotify.com"}, spotifyLink},
    WebRule{{"teams.microsoft.com", "teams.live.com"}, teamsLink},
    WebRule{{"discord.com", "discordapp.com"}, discordLink},
};

std::optional<WebReading> readWebLink(const WebAddress::Parts& parts)
{
    if (parts.scheme != "http" && parts.scheme != "https") {
        return std::nullopt;
    }
    Segments path = WebAddress::pathSegments(parts.path);
    for (const WebRule& rule : kWebRules) {
        bool ours = std::any_of(rule.domains.begin(), rule.domains.end(), [&](auto domain) {
            return !domain.empty() && hostIs(parts.host, domain);
        });
        if (ours) {
            return rule.read(parts, path);
        }
    }
    return std::nullopt;
}

DeepLinkReading makeReading(DeepLinkTemplate link, std::map<std::string, std::string> values)
{
    std::string address = DeepLinkTemplates::filled(link.address, values);
    return DeepLinkReading{std::move(link), std::move(values), std::move(address)};
}

} // namespace

std::vector<std::string> DeepLinkTemplates::blanks(std::string_view address)
{
    std::vector<std::string> names;
    for (Piece& piece : pieces(address)) {
        if (piece.blank && std::find(names.begin(), names.end(), piece.text) == names.end()) {
            names.push_back(std::move(piece.text));
        }
    }
    return names;
}

bool DeepLinkTemplates::hasBlank(std::string_view address)
{
    return !blanks(address).empty();
}

std::string DeepLinkTemplates::filled(std::string_view address,
                                      const std::map<std::string, std::string>& values)
{
    std::string result(address);
    for (const std::string& name : blanks(address)) {
        auto found = values.find(name);
        std::string_view raw = found == values.end() ? std::string_view() : found->second;
        std::string_view value = trimmed(raw);
        // Encoded values never hold braces, so one value cannot open another blank.
        std::string ready = isNumberBlank(name) ? digitsOnly(value) : percentEncoded(value);
        if (!ready.empty()) {
            replaceAll(result, "{" + name + "}", ready);
        }
    }
    return result;
}

std::optional<DeepLinkTemplate> DeepLinkTemplates::matching(std::string_view address)
{
    const auto& catalogue = all();
    auto found = std::find_if(catalogue.begin(), catalogue.end(), [&](const auto& link) {
        return link.address == address;
    });
    if (found == catalogue.end()) {
        return std::nullopt;
    }
    return *found;
}

std::optional<DeepLinkReading> DeepLinkTemplates::reading(std::string_view address)
{
    std::string_view text = trimmed(address);
    if (text.empty()) {
        return std::nullopt;
    }
    if (auto exact = matching(text)) {
        return makeReading(std::move(*exact), {});
    }

    // An app link of a template's shape; the template with the most fixed text wins, so a
    // named settings pane beats the pane-by-identifier row and "&file=" picks the note row.
    const DeepLinkTemplate* best = nullptr;
    std::map<std::string, std::string> bestValues;
    std::size_t bestLength = 0;
    for (const DeepLinkTemplate& link : all()) {
        if (link.isComplete()) {
            continue;
        }
        auto values = matchShape(link, text);
        std::size_t length = literalLength(link.address);
        if (values && (best == nullptr || length > bestLength)) {
            best = &link;
            bestValues = std::move(*values);
            bestLength = length;
        }
    }
    if (best != nullptr) {
        return makeReading(*best, std::move(bestValues));
    }

    std::optional<WebAddress::Parts> parts = WebAddress::parts(text);
    if (!parts) {
        if (auto typed = WebAddress::normalized(text)) {
            parts = WebAddress::parts(*typed);
        }
    }
    if (!parts) {
        return std::nullopt;
    }
    std::optional<WebReading> web = readWebLink(*parts);
    if (!web) {
        return std::nullopt;
    }
    auto link = matching(web->address);
    if (!link) {
        return std::nullopt;
    }
    return makeReading(std::move(*link), std::move(web->values));
}

} // namespace kit::library
