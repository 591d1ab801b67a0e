// SPDX-License-Identifier: MIT
#include "kit/web/page_icons.h"

#include "kit/library/web_address.h"
#include "kit/support/json_reader.h"
#include "kit/support/utf8.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

namespace kit::web {

using library::WebAddress;

namespace {

// Longer attribute values are no icon address anyone serves, and would only cost memory.
constexpr size_t kAddressLimit = 2048;
constexpr int kLargestSide = 10000;
// Apple's touch icons are this size unless they say otherwise.
constexpr int kTouchIconSide = 180;
constexpr int kManifestDepth = 16;

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

bool startsWithNoCase(std::string_view text, std::string_view prefix)
{
    if (text.size() < prefix.size()) {
        return false;
    }
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (lower(text[i]) != prefix[i]) {
            return false;
        }
    }
    return true;
}

std::vector<std::string_view> words(std::string_view text)
{
    std::vector<std::string_view> result;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && isSpace(text[i])) {
            ++i;
        }
        size_t start = i;
        while (i < text.size() && !isSpace(text[i])) {
            ++i;
        }
        if (i > start) {
            result.push_back(text.substr(start, i - start));
        }
    }
    return result;
}

// "16x16 32x32" -> {16, 32}; "any" marks the picture scalable.
void readSizes(std::string_view sizes, IconCandidate& candidate)
{
    for (std::string_view word : words(sizes)) {
        std::string size = lowered(word);
        if (size == "any") {
            candidate.scalable = true;
            continue;
        }
        size_t x = size.find('x');
        if (x == std::string::npos) {
            continue;
        }
        int width = 0;
        int height = 0;
        const char* begin = size.data();
        auto w = std::from_chars(begin, begin + x, width);
        auto h = std::from_chars(begin + x + 1, begin + size.size(), height);
        if (w.ec != std::errc() || h.ec != std::errc() || w.ptr != begin + x
            || h.ptr != begin + size.size() || width <= 0 || height <= 0) {
            continue;
        }
        candidate.sides.push_back(std::min(std::max(width, height), kLargestSide));
    }
}

bool isSvg(std::string_view type, std::string_view address)
{
    if (lowered(type).starts_with("image/svg")) {
        return true;
    }
    std::string_view path = address.substr(0, address.find_first_of("?#"));
    return lowered(path).ends_with(".svg");
}

// The character references addresses carry in practice: "&amp;" above all, and numeric ones.
std::string decodeEntities(std::string_view text)
{
    static constexpr std::pair<std::string_view, char> kNamed[] = {
        {"amp;", '&'}, {"quot;", '"'}, {"apos;", '\''}, {"lt;", '<'}, {"gt;", '>'}};
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '&') {
            out += text[i];
            continue;
        }
        std::string_view rest = text.substr(i + 1);
        bool done = false;
        for (const auto& [name, c] : kNamed) {
            if (rest.starts_with(name)) {
                out += c;
                i += name.size();
                done = true;
                break;
            }
        }
        if (!done && rest.starts_with("#")) {
            bool hex = rest.size() > 1 && lower(rest[1]) == 'x';
            size_t start = hex ? 2 : 1;
            size_t end = rest.find(';', start);
            unsigned code = 0;
            if (end != std::string_view::npos && end > start && end - start <= 8) {
                auto parsed =
                    std::from_chars(rest.data() + start, rest.data() + end, code, hex ? 16 : 10);
                if (parsed.ec == std::errc() && parsed.ptr == rest.data() + end) {
                    // NUL, surrogates and code points past Unicode stand as U+FFFD.
                    bool valid = code != 0 && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
                    support::appendUtf8(out, valid ? code : 0xFFFD);
                    i += end + 1;
                    done = true;
                }
            }
        }
        if (!done) {
            out += '&';
        }
    }
    return out;
}

// Removes "." and ".." segments from an absolute path.
std::string withoutDotSegments(std::string_view path)
{
    std::vector<std::string_view> kept;
    size_t i = 1; // past the leading '/'
    bool trailing = false;
    while (i <= path.size()) {
        size_t end = path.find('/', i);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        std::string_view segment = path.substr(i, end - i);
        trailing = false;
        if (segment == "..") {
            if (!kept.empty()) {
                kept.pop_back();
            }
            trailing = true;
        } else if (segment == ".") {
            trailing = true;
        } else {
            kept.push_back(segment);
        }
        i = end + 1;
    }
    std::string result;
    for (std::string_view segment : kept) {
        result += '/';
        result += segment;
    }
    if (trailing || result.empty()) {
        result += '/';
    }
    return result;
}

