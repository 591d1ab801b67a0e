// SPDX-License-Identifier: MIT
#include "desktop/editor/form_rows.h"

#include <QFormLayout>
#include <QWidget>

#include <algorithm>

namespace desktop::editor {

FormRows::FormRows(QFormLayout* layout)
    : m_layout(layout)
{}

void FormRows::add(QWidget* label, QWidget* field)
{
    m_rows.push_back({label, field, false, true});
    insert(m_layout->rowCount(), m_rows.back());
}

void FormRows::add(QWidget* wide)
{
    m_rows.push_back({nullptr, wide, true, true});
    insert(m_layout->rowCount(), m_rows.back());
}

void FormRows::setShown(QWidget* field, bool shown)
{
    const auto row = std::find_if(
        m_rows.begin(), m_rows.end(), [field](const Row& r) { return r.field == field; });
    if (row == m_rows.end() || row->shown == shown) {
        return;
    }
    row->shown = shown;
    if (shown) {
        const auto before =
            std::count_if(m_rows.begin(), row, [](const Row& r) { return r.shown; });
        insert(static_cast<int>(before), *row);
    } else {
        int index = -1;
        QFormLayout::ItemRole role{};
        m_layout->getWidgetPosition(field, &index, &role);
        if (index >= 0) {
            // The items only wrap the widgets, which stay with their parent.
            const QFormLayout::TakeRowResult taken = m_layout->takeRow(index);
            delete taken.labelItem;
            delete taken.fieldItem;
        }
    }
    if (row->label) {
        row->label->setVisible(shown);
    }
    row->field->setVisible(shown);
}

void FormRows::insert(int at, const Row& row)
{
    if (row.wide) {
        m_layout->insertRow(at, row.field);
    } else {
        m_layout->insertRow(at, row.label, row.field);
    }
}

} // namespace desktop::editor
