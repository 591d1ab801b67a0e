// SPDX-License-Identifier: MIT
#include "kit/library/web_address.h"

#include "kit/library/deep_link.h"
#include "kit/support/text.h"

#include <algorithm>
#include <array>

namespace kit::library {

namespace {

bool isAsciiAlpha(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAsciiDigit(char c)
{
    return c >= '0' && c <= '9';
}

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), lower);
    return out;
}

bool hasSpaceOrControl(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return byte <= 0x20 || byte == 0x7F;
    });
}

bool isScheme(std::string_view text)
{
    return !text.empty() && isAsciiAlpha(text[0])
           && std::all_of(text.begin(), text.end(), [](char c) {
                  return isAsciiAlpha(c) || isAsciiDigit(c) || c == '+' || c == '-' || c == '.';
              });
}

bool isWebScheme(std::string_view scheme)
{
    return scheme == "http" || scheme == "https";
}

// Schemes a shortcut must not open: local files, script and inline content, browser internals.
bool isRefusedScheme(std::string_view scheme)
{
    constexpr std::array<std::string_view, 8> kRefused{
        "file", "javascript", "vbscript", "data", "about", "blob", "ftp", "view-source"};
    return std::find(kRefused.begin(), kRefused.end(), scheme) != kRefused.end();
}

std::optional<unsigned> parsePort(std::string_view text)
{
    if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), isAsciiDigit)) {
        return std::nullopt;
    }
    unsigned port = 0;
    for (char c : text) {
        port = port * 10 + static_cast<unsigned>(c - '0');
    }
    if (port == 0 || port > 65535) {
        return std::nullopt;
    }
    return port;
}

std::vector<std::string_view> labelsOf(std::string_view host)
{
    std::vector<std::string_view> labels;
    std::size_t at = 0;
    while (true) {
        std::size_t dot = host.find('.', at);
        labels.push_back(host.substr(at, dot - at));
        if (dot == std::string_view::npos) {
            return labels;
        }
        at = dot + 1;
    }
}

bool isIPv4(std::string_view host)
{
    auto labels = labelsOf(host);
    return labels.size() == 4 && std::all_of(labels.begin(), labels.end(), [](auto label) {
               return !label.empty() && label.size() <= 3
                      && std::all_of(label.begin(), label.end(), isAsciiDigit)
                      && std::stoi(std::string(label)) <= 255;
           });
}

bool isIPv6(std::string_view host)
{
    return std::count(host.begin(), host.end(), ':') >= 2
           && std::all_of(host.begin(), host.end(), [](char c) {
                  return isAsciiDigit(c) || (lower(c) >= 'a' && lower(c) <= 'f') || c == ':'
                         || c == '.';
              });
}

bool isLocalHost(std::string_view host)
{
    return host == "localhost" || host.ends_with(".localhost");
}

// Letters, digits, hyphens and underscores (some hosts have them); bytes above ASCII pass, so
// internationalised names typed as such are accepted.
bool isHostName(std::string_view host)
{
    if (host.ends_with('.')) {
        host.remove_suffix(1); // a fully qualified name
    }
    if (host.empty() || host.size() > 253) {
        return false;
    }
    auto labels = labelsOf(host);
    return std::all_of(labels.begin(), labels.end(), [](std::string_view label) {
        return !label.empty() && label.size() <= 63 && label.front() != '-' && label.back() != '-'
               && std::all_of(label.begin(), label.end(), [](char c) {
                      return isAsciiAlpha(c) || isAsciiDigit(c) || c == '-' || c == '_'
                             || static_cast<unsigned char>(c) >= 0x80;
                  });
    });
}

bool isAddressHost(std::string_view host)
{
    return isIPv4(host) || isIPv6(host) || isHostName(host);
}

// A host typed without a scheme must look like one: a dot and a top-level label that is not a
// number ("1.5" is a number, not a host), or localhost, or an IP address.
bool isTypedHost(std::string_view host)
{
    if (isLocalHost(host) || isIPv4(host) || isIPv6(host)) {
        return true;
    }
    std::string_view bare = host.ends_with('.') ? host.substr(0, host.size() - 1) : host;
    if (!isHostName(host) || bare.find('.') == std::string_view::npos) {
        return false;
    }
    std::string_view top = bare.substr(bare.rfind('.') + 1);
    return !std::all_of(top.begin(), top.end(), isAsciiDigit);
}