bool isWeb(const WebAddress::Parts& parts)
{
    return (parts.scheme == "http" || parts.scheme == "https") && !parts.host.empty();
}

std::string authority(const WebAddress::Parts& parts)
{
    // Credentials in a page's address are not sent on for its icons.
    std::string result =
        parts.host.find(':') != std::string::npos ? "[" + parts.host + "]" : parts.host;
    if (parts.port) {
        result += ":" + std::to_string(*parts.port);
    }
    return result;
}

std::string joined(const WebAddress::Parts& parts, std::string_view path, std::string_view query)
{
    std::string result = parts.scheme + "://" + authority(parts) + std::string(path);
    if (!query.empty()) {
        result += "?";
        result += query;
    }
    return result;
}

std::optional<std::string> webAddress(std::string_view text)
{
    auto parts = WebAddress::parts(text);
    if (!parts || !isWeb(*parts)) {
        return std::nullopt;
    }
    return joined(
        *parts, parts->path.empty() ? "/" : withoutDotSegments(parts->path), parts->query);
}

bool hasScheme(std::string_view text)
{
    size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        return false;
    }
    auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (!isAlpha(text[0])) {
        return false;
    }
    for (size_t i = 1; i < colon; ++i) {
        char c = text[i];
        if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

// A small tokenizer over the start of a page: tags and their attributes, comments and raw text
// (scripts, styles) skipped. Enough to find <link> and <base>, never a full HTML parser.
class TagScanner
{
public:
    explicit TagScanner(std::string_view html)
        : m_html(html)
    {}

    struct Tag
    {
        std::string name;
        std::vector<std::pair<std::string, std::string>> attributes;

        std::optional<std::string_view> attribute(std::string_view name) const
        {
            for (const auto& [key, value] : attributes) {
                if (key == name) {
                    return value;
                }
            }
            return std::nullopt;
        }
    };

    // The next start tag; nothing at the end.
    std::optional<Tag> next()
    {
        for (;;) {
            size_t open = m_html.find('<', m_pos);
            if (open == std::string_view::npos || open + 1 >= m_html.size()) {
                return std::nullopt;
            }
            m_pos = open + 1;
            std::string_view rest = m_html.substr(m_pos);
            if (rest.starts_with("!--")) {
                skipPast("-->", 3);
                continue;
            }
            if (rest[0] == '!' || rest[0] == '?' || rest[0] == '/') {
                skipPast(">", 0);
                continue;
            }
            if (!isTagStart(rest[0])) {
                continue;
            }
            Tag tag;
            tag.name = lowered(readName());
            readAttributes(tag);
            if (tag.name == "script" || tag.name == "style" || tag.name == "textarea"
                || tag.name == "title" || tag.name == "noscript" || tag.name == "template") {
                skipRawText(tag.name);
            }
            return tag;
        }
    }

private:
    static bool isTagStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
    static bool endsName(char c) { return isSpace(c) || c == '/' || c == '>' || c == '='; }

    void skipPast(std::string_view marker, size_t from)
    {
        size_t found = m_html.find(marker, m_pos + from);
        m_pos = found == std::string_view::npos ? m_html.size() : found + marker.size();
    }

    void skipRawText(const std::string& name)
    {
        const std::string close = "</" + name;
        while (m_pos < m_html.size()) {
            size_t found = m_html.find("</", m_pos);
            if (found == std::string_view::npos) {
                m_pos = m_html.size();
                return;
            }
            m_pos = found + 2;
            if (startsWithNoCase(m_html.substr(found), close)) {
                skipPast(">", 0);
                return;
            }
        }
    }

    std::string_view readName()
    {
        size_t start = m_pos;
        while (m_pos < m_html.size() && !endsName(m_html[m_pos])) {
            ++m_pos;
        }
        return m_html.substr(start, m_pos - start);
    }

    void readAttributes(Tag& tag)
    {
        constexpr size_t kAttributeLimit = 32;
        while (m_pos < m_html.size()) {
            char c = m_html[m_pos];
            if (c == '>') {
                ++m_pos;
                return;
            }
            if (isSpace(c) || c == '/') {
                ++m_pos;
                continue;
            }
            std::string name = lowered(readName());
            if (name.empty()) {
                ++m_pos; // a stray '='
                continue;
            }
            while (m_pos < m_html.size() && isSpace(m_html[m_pos])) {
                ++m_pos;
            }
            std::string_view value;
            if (m_pos < m_html.size() && m_html[m_pos] == '=') {
                ++m_pos;
                while (m_pos < m_html.size() && isSpace(m_html[m_pos])) {
                    ++m_pos;
                }
                value = readValue();
            }
            if (tag.attributes.size() < kAttributeLimit && value.size() <= kAddressLimit) {
                tag.attributes.emplace_back(std::move(name), decodeEntities(value));
            }
        }
    }

    std::string_view readValue()
    {
        if (m_pos >= m_html.size()) {
            return {};
        }
        char quote = m_html[m_pos];
        if (quote == '"' || quote == '\'') {
            size_t end = m_html.find(quote, m_pos + 1);
            if (end == std::string_view::npos) {
                end = m_html.size();
            }
            std::string_view value = m_html.substr(m_pos + 1, end - m_pos - 1);
            m_pos = std::min(end + 1, m_html.size());
            return value;
        }
        size_t start = m_pos;
        while (m_pos < m_html.size() && !isSpace(m_html[m_pos]) && m_html[m_pos] != '>') {
            ++m_pos;
        }
        return m_html.substr(start, m_pos - start);
    }

    std::string_view m_html;
    size_t m_pos = 0;
};

struct RawLink
{
    std::string href;
    IconCandidate::Origin origin;
    std::string sizes;
    std::string type;
};

void addCandidate(std::vector<IconCandidate>& out,
                  std::string_view base,
                  std::string_view href,
                  IconCandidate::Origin origin,
                  std::string_view sizes,
                  std::string_view type)
{
    if (out.size() >= kCandidateLimit) {
        return;
    }
    auto address = resolveAddress(base, href);
    if (!address) {
        return;
    }
    IconCandidate candidate;
    candidate.address = std::move(*address);
    candidate.origin = origin;
    readSizes(sizes, candidate);
    if (isSvg(type, candidate.address)) {
        candidate.scalable = true;
    }
    out.push_back(std::move(candidate));
}

// The side used to compare a candidate: the smallest declared at or above `wanted`, else the
// largest declared; nothing when unknown.
std::optional<int> sideFor(const IconCandidate& candidate, int wanted)
{
    std::optional<int> above;
    std::optional<int> largest;
    for (int side : candidate.sides) {
        if (side >= wanted && (!above || side < *above)) {
            above = side;
        }
        if (!largest || side > *largest) {
            largest = side;
        }
    }
    if (above) {
        return above;
    }
    if (largest) {
        return largest;
    }
    if (candidate.origin == IconCandidate::Origin::TouchIcon) {
        return kTouchIconSide;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> resolveAddress(std::string_view base, std::string_view reference)
{
    // Browsers drop surrounding white space and tabs or line breaks inside an address.
    std::string ref;
    for (char c : reference) {
        if (c != '\t' && c != '\n' && c != '\r') {
            ref += c == '\\' ? '/' : c;
        }
    }
    size_t first = ref.find_first_not_of(" \f");
    size_t last = ref.find_last_not_of(" \f");
    if (first == std::string::npos) {
        return std::nullopt;
    }
    ref = ref.substr(first, last - first + 1);
    if (hasScheme(ref)) {
        return webAddress(ref.substr(0, ref.find('#')));
    }
    auto parts = WebAddress::parts(base);
    if (!parts || !isWeb(*parts)) {
        return std::nullopt;
    }
    if (ref.starts_with("//")) {
        return webAddress(parts->scheme + ":" + ref.substr(0, ref.find('#')));
    }
    ref = ref.substr(0, ref.find('#'));
    size_t question = ref.find('?');
    std::string_view path = std::string_view(ref).substr(0, question);
    std::string_view query = question == std::string::npos
                                 ? std::string_view()
                                 : std::string_view(ref).substr(question + 1);
    std::string basePath = parts->path.empty() ? "/" : parts->path;
    if (path.empty()) {
        if (question == std::string::npos) {
            return joined(*parts, withoutDotSegments(basePath), parts->query);
        }
        return joined(*parts, withoutDotSegments(basePath), query);
    }
    if (path.starts_with("/")) {
        return joined(*parts, withoutDotSegments(path), query);
    }
    std::string merged = basePath.substr(0, basePath.rfind('/') + 1) + std::string(path);
    return joined(*parts, withoutDotSegments(merged), query);
}

PageHead scanPage(std::string_view html, std::string_view pageAddress)
{
    html = html.substr(0, std::min(html.size(), kPageScanLimit));
    TagScanner scanner(html);
    std::optional<std::string> base;
    std::optional<std::string> manifestHref;
    std::vector<RawLink> links;
    while (auto tag = scanner.next()) {
        if (tag->name == "base" && !base) {
            if (auto href = tag->attribute("href")) {
                base = resolveAddress(pageAddress, *href);
            }
            continue;
        }
        if (tag->name != "link") {
            continue;
        }
        auto href = tag->attribute("href");
        auto rel = tag->attribute("rel");
        if (!href || !rel) {
            continue;
        }
        std::optional<IconCandidate::Origin> origin;
        for (std::string_view word : words(*rel)) {
            std::string token = lowered(word);
            if (token == "icon") {
                origin = IconCandidate::Origin::Link;
            } else if (token == "apple-touch-icon" || token == "apple-touch-icon-precomposed") {
                origin = IconCandidate::Origin::TouchIcon;
            } else if (token == "manifest" && !manifestHref) {
                manifestHref = std::string(*href);
            }
        }
        if (origin && links.size() < kCandidateLimit) {
            links.push_back({std::string(*href),
                             *origin,
                             std::string(tag->attribute("sizes").value_or("")),
                             std::string(tag->attribute("type").value_or(""))});
        }
    }
    // A <base> anywhere in the head applies to every link, as it does in a browser.
    const std::string resolvedBase = base.value_or(std::string(pageAddress));
    PageHead head;
    for (const RawLink& link : links) {
        addCandidate(head.icons, resolvedBase, link.href, link.origin, link.sizes, link.type);
    }
    if (manifestHref) {
        head.manifest = resolveAddress(resolvedBase, *manifestHref);
    }
    return head;
}

std::vector<IconCandidate> readManifest(std::string_view json, std::string_view manifestAddress)
{
    if (json.size() > kManifestLimit) {
        throw support::JsonReadError("The manifest is larger than "
                                     + std::to_string(kManifestLimit / 1024) + " KiB.");
    }
    support::JsonReader reader(json, kManifestDepth);
    std::vector<IconCandidate> result;
    reader.readObject([&](std::string_view key) {
        if (key != "icons" || reader.peek() != support::JsonReader::Type::Array) {
            reader.skipValue();
            return;
        }
        reader.readArray([&] {
            if (reader.peek() != support::JsonReader::Type::Object) {
                reader.skipValue();
                return;
            }
            std::string src;
            std::string sizes;
            std::string type;
            std::string purpose;
            reader.readObject([&](std::string_view field) {
                std::string* target = field == "src"       ? &src
                                      : field == "sizes"   ? &sizes
                                      : field == "type"    ? &type
                                      : field == "purpose" ? &purpose
                                                           : nullptr;
                if (target && reader.peek() == support::JsonReader::Type::String) {
                    *target = reader.readString();
                } else {
                    reader.skipValue();
                }
            });
            // A monochrome icon is a mask meant to be coloured by the system, not a picture.
            auto purposes = words(purpose);
            bool onlyMonochrome =
                !purposes.empty() && std::all_of(purposes.begin(), purposes.end(), [](auto word) {
                    return lowered(word) == "monochrome";
                });
            if (!src.empty() && src.size() <= kAddressLimit && !onlyMonochrome) {
                addCandidate(
                    result, manifestAddress, src, IconCandidate::Origin::Manifest, sizes, type);
            }
        });
    });
    reader.expectEnd();
    return result;
}

std::optional<IconCandidate> favicon(std::string_view pageAddress)
{
    auto address = resolveAddress(pageAddress, "/favicon.ico");
    if (!address) {
        return std::nullopt;
    }
    return IconCandidate{std::move(*address), IconCandidate::Origin::Favicon, {}, false};
}

std::vector<IconCandidate> ranked(std::vector<IconCandidate> candidates, int wanted)
{
    // Lower is better: at or above the size, scalable, below it, unknown.
    auto tier = [wanted](const IconCandidate& candidate) {
        auto side = sideFor(candidate, wanted);
        if (side && *side >= wanted) {
            return 0;
        }
        if (candidate.scalable) {
            return 1;
        }
        return side ? 2 : 3;
    };
    auto originRank = [](const IconCandidate& candidate) {
        return static_cast<int>(candidate.origin);
    };
    std::stable_sort(
        candidates.begin(), candidates.end(), [&](const IconCandidate& a, const IconCandidate& b) {
            int ta = tier(a);
            int tb = tier(b);
            if (ta != tb) {
                return ta < tb;
            }
            auto sa = sideFor(a, wanted).value_or(0);
            auto sb = sideFor(b, wanted).value_or(0);
            if (ta == 0 && sa != sb) {
                return sa < sb;
            }
            if (ta == 2 && sa != sb) {
                return sa > sb;
            }
            return originRank(a) < originRank(b);
        });
    std::unordered_set<std::string> seen;
    std::vector<IconCandidate> result;
    for (auto& candidate : candidates) {
        if (seen.insert(candidate.address).second) {
            result.push_back(std::move(candidate));
        }
    }
    return result;
}

IconSearch::IconSearch(std::string pageAddress, int wanted)
    : m_page(std::move(pageAddress))
    , m_wanted(std::max(1, wanted))
{
    if (auto address = webAddress(m_page)) {
        m_next = Request{Step::Page, std::move(*address)};
    }
}

void IconSearch::read(std::string_view body, std::string_view finalAddress)
{
    if (!m_next) {
        return;
    }
    switch (m_next->step) {
    case Step::Page: {
        // Relative links count from where the redirects ended.
        if (!finalAddress.empty()) {
            m_page = std::string(finalAddress);
        }
        PageHead head = scanPage(body, m_page);
        m_candidates = std::move(head.icons);
        if (head.manifest) {
            m_next = Request{Step::Manifest, std::move(*head.manifest)};
            return;
        }
        startImages();
        return;
    }
    case Step::Manifest: {
        std::string address = finalAddress.empty() ? m_next->address : std::string(finalAddress);
        try {
            for (auto& candidate : readManifest(body, address)) {
                if (m_candidates.size() < 2 * kCandidateLimit) {
                    m_candidates.push_back(std::move(candidate));
                }
            }
        } catch (const support::JsonReadError&) {
            // A broken manifest leaves the page's own links.
        }
        startImages();
        return;
    }
    case Step::Image:
        // Images are decoded by the caller, which says found() or failed().
        return;
    }
}

void IconSearch::failed()
{
    if (!m_next) {
        return;
    }
    if (m_next->step == Step::Image) {
        nextImage();
    } else {
        startImages();
    }
}

void IconSearch::found()
{
    if (m_next && m_next->step == Step::Image) {
        m_chosen = m_next->address;
    }
    m_next.reset();
}

void IconSearch::startImages()
{
    m_candidates = ranked(std::move(m_candidates), m_wanted);
    // The site's root icon is always among the tries, as the last.
    if (auto root = favicon(m_page)) {
        std::erase_if(m_candidates,
                      [&](const IconCandidate& c) { return c.address == root->address; });
        if (m_candidates.size() >= static_cast<size_t>(kImageTries)) {
            m_candidates.resize(kImageTries - 1);
        }
        m_candidates.push_back(std::move(*root));
    }
    m_position = 0;
    m_tries = 0;
    nextImage();
}

void IconSearch::nextImage()
{
    if (m_position >= m_candidates.size() || m_tries >= kImageTries) {
        m_next.reset();
        return;
    }
    ++m_tries;
    m_next = Request{Step::Image, m_candidates[m_position++].address};
}

} // namespace kit::web
