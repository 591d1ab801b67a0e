// SPDX-License-Identifier: MIT
#include "desktop/editor/icon_picker.h"

#include "desktop/qt_text.h"
#include "desktop/tray/qt_icon_renderer.h"

#include <QBuffer>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
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
// Wide enough for most theme names beside their icon, two or three to a row.
constexpr int kCellWidth = 250;
constexpr const char* kDefaultTint = "#0090FF";

} // namespace

IconPickerModel::IconPickerModel(kit::tools::IconList icons, IconChoice choice)
    : m_icons(std::move(icons))
    , m_initial(choice)
    , m_choice(std::move(choice))
{}

std::vector<std::string> IconPickerModel::categories() const
{
    std::set<std::string> found;
    if (m_icons) {
        for (const auto& entry : *m_icons) {
            if (!entry.category.empty()) {
                found.insert(entry.category);
            }
        }
    }
    return {found.begin(), found.end()};
}

std::vector<kit::tools::IconEntry> IconPickerModel::matches() const
{
    std::vector<kit::tools::IconEntry> starting;
    std::vector<kit::tools::IconEntry> holding;
    if (!m_icons) {
        return starting;
    }
    const std::string search = lowered(m_search);
    for (const auto& entry : *m_icons) {
        if (m_category && entry.category != *m_category) {
            continue;
        }
        const auto at = lowered(entry.name).find(search);
        if (at == 0) {
            starting.push_back(entry);
        } else if (at != std::string::npos) {
            holding.push_back(entry);
        }
    }
    starting.insert(starting.end(), holding.begin(), holding.end());
    if (starting.size() > kShownLimit) {
        starting.resize(kShownLimit);
    }
    return starting;
}

void IconPickerModel::chooseSymbol(std::string name)
{
    m_choice.icon = IconOverride::symbol(std::move(name));
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
    const std::string kept = whole.left(end).toStdString();
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
                       kit::tools::IconList icons,
                       QWidget* parent,
                       ChooseImage chooseImage)
    : QDialog(parent)
    , m_renderer(renderer)
    , m_shortcut(std::move(shortcut))
    , m_model(std::move(icons),
              IconChoice{m_shortcut.icon, m_shortcut.iconTint, m_shortcut.iconOpacity})
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
    preview->addWidget(m_lightBar);
    preview->addWidget(m_darkBar);
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

    m_icons = new QListWidget;
    m_icons->setViewMode(QListView::ListMode);
    m_icons->setFlow(QListView::LeftToRight);
    m_icons->setWrapping(true);
    m_icons->setResizeMode(QListView::Adjust);
    m_icons->setUniformItemSizes(true);
    m_icons->setGridSize(QSize(kCellWidth, 30));
    // Names differ at their ends ("mail-reply-all", "mail-reply-sender").
    m_icons->setTextElideMode(Qt::ElideMiddle);
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
            m_model.chooseSymbol(item->text().toStdString());
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
    form->addRow(label, m_text);
    auto* hint =
        new QLabel(tr("Up to three letters, or an emoji. They are drawn in the menu bar's own "
                      "colours, so a tint does not apply to them."));
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
    const auto& icon = m_model.choice().icon;
    for (const auto& entry : m_model.matches()) {
        const QString name = toQt(entry.name);
        auto* item = new QListWidgetItem(QIcon::fromTheme(name), name, m_icons);
        item->setSizeHint(QSize(kCellWidth - 6, 28));
        item->setToolTip(entry.category.empty() ? name : name + " — " + toQt(entry.category));
        if (icon && icon->kind == IconOverride::Kind::Symbol && icon->text == entry.name) {
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
