// SPDX-License-Identifier: MIT
#include "desktop/editor/icon_picker.h"

#include "desktop/qt_text.h"
#include "desktop/tray/qt_icon_renderer.h"

#include <QBuffer>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontMetrics>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <QTabWidget>
#include <QTextBoundaryFinder>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <set>

namespace desktop::editor {

using kit::library::IconOverride;
using kit::library::IconTint;
using kit::menubar::Appearance;
using kit::menubar::Glyph;

namespace {

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return static_cast<char>(std::tolower(c));
    });
    return text;
}

constexpr int kBarSide = 22;
// Two to a row; a name longer than this is elided in its middle, where names differ least.
constexpr int kCellWidth = 250;
constexpr int kWidestCell = 340;
// Emoji people put on a bar most, a click away.
constexpr const char* kCommonEmoji[] = {"⭐", "❤️", "🔥", "✅", "📌",    "📁", "📧", "💬",
                                        "📅", "🎵",      "🎬", "📷", "🛒", "💼", "🏠", "🚀",
                                        "📰", "📚",      "💡", "🔧", "🌐",    "🎮", "☕", "🐙"};
constexpr const char* kDefaultTint = "#0090FF";

} // namespace

IconPickerModel::IconPickerModel(const kit::tools::IconList& icons, IconChoice choice)
    : m_initial(choice)
    , m_choice(std::move(choice))
{
    if (icons) {
        std::map<std::string, std::string> categories;
        for (const auto& entry : *icons) {
            // Right-to-left variants ("x-symbolic-rtl", "x-rtl-symbolic") are the theme
            // lookup's to pick, never a name to save.
            const std::string base = kit::menubar::baseIconName(entry.name);
            if (base.ends_with("-rtl") || base.ends_with("-symbolic-rtl")) {
                continue;
            }
            // GTK's pre-rendered "<name>-symbolic.symbolic" PNGs repeat the SVG: no name of
            // their own.
            if (entry.name.ends_with(".symbolic") || kit::menubar::isSymbolicName(entry.name)) {
                m_variants[base].symbolic = true;
            } else {
                m_variants[base].full = true;
            }
            auto& category = categories[base];
            if (category.empty()) {
                category = entry.category;
            }
        }
        for (auto& [name, category] : categories) {
            m_icons.push_back({name, std::move(category)});
        }
    }
    if (m_choice.icon && m_choice.icon->kind == IconOverride::Kind::Symbol) {
        const std::string& saved = m_choice.icon->text;
        m_symbolic = !m_variants.contains(saved) || kit::menubar::isSymbolicName(saved)
                     || saved.ends_with(".symbolic") || !m_variants.at(saved).full;
        // Earlier pickers saved a pre-rendered file's stem, which is no icon name.
        if (saved.ends_with(".symbolic")) {
            chooseSymbol(kit::menubar::baseIconName(saved));
        }
    }
}

std::vector<std::string> IconPickerModel::categories() const
{
    std::set<std::string> found;
    for (const auto& entry : m_icons) {
        if (!entry.category.empty()) {
            found.insert(entry.category);
        }
    }
    return {found.begin(), found.end()};
}

std::vector<kit::tools::IconEntry> IconPickerModel::matches() const
{
    std::vector<kit::tools::IconEntry> starting;
    std::vector<kit::tools::IconEntry> holding;
    std::vector<kit::tools::IconEntry> filed;
    const std::string search = lowered(m_search);
    for (const auto& entry : m_icons) {
        if (m_category && entry.category != *m_category) {
            continue;
        }
        const auto at = lowered(entry.name).find(search);
        if (at == 0) {
            starting.push_back(entry);
        } else if (at != std::string::npos) {
            holding.push_back(entry);
        } else if (lowered(entry.category).find(search) != std::string::npos) {
            filed.push_back(entry);
        }
    }
    starting.insert(starting.end(), holding.begin(), holding.end());
    starting.insert(starting.end(), filed.begin(), filed.end());
    if (starting.size() > kShownLimit) {
        starting.resize(kShownLimit);
    }
    return starting;
}

std::string IconPickerModel::savedName(const std::string& name) const
{
    const auto found = m_variants.find(name);
    const Variants variants = found == m_variants.end() ? Variants{true, false} : found->second;
    const bool symbolic = variants.symbolic && (m_symbolic || !variants.full);
    return symbolic ? name + "-symbolic" : name;
}

