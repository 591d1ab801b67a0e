// SPDX-License-Identifier: MIT
#include "desktop/editor/icon_picker.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "desktop_environment.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QImage>
#include <QLineEdit>
#include <QListWidget>

namespace desktop::editor {
namespace {

using kit::library::IconOverride;
using kit::library::IconTint;
using kit::library::Shortcut;
using kit::library::Target;
using kit::menubar::Appearance;
using kit::tools::IconEntry;

kit::tools::IconList themeIcons()
{
    return std::make_shared<const std::vector<IconEntry>>(std::vector<IconEntry>{
        {"document-open", "Actions"},
        {"folder", "Places"},
        {"folder-music", "Places"},
        {"mail-send", "Actions"},
        {"music-note", "Emblems"},
        {"user-home", "Places"},
    });
}

std::vector<std::string> names(const std::vector<IconEntry>& entries)
{
    std::vector<std::string> result;
    for (const auto& entry : entries) {
        result.push_back(entry.name);
    }
    return result;
}

TEST(IconPickerModel, SearchesNamesWithinACategory)
{
    IconPickerModel model(themeIcons(), {});
    EXPECT_EQ(model.categories(), (std::vector<std::string>{"Actions", "Emblems", "Places"}));

    model.setSearch("MUSIC");
    // Names starting with the search come before names merely holding it.
    EXPECT_EQ(names(model.matches()), (std::vector<std::string>{"music-note", "folder-music"}));
    model.setCategory("Places");
    EXPECT_EQ(names(model.matches()), (std::vector<std::string>{"folder-music"}));
    model.setSearch("");
    EXPECT_EQ(names(model.matches()),
              (std::vector<std::string>{"folder", "folder-music", "user-home"}));
    model.setCategory(std::nullopt);
    EXPECT_EQ(model.matches().size(), 6u);

    std::vector<IconEntry> many;
    for (size_t i = 0; i < IconPickerModel::kShownLimit + 50; ++i) {
        many.push_back({"edit-" + std::to_string(1000 + i), "Actions"});
    }
    IconPickerModel crowded(std::make_shared<const std::vector<IconEntry>>(many), {});
    EXPECT_EQ(crowded.matches().size(), IconPickerModel::kShownLimit);
}

TEST(IconPickerModel, EachIconIsListedOnceAndSavedUnderARealName)
{
    // As Adwaita files them: a legacy full-colour PNG, the symbolic SVG and GTK's pre-rendered
    // "<name>-symbolic.symbolic" PNG, which is no icon name.
    IconPickerModel model(std::make_shared<const std::vector<IconEntry>>(std::vector<IconEntry>{
                              {"mail-forward", "Legacy"},
                              {"mail-forward-symbolic", "Actions"},
                              {"mail-forward-symbolic.symbolic", "Actions"},
                              {"mail-forward-symbolic-rtl", "Actions"},
                              {"mail-forward-rtl-symbolic", "Actions"},
                              {"rss-symbolic", "Status"},
                              {"web-browser", "Applications"},
                          }),
                          {});
    EXPECT_EQ(names(model.matches()),
              (std::vector<std::string>{"mail-forward", "rss", "web-browser"}));
    struct Row
    {
        std::string listed;
        bool symbolic;
        std::string saved;
    };
    for (const auto& row : std::vector<Row>{{"mail-forward", true, "mail-forward-symbolic"},
                                            {"mail-forward", false, "mail-forward"},
                                            // Only one variant: that one, whatever the toggle.
                                            {"rss", false, "rss-symbolic"},
                                            {"web-browser", true, "web-browser"}}) {
        model.setSymbolic(row.symbolic);
        model.chooseSymbol(row.listed);
        EXPECT_EQ(model.choice().icon, IconOverride::symbol(row.saved)) << row.listed;
        EXPECT_EQ(model.chosenSymbol(), row.listed);
    }
    // The toggle changes the icon already chosen.
    model.chooseSymbol("mail-forward");
    model.setSymbolic(true);
    EXPECT_EQ(model.choice().icon, IconOverride::symbol("mail-forward-symbolic"));
    EXPECT_TRUE(model.chosenHasBothVariants());

    // A category's name finds its icons, after the names that hold the search.
    model.setSearch("applic");
    EXPECT_EQ(names(model.matches()), (std::vector<std::string>{"web-browser"}));

    // What an earlier picker saved is put right on opening.
    IconPickerModel earlier(
        std::make_shared<const std::vector<IconEntry>>(
            std::vector<IconEntry>{{"mail-forward", ""}, {"mail-forward-symbolic", ""}}),
        {IconOverride::symbol("mail-forward-symbolic.symbolic"), std::nullopt, std::nullopt});
    EXPECT_EQ(earlier.choice().icon, IconOverride::symbol("mail-forward-symbolic"));
    EXPECT_TRUE(earlier.symbolic());
}

TEST(IconPickerModel, TextKeepsThreeCharactersAsPeopleCountThem)
{
    IconPickerModel model(themeIcons(), {});
    EXPECT_EQ(model.chooseText(" ABCD "), "ABC");
    EXPECT_EQ(model.choice().icon, IconOverride::emoji("ABC"));
    // A skin-toned thumb and a flag are one character each, though several code points.
    const std::string thumbs = "\U0001F44D\U0001F3FD\U0001F1E9\U0001F1EA\U0001F680\U0001F680";
    EXPECT_EQ(model.chooseText(thumbs), "\U0001F44D\U0001F3FD\U0001F1E9\U0001F1EA\U0001F680");
    EXPECT_FALSE(model.takesTint());
    EXPECT_EQ(model.chooseText("  "), "");
    EXPECT_EQ(model.choice().icon, std::nullopt);
    EXPECT_TRUE(model.takesTint());
}

TEST(IconPickerModel, PicturesAreReadAndKeptSmall)
{
    testing_support::TempDir dir;
    IconPickerModel model(themeIcons(), {});
    const auto& red = testing::DesktopEnvironment::get().redIcon;
    EXPECT_EQ(model.chooseImage(red.string()), std::nullopt);
    ASSERT_TRUE(model.choice().icon);
    ASSERT_EQ(model.choice().icon->kind, IconOverride::Kind::Image);
    const auto& data = model.choice().icon->data;
    EXPECT_EQ(QImage::fromData(data.data(), static_cast<int>(data.size())).size(), QSize(32, 32));

    QImage large(1000, 500, QImage::Format_ARGB32);
    large.fill(Qt::blue);
    const auto largePath = dir.file("large.png");
    large.save(QString::fromStdString(largePath.string()));
    EXPECT_EQ(model.chooseImage(largePath.string()), std::nullopt);
    const auto& scaled = model.choice().icon->data;
    EXPECT_EQ(QImage::fromData(scaled.data(), static_cast<int>(scaled.size())).size(),
              QSize(IconPickerModel::kImageSide, IconPickerModel::kImageSide / 2));

    const auto text = dir.file("notes.txt");
    testing_support::writeFile(text, "not a picture");
    const auto before = model.choice();
    EXPECT_EQ(model.chooseImage(text.string()),
              "\u201cnotes.txt\u201d is not a picture that can be shown.");
    EXPECT_EQ(model.choice(), before);
}

TEST(IconPickerModel, FullOpacityIsLeftUnsetUnlessItWasSet)
{
    IconPickerModel fresh(themeIcons(), {});
    fresh.setOpacity(0.01);
    EXPECT_EQ(fresh.choice().opacity, 0.1);
    fresh.setOpacity(1.0);
    EXPECT_EQ(fresh.choice().opacity, std::nullopt);

    IconPickerModel set(themeIcons(), {std::nullopt, std::nullopt, 1.0});
    set.setOpacity(0.5);
    set.setOpacity(1.0);
    EXPECT_EQ(set.choice().opacity, 1.0);
}

class IconPickerTest : public ::testing::Test
{
protected:
    IconPickerTest()
        : m_shortcut(Shortcut::make("Home", Target::folder({{{}, "/home"}, std::nullopt})))
    {}

