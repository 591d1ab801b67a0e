// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_documents.h"

#include "desktop/qt_text.h"
#include "kit/storage/library_store.h"
#include "kit/support/atomic_file.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

namespace desktop {

using kit::library::BarID;
using kit::library::Library;
using kit::proposal::Proposal;

ManagerDocuments::Made ManagerDocuments::make(const kit::storage::LibraryStore& store,
                                              const ExportChoice& choice)
{
    Made made;
    std::vector<std::pair<kit::library::Bar, Library>> bars;
    // In the person's order, whatever order they were ticked in.
    for (const auto& bar : store.bars()) {
        if (std::find(choice.bars.begin(), choice.bars.end(), bar.id) == choice.bars.end()) {
            continue;
        }
        auto library = store.library(bar.id);
        if (!library) {
            made.failure = "“" + bar.name + "” could not be read, so it cannot be exported.";
            return made;
        }
        bars.emplace_back(bar, std::move(*library));
    }
    if (choice.shortcut) {
        for (const auto& [bar, library] : bars) {
            if (const auto* shortcut = library.shortcut(*choice.shortcut)) {
                made.document = Proposal::exportShortcut(
                    *shortcut, store.sessions(), choice.portable, kSource, shortcut->name);
                return made;
            }
        }
        made.failure = "The shortcut is no longer there to export.";
        return made;
    }
    if (bars.empty()) {
        made.failure = "Choose at least one bar to export.";
        return made;
    }
    std::optional<std::string> title;
    if (bars.size() == 1) {
        title = bars.front().first.name;
    }
    made.document = Proposal::exportBars(bars, store.sessions(), choice.portable, kSource, title);
    return made;
}

std::string ManagerDocuments::fileName(const kit::storage::LibraryStore& store,
                                       const ExportChoice& choice)
{
    std::string name = "Bars";
    if (choice.shortcut) {
        for (const auto& bar : choice.bars) {
            auto library = store.library(bar);
            const auto* shortcut = library ? library->shortcut(*choice.shortcut) : nullptr;
            if (shortcut && !shortcut->name.empty()) {
                name = shortcut->name;
            }
        }
        if (name == "Bars") {
            name = "Shortcut";
        }
    } else if (choice.bars.size() == 1) {
        if (const auto* bar = store.barIndex().bar(choice.bars.front())) {
            name = bar->name;
        }
    }
    // A slash would make a folder of it; a leading dot would hide it.
    std::replace(name.begin(), name.end(), '/', '-');
    while (!name.empty() && name.front() == '.') {
        name.erase(name.begin());
    }
    if (name.empty()) {
        name = "Bars";
    }
    return name + "." + Proposal::kFileExtension;
}

std::optional<std::string> ManagerDocuments::write(const std::filesystem::path& file,
                                                   const Proposal& document)
{
    return kit::support::writeFileAtomically(file, document.encoded());
}

ManagerExportDialog::ManagerExportDialog(const kit::storage::LibraryStore& store,
                                         ExportChoice initial,
                                         QWidget* parent)
    : QDialog(parent)
    , m_store(store)
    , m_initial(std::move(initial))
    , m_bars(new QListWidget(this))
{
    const bool oneShortcut = m_initial.shortcut.has_value();
    setWindowTitle(oneShortcut ? QStringLiteral("Export Shortcut") : QStringLiteral("Export Bars"));

    auto* layout = new QVBoxLayout(this);
    auto* intro = new QLabel(
        oneShortcut ? QStringLiteral("The document adds this shortcut to the bar that is showing "
                                     "where it is opened.")
                    : QStringLiteral("The document adds the checked bars, with their shortcuts, "
                                     "as new bars where it is opened."),
        this);
    intro->setWordWrap(true);
    layout->addWidget(intro);

    m_bars->setObjectName(QStringLiteral("exportBars"));
    for (const auto& bar : m_store.bars()) {
        auto* item = new QListWidgetItem(toQt(bar.name), m_bars);
        item->setData(Qt::UserRole, toQt(bar.id.string()));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable | Qt::ItemIsSelectable);
        const bool checked =
            std::find(m_initial.bars.begin(), m_initial.bars.end(), bar.id) != m_initial.bars.end();
        item->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
    }
    m_bars->setVisible(!oneShortcut);
    m_bars->setMinimumHeight(120);
    layout->addWidget(m_bars, 1);

    m_portable = new QCheckBox(QString::fromUtf8(ManagerDocuments::kPortableChoice), this);
    m_portable->setChecked(m_initial.portable);
    layout->addWidget(m_portable);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_export = buttons->addButton(QStringLiteral("Export…"), QDialogButtonBox::AcceptRole);
    m_export->setDefault(true);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_bars, &QListWidget::itemChanged, this, &ManagerExportDialog::updateButton);
    updateButton();
    resize(460, oneShortcut ? 160 : 320);
}

ExportChoice ManagerExportDialog::choice() const
{
    ExportChoice choice;
    choice.shortcut = m_initial.shortcut;
    choice.portable = m_portable->isChecked();
    if (choice.shortcut) {
        choice.bars = m_initial.bars;
        return choice;
    }
    for (int row = 0; row < m_bars->count(); ++row) {
        const QListWidgetItem* item = m_bars->item(row);
        if (item->checkState() != Qt::Checked) {
            continue;
        }
        if (auto id = BarID::parse(item->data(Qt::UserRole).toString().toStdString())) {
            choice.bars.push_back(*id);
        }
    }
    return choice;
}

void ManagerExportDialog::updateButton()
{
    m_export->setEnabled(!choice().bars.empty());
}

} // namespace desktop
