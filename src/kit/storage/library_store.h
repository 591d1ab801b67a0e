// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"
#include "kit/storage/json_store.h"
#include "kit/storage/support_directory.h"
#include "kit/support/main_queue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kit::storage {

// The single owner of the bars, the showing bar's shortcuts and the sessions, and of their files.
// Main thread only. Every change is applied in memory at once, announced to observers once, and
// written after a short debounce off the main thread. A file that cannot be read is never written
// over until the person starts fresh.
class LibraryStore
{
public:
    struct LoadState
    {
        enum class Kind {
            Loaded,
            Fresh,      // no file existed: an empty library, written on the first change
            Unreadable, // kept byte for byte; `message` says why
        };
        Kind kind = Kind::Fresh;
        std::string message;

        bool operator==(const LoadState&) const = default;
    };

    // A request to open the editor on a shortcut, read by the windows.
    struct EditRequest
    {
        library::ShortcutID id;
        std::optional<std::string> templateID;
        std::optional<std::string> appHint;

        bool operator==(const EditRequest&) const = default;
    };

    // What a change touched, for observers that only care about some of it.
    enum Change : unsigned {
        LibraryChanged = 1,
        BarsChanged = 2,
        SessionsChanged = 4,
        EditRequested = 8,
        SaveStateChanged = 16, // saveError() has a new answer
    };
    using Observer = std::function<void(unsigned changes)>;

    struct Options
    {
        std::chrono::milliseconds interval{300};
        // Null: each file gets a worker thread of its own.
        std::shared_ptr<support::Scheduler> scheduler;
        // Where observers hear of writes that failed or recovered; without it they hear only of
        // what this thread sees (a list held unreadable), and saveError() answers when asked.
        support::MainQueue* mainQueue = nullptr;
    };

    // The notice while a change cannot be saved because the file it belongs in is held unreadable.
    static std::string heldNotice(const std::string& fileName);

    static constexpr const char* kLastBarRefusal =
        "The last bar stays; there would be nowhere to put a shortcut.";
    // The bar list's name before it was "bars.json"; adopted once when found.
    static constexpr const char* kEarlierIndexName = "bar-index.json";

    // Opens the library in the folder: migration, bar list, sessions, then the showing bar.
    explicit LibraryStore(SupportDirectory directory);
    LibraryStore(SupportDirectory directory, Options options);
    static std::unique_ptr<LibraryStore> standard(SupportDirectory directory);
    ~LibraryStore();
    LibraryStore(const LibraryStore&) = delete;
    LibraryStore& operator=(const LibraryStore&) = delete;

    // Reading.
    const std::vector<library::Bar>& bars() const { return m_index.bars; }
    const library::BarIndex& barIndex() const { return m_index; }
    library::BarID activeBarID() const { return m_index.active().id; }
    const library::Bar& activeBar() const { return m_index.active(); }
    // The showing bar's shortcuts (the preview's while previewing).
    const library::Library& library() const;
    // Another bar's shortcuts, read from its file; nothing when unknown or unreadable.
    std::optional<library::Library> library(const library::BarID& bar) const;
    const std::vector<library::Session>& sessions() const { return m_sessions; }
    std::unordered_set<library::SessionID> knownSessionIDs() const;
    // The sessions that links name across every bar; nothing when a bar's file cannot be read.
    std::optional<std::unordered_set<library::SessionID>> sessionIDsAcrossBars() const;
    // The sessions whose website data must stay: every known session (its logins outlive its
    // last link) and every session a link names. Nothing unless the library loaded cleanly and
    // every bar reads, since an unread file may name any session.
    std::optional<std::unordered_set<library::SessionID>> sessionIDsToKeep() const;
    // How many shortcuts on all bars use the session; nothing for an unknown session.
    std::optional<int> usage(const library::SessionID& session) const;

    // What counting every session's links needs, taken on the main thread, so the counting itself
    // (which reads every other bar's file) can run on another.
    struct UsageInputs
    {
        library::Library showing;
        std::vector<std::filesystem::path> otherBars;
        std::vector<library::SessionID> sessions;
    };
    UsageInputs usageInputs() const;
    // Links per session across the bars, every known session present; a bar whose file cannot
    // be read counts nothing. Any thread.
    static std::unordered_map<library::SessionID, int> countUsage(const UsageInputs& inputs);
    const LoadState& loadState() const { return m_loadState; }
    bool isHeldAfterCorruption() const;
    const std::vector<library::Violation>& repairs() const { return m_repairs; }
    // One sentence naming the file, while a change is only in memory; nothing once all is saved.
    std::optional<std::string> saveError() const;
    bool isTemporary() const { return m_directory.isTemporary; }
    const SupportDirectory& directory() const { return m_directory; }
    // Writes of the showing bar's file so far, for benchmarks and tests.
    size_t libraryWriteCount() const { return m_libraryWriter->writeCount(); }

