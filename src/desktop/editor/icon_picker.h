// SPDX-License-Identifier: MIT
#pragma once

#include "kit/editor/shortcut_form.h"
#include "kit/menubar/status_bar.h"
#include "kit/tools/icon_provider.h"

#include <QDialog>
#include <QImage>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QSlider;
class QTabWidget;

namespace desktop {
class QtIconRenderer;
}

namespace desktop::editor {

// The form and its words are the core's; this room draws them.
using kit::editor::Field;
using kit::editor::IconChoice;
using kit::editor::Problem;
using kit::editor::readableWord;
using kit::editor::sessionColour;
using kit::editor::ShortcutForm;

// The icon picker's state without widgets: the theme icons matching a search and a category, and
// the icon, tint and opacity chosen so far. An icon is listed once under its plain name, whatever
// variants the theme has of it; the symbolic toggle decides which of them is saved, and what is
// saved is always a name the theme has. Main thread only.
class IconPickerModel
{
public:
    // Icons shown at once; a narrower search finds the rest.
    static constexpr size_t kShownLimit = 300;
    // Pictures are kept no larger than this, which is plenty for a menu bar at double density.
    static constexpr int kImageSide = 128;

    IconPickerModel(const kit::tools::IconList& icons, IconChoice choice);

    // Every category the icons are filed under, sorted.
    std::vector<std::string> categories() const;
    void setSearch(std::string text) { m_search = std::move(text); }
    // Nothing: every category.
    void setCategory(std::optional<std::string> category) { m_category = std::move(category); }
    // Names holding the search (ignoring case), those starting with it first, then icons whose
    // category holds it; at most kShownLimit.
    std::vector<kit::tools::IconEntry> matches() const;

    const IconChoice& choice() const { return m_choice; }
    // An icon by its listed name; saved as its symbolic or full-colour variant as the toggle says.
    void chooseSymbol(const std::string& name);
    // The listed name of the chosen theme icon, if one is chosen.
    std::optional<std::string> chosenSymbol() const;
    // The one-colour variant that takes the panel's colour (the default), or the full-colour one.
    bool symbolic() const { return m_symbolic; }
    void setSymbolic(bool symbolic);
    // Whether the theme has both variants of the chosen icon, so the toggle means something.
    bool chosenHasBothVariants() const;
    // The name a listed icon is saved under with the toggle as it stands.
    std::string savedName(const std::string& name) const;
    // Letters or an emoji, cut to the first three characters; empty text goes back to the
    // target's own icon. Answers the text kept.
    std::string chooseText(std::string_view text);
    // Nothing when the picture was taken, else the sentence saying why not.
    std::optional<std::string> chooseImage(const std::string& path);
    void useOwnIcon() { m_choice.icon.reset(); }
    void setTint(std::optional<kit::library::IconTint> tint) { m_choice.tint = std::move(tint); }
    // 0.1 to 1; fully opaque is left unset unless the shortcut had it set.
    void setOpacity(double opacity);
    // Emoji keep their own colours, so a tint means nothing to them.
    bool takesTint() const { return !m_choice.icon || m_choice.icon->takesColour(); }

private:
    struct Variants
    {
        bool full = false;
        bool symbolic = false;
    };

    std::vector<kit::tools::IconEntry> m_icons; // one per listed name, sorted
    std::map<std::string, Variants> m_variants;
    bool m_symbolic = true;
    IconChoice m_initial;
    IconChoice m_choice;
    std::string m_search;
    std::optional<std::string> m_category;
};

// The shortcut's icon as the tray draws it, in a square of `side` pixels on a bar of the
// appearance.
QImage menuBarPicture(const QtIconRenderer& renderer,
                      const kit::library::Shortcut& shortcut,
                      int side,
                      kit::menubar::Appearance appearance);

// A dialog choosing a shortcut's icon: a theme icon, letters or an emoji, or a picture, with tint
// and opacity, previewed at menu-bar size on a light and a dark bar. Main thread only; the
// renderer must outlive it.
class IconPicker : public QDialog
{
    Q_OBJECT

public:
    // Asks for a picture file; an empty string when cancelled. Tests replace the dialog.
    using ChooseImage = std::function<std::string(QWidget* parent)>;

    IconPicker(const QtIconRenderer& renderer,
               kit::library::Shortcut shortcut,
               const kit::tools::IconList& icons,
               QWidget* parent = nullptr,
               ChooseImage chooseImage = {},
               kit::menubar::Appearance panelLook = kit::menubar::Appearance::Light);

    const IconChoice& choice() const { return m_model.choice(); }
    IconPickerModel& model() { return m_model; }

    // For tests and screenshots.
    QLineEdit* searchField() const { return m_search; }
    QComboBox* categoryBox() const { return m_category; }
    QListWidget* iconList() const { return m_icons; }
    QLineEdit* textField() const { return m_text; }
    QTabWidget* tabs() const { return m_tabs; }
    QCheckBox* symbolicBox() const { return m_symbolic; }
    // The chosen icon as the tray draws it; 22 pixels is a usual menu-bar size.
    QImage previewImage(kit::menubar::Appearance appearance, int side = 22) const;

private:
    QWidget* makeSymbolsTab();
    QWidget* makeTextTab();
    QWidget* makePictureTab();
    void refill();
    void refresh();
    void pickImage();
    void pickColour();

    const QtIconRenderer& m_renderer;
    kit::menubar::Appearance m_panelLook;
    kit::library::Shortcut m_shortcut;
    IconPickerModel m_model;
    ChooseImage m_chooseImage;

    QTabWidget* m_tabs = nullptr;
    QLineEdit* m_search = nullptr;
    QComboBox* m_category = nullptr;
    QCheckBox* m_symbolic = nullptr;
    QListWidget* m_icons = nullptr;
    QLineEdit* m_text = nullptr;
    QLabel* m_imageMessage = nullptr;
    QComboBox* m_tint = nullptr;
    QPushButton* m_colour = nullptr;
    QSlider* m_opacity = nullptr;
    QLabel* m_opacityText = nullptr;
    QLabel* m_lightBar = nullptr;
    QLabel* m_darkBar = nullptr;
};

} // namespace desktop::editor
