// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <QAbstractListModel>
#include <QColor>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kit::storage {
class LibraryStore;
}

namespace desktop {

// A site's remembered answer to showing notifications; no session is the default account.
struct NotificationAnswer
{
    std::optional<kit::library::SessionID> session;
    std::string site;
    bool allowed = false;

    bool operator==(const NotificationAnswer&) const = default;
};

// What the sessions pane asks of the pages' website data, each optional: without an engine there
// is no site count, and data is neither cleared nor removed.
struct SessionData
{
    // Every remembered answer, and forgetting one so the site asks again.
    std::function<std::vector<NotificationAnswer>()> notificationAnswers;
    std::function<void(const NotificationAnswer&)> forgetNotificationAnswer;
    // Calls `changed` after each answer remembered or forgotten, by a page or another process,
    // until the returned function is called.
    std::function<std::function<void()>(std::function<void()> changed)> watchNotificationAnswers;
    std::function<void(const kit::library::SessionID&, std::function<void(int sites)>)> siteCount;
    std::function<void(const kit::library::SessionID&, std::function<void()> done)> clear;
    std::function<void(const kit::library::SessionID&)> remove;
};

// The sessions (browsing accounts) in the person's order with their colours, how many links use
// each and, when the engine can tell, how many sites left data in it. Links are counted once per
// change of the library, on a worker thread, since that reads every bar's file. Renames and
// removals go through the store. Main thread only; the store must outlive the model.
class ManagerSessionsModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        // QString: the session's id.
        IDRole = Qt::UserRole + 1,
        // QString: "3 links · 12 sites".
        DetailRole,
        // int: the colour's index in the palette.
        ColourRole,
    };

    ManagerSessionsModel(kit::storage::LibraryStore& store,
                         SessionData data,
                         QObject* parent = nullptr);
    ~ManagerSessionsModel() override;

    // The colour a session wears everywhere it is shown.
    static QColor colour(int index);
    // "1 link", "3 links · 12 sites".
    static QString detail(int links, std::optional<int> sites);

    std::optional<kit::library::SessionID> sessionAt(int row) const;
    int rowOf(const kit::library::SessionID& session) const;
    bool canCountSites() const { return static_cast<bool>(m_data.siteCount); }
    bool canClearData() const { return static_cast<bool>(m_data.clear); }

    std::optional<kit::library::SessionID> addSession();
    // "Remove “Work”? Its 2 links go back to the default account."
    std::string removalQuestion(const kit::library::SessionID& session) const;
    void remove(const kit::library::SessionID& session);
    // Clears the session's website data; the links keep using it. Counts again when done.
    void clearData(const kit::library::SessionID& session);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // Re-reads the sessions, counts the links again and, once counting started, asks for the
    // site counts again.
    void reload();
    // True once links were counted; until the next count arrives they are those of the library
    // before its last change.
    bool linksCounted() const { return m_linksCounted; }
    // Counting may start the web engine, so it waits until someone looks at the sessions.
    void startCounting();

private:
    void countSites();
    void countLinks();

Q_SIGNALS:
    // The links are counted; the details read their numbers.
    void linksCountedChanged();

private:
    kit::storage::LibraryStore& m_store;
    SessionData m_data;
    std::map<std::string, int> m_sites;
    std::map<std::string, int> m_links;
    bool m_linksCounted = false;
    // Answers of earlier countings, overtaken by a later change, are dropped.
    unsigned m_linksGeneration = 0;
    // Where counting threads deliver their answers: cleared, under the lock, before the model
    // goes, so a late answer is dropped rather than delivered to nothing.
    struct Delivery
    {
        std::mutex lock;
        QObject* receiver = nullptr;
    };
    std::shared_ptr<Delivery> m_delivery;
    std::unique_ptr<QObject> m_receiver;
    bool m_counting = false;
    size_t m_observation = 0;
    // Held weakly by the engine's answers, which do nothing once the model is gone.
    std::shared_ptr<ManagerSessionsModel*> m_self;
};

} // namespace desktop
