// SPDX-License-Identifier: MIT
// Documents are read and written without a JSON tree for their shortcuts, which are nearly all of
// a large document; the small parts around them go through the tree codings. Any input the
// streamed reading refuses is read again through the tree, so a refusal always carries the tree
// coding's reason, and a newer format is named before anything it may have changed.
#include "kit/library/record_stream.h"
#include "kit/proposal/proposal_json.h"

namespace kit::proposal {

namespace {

using library::RecordReader;
using library::RecordWriter;
using nlohmann::json;
using support::JsonReader;
using support::PrettyJsonWriter;

class DocumentReader
{
public:
    explicit DocumentReader(std::string_view text)
        : m_text(text)
        , m_records(text)
        , m_in(m_records.json())
    {}

    Proposal proposal()
    {
        if (m_in.peek() != JsonReader::Type::Object) {
            throw library::DecodeError("not an object");
        }
        json head = json::object();
        std::vector<ProposedBar> bars;
        bool hasBars = false;
        m_in.readObject([&](std::string_view key) {
            if (library::is(key, "bars")) {
                bars.clear();
                hasBars = !m_in.skipNull();
                if (hasBars) {
                    m_in.readArray([&] { bars.push_back(bar()); });
                }
            } else {
                head[std::string(key)] = slice();
            }
        });
        m_in.expectEnd();
        // The format version is checked here, after the bars but before they are used.
        Proposal proposal = document::readProposal(head);
        proposal.bars = std::move(bars);
        return proposal;
    }

private:
    // The next value through the tree: for the small parts a document keeps around its shortcuts.
    json slice()
    {
        size_t start = m_in.position();
        m_in.skipValue();
        return library::parseJson(m_text.substr(start, m_in.position() - start));
    }

    ProposedBar bar()
    {
        m_records.requireObject("a bar");
        json head = json::object();
        std::vector<ProposedShortcut> shortcuts;
        m_in.readObject([&](std::string_view key) {
            if (library::is(key, "shortcuts")) {
                shortcuts = shortcutList(0);
            } else if (library::is(key, "destination") || library::is(key, "removals")) {
                head[std::string(key)] = slice();
            } else {
                m_in.skipValue();
            }
        });
        ProposedBar bar = document::readBarHead(head);
        bar.shortcuts = std::move(shortcuts);
        return bar;
    }

    std::vector<ProposedShortcut> shortcutList(int depth)
    {
        std::vector<ProposedShortcut> list;
        if (!m_in.skipNull()) {
            m_in.readArray([&] { list.push_back(shortcut(depth)); });
        }
        return list;
    }

    ProposedShortcut shortcut(int depth)
    {
        m_records.requireObject("a shortcut");
        ProposedShortcut s;
        bool hasTarget = false;
        m_in.readObject([&](std::string_view key) {
            if (library::is(key, "id")) {
                if (!m_in.skipNull()) {
                    s.id = m_records.identifier<library::ShortcutKind>();
                }
            } else if (library::is(key, "name")) {
                m_records.orDefault(s.name, [&] { return m_in.readString(); });
            } else if (library::is(key, "target")) {
                s.target = target(depth);
                hasTarget = true;
            } else if (library::is(key, "icon")) {
                m_records.optional(s.icon, [&] { return m_records.icon(); });
            } else if (library::is(key, "iconTint")) {
                m_records.optional(s.iconTint, [&] { return m_records.tint(); });
            } else if (library::is(key, "iconOpacity")) {
                m_records.optional(s.iconOpacity, [&] { return m_in.readDouble(); });
            } else if (library::is(key, "isInMenuBar")) {
                m_records.orDefault(s.isInMenuBar, [&] { return m_in.readBool(); });
            } else if (library::is(key, "placement")) {
                if (!m_in.skipNull()) {
                    s.placement = document::readPlacement(slice());
                }
            } else {
                m_in.skipValue();
            }
        });
        if (!hasTarget) {
            throw library::DecodeError("no target");
        }
        return s;
    }

    struct Fields
    {
        RecordReader::TargetFields record;
        std::optional<std::string> path;
        std::vector<ProposedShortcut> members;
    };

