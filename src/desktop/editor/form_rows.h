// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

class QFormLayout;
class QWidget;

namespace desktop::editor {

// The rows of a form that come and go, each added here in the order it stands. A hidden row is
// taken out of the layout and put back in its place when shown: Qt 6.4's QFormLayout keeps where
// a hidden row last stood and, once fewer rows stand, writes that row's heights past the end of
// its table whenever a row wraps its text, corrupting the heap. Every row of the form goes
// through here, and none of its widgets is hidden another way. Main thread only.
class FormRows final
{
public:
    explicit FormRows(QFormLayout* layout);

    // A field beside its label; without a label the field keeps to the field column.
    void add(QWidget* label, QWidget* field);
    // A widget across both columns.
    void add(QWidget* wide);
    // The row that `field` (or the wide widget) heads; nothing for a widget not added here.
    void setShown(QWidget* field, bool shown);

    QFormLayout* layout() const { return m_layout; }

private:
    struct Row
    {
        QWidget* label = nullptr;
        QWidget* field = nullptr;
        bool wide = false;
        bool shown = true;
    };

    void insert(int at, const Row& row);

    QFormLayout* m_layout;
    std::vector<Row> m_rows;
};

} // namespace desktop::editor
