// SPDX-License-Identifier: MIT
#include "kit/storage/library_store.h"

#include "kit/library/library_json.h"
#include "kit/support/log.h"
#include "kit/support/text.h"

#include <algorithm>

namespace kit::storage {

using namespace kit::library;

namespace {

using support::trimmed;

constexpr support::Logger kLog("storage");

template <class Value>
JsonCoding<Value> coding(std::string (*encode)(const Value&), Value (*decode)(std::string_view))
{
    return {encode, decode};
}

// Puts an unreadable file aside under a name of its own, so a fresh one can take its place.
// Renamed, not copied: a link moves aside and whatever it points at is left alone, and a huge
// file costs nothing. False when it could not be moved; it must then not be written over.
bool keepAside(const std::filesystem::path& file)
{
    std::error_code ec;
    for (int n = 1; n < 1000; ++n) {
        std::filesystem::path aside = file;
        aside += ".unreadable-" + std::to_string(n);
        if (!std::filesystem::exists(std::filesystem::symlink_status(aside, ec))) {
            std::filesystem::rename(file, aside, ec);
            if (ec) {
                kLog.error("could not put the unreadable " + file.filename().string()
                           + " aside: " + ec.message());
                return false;
            }
            kLog.error("kept the unreadable " + file.filename().string() + " as "
                       + aside.filename().string());
            return true;
        }
    }
    return false;
}

} // namespace

LibraryStore::LibraryStore(SupportDirectory directory)
    : LibraryStore(std::move(directory), Options{})
{}

LibraryStore::LibraryStore(SupportDirectory directory, Options options)
    : m_directory(std::move(directory))
    , m_options(std::move(options))
{
    // 1. An index kept under an earlier name is adopted once.
    std::error_code ec;
    auto indexFile = m_directory.file(BarIndex::kFileName);
    auto earlier = m_directory.file(kEarlierIndexName);
    if (!std::filesystem::exists(indexFile, ec) && std::filesystem::exists(earlier, ec)) {
        std::filesystem::rename(earlier, indexFile, ec);
    }

    // 2. The bar list; a missing, unreadable or empty one becomes the standard list.
    m_indexStore = std::make_unique<JsonStore<BarIndex>>(indexFile,
                                                         m_options.interval,
                                                         coding(&encodeBarIndex, &decodeBarIndex),
                                                         m_options.scheduler);
    auto index = m_indexStore->load();
    if (auto* value = std::get_if<BarIndex>(&index); value && !value->bars.empty()) {
        m_index = std::move(*value);
    } else {
        if (auto* unreadable = std::get_if<LoadUnreadable>(&index)) {
            kLog.error("the bar list cannot be read: " + unreadable->message);
            m_indexHeld = !keepAside(indexFile);
        }
        m_index = BarIndex::standard();
        saveIndex();
    }

    // 3. Sessions, gathered once from older bar files when there is no list yet.
    m_sessionStore =
        std::make_unique<JsonStore<SessionIndex>>(m_directory.file(SessionIndex::kFileName),
                                                  m_options.interval,
                                                  coding(&encodeSessionIndex, &decodeSessionIndex),
                                                  m_options.scheduler);
    auto sessions = m_sessionStore->load();
    bool gathered = false;
    if (auto* value = std::get_if<SessionIndex>(&sessions)) {
        m_sessions = std::move(value->sessions);
    } else if (auto* unreadable = std::get_if<LoadUnreadable>(&sessions)) {
        kLog.error("the session list cannot be read: " + unreadable->message);
        m_sessionsHeld = true;
    } else {
        for (const auto& bar : m_index.bars) {
            auto read = readStoreFile(m_directory.file(bar.file));
            const auto* text = std::get_if<std::string>(&read);
            if (text == nullptr) {
                continue; // an unreadable bar file brings no sessions; step 4 reports it
            }
            try {
                for (auto& session : decodeLegacySessions(*text)) {
                    bool known = std::any_of(m_sessions.begin(),
                                             m_sessions.end(),
                                             [&](const Session& s) { return s.id == session.id; });
                    if (!known) {
                        m_sessions.push_back(std::move(session));
                        gathered = true;
                    }
                }
            } catch (const std::exception&) {
                // An unreadable bar file brings no sessions; step 4 reports it.
            }
        }
    }
    if (!m_sessionsHeld && (Session::spreadColours(m_sessions) || gathered)) {
        saveSessions();
    }

    // 4. The showing bar.
    openActiveBar();
    watch(*m_indexStore);
    watch(*m_sessionStore);
    m_toldSaveError = saveError();
}

std::unique_ptr<LibraryStore> LibraryStore::standard(SupportDirectory directory)
{
    return std::make_unique<LibraryStore>(std::move(directory));
}

LibraryStore::~LibraryStore()
{
    flush();
}

std::unique_ptr<JsonStore<Library>> LibraryStore::makeLibraryStore(const std::string& file) const
{
    return std::make_unique<JsonStore<Library>>(m_directory.file(file),
                                                m_options.interval,
                                                coding(&encodeLibrary, &decodeLibrary),
                                                m_options.scheduler);
}

void LibraryStore::openActiveBar()
{
    const Bar& bar = m_index.active();
    auto file = m_directory.file(bar.file);
    m_libraryWriter =
        std::make_unique<DebouncedWriter>(file, m_options.interval, m_options.scheduler);
    watch(*m_libraryWriter);
    m_live = std::make_shared<Live>();
    m_repairs.clear();
    m_startedFresh = false;
    auto read = readStoreFile(file);
    if (std::holds_alternative<LoadMissing>(read)) {
        m_loadState = {LoadState::Kind::Fresh, {}};
        return;
    }
    std::string message;
    if (auto* unreadable = std::get_if<LoadUnreadable>(&read)) {
        message = unreadable->message;
    } else {
        try {
            m_live->library = decodeLibrary(std::get<std::string>(read));
        } catch (const DecodeError& error) {
            message = error.what();
        }
    }
    if (!message.empty()) {
        kLog.error("the bar “" + bar.name + "” cannot be read: " + message);
        m_loadState = {LoadState::Kind::Unreadable, message};
        return;
    }
    m_loadState = {LoadState::Kind::Loaded, {}};
    Library& library = m_live->library;
    // With the session list held, every named session counts as known so no link loses its own.
    auto known = m_sessionsHeld ? library.sessionIDsInUse() : knownSessionIDs();
    m_repairs = library.validate(known);
    if (!m_repairs.empty()) {
        for (const auto& violation : m_repairs) {
            kLog.error("repaired " + bar.file + ": " + violation.description());
        }
        std::unordered_set<ShortcutID> seen;
        library = library.repaired(seen, known);
        saveLibrary();
    }
}

void LibraryStore::saveLibrary()
{
    m_libraryWriter->submit([live = m_live] {
        Library copy;
        {
            std::lock_guard guard(live->lock);
            copy = live->library;
        }
        return encodeLibrary(copy);
    });
}

template <class Edit> void LibraryStore::changeLibrary(Edit&& edit)
{
    std::lock_guard guard(m_live->lock);
    edit(m_live->library);
}

const Library& LibraryStore::library() const
{
    return m_preview ? *m_preview : m_live->library;
}

std::optional<Library> LibraryStore::libraryOf(const Bar& bar) const
{
    if (bar.id == activeBarID()) {
        if (m_loadState.kind == LoadState::Kind::Unreadable && !m_startedFresh) {
            return std::nullopt;
        }
        return m_live->library;
    }
    auto loaded = makeLibraryStore(bar.file)->load();
    if (auto* value = std::get_if<Library>(&loaded)) {
        return std::move(*value);
    }
    if (std::holds_alternative<LoadMissing>(loaded)) {
        return Library::empty();
    }
    return std::nullopt;
}

std::optional<Library> LibraryStore::library(const BarID& id) const
{
    const Bar* bar = m_index.bar(id);
    return bar ? libraryOf(*bar) : std::nullopt;
}

std::unordered_set<SessionID> LibraryStore::knownSessionIDs() const
{
    std::unordered_set<SessionID> ids;
    for (const auto& session : m_sessions) {
        ids.insert(session.id);
    }
    return ids;
}

std::optional<std::unordered_set<SessionID>> LibraryStore::sessionIDsAcrossBars() const
{
    std::unordered_set<SessionID> ids;
    for (const auto& bar : m_index.bars) {
        auto library = libraryOf(bar);
        if (!library) {
            return std::nullopt;
        }
        ids.merge(library->sessionIDsInUse());
    }
    return ids;
}

std::optional<std::unordered_set<SessionID>> LibraryStore::sessionIDsToKeep() const
{
    if (m_loadState.kind != LoadState::Kind::Loaded) {
        return std::nullopt;
    }
    auto ids = sessionIDsAcrossBars();
    if (ids) {
        ids->merge(knownSessionIDs());
    }
    return ids;
}

std::optional<int> LibraryStore::usage(const SessionID& session) const
{
    if (!knownSessionIDs().contains(session)) {
        return std::nullopt;
    }
    int count = 0;
    for (const auto& bar : m_index.bars) {
        if (auto library = libraryOf(bar)) {
            for (const Shortcut* s : library->allShortcuts()) {
                if (const auto* url = s->target.urlTarget(); url && url->sessionID == session) {
                    ++count;
                }
            }
        }
    }
    return count;
}

LibraryStore::UsageInputs LibraryStore::usageInputs() const
{
    UsageInputs inputs;
    if (auto showing = libraryOf(activeBar())) {
        inputs.showing = std::move(*showing);
    }
    for (const auto& bar : m_index.bars) {
        if (bar.id != activeBarID()) {
            inputs.otherBars.push_back(m_directory.file(bar.file));
        }
    }
    for (const auto& session : m_sessions) {
        inputs.sessions.push_back(session.id);
    }
    return inputs;
}

std::unordered_map<SessionID, int> LibraryStore::countUsage(const UsageInputs& inputs)
{
    std::unordered_map<SessionID, int> counts;
    for (const auto& session : inputs.sessions) {
        counts.emplace(session, 0);
    }
    const auto count = [&counts](const Library& library) {
        for (const Shortcut* s : library.allShortcuts()) {
            if (const auto* url = s->target.urlTarget(); url && url->sessionID) {
                if (auto found = counts.find(*url->sessionID); found != counts.end()) {
                    ++found->second;
                }
            }
        }
    };
    count(inputs.showing);
    for (const auto& file : inputs.otherBars) {
        auto read = readStoreFile(file);
        if (const auto* text = std::get_if<std::string>(&read)) {
            try {
                count(library::decodeLibrary(*text));
            } catch (const std::exception& error) {
                kLog.error("counting links: " + file.filename().string() + ": " + error.what());
            }
        }
    }
    return counts;
}

bool LibraryStore::isHeldAfterCorruption() const
{
    return m_loadState.kind == LoadState::Kind::Unreadable && !m_startedFresh;
}

std::string LibraryStore::heldNotice(const std::string& fileName)
{
    return "Could not save “" + fileName
           + "”: the file there cannot be read, so it is kept as it is and this change lasts "
             "only until Vantorel quits.";
}

std::optional<std::string> LibraryStore::saveError() const
{
    if (auto error = m_libraryWriter->lastSaveError()) {
        return error;
    }
    if (m_indexUnsaved) {
        return heldNotice(m_indexStore->file().filename().string());
    }
    if (auto error = m_indexStore->lastSaveError()) {
        return error;
    }
    if (m_sessionsUnsaved) {
        return heldNotice(m_sessionStore->file().filename().string());
    }
    return m_sessionStore->lastSaveError();
}

void LibraryStore::watch(DebouncedWriter& writer)
{
    if (m_options.mainQueue == nullptr) {
        return;
    }
    writer.onOutcome([queue = m_options.mainQueue, alive = std::weak_ptr<char>(m_alive), this] {
        queue->post([alive, this] {
            // The store lives and dies on the main thread, so this check cannot race.
            if (alive.lock()) {
                checkSaveState();
            }
        });
    });
}

template <class Value> void LibraryStore::watch(JsonStore<Value>& store)
{
    if (m_options.mainQueue == nullptr) {
        return;
    }
    store.onOutcome([queue = m_options.mainQueue, alive = std::weak_ptr<char>(m_alive), this] {
        queue->post([alive, this] {
            if (alive.lock()) {
                checkSaveState();
            }
        });
    });
}

void LibraryStore::checkSaveState()
{
    if (!m_libraryWriter) {
        return; // still opening; the constructor takes the first reading
    }
    auto now = saveError();
    if (now != m_toldSaveError) {
        m_toldSaveError = std::move(now);
        notify(SaveStateChanged);
    }
}

bool LibraryStore::canSaveLibrary() const
{
    return !isHeldAfterCorruption() && !m_preview;
}

void LibraryStore::mutate(const std::function<void(Library&)>& change)
{
    if (m_preview) {
        change(*m_preview);
    } else {
        changeLibrary(change);
        if (canSaveLibrary()) {
            saveLibrary();
        }
    }
    notify(LibraryChanged);
}

bool LibraryStore::writeLibrary(const Bar& bar, const Library& library)
{
    auto store = makeLibraryStore(bar.file);
    store->save(library);
    store->flush();
    return !store->lastSaveError();
}

bool LibraryStore::mutate(const BarID& id, const std::function<void(Library&)>& change)
{
    const Bar* bar = m_index.bar(id);
    if (!bar) {
        return false;
    }
    if (id == activeBarID() && !m_preview) {
        if (isHeldAfterCorruption()) {
            return false;
        }
        mutate(change);
        return true;
    }
    auto library = libraryOf(*bar);
    if (!library) {
        return false;
    }
    change(*library);
    // Written at once: another bar's file is read straight from disk, so nothing may wait.
    bool written = writeLibrary(*bar, *library);
    notify(LibraryChanged);
    return written;
}

std::optional<BarID> LibraryStore::addBar(const std::string& name)
{
    std::string clean(trimmed(name));
    if (clean.empty()) {
        return std::nullopt;
    }
    Bar bar{BarID::make(), clean, m_index.unusedFileName()};
    m_index.bars.push_back(bar);
    saveIndex();
    notify(BarsChanged);
    return bar.id;
}

bool LibraryStore::renameBar(const BarID& id, const std::string& name)
{
    std::string clean(trimmed(name));
    auto it = std::find_if(
        m_index.bars.begin(), m_index.bars.end(), [&](const Bar& b) { return b.id == id; });
    if (clean.empty() || it == m_index.bars.end()) {
        return false;
    }
    if (it->name != clean) {
        it->name = clean;
        saveIndex();
        notify(BarsChanged);
    }
    return true;
}

std::optional<std::string> LibraryStore::barRemovalRefusal(const BarID& id) const
{
    if (std::none_of(
            m_index.bars.begin(), m_index.bars.end(), [&](const Bar& b) { return b.id == id; })) {
        return "That bar no longer exists.";
    }
    if (m_index.bars.size() <= 1) {
        return kLastBarRefusal;
    }
    return std::nullopt;
}

std::optional<std::string> LibraryStore::removeBar(const BarID& id)
{
    if (auto refusal = barRemovalRefusal(id)) {
        return refusal;
    }
    auto it = std::find_if(
        m_index.bars.begin(), m_index.bars.end(), [&](const Bar& b) { return b.id == id; });
    bool wasActive = id == activeBarID();
    size_t position = static_cast<size_t>(it - m_index.bars.begin());
    std::string file = it->file;
    if (wasActive) {
        m_libraryWriter->flush();
    }
    m_index.bars.erase(it);
    unsigned changes = BarsChanged;
    if (wasActive) {
        // The neighbour that slides into its place shows next.
        m_index.activeID = m_index.bars[std::min(position, m_index.bars.size() - 1)].id;
        openActiveBar();
        changes |= LibraryChanged;
    }
    saveIndex();
    std::error_code ec;
    std::filesystem::remove(m_directory.file(file), ec);
    notify(changes);
    return std::nullopt;
}

void LibraryStore::moveBars(const std::vector<size_t>& fromOffsets, size_t toOffset)
{
    auto before = m_index.bars;
    moveOffsets(m_index.bars, fromOffsets, toOffset);
    if (m_index.bars != before) {
        saveIndex();
        notify(BarsChanged);
    }
}

void LibraryStore::activate(const BarID& id)
{
    if (!m_index.bar(id) || id == activeBarID()) {
        return;
    }
    m_libraryWriter->flush();
    m_preview.reset();
    m_index.activeID = id;
    saveIndex();
    openActiveBar();
    notify(BarsChanged | LibraryChanged);
}

bool LibraryStore::move(const ShortcutID& shortcut, const BarID& toBar)
{
    const Bar* destination = m_index.bar(toBar);
    if (!destination) {
        return false;
    }
    for (const auto& bar : m_index.bars) {
        auto library = libraryOf(bar);
        if (!library || !library->shortcut(shortcut)) {
            continue;
        }
        if (bar.id == toBar) {
            return false;
        }
        auto target = libraryOf(*destination);
        if (!target) {
            return false;
        }
        Shortcut moving = *library->shortcut(shortcut);
        BarID from = bar.id;
        mutate(from, [&](Library& l) { l.remove(shortcut); });
        return mutate(toBar, [&](Library& l) { l.add(moving); });
    }
    return false;
}

std::optional<SessionID> LibraryStore::addSession(const std::string& name)
{
    std::string clean(trimmed(name));
    if (clean.empty()) {
        return std::nullopt;
    }
    Session session{SessionID::make(), clean, Session::nextColour(m_sessions)};
    m_sessions.push_back(session);
    saveSessions();
    notify(SessionsChanged);
    return session.id;
}

void LibraryStore::upsertSession(const Session& session)
{
    auto it = std::find_if(
        m_sessions.begin(), m_sessions.end(), [&](const Session& s) { return s.id == session.id; });
    if (it != m_sessions.end()) {
        if (*it == session) {
            return;
        }
        *it = session;
    } else {
        m_sessions.push_back(session);
        if (!session.colour) {
            m_sessions.back().colour =
                Session::nextColour({m_sessions.begin(), m_sessions.end() - 1});
        }
    }
    saveSessions();
    notify(SessionsChanged);
}

bool LibraryStore::renameSession(const SessionID& id, const std::string& name)
{
    std::string clean(trimmed(name));
    auto it = std::find_if(
        m_sessions.begin(), m_sessions.end(), [&](const Session& s) { return s.id == id; });
    if (clean.empty() || it == m_sessions.end()) {
        return false;
    }
    if (it->name != clean) {
        it->name = clean;
        saveSessions();
        notify(SessionsChanged);
    }
    return true;
}

void LibraryStore::removeSession(const SessionID& id)
{
    auto it = std::find_if(
        m_sessions.begin(), m_sessions.end(), [&](const Session& s) { return s.id == id; });
    if (it == m_sessions.end()) {
        return;
    }
    m_sessions.erase(it);
    saveSessions();
    for (const auto& bar : m_index.bars) {
        auto library = libraryOf(bar);
        if (library && library->sessionIDsInUse().contains(id)) {
            mutate(bar.id, [&](Library& l) { l.forget(id); });
        }
    }
    notify(SessionsChanged);
}

void LibraryStore::startPreview(const std::filesystem::path& file, const Library& fallback)
{
    JsonStore<Library> store(
        file, m_options.interval, coding(&encodeLibrary, &decodeLibrary), m_options.scheduler);
    auto loaded = store.load();
    auto* value = std::get_if<Library>(&loaded);
    if (value) {
        m_preview = std::move(*value);
    } else {
        m_preview = fallback;
    }
    notify(LibraryChanged);
}

void LibraryStore::endPreview()
{
    if (m_preview) {
        m_preview.reset();
        notify(LibraryChanged);
    }
}

bool LibraryStore::startFreshAfterCorruption()
{
    if (!isHeldAfterCorruption()) {
        return false;
    }
    m_startedFresh = true;
    m_loadState = {LoadState::Kind::Fresh, {}};
    saveLibrary();
    m_libraryWriter->flush();
    notify(LibraryChanged);
    return true;
}

void LibraryStore::flush()
{
    if (m_libraryWriter) {
        m_libraryWriter->flush();
    }
    if (m_indexStore) {
        m_indexStore->flush();
    }
    if (m_sessionStore) {
        m_sessionStore->flush();
    }
}

void LibraryStore::requestEdit(EditRequest request)
{
    m_editRequest = std::move(request);
    notify(EditRequested);
}

void LibraryStore::clearEditRequest()
{
    m_editRequest.reset();
}

size_t LibraryStore::observe(Observer observer)
{
    size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void LibraryStore::removeObserver(size_t token)
{
    std::erase_if(m_observers, [&](const auto& entry) { return entry.first == token; });
}

void LibraryStore::notify(unsigned changes)
{
    // A copy, so an observer may add or remove observers while being told.
    auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer(changes);
    }
}

void LibraryStore::saveIndex()
{
    if (!m_indexHeld) {
        m_indexStore->save(m_index);
    } else if (!m_indexUnsaved) {
        m_indexUnsaved = true;
        checkSaveState();
    }
}

void LibraryStore::saveSessions()
{
    if (!m_sessionsHeld) {
        m_sessionStore->save(SessionIndex{m_sessions});
    } else if (!m_sessionsUnsaved) {
        m_sessionsUnsaved = true;
        checkSaveState();
    }
}

} // namespace kit::storage