    void field(Target::Kind kind, std::string_view key, Fields& f, int depth)
    {
        switch (kind) {
        case Target::Kind::App:
            if (library::is(key, "bundleID")) {
                f.record.bundleID = m_in.readString();
            } else {
                m_in.skipValue();
            }
            break;
        case Target::Kind::File:
        case Target::Kind::Folder:
            if (library::is(key, "bookmark")) {
                m_records.optional(f.record.bookmark, [&] { return m_records.bookmark(); });
            } else if (library::is(key, "path")) {
                m_records.optional(f.path, [&] { return m_in.readString(); });
            } else if (library::is(key, "openWith")) {
                m_records.optional(f.record.openWith, [&] { return m_in.readString(); });
            } else {
                m_in.skipValue();
            }
            break;
        case Target::Kind::Url:
            m_records.urlField(key, f.record);
            break;
        case Target::Kind::Group:
            if (library::is(key, "members")) {
                f.members = shortcutList(depth + 1);
            } else {
                m_in.skipValue();
            }
            break;
        case Target::Kind::Divider:
            m_in.skipValue();
            break;
        }
    }

    ProposedTarget target(int depth)
    {
        m_records.requireObject("a target");
        std::optional<Target::Kind> kind;
        auto readKind = [&](std::string_view word) {
            kind = library::enumFromWord<Target::Kind>(word);
            if (!kind) {
                throw library::DecodeError("unknown target kind");
            }
            if (*kind == Target::Kind::Group && depth >= library::kMaxGroupDepth) {
                throw library::DecodeError("groups nested too deep");
            }
        };
        // Written with sorted keys, "kind" comes after several members that depend on it: it is
        // looked up first so that they are read once, in order.
        std::optional<Target::Kind> ahead;
        if (auto word = m_in.peekStringMember("kind")) {
            readKind(*word);
            ahead = kind;
        }
        Fields f;
        // Members met before "kind" are read once the kind is known.
        std::vector<std::pair<std::string, size_t>> early;
        m_in.readObject([&](std::string_view key) {
            if (library::is(key, "kind")) {
                readKind(m_in.readStringView(m_scratch));
                // The members before were read as the first "kind" has it: a later one that
                // differs is left to the tree, where the last counts.
                if (ahead && kind != ahead) {
                    throw library::DecodeError("twin kinds");
                }
            } else if (!kind) {
                early.emplace_back(std::string(key), m_in.position());
                m_in.skipValue();
            } else {
                field(*kind, key, f, depth);
            }
        });
        if (!kind) {
            throw library::DecodeError("no kind");
        }
        if (!early.empty()) {
            size_t resume = m_in.position();
            for (const auto& [key, position] : early) {
                m_in.seek(position);
                field(*kind, key, f, depth);
            }
            m_in.seek(resume);
        }
        switch (*kind) {
        case Target::Kind::App:
            if (!f.record.bundleID) {
                throw library::DecodeError("no bundle id");
            }
            return ProposedTarget::app(std::move(*f.record.bundleID));
        case Target::Kind::File:
        case Target::Kind::Folder: {
            if (!f.path) {
                if (!f.record.bookmark) {
                    throw library::DecodeError("no path");
                }
                f.path = f.record.bookmark->displayPath;
            }
            ProposedTarget target =
                *kind == Target::Kind::File
                    ? ProposedTarget::file(std::move(*f.path), std::move(f.record.bookmark))
                    : ProposedTarget::folder(std::move(*f.path), std::move(f.record.bookmark));
            target.openWith = std::move(f.record.openWith);
            return target;
        }
        case Target::Kind::Url:
            if (!f.record.url) {
                throw library::DecodeError("no url");
            }
            f.record.link.url = std::move(*f.record.url);
            return ProposedTarget::link(std::move(f.record.link));
        case Target::Kind::Group:
            return ProposedTarget::group(std::move(f.members));
        case Target::Kind::Divider:
            break;
        }
        return ProposedTarget::divider();
    }

    std::string_view m_text;
    RecordReader m_records;
    JsonReader& m_in;
    std::string m_scratch;
};

class DocumentWriter
{
public:
    explicit DocumentWriter(size_t reserve)
        : m_records(reserve)
        , m_out(m_records.json())
    {}