void IconPickerModel::chooseSymbol(const std::string& name)
{
    m_choice.icon = IconOverride::symbol(savedName(name));
}

std::optional<std::string> IconPickerModel::chosenSymbol() const
{
    if (!m_choice.icon || m_choice.icon->kind != IconOverride::Kind::Symbol) {
        return std::nullopt;
    }
    return kit::menubar::baseIconName(m_choice.icon->text);
}

void IconPickerModel::setSymbolic(bool symbolic)
{
    m_symbolic = symbolic;
    if (const auto chosen = chosenSymbol()) {
        chooseSymbol(*chosen);
    }
}

bool IconPickerModel::chosenHasBothVariants() const
{
    const auto chosen = chosenSymbol();
    const auto found = chosen ? m_variants.find(*chosen) : m_variants.end();
    return found != m_variants.end() && found->second.full && found->second.symbolic;
}

std::string IconPickerModel::chooseText(std::string_view text)
{
    QString whole = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).trimmed();
    // Characters as a person counts them: a flag or a skin-toned emoji is one.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, whole);
    qsizetype end = 0;
    for (size_t count = 0; count < IconOverride::kTextLimit; ++count) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0) {
            break;
        }
        end = next;
    }
    std::string kept = whole.left(end).toStdString();
    if (kept.empty()) {
        m_choice.icon.reset();
    } else {
        m_choice.icon = IconOverride::emoji(kept);
    }
    return kept;
}