// The address with its scheme and host in lower case and everything else as written.
std::optional<std::string> webAddress(std::string_view text, bool typedHost)
{
    auto parts = WebAddress::parts(text);
    if (!parts || !isWebScheme(parts->scheme)) {
        return std::nullopt;
    }
    if (typedHost ? !isTypedHost(parts->host) : !isAddressHost(parts->host)) {
        return std::nullopt;
    }
    std::size_t authority = text.find("://") + 3;
    std::size_t end = text.find_first_of("/?#", authority);
    std::string_view hostPort = text.substr(authority, end - authority);
    std::size_t at = hostPort.rfind('@');
    std::string userInfo;
    if (at != std::string_view::npos) {
        userInfo = std::string(hostPort.substr(0, at + 1));
        hostPort.remove_prefix(at + 1);
    }
    std::string rest =
        end == std::string_view::npos ? std::string() : std::string(text.substr(end));
    return parts->scheme + "://" + userInfo + lowered(hostPort) + rest;
}

// ---- names ---------------------------------------------------------------------------------

struct KnownSite
{
    std::string_view host; // without "www."
    std::string_view pathPrefix;
    std::string_view name;
};

// Products whose name is not simply their domain's main label capitalised.
constexpr std::array kKnownSites{
    KnownSite{"mail.google.com", "", "Gmail"},
    KnownSite{"calendar.google.com", "", "Google Calendar"},
    KnownSite{"drive.google.com", "", "Google Drive"},
    KnownSite{"docs.google.com", "/spreadsheets", "Google Sheets"},
    KnownSite{"docs.google.com", "/presentation", "Google Slides"},
    KnownSite{"docs.google.com", "/forms", "Google Forms"},
    KnownSite{"docs.google.com", "", "Google Docs"},
    KnownSite{"sheets.google.com", "", "Google Sheets"},
    KnownSite{"slides.google.com", "", "Google Slides"},
    KnownSite{"meet.google.com", "", "Google Meet"},
    KnownSite{"chat.google.com", "", "Google Chat"},
    KnownSite{"keep.google.com", "", "Google Keep"},
    KnownSite{"photos.google.com", "", "Google Photos"},
    KnownSite{"maps.google.com", "", "Google Maps"},
    KnownSite{"google.com", "/maps", "Google Maps"},
    KnownSite{"translate.google.com", "", "Google Translate"},
    KnownSite{"news.google.com", "", "Google News"},
    KnownSite{"gemini.google.com", "", "Gemini"},
    KnownSite{"youtube.com", "", "YouTube"},
    KnownSite{"m.youtube.com", "", "YouTube"},
    KnownSite{"music.youtube.com", "", "YouTube Music"},
    KnownSite{"youtu.be", "", "YouTube"},
    KnownSite{"github.com", "", "GitHub"},
    KnownSite{"gist.github.com", "", "GitHub Gist"},
    KnownSite{"gitlab.com", "", "GitLab"},
    KnownSite{"stackoverflow.com", "", "Stack Overflow"},
    KnownSite{"news.ycombinator.com", "", "Hacker News"},
    KnownSite{"linkedin.com", "", "LinkedIn"},
    KnownSite{"twitter.com", "", "X"},
    KnownSite{"web.whatsapp.com", "", "WhatsApp"},
    KnownSite{"web.telegram.org", "", "Telegram"},
    KnownSite{"chatgpt.com", "", "ChatGPT"},
    KnownSite{"chat.openai.com", "", "ChatGPT"},
    KnownSite{"outlook.office.com", "", "Outlook"},
    KnownSite{"outlook.live.com", "", "Outlook"},
    KnownSite{"teams.microsoft.com", "", "Microsoft Teams"},
    KnownSite{"onedrive.live.com", "", "OneDrive"},
    KnownSite{"office.com", "", "Microsoft 365"},
    KnownSite{"icloud.com", "", "iCloud"},
    KnownSite{"duckduckgo.com", "", "DuckDuckGo"},
    KnownSite{"paypal.com", "", "PayPal"},
    KnownSite{"mail.proton.me", "", "Proton Mail"},
    KnownSite{"calendar.proton.me", "", "Proton Calendar"},
    KnownSite{"mail.yahoo.com", "", "Yahoo Mail"},
    KnownSite{"tiktok.com", "", "TikTok"},
    KnownSite{"soundcloud.com", "", "SoundCloud"},
    KnownSite{"wordpress.com", "", "WordPress"},
    KnownSite{"open.spotify.com", "", "Spotify"},
    KnownSite{"app.slack.com", "", "Slack"},
};

// Suffixes under which anyone can have a site: the label before them names the site.
constexpr std::array<std::string_view, 16> kSharedSuffixes{
    "github.io",
    "gitlab.io",
    "blogspot.com",
    "wordpress.com",
    "substack.com",
    "tumblr.com",
    "herokuapp.com",
    "netlify.app",
    "vercel.app",
    "pages.dev",
    "web.app",
    "firebaseapp.com",
    "appspot.com",
    "notion.site",
    "glitch.me",
    "azurewebsites.net",
};