    std::string proposal(const Proposal& proposal)
    {
        // Everything but the bars through the tree coding, which says which keys are written.
        Proposal rest;
        rest.formatVersion = proposal.formatVersion;
        rest.source = proposal.source;
        rest.title = proposal.title;
        rest.sessions = proposal.sessions;
        rest.removeBars = proposal.removeBars;
        rest.renameBars = proposal.renameBars;
        rest.removeSessions = proposal.removeSessions;
        rest.moves = proposal.moves;
        json head = document::writeProposal(rest);
        m_out.beginObject();
        for (const auto& [key, value] : head.items()) {
            m_out.key(key);
            if (library::is(key, "bars")) {
                bars(proposal.bars);
            } else {
                tree(value);
            }
        }
        m_out.endObject();
        return m_out.take();
    }

private:
    void tree(const json& value)
    {
        switch (value.type()) {
        case json::value_t::object:
            m_out.beginObject();
            for (const auto& [key, member] : value.items()) {
                m_out.key(key);
                tree(member);
            }
            m_out.endObject();
            break;
        case json::value_t::array:
            m_out.beginArray();
            for (const auto& element : value) {
                tree(element);
            }
            m_out.endArray();
            break;
        case json::value_t::string:
            m_out.value(value.get_ref<const std::string&>());
            break;
        case json::value_t::boolean:
            m_out.value(value.get<bool>());
            break;
        case json::value_t::number_integer:
        case json::value_t::number_unsigned:
            m_out.value(value.get<int64_t>());
            break;
        case json::value_t::number_float:
            m_out.value(value.get<double>());
            break;
        default:
            m_out.null();
            break;
        }
    }

    void bars(const std::vector<ProposedBar>& bars)
    {
        m_out.beginArray();
        for (const auto& bar : bars) {
            m_out.beginObject();
            m_out.key("destination");
            tree(document::writeDestination(bar.destination));
            if (!bar.removals.empty()) {
                m_out.key("removals");
                m_out.beginArray();
                for (const auto& id : bar.removals) {
                    m_out.value(id.string());
                }
                m_out.endArray();
            }
            m_out.key("shortcuts");
            list(bar.shortcuts);
            m_out.endObject();
        }
        m_out.endArray();
    }

    void list(const std::vector<ProposedShortcut>& shortcuts)
    {
        m_out.beginArray();
        for (const auto& s : shortcuts) {
            shortcut(s);
        }
        m_out.endArray();
    }

    void shortcut(const ProposedShortcut& s)
    {
        m_out.beginObject();
        if (s.icon) {
            m_out.key("icon");
            m_records.icon(*s.icon);
        }
        if (s.iconOpacity) {
            m_out.key("iconOpacity");
            m_out.value(*s.iconOpacity);
        }
        if (s.iconTint) {
            m_out.key("iconTint");
            m_records.tint(*s.iconTint);
        }
        m_out.key("id");
        m_out.value(s.id.string());
        m_out.key("isInMenuBar");
        m_out.value(s.isInMenuBar);
        m_out.key("name");
        m_out.value(s.name);
        if (s.placement) {
            m_out.key("placement");
            tree(document::writePlacement(*s.placement));
        }
        m_out.key("target");
        target(s.target);
        m_out.endObject();
    }

    void kind(Target::Kind kind)
    {
        m_out.key("kind");
        m_out.value(library::enumWord(kind));
    }

    void target(const ProposedTarget& t)
    {
        m_out.beginObject();
        switch (t.kind) {
        case Target::Kind::App:
            m_out.key("bundleID");
            m_out.value(t.bundleID);
            kind(t.kind);
            break;
        case Target::Kind::File:
        case Target::Kind::Folder:
            if (t.bookmark) {
                m_out.key("bookmark");
                m_records.bookmark(*t.bookmark);
            }
            kind(t.kind);
            if (t.openWith) {
                m_out.key("openWith");
                m_out.value(*t.openWith);
            }
            m_out.key("path");
            m_out.value(t.path);
            break;
        case Target::Kind::Url:
            m_records.urlMembers(t.url);
            break;
        case Target::Kind::Group:
            kind(t.kind);
            m_out.key("members");
            list(t.members);
            break;
        case Target::Kind::Divider:
            kind(t.kind);
            break;
        }
        m_out.endObject();
    }

    RecordWriter m_records;
    PrettyJsonWriter& m_out;
};

} // namespace

Proposal Proposal::decode(std::string_view data)
{
    try {
        return DocumentReader(data).proposal();
    } catch (const std::exception&) {
        // The tree coding gives the reason, in its order of checks.
        return reference::decode(data);
    }
}

std::string Proposal::encoded() const
{
    size_t estimate = 256;
    for (const ProposedShortcut* s : allShortcuts()) {
        estimate += s->target.kind == Target::Kind::Url ? 1024 : 384;
    }
    return DocumentWriter(estimate).proposal(*this);
}

} // namespace kit::proposal