std::optional<std::string> IconPickerModel::chooseImage(const std::string& path)
{
    QImageReader reader(toQt(path));
    reader.setAutoTransform(true);
    QImage image = reader.read();
    const std::string name = QFileInfo(toQt(path)).fileName().toStdString();
    if (image.isNull()) {
        return "\u201c" + name + "\u201d is not a picture that can be shown.";
    }
    if (image.width() > kImageSide || image.height() > kImageSide) {
        image = image.scaled(kImageSide, kImageSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    m_choice.icon = IconOverride::image(kit::library::Bytes(bytes.begin(), bytes.end()));
    return std::nullopt;
}

void IconPickerModel::setOpacity(double opacity)
{
    opacity = std::clamp(opacity, 0.1, 1.0);
    if (opacity >= 1.0 && !m_initial.opacity) {
        m_choice.opacity.reset();
    } else {
        m_choice.opacity = opacity;
    }
}

QImage menuBarPicture(const QtIconRenderer& renderer,
                      const kit::library::Shortcut& shortcut,
                      int side,
                      Appearance appearance)
{
    Glyph glyph = renderer.glyph(shortcut, side);
    if (glyph.kind == Glyph::Kind::Text) {
        // The tray shows text glyphs as plain letters, as TrayStatusBar::redraw does.
        Glyph letters;
        letters.source = Glyph::Source::Letters;
        letters.name = glyph.name;
        glyph = letters;
    }
    return renderer.draw(glyph, side, appearance);
}

IconPicker::IconPicker(const QtIconRenderer& renderer,
                       kit::library::Shortcut shortcut,
                       const kit::tools::IconList& icons,
                       QWidget* parent,
                       ChooseImage chooseImage,
                       Appearance panelLook)
    : QDialog(parent)
    , m_renderer(renderer)
    , m_panelLook(panelLook)
    , m_shortcut(std::move(shortcut))
    , m_model(icons, IconChoice{m_shortcut.icon, m_shortcut.iconTint, m_shortcut.iconOpacity})
    , m_chooseImage(std::move(chooseImage))
{
    setWindowTitle(tr("Choose an Icon"));
    if (!m_chooseImage) {
        m_chooseImage = [](QWidget* owner) {
            return QFileDialog::getOpenFileName(owner,
                                                tr("Choose a Picture"),
                                                QString(),
                                                tr("Pictures (*.png *.svg *.jpg *.jpeg *.gif "
                                                   "*.bmp *.webp *.ico)"))
                .toStdString();
        };
    }

    auto* preview = new QHBoxLayout;
    m_lightBar = new QLabel;
    m_darkBar = new QLabel;
    m_lightBar->setAccessibleName(tr("Preview on a light menu bar"));
    m_darkBar->setAccessibleName(tr("Preview on a dark menu bar"));
    preview->addWidget(new QLabel(tr("Preview:")));
    // The panel the icons sit on now comes first; the other look is for when it changes.
    QLabel* first = m_panelLook == Appearance::Dark ? m_darkBar : m_lightBar;
    QLabel* second = first == m_darkBar ? m_lightBar : m_darkBar;
    first->setToolTip(tr("Your panel"));
    preview->addWidget(first);
    preview->addWidget(second);
    preview->addStretch();

    m_tabs = new QTabWidget;
    m_tabs->addTab(makeSymbolsTab(), tr("&Icons"));
    m_tabs->addTab(makeTextTab(), tr("&Letters or Emoji"));
    m_tabs->addTab(makePictureTab(), tr("&Picture"));

    auto* look = new QFormLayout;
    auto* tintRow = new QHBoxLayout;
    m_tint = new QComboBox;
    m_tint->addItems({tr("Own colours"), tr("Monochrome"), tr("Colour")});
    m_colour = new QPushButton(tr("C&hoose Colour…"));
    tintRow->addWidget(m_tint);
    tintRow->addWidget(m_colour);
    tintRow->addStretch();
    auto* tintLabel = new QLabel(tr("&Tint:"));
    tintLabel->setBuddy(m_tint);
    look->addRow(tintLabel, tintRow);

    auto* opacityRow = new QHBoxLayout;
    m_opacity = new QSlider(Qt::Horizontal);
    m_opacity->setRange(10, 100);
    m_opacity->setSingleStep(5);
    m_opacity->setPageStep(10);
    m_opacityText = new QLabel;
    m_opacityText->setMinimumWidth(m_opacityText->fontMetrics().horizontalAdvance("100%"));
    opacityRow->addWidget(m_opacity);
    opacityRow->addWidget(m_opacityText);
    auto* opacityLabel = new QLabel(tr("&Opacity:"));
    opacityLabel->setBuddy(m_opacity);
    look->addRow(opacityLabel, opacityRow);

    const auto& choice = m_model.choice();
    m_tint->setCurrentIndex(!choice.tint ? 0 : choice.tint->kind == IconTint::Kind::Colour ? 2 : 1);
    m_opacity->setValue(static_cast<int>(std::lround(choice.opacity.value_or(1.0) * 100)));

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    auto* ownIcon = buttons->addButton(tr("&Use Own Icon"), QDialogButtonBox::ResetRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(ownIcon, &QPushButton::clicked, this, [this] {
        m_model.useOwnIcon();
        m_text->clear();
        m_icons->clearSelection();
        refresh();
    });

    connect(m_tint, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index == 0) {
            m_model.setTint(std::nullopt);
        } else if (index == 1) {
            m_model.setTint(IconTint::monochrome());
        } else {
            const auto& tint = m_model.choice().tint;
            m_model.setTint(IconTint::colour(tint && tint->hex() ? *tint->hex() : kDefaultTint));
        }
        refresh();
    });
    connect(m_colour, &QPushButton::clicked, this, &IconPicker::pickColour);
    connect(m_opacity, &QSlider::valueChanged, this, [this](int value) {
        m_model.setOpacity(value / 100.0);
        refresh();
    });

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(preview);
    layout->addWidget(m_tabs, 1);
    layout->addLayout(look);
    layout->addWidget(buttons);

    if (choice.icon && choice.icon->kind == IconOverride::Kind::Emoji) {
        m_text->setText(toQt(choice.icon->text));
        m_tabs->setCurrentIndex(1);
    } else if (choice.icon && choice.icon->kind == IconOverride::Kind::Image) {
        m_tabs->setCurrentIndex(2);
    }
    refill();
    refresh();
    resize(2 * kCellWidth + 100, 540);
    // Typing is how most people look for an icon.
    (m_tabs->currentIndex() == 1 ? m_text : m_search)->setFocus(Qt::OtherFocusReason);
}

QWidget* IconPicker::makeSymbolsTab()
{
    auto* tab = new QWidget;
    auto* filters = new QFormLayout;
    m_search = new QLineEdit;
    m_search->setPlaceholderText(tr("folder, mail, star…"));
    m_search->setClearButtonEnabled(true);
    auto* searchLabel = new QLabel(tr("&Search:"));
    searchLabel->setBuddy(m_search);
    filters->addRow(searchLabel, m_search);
    m_category = new QComboBox;
    m_category->addItem(tr("All categories"));
    for (const auto& category : m_model.categories()) {
        m_category->addItem(toQt(category), toQt(category));
    }
    auto* categoryLabel = new QLabel(tr("C&ategory:"));
    categoryLabel->setBuddy(m_category);
    filters->addRow(categoryLabel, m_category);
    m_symbolic = new QCheckBox(tr("S&ymbolic: one colour, the panel's own"));
    m_symbolic->setChecked(m_model.symbolic());
    m_symbolic->setToolTip(tr("Off: the icon in its own colours, where the theme has them"));
    filters->addRow(QString(), m_symbolic);
    connect(m_symbolic, &QCheckBox::toggled, this, [this](bool on) {
        m_model.setSymbolic(on);
        refill();
        refresh();
    });

    m_icons = new QListWidget;
    m_icons->setViewMode(QListView::ListMode);
    m_icons->setFlow(QListView::LeftToRight);
    m_icons->setWrapping(true);
    m_icons->setResizeMode(QListView::Adjust);
    m_icons->setUniformItemSizes(true);
    m_icons->setGridSize(QSize(kCellWidth, 30));
    // Names differ at their ends ("mail-reply-all", "mail-reply-sender").
    m_icons->setTextElideMode(Qt::ElideMiddle);
    m_icons->setWordWrap(false);
    m_icons->setIconSize(QSize(kBarSide, kBarSide));
    m_icons->setAccessibleName(tr("Icons"));

    connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
        m_model.setSearch(text.trimmed().toStdString());
        refill();
    });
    connect(m_category, &QComboBox::currentIndexChanged, this, [this](int index) {
        m_model.setCategory(
            index <= 0 ? std::nullopt
                       : std::optional(m_category->itemData(index).toString().toStdString()));
        refill();
    });
    connect(m_icons, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item) {
            m_model.chooseSymbol(item->data(Qt::UserRole).toString().toStdString());
            refresh();
        }
    });
    connect(m_icons, &QListWidget::itemActivated, this, &QDialog::accept);

    auto* layout = new QVBoxLayout(tab);
    layout->addLayout(filters);
    layout->addWidget(m_icons, 1);
    return tab;
}