// Second-level labels that ccTLDs use as a public suffix ("co.uk", "com.au", "ne.jp").
constexpr std::array<std::string_view, 15> kSecondLevels{"co",
                                                         "com",
                                                         "org",
                                                         "net",
                                                         "ac",
                                                         "edu",
                                                         "gov",
                                                         "ne",
                                                         "or",
                                                         "go",
                                                         "ltd",
                                                         "plc",
                                                         "sch",
                                                         "gen",
                                                         "mil"};

std::string_view mainLabel(std::string_view host)
{
    for (std::string_view suffix : kSharedSuffixes) {
        if (host.size() > suffix.size() + 1 && host.ends_with(suffix)
            && host[host.size() - suffix.size() - 1] == '.') {
            std::string_view site = host.substr(0, host.size() - suffix.size() - 1);
            return site.substr(site.rfind('.') + 1);
        }
    }
    auto labels = labelsOf(host);
    std::size_t count = labels.size();
    if (count == 1) {
        return labels[0];
    }
    bool countryPair = labels[count - 1].size() == 2
                       && std::find(kSecondLevels.begin(), kSecondLevels.end(), labels[count - 2])
                              != kSecondLevels.end();
    if (countryPair && count >= 3) {
        return labels[count - 3];
    }
    return labels[count - 2];
}

// "my-site" -> "My Site"; a punycode label stays as written rather than look garbled.
std::string capitalised(std::string_view label)
{
    if (label.starts_with("xn--")) {
        return std::string(label);
    }
    std::string name;
    bool wordStart = true;
    for (char c : label) {
        if (c == '-' || c == '_') {
            if (!name.empty() && name.back() != ' ') {
                name += ' ';
            }
            wordStart = true;
            continue;
        }
        name += wordStart && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        wordStart = false;
    }
    while (!name.empty() && name.back() == ' ') {
        name.pop_back();
    }
    return name.empty() ? std::string(label) : name;
}

std::string webName(const WebAddress::Parts& parts)
{
    std::string_view host = parts.host;
    if (host.ends_with('.')) {
        host.remove_suffix(1);
    }
    if (isIPv4(host) || isIPv6(host) || isLocalHost(host)) {
        return std::string(host);
    }
    if (host.starts_with("www.")) {
        host.remove_prefix(4);
    }
    for (const KnownSite& site : kKnownSites) {
        if (site.host == host && parts.path.starts_with(site.pathPrefix)) {
            return std::string(site.name);
        }
    }
    return capitalised(mainLabel(host));
}

// A link into an app: its template's name, else the name of the app that owns the scheme.
std::string appLinkName(std::string_view address)
{
    if (auto reading = DeepLinkTemplates::reading(address)) {
        return reading->link.suggestedName;
    }
    std::string scheme = lowered(address.substr(0, address.find(':')));
    if (!isScheme(scheme) || scheme.size() == address.size()) {
        return std::string(address);
    }
    for (const DeepLinkTemplate& link : DeepLinkTemplates::all()) {
        if (link.address.starts_with(scheme + ":")) {
            return link.appName;
        }
    }
    if (scheme == "mailto") {
        return "Email";
    }
    return capitalised(scheme);
}

} // namespace

std::optional<WebAddress::Parts> WebAddress::parts(std::string_view address)
{
    std::size_t separator = address.find("://");
    if (separator == std::string_view::npos || !isScheme(address.substr(0, separator))) {
        return std::nullopt;
    }
    Parts parts;
    parts.scheme = lowered(address.substr(0, separator));
    std::string_view rest = address.substr(separator + 3);

    std::size_t fragment = rest.find('#');
    if (fragment != std::string_view::npos) {
        parts.fragment = std::string(rest.substr(fragment + 1));
        rest = rest.substr(0, fragment);
    }
    std::size_t query = rest.find('?');
    if (query != std::string_view::npos) {
        parts.query = std::string(rest.substr(query + 1));
        rest = rest.substr(0, query);
    }
    std::size_t path = rest.find('/');
    std::string_view authority = rest.substr(0, path);
    if (path != std::string_view::npos) {
        parts.path = std::string(rest.substr(path));
    }
    if (hasSpaceOrControl(authority)) {
        return std::nullopt;
    }

    std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
        parts.userInfo = std::string(authority.substr(0, at));
        authority.remove_prefix(at + 1);
    }
    std::string_view port;
    if (authority.starts_with('[')) {
        std::size_t close = authority.find(']');
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        parts.host = lowered(authority.substr(1, close - 1));
        std::string_view after = authority.substr(close + 1);
        if (!after.empty()) {
            if (!after.starts_with(':')) {
                return std::nullopt;
            }
            port = after.substr(1);
            if (port.empty()) {
                return std::nullopt;
            }
        }
    } else {
        std::size_t colon = authority.rfind(':');
        if (colon != std::string_view::npos) {
            port = authority.substr(colon + 1);
            if (port.empty()) {
                return std::nullopt;
            }
            authority = authority.substr(0, colon);
        }
        parts.host = lowered(authority);
    }
    if (!port.empty()) {
        parts.port = parsePort(port);
        if (!parts.port) {
            return std::nullopt;
        }
    }
    return parts;
}