    // Changing. `change` must leave the library whole if it throws (the library's own operations
    // do).
    void mutate(const std::function<void(library::Library&)>& change);
    // On a named bar; false when the bar is unknown or its file cannot be read.
    bool mutate(const library::BarID& bar, const std::function<void(library::Library&)>& change);
    std::optional<library::BarID> addBar(const std::string& name);
    bool renameBar(const library::BarID& bar, const std::string& name);
    // The sentence saying why the bar cannot be removed (it is gone, or the last one), if it
    // cannot; removing gives the same sentence, or nothing when removed.
    std::optional<std::string> barRemovalRefusal(const library::BarID& bar) const;
    std::optional<std::string> removeBar(const library::BarID& bar);
    void moveBars(const std::vector<size_t>& fromOffsets, size_t toOffset);
    void activate(const library::BarID& bar);
    // Takes the shortcut, with everything inside it, off its bar onto the end of another.
    bool move(const library::ShortcutID& shortcut, const library::BarID& toBar);
    std::optional<library::SessionID> addSession(const std::string& name);
    void upsertSession(const library::Session& session);
    bool renameSession(const library::SessionID& session, const std::string& name);
    // Links that used it go back to the shared default session.
    void removeSession(const library::SessionID& session);
    // Shows another library file instead of the bar, changing nothing on disk.
    void startPreview(const std::filesystem::path& file, const library::Library& fallback);
    void endPreview();
    // Only while the bar's file is unreadable: writes the library over it.
    bool startFreshAfterCorruption();
    void flush();

    const std::optional<EditRequest>& editRequest() const { return m_editRequest; }
    void requestEdit(EditRequest request);
    void clearEditRequest();

    // Observers are told after each change, once, on the main thread.
    size_t observe(Observer observer);
    void removeObserver(size_t token);

private:
    // The showing bar's library, shared with its pending write: the main thread changes it under
    // the lock and the writer copies it under the lock when the write comes due, so a change costs
    // no copy of a large bar.
    struct Live
    {
        std::mutex lock;
        library::Library library;
    };

    std::unique_ptr<JsonStore<library::Library>> makeLibraryStore(const std::string& file) const;
    void openActiveBar();
    void saveLibrary();
    template <class Edit> void changeLibrary(Edit&& edit);
    void saveIndex();
    void saveSessions();
    bool canSaveLibrary() const;
    void notify(unsigned changes);
    // Hears of the writer's failures and recoveries on the main thread.
    void watch(DebouncedWriter& writer);
    template <class Value> void watch(JsonStore<Value>& store);
    void checkSaveState();
    // The library of any bar: the showing one from memory, others from their files.
    std::optional<library::Library> libraryOf(const library::Bar& bar) const;
    bool writeLibrary(const library::Bar& bar, const library::Library& library);

    SupportDirectory m_directory;
    Options m_options;
    std::unique_ptr<JsonStore<library::BarIndex>> m_indexStore;
    std::unique_ptr<JsonStore<library::SessionIndex>> m_sessionStore;
    std::unique_ptr<DebouncedWriter> m_libraryWriter;

    library::BarIndex m_index;
    std::vector<library::Session> m_sessions;
    // An unreadable session list is kept as it is: never saved over, and its links never repaired.
    bool m_sessionsHeld = false;
    // Changes made while it is held stay in memory only; the person is told.
    bool m_sessionsUnsaved = false;
    // Set when the unreadable bar list could not be put aside: it is then never written over.
    bool m_indexHeld = false;
    bool m_indexUnsaved = false;
    std::optional<std::string> m_toldSaveError;
    // Checked on the main thread by tasks that may outlive the store.
    std::shared_ptr<char> m_alive = std::make_shared<char>();
    std::shared_ptr<Live> m_live;
    LoadState m_loadState;
    bool m_startedFresh = false;
    std::vector<library::Violation> m_repairs;
    std::optional<library::Library> m_preview;
    std::optional<EditRequest> m_editRequest;
    std::vector<std::pair<size_t, Observer>> m_observers;
    size_t m_nextObserver = 1;
};

} // namespace kit::storage