QWidget* IconPicker::makeTextTab()
{
    auto* tab = new QWidget;
    auto* form = new QFormLayout(tab);
    m_text = new QLineEdit;
    m_text->setPlaceholderText(tr("AB, ★ or 🚀"));
    auto* label = new QLabel(tr("Te&xt:"));
    label->setBuddy(m_text);
    auto* row = new QHBoxLayout;
    row->addWidget(m_text, 1, Qt::AlignTop);
    auto* grid = new QGridLayout;
    grid->setSpacing(2);
    int index = 0;
    for (const char* emoji : kCommonEmoji) {
        auto* button = new QToolButton;
        const QString text = QString::fromUtf8(emoji);
        button->setText(text);
        button->setAutoRaise(true);
        button->setAccessibleName(text);
        connect(button, &QToolButton::clicked, this, [this, text] {
            m_text->setText(toQt(m_model.chooseText(text.toStdString())));
            refresh();
        });
        grid->addWidget(button, index / 8, index % 8);
        ++index;
    }
    row->addLayout(grid);
    form->addRow(label, row);
    auto* hint =
        new QLabel(tr("Up to three letters, or an emoji: type them or pick one. Letters take the "
                      "panel's colour; emoji keep their own, so a tint does not apply to them."));
    hint->setWordWrap(true);
    form->addRow(QString(), hint);
    connect(m_text, &QLineEdit::textEdited, this, [this](const QString& text) {
        const QString kept = toQt(m_model.chooseText(text.toStdString()));
        if (kept != text.trimmed()) {
            m_text->setText(kept);
        }
        refresh();
    });
    return tab;
}

QWidget* IconPicker::makePictureTab()
{
    auto* tab = new QWidget;
    auto* layout = new QVBoxLayout(tab);
    auto* choose = new QPushButton(tr("Choose a &File…"));
    m_imageMessage = new QLabel;
    m_imageMessage->setWordWrap(true);
    auto* hint = new QLabel(tr("A picture with transparent parts looks best; it takes the tint "
                               "when one is chosen."));
    hint->setWordWrap(true);
    layout->addWidget(choose, 0, Qt::AlignLeft);
    layout->addWidget(hint);
    layout->addWidget(m_imageMessage);
    layout->addStretch();
    connect(choose, &QPushButton::clicked, this, &IconPicker::pickImage);
    return tab;
}

