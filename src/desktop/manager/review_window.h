// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

#include <memory>

class QLabel;
class QPushButton;
class QTreeView;

namespace kit::proposal {
class ProposalInbox;
}
namespace kit::storage {
class LibraryStore;
}

namespace desktop {

class ReviewModel;

// The window where the person checks the pending proposal row by row and applies or declines it.
// It only shows the inbox and carries the person's choices to it; the inbox decides and writes.
// Main thread only; the inbox and the store must outlive the window.
class ReviewWindow : public QWidget
{
    Q_OBJECT

public:
    ReviewWindow(kit::proposal::ProposalInbox& inbox,
                 kit::storage::LibraryStore& store,
                 QWidget* parent = nullptr);
    ~ReviewWindow() override;

    // Shows, raises and activates the window.
    void present();

    // For tests and the window's own keys.
    ReviewModel& model() { return *m_model; }
    QPushButton* applyButton() const { return m_apply; }
    QPushButton* dismissButton() const { return m_dismiss; }
    QLabel* summaryLabel() const { return m_summary; }
    QLabel* titleLabel() const { return m_title; }
    QTreeView* view() const { return m_view; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void rebuild();
    void updateControls();
    void applyProposal();
    void dismissProposal();

    kit::proposal::ProposalInbox& m_inbox;
    kit::storage::LibraryStore& m_store;
    std::unique_ptr<ReviewModel> m_model;

    QLabel* m_title = nullptr;
    QLabel* m_subtitle = nullptr;
    QLabel* m_empty = nullptr;
    QTreeView* m_view = nullptr;
    QLabel* m_summary = nullptr;
    QPushButton* m_apply = nullptr;
    QPushButton* m_dismiss = nullptr;
};

} // namespace desktop
