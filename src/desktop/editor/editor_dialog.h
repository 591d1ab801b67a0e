// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/editor/form_rows.h"
#include "desktop/editor/shortcut_editor.h"
#include "kit/editor/shortcut_form.h"

#include <QDialog>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QScrollArea;
class QSpinBox;
class QToolButton;

namespace desktop::editor {

// The form and its words are the core's; this room draws them.
using kit::editor::Field;
using kit::editor::IconChoice;
using kit::editor::Problem;
using kit::editor::readableWord;
using kit::editor::sessionColour;
using kit::editor::ShortcutForm;

// The editor window of one shortcut: shows the fields its form asks for, writes each change the
// person makes into the form and hands the finished shortcut to `save`. Controls write only when
// the person changes them, so a shortcut opened and saved untouched comes back unchanged. Main
// thread only.
class EditorDialog : public QDialog
{
    Q_OBJECT

public:
    // Writes the shortcut; nothing when saved, else the sentence saying why not (the window then
    // stays open with it).
    using Save = std::function<std::optional<std::string>(const kit::library::Shortcut&)>;

    EditorDialog(EditorServices& services,
                 ShortcutForm form,
                 Save save,
                 QWidget* parent = nullptr,
                 const std::string& appSearch = {});
    ~EditorDialog() override;

    const ShortcutForm& form() const { return m_form; }
    // Asks for the file or folder and takes it through the target factory.
    void choosePath();
    void accept() override;

    // Draws the icon's preview again.
    void iconsChanged() { refresh(); }

    // For tests and screenshots.
    QWidget* field(Field field) const;
    QLabel* problemLabel(Field field) const;
    QLineEdit* blankField(const std::string& blank) const;
    QLabel* blankProblem(const std::string& blank) const;
    QPushButton* saveButton() const { return m_saveButton; }
    void setPageSettingsShown(bool shown);
    bool isFieldShown(Field field) const;
    // Large enough for every shown field without scrolling; the screen may allow less.
    QSize wantedSize() const;

private:
    struct Row
    {
        FormRows* rows = nullptr;
        QWidget* field = nullptr;
        QLabel* problem = nullptr;
    };

    void build();
    void addRow(FormRows& rows, Field field, const QString& label, QWidget* widget);
    QWidget* makeTemplateBox();
    QWidget* makeAppList(const std::string& search);
    QWidget* makePathRow();
    QWidget* makeSizeRow(bool window);
    QWidget* makeIconRow();
    void fillChoices();
    void loadValues();
    void rebuildBlanks();
    void refillApps(const QString& search);
    void chooseIcon();
    void touch(Field field);
    // Visibility, problems, the save button and every derived text, after any change.
    void refresh();

    // The panel's look as the tray has it, else the window's own.
    kit::menubar::Appearance panelLook() const;

    EditorServices& m_services;
    ShortcutForm m_form;
    Save m_save;
    std::set<Field> m_touched;
    std::optional<std::string> m_pathProblem;
    std::map<Field, Row> m_rows;
    std::unique_ptr<FormRows> m_main;
    // The fields scroll where the screen is too small for them; Save stays in sight.
    QScrollArea* m_scroll = nullptr;
    std::unique_ptr<FormRows> m_pageForm;
    QToolButton* m_pageToggle = nullptr;
    QGroupBox* m_pageBox = nullptr;

    QLineEdit* m_name = nullptr;
    QComboBox* m_template = nullptr;
    QLabel* m_templateHint = nullptr;
    QLineEdit* m_address = nullptr;
    QWidget* m_suggestion = nullptr;
    QLabel* m_suggestionText = nullptr;
    QLineEdit* m_paste = nullptr;
    QWidget* m_blankBox = nullptr;
    QFormLayout* m_blankForm = nullptr;
    std::map<std::string, std::pair<QLineEdit*, QLabel*>> m_blankFields;
    QLabel* m_opens = nullptr;
    QComboBox* m_openMode = nullptr;
    QComboBox* m_browser = nullptr;
    QComboBox* m_session = nullptr;
    QCheckBox* m_private = nullptr;
    QComboBox* m_userAgent = nullptr;
    QLineEdit* m_customAgent = nullptr;
    QComboBox* m_appearance = nullptr;
    QComboBox* m_blocksAds = nullptr;
    QComboBox* m_zoom = nullptr;
    QCheckBox* m_ownPopoverSize = nullptr;
    QSpinBox* m_popoverWidth = nullptr;
    QSpinBox* m_popoverHeight = nullptr;
    QCheckBox* m_ownWindowSize = nullptr;
    QSpinBox* m_windowWidth = nullptr;
    QSpinBox* m_windowHeight = nullptr;
    QCheckBox* m_staysOnTop = nullptr;
    QCheckBox* m_reloads = nullptr;
    QCheckBox* m_keepsPlaying = nullptr;
    QCheckBox* m_showsCount = nullptr;
    QCheckBox* m_notifies = nullptr;
    QComboBox* m_newWindows = nullptr;
    QLineEdit* m_appSearch = nullptr;
    QListWidget* m_apps = nullptr;
    QLabel* m_path = nullptr;
    QComboBox* m_openWith = nullptr;
    QPushButton* m_icon = nullptr;
    QPushButton* m_refreshIcon = nullptr;
    QCheckBox* m_inMenuBar = nullptr;
    QLabel* m_error = nullptr;
    QPushButton* m_saveButton = nullptr;
};

} // namespace desktop::editor