    QtIconRenderer m_renderer;
    Shortcut m_shortcut;
};

TEST_F(IconPickerTest, OpensReadyToSearchAndTheListAndFieldsFollowTheModel)
{
    m_shortcut.icon = IconOverride::symbol("user-home");
    IconPicker picker(m_renderer, m_shortcut, themeIcons());
    // Given the focus once the window is active.
    EXPECT_EQ(picker.focusWidget(), picker.searchField());
    ASSERT_EQ(picker.iconList()->count(), 6);
    EXPECT_EQ(picker.iconList()->currentItem()->text(), "user-home");
    picker.searchField()->setText("folder");
    EXPECT_EQ(picker.iconList()->count(), 2);
    picker.categoryBox()->setCurrentIndex(picker.categoryBox()->findText("Emblems"));
    picker.searchField()->clear();
    ASSERT_EQ(picker.iconList()->count(), 1);
    picker.iconList()->setCurrentRow(0);
    EXPECT_EQ(picker.choice().icon, IconOverride::symbol("music-note"));

    picker.textField()->setText("WXYZ");
    Q_EMIT picker.textField()->textEdited("WXYZ");
    EXPECT_EQ(picker.textField()->text(), "WXY");
    EXPECT_EQ(picker.choice().icon, IconOverride::emoji("WXY"));
}

TEST_F(IconPickerTest, ThePreviewIsTheTraysPictureOfTheChoice)
{
    IconPicker picker(m_renderer, m_shortcut, themeIcons());
    ASSERT_EQ(picker.model().chooseImage(testing::DesktopEnvironment::get().redIcon.string()),
              std::nullopt);
    picker.model().setTint(IconTint::colour("#0000FF"));
    picker.model().setOpacity(0.3);
    EXPECT_EQ(picker.previewImage(Appearance::Light).size(), QSize(22, 22));
    Shortcut worn = m_shortcut;
    worn.icon = picker.choice().icon;
    worn.iconTint = picker.choice().tint;
    worn.iconOpacity = picker.choice().opacity;
    for (const auto appearance : {Appearance::Light, Appearance::Dark}) {
        EXPECT_EQ(picker.previewImage(appearance),
                  menuBarPicture(m_renderer, worn, 22, appearance));
    }
}

} // namespace
} // namespace desktop::editor