void IconPicker::pickImage()
{
    const std::string path = m_chooseImage(this);
    if (path.empty()) {
        return;
    }
    const auto problem = m_model.chooseImage(path);
    m_imageMessage->setText(problem ? toQt(*problem) : QString());
    refresh();
}

void IconPicker::pickColour()
{
    const auto& tint = m_model.choice().tint;
    const QColor start(toQt(tint && tint->hex() ? *tint->hex() : kDefaultTint));
    const QColor chosen = QColorDialog::getColor(start, this, tr("Tint"));
    if (!chosen.isValid()) {
        return;
    }
    m_model.setTint(IconTint::colour(chosen.name(QColor::HexRgb).toUpper().toStdString()));
    const QSignalBlocker blocker(m_tint);
    m_tint->setCurrentIndex(2);
    refresh();
}

void IconPicker::refill()
{
    const QSignalBlocker blocker(m_icons);
    m_icons->clear();
    const auto chosen = m_model.chosenSymbol();
    const auto found = m_model.matches();
    // As wide as the longest name needs, so names show whole; only the very longest are elided.
    const QFontMetrics metrics(m_icons->font());
    int widest = 0;
    for (const auto& entry : found) {
        widest = std::max(widest, metrics.horizontalAdvance(toQt(entry.name)));
    }
    const int cell = std::clamp(widest + kBarSide + 24, kCellWidth, kWidestCell);
    m_icons->setGridSize(QSize(cell, 30));
    for (const auto& entry : found) {
        const QString name = toQt(entry.name);
        // The variant the toggle would save, so the list shows what the tray will.
        auto* item = new QListWidgetItem(
            QIcon::fromTheme(toQt(m_model.savedName(entry.name))), name, m_icons);
        item->setData(Qt::UserRole, name);
        item->setSizeHint(QSize(cell - 6, 28));
        item->setToolTip(entry.category.empty() ? name : name + " — " + toQt(entry.category));
        if (chosen == entry.name) {
            m_icons->setCurrentItem(item);
        }
    }
}

QImage IconPicker::previewImage(Appearance appearance, int side) const
{
    kit::library::Shortcut shortcut = m_shortcut;
    const auto& choice = m_model.choice();
    shortcut.icon = choice.icon;
    shortcut.iconTint = choice.tint;
    shortcut.iconOpacity = choice.opacity;
    return menuBarPicture(m_renderer, shortcut, side, appearance);
}

void IconPicker::refresh()
{
    // A strip of bar behind the icon, so tint and opacity are judged against what they sit on.
    auto strip = [this](Appearance appearance) {
        // Drawn at the screen's density, as the tray host asks for it.
        const qreal ratio = devicePixelRatioF();
        const int side = static_cast<int>(std::lround(kBarSide * ratio));
        QImage image(
            side * 3, static_cast<int>(std::lround((kBarSide + 8) * ratio)), QImage::Format_ARGB32);
        image.fill(appearance == Appearance::Dark ? QColor(0x2b, 0x2b, 0x2b)
                                                  : QColor(0xec, 0xec, 0xec));
        QPainter painter(&image);
        painter.drawImage(QPoint(side, static_cast<int>(std::lround(4 * ratio))),
                          previewImage(appearance, side));
        painter.end();
        QPixmap pixmap = QPixmap::fromImage(image);
        pixmap.setDevicePixelRatio(ratio);
        return pixmap;
    };
    m_lightBar->setPixmap(strip(Appearance::Light));
    m_darkBar->setPixmap(strip(Appearance::Dark));

    m_symbolic->setEnabled(!m_model.chosenSymbol() || m_model.chosenHasBothVariants());
    const bool tintable = m_model.takesTint();
    m_tint->setEnabled(tintable);
    m_colour->setEnabled(tintable && m_tint->currentIndex() == 2);
    const auto& tint = m_model.choice().tint;
    if (tint && tint->hex()) {
        QPixmap swatch(12, 12);
        swatch.fill(QColor(toQt(*tint->hex())));
        m_colour->setIcon(QIcon(swatch));
    } else {
        m_colour->setIcon(QIcon());
    }
    m_opacityText->setText(QString::number(m_opacity->value()) + "%");
}

} // namespace desktop::editor