std::optional<std::string> WebAddress::normalized(std::string_view typed)
{
    std::string_view text = support::trimmed(typed);
    if (text.empty() || hasSpaceOrControl(text)) {
        return std::nullopt;
    }

    std::size_t separator = text.find("://");
    if (separator != std::string_view::npos) {
        std::string scheme = lowered(text.substr(0, separator));
        if (!isScheme(scheme) || isRefusedScheme(scheme)) {
            return std::nullopt;
        }
        if (isWebScheme(scheme)) {
            return webAddress(text, false);
        }
        if (separator + 3 == text.size()) {
            return std::nullopt;
        }
        return scheme + std::string(text.substr(separator)); // a link into an app
    }

    // "host:port" and "scheme:rest" look alike; a port is all digits.
    std::size_t colon = text.find(':');
    std::size_t pathStart = text.find_first_of("/?#");
    if (!text.starts_with('[') && colon != std::string_view::npos
        && (pathStart == std::string_view::npos || colon < pathStart)) {
        std::string_view afterColon = text.substr(colon + 1);
        std::string_view port = afterColon.substr(0, afterColon.find_first_of("/?#"));
        if (port.empty() || !std::all_of(port.begin(), port.end(), isAsciiDigit)) {
            std::string scheme = lowered(text.substr(0, colon));
            if (!isScheme(scheme) || isRefusedScheme(scheme) || isWebScheme(scheme)
                || afterColon.empty()) {
                return std::nullopt;
            }
            return scheme + ":" + std::string(afterColon); // mailto:, spotify:album:...
        }
    }

    std::string_view hostPort = text.substr(0, pathStart);
    if (hostPort.find('@') != std::string_view::npos) {
        return std::nullopt; // an e-mail address, not a web address
    }
    std::string_view host = hostPort;
    if (host.starts_with('[')) {
        host = host.substr(1, host.find(']') - 1);
    } else {
        host = host.substr(0, host.find(':'));
    }
    bool plain = isLocalHost(lowered(host)) || isIPv4(host) || isIPv6(host);
    return webAddress(std::string(plain ? "http://" : "https://") + std::string(text), true);
}

std::optional<std::string> WebAddress::host(std::string_view address)
{
    std::string_view text = support::trimmed(address);
    auto parts = WebAddress::parts(text);
    if (!parts) {
        if (auto typed = normalized(text)) {
            parts = WebAddress::parts(*typed);
        }
    }
    if (!parts || parts->host.empty()) {
        return std::nullopt;
    }
    return parts->host;
}

std::string WebAddress::suggestedName(std::string_view address)
{
    std::string_view text = support::trimmed(address);
    if (text.empty()) {
        return {};
    }
    std::optional<std::string> typed = normalized(text);
    auto parts = WebAddress::parts(typed ? std::string_view(*typed) : text);
    if (parts && isWebScheme(parts->scheme) && !parts->host.empty()) {
        return webName(*parts);
    }
    if (typed) {
        return appLinkName(*typed);
    }
    return std::string(text);
}

std::vector<std::string> WebAddress::pathSegments(std::string_view path)
{
    std::vector<std::string> segments;
    std::size_t at = 0;
    while (at <= path.size()) {
        std::size_t slash = path.find('/', at);
        std::string_view segment = path.substr(at, slash - at);
        if (!segment.empty()) {
            segments.push_back(percentDecoded(segment));
        }
        if (slash == std::string_view::npos) {
            break;
        }
        at = slash + 1;
    }
    return segments;
}

std::optional<std::string> WebAddress::queryValue(std::string_view query, std::string_view key)
{
    std::size_t at = 0;
    while (at <= query.size()) {
        std::size_t amp = query.find('&', at);
        std::string_view pair = query.substr(at, amp - at);
        std::size_t equals = pair.find('=');
        std::string name = percentDecoded(pair.substr(0, equals));
        if (name == key) {
            std::string value(equals == std::string_view::npos ? std::string_view()
                                                               : pair.substr(equals + 1));
            std::replace(value.begin(), value.end(), '+', ' ');
            return percentDecoded(value);
        }
        if (amp == std::string_view::npos) {
            break;
        }
        at = amp + 1;
    }
    return std::nullopt;
}

std::string WebAddress::percentDecoded(std::string_view text)
{
    using support::hexValue;
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0
            && hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

} // namespace kit::library
