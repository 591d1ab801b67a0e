// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"
#include "kit/proposal/proposal.h"

#include <QDialog>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

class QCheckBox;
class QListWidget;
class QPushButton;

namespace kit::storage {
class LibraryStore;
}

namespace desktop {

// What the person chose to export: some bars, or one shortcut of a bar, and whether the document
// goes to another computer (leaving out file access and what pages remembered).
struct ExportChoice
{
    std::vector<kit::library::BarID> bars;
    // With a shortcut, `bars` holds the one bar it stands on.
    std::optional<kit::library::ShortcutID> shortcut;
    bool portable = false;
};

// Export of bars and shortcuts as documents, and the dialog that asks what to export. Main thread.
struct ManagerDocuments
{
    static constexpr const char* kSource = "Vantorel";
    static constexpr const char* kPortableChoice =
        "For another computer: leave out the access to files and folders, and what pages "
        "remembered";

    // The document for the choice; on failure (a bar that cannot be read, nothing chosen) the
    // sentence saying so.
    struct Made
    {
        std::optional<kit::proposal::Proposal> document;
        std::string failure;
    };
    static Made make(const kit::storage::LibraryStore& store, const ExportChoice& choice);
    // "Work.vantorel", "Bars.vantorel" for several, the shortcut's name for one shortcut; never
    // a character a file name cannot hold.
    static std::string fileName(const kit::storage::LibraryStore& store,
                                const ExportChoice& choice);
    // Nothing on success, else the sentence naming the file.
    static std::optional<std::string> write(const std::filesystem::path& file,
                                            const kit::proposal::Proposal& document);
};

// Asks which bars to export (the given one checked) or, for one shortcut, only whether it goes
// to another computer. Main thread only; the store must outlive the dialog.
class ManagerExportDialog : public QDialog
{
    Q_OBJECT

public:
    ManagerExportDialog(const kit::storage::LibraryStore& store,
                        ExportChoice initial,
                        QWidget* parent = nullptr);

    ExportChoice choice() const;
    QListWidget* barList() const { return m_bars; }
    QCheckBox* portableBox() const { return m_portable; }

private:
    void updateButton();

    const kit::storage::LibraryStore& m_store;
    ExportChoice m_initial;
    QListWidget* m_bars = nullptr;
    QCheckBox* m_portable = nullptr;
    QPushButton* m_export = nullptr;
};

} // namespace desktop
