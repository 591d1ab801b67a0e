// SPDX-License-Identifier: MIT
#include "desktop/tray/qt_icon_renderer.h"

#include "desktop/qt_text.h"
#include "kit/menubar/panel_look.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QFont>
#include <QFontMetricsF>
#include <QImageReader>
#include <QMimeDatabase>
#include <QPainter>
#include <QPainterPath>
#include <QStandardPaths>
#include <QStyle>

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace desktop {

using kit::menubar::Appearance;
using kit::menubar::AppIconImage;
using kit::menubar::Glyph;

namespace {

// Sizes tray hosts ask for: XEmbed hosts at their panel height, StatusNotifierItem hosts pick
// from what is offered.
constexpr std::array<int, 6> kTraySizes{16, 22, 24, 32, 48, 64};

const QColor kPlayingColour(0x30, 0xD1, 0x58);
const QColor kAlertColour(0xFF, 0x45, 0x3A);

std::optional<QColor> colour(const std::optional<std::string>& hex)
{
    if (!hex) {
        return std::nullopt;
    }
    QColor parsed = QColor::fromString(toQt(*hex));
    if (!parsed.isValid()) {
        return std::nullopt;
    }
    return parsed;
}

QImage blank(int side)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

// The picture scaled to fit the square, centred, keeping its proportions.
QImage fitted(const QImage& source, int side)
{
    QImage result = blank(side);
    if (source.isNull()) {
        return result;
    }
    const QImage scaled = source.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    QPainter painter(&result);
    painter.drawImage((side - scaled.width()) / 2, (side - scaled.height()) / 2, scaled);
    return result;
}

QImage fromIcon(const QIcon& icon, int side)
{
    if (icon.isNull()) {
        return {};
    }
    const QPixmap pixmap = icon.pixmap(QSize(side, side));
    if (pixmap.isNull()) {
        return {};
    }
    return fitted(pixmap.toImage(), side);
}

// Every visible pixel takes the colour; the shape stays.
void recolour(QImage& image, const QColor& colour)
{
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), colour);
}

bool hasVisiblePixel(const QImage& image)
{
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < argb.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x) {
            if (qAlpha(line[x]) > 0) {
                return true;
            }
        }
    }
    return false;
}

// Text as large as fits the square: one letter fills it, three share it.
QImage letters(const QString& text, int side, const QColor& colour)
{
    QImage image = blank(side);
    if (text.isEmpty()) {
        return image;
    }
    QFont font = QApplication::font();
    font.setBold(true);
    font.setPixelSize(std::max(1, side));
    QFontMetricsF metrics(font);
    QRectF bounds = metrics.tightBoundingRect(text);
    const double room = side * 0.9;
    if (bounds.width() > 0 && bounds.height() > 0) {
        const double scale = std::min(room / bounds.width(), room / bounds.height());
        font.setPixelSize(std::max(1, static_cast<int>(std::floor(side * std::min(scale, 1.0)))));
        metrics = QFontMetricsF(font);
        bounds = metrics.tightBoundingRect(text);
    }
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setFont(font);
    painter.setPen(colour);
    // Centre the ink, not the line box, so letters without descenders sit in the middle.
    const QPointF origin((side - bounds.width()) / 2 - bounds.left(),
                         (side - bounds.height()) / 2 - bounds.top());
    painter.drawText(origin, text);
    return image;
}

// A rounded square in the site's colour with white letters, laid on whole pixels so its edges
// stay sharp at panel sizes; on a dark panel a faint light rim keeps a dark square apart from it.
QImage
monogram(const kit::menubar::Monogram& mark, int side, const QColor& fill, Appearance appearance)
{
    QImage image = blank(side);
    const int inset = side >= 20 ? 1 : 0;
    const QRectF square(inset, inset, side - 2 * inset, side - 2 * inset);
    const double radius = square.width() * 0.22;
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        if (appearance == Appearance::Dark) {
            QColor rim(Qt::white);
            rim.setAlphaF(0.35);
            painter.setBrush(rim);
            painter.drawRoundedRect(square, radius, radius);
            painter.setBrush(fill);
            painter.drawRoundedRect(square.adjusted(1, 1, -1, -1), radius - 1, radius - 1);
        } else {
            painter.setBrush(fill);
            painter.drawRoundedRect(square, radius, radius);
        }
    }
    const QString text = toQt(mark.letters);
    const bool two = text.size() > 1 && !(text.size() == 2 && text.at(0).isHighSurrogate());
    const int room =
        std::max(1, static_cast<int>(std::lround(square.width() * (two ? 0.8 : 0.62))));
    const QImage ink = letters(text, room, Qt::white);
    QPainter painter(&image);
    painter.drawImage((side - room) / 2, (side - room) / 2, ink);
    return image;
}

QImage divider(int side, const QColor& colour)
{
    QImage image = blank(side);
    QPainter painter(&image);
    // Whole pixels: a line split across two would come out faint at small sizes.
    const int width = std::max(1, side / 12);
    const int height = static_cast<int>(std::lround(side * 0.7));
    painter.fillRect(QRect((side - width) / 2, (side - height) / 2, width, height), colour);
    return image;
}

// The last resort when no theme has an icon: a dashed ring, drawn as a template.
QImage dashedRing(int side)
{
    QImage image = blank(side);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(Qt::black, std::max(1.0, side / 10.0));
    pen.setDashPattern({1.6, 1.4});
    painter.setPen(pen);
    const double inset = side * 0.18;
    painter.drawEllipse(QRectF(inset, inset, side - 2 * inset, side - 2 * inset));
    return image;
}

QImage withOpacity(const QImage& image, double opacity)
{
    if (opacity >= 1.0) {
        return image;
    }
    QImage result = blank(image.width());
    QPainter painter(&result);
    painter.setOpacity(std::clamp(opacity, 0.0, 1.0));
    painter.drawImage(0, 0, image);
    return result;
}

// A number key's badge sits at the bottom; a page's count at the top, where people look for it.
void drawBadge(QImage& image, const QString& text, bool top, Appearance appearance)
{
    const int side = image.width();
    const double diameter = std::max(7.0, side * 0.6);
    // Longer counts ("12", "99+") stretch the badge into a pill, never past the icon.
    const double stretch = text.size() <= 1 ? 1.0 : (text.size() == 2 ? 1.25 : 1.6);
    const double width = std::min<double>(side, diameter * stretch);
    const QRectF circle(side - width, top ? 0 : side - diameter, width, diameter);
    // A count is news, in the red people know from unread badges, readable on either panel.
    const QColor fill = top ? QColor(0xd9, 0x2d, 0x20) : QtIconRenderer::foreground(appearance);
    const QColor ink =
        top || appearance != Appearance::Dark ? QColor(Qt::white) : QColor(Qt::black);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    // A ring in the ink colour keeps the badge apart from the picture under it.
    painter.setPen(QPen(ink, std::max(1.0, side / 24.0)));
    painter.setBrush(fill);
    painter.drawRoundedRect(
        circle.adjusted(0.5, 0.5, -0.5, -0.5), diameter / 2 - 0.5, diameter / 2 - 0.5);
    const QImage digits = letters(text, static_cast<int>(std::round(width * 0.72)), ink);
    painter.drawImage(QPointF(circle.center().x() - digits.width() / 2.0,
                              circle.center().y() - digits.height() / 2.0),
                      digits);
}

void drawPlaying(QImage& image, Appearance appearance)
{
    const int side = image.width();
    const double size = std::max(6.0, side * 0.45);
    const double left = side - size;
    QPainterPath triangle;
    triangle.moveTo(left + size * 0.12, size * 0.05);
    triangle.lineTo(left + size * 0.95, size * 0.5);
    triangle.lineTo(left + size * 0.12, size * 0.95);
    triangle.closeSubpath();
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor edge = appearance == Appearance::Dark ? QColor(Qt::black) : QColor(Qt::white);
    painter.setPen(QPen(edge, std::max(1.0, side / 24.0)));
    painter.setBrush(kPlayingColour);
    painter.drawPath(triangle);
}

void drawAlert(QImage& image)
{
    const int side = image.width();
    const double diameter = std::max(5.0, side * 0.38);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Qt::white, std::max(1.0, side / 32.0)));
    painter.setBrush(kAlertColour);
    painter.drawEllipse(
        QRectF(side - diameter, 0, diameter, diameter).adjusted(0.5, 0.5, -0.5, -0.5));
}

void drawGauge(QImage& image, const kit::menubar::StatusItemGauge& gauge, Appearance appearance)
{
    const int side = image.width();
    const int count = static_cast<int>(gauge.bars.size());
    const double width = std::max(2.0, side / 9.0);
    const double gap = std::max(1.0, side / 24.0);
    const double height = side * 0.8;
    const double top = (side - height) / 2;
    double left = side - count * width - (count - 1) * gap;
    QPainter painter(&image);
    QColor track = QtIconRenderer::foreground(appearance);
    track.setAlphaF(0.25);
    for (const auto& bar : gauge.bars) {
        const QColor fill = colour(appearance == Appearance::Dark ? bar.dark : bar.light)
                                .value_or(QtIconRenderer::foreground(appearance));
        const double filled = height * std::clamp(bar.fraction, 0.0, 1.0);
        painter.fillRect(QRectF(left, top, width, height), track);
        painter.fillRect(QRectF(left, top + height - filled, width, filled), fill);
        left += width + gap;
    }
}

QIcon fromGIcon(GIcon* icon)
{
    if (!icon) {
        return {};
    }
    if (G_IS_THEMED_ICON(icon)) {
        const gchar* const* names = g_themed_icon_get_names(G_THEMED_ICON(icon));
        for (; names && *names; ++names) {
            const QString name = QString::fromUtf8(*names);
            if (QIcon::hasThemeIcon(name)) {
                return QIcon::fromTheme(name);
            }
        }
        return {};
    }
    if (G_IS_FILE_ICON(icon)) {
        gchar* path = g_file_get_path(g_file_icon_get_file(G_FILE_ICON(icon)));
        QIcon result;
        if (path) {
            result = QIcon(QString::fromUtf8(path));
            g_free(path);
        }
        return result;
    }
    return {};
}

QIcon themeIcon(std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        if (QIcon::hasThemeIcon(QLatin1String(name))) {
            return QIcon::fromTheme(QLatin1String(name));
        }
    }
    return {};
}

// With no desktop session to name a theme (a bare X server, the offscreen platform) Qt knows no
// theme and may not even search the XDG icon folders, so no theme icon would be found.
void useInstalledTheme()
{
    QStringList paths = QIcon::themeSearchPaths();
    const QStringList installed = QStandardPaths::locateAll(QStandardPaths::GenericDataLocation,
                                                            QStringLiteral("icons"),
                                                            QStandardPaths::LocateDirectory);
    for (const QString& path : installed) {
        if (!paths.contains(path)) {
            paths << path;
        }
    }
    if (paths != QIcon::themeSearchPaths()) {
        QIcon::setThemeSearchPaths(paths);
    }
    const auto themeFolder = [&paths](const char* theme) {
        for (const QString& root : paths) {
            if (QFileInfo::exists(root + QLatin1Char('/') + QLatin1String(theme)
                                  + QLatin1String("/index.theme"))) {
                return true;
            }
        }
        return false;
    };
    for (const char* theme : {"Adwaita", "breeze", "gnome", "hicolor"}) {
        if (!themeFolder(theme)) {
            continue;
        }
        if (QIcon::themeName().isEmpty()) {
            QIcon::setThemeName(QLatin1String(theme));
        }
        const QString fallback = QIcon::fallbackThemeName();
        if (fallback.isEmpty() || fallback == QLatin1String("hicolor")) {
            QIcon::setFallbackThemeName(QLatin1String(theme));
        }
        return;
    }
}

// Once per process, before the first theme lookup; GUI thread only, like every icon lookup.
void ensureTheme()
{
    static bool done = false;
    if (!done) {
        done = true;
        useInstalledTheme();
    }
}

} // namespace

QIcon desktopEntryIcon(const std::string& desktopID)
{
    if (desktopID.empty()) {
        return {};
    }
    ensureTheme();
    std::string file = desktopID;
    if (!file.ends_with(".desktop")) {
        file += ".desktop";
    }
    GDesktopAppInfo* info = g_desktop_app_info_new(file.c_str());
    if (!info) {
        return {};
    }
    QIcon icon = fromGIcon(g_app_info_get_icon(G_APP_INFO(info)));
    g_object_unref(info);
    return icon;
}

QIcon fileIcon(const std::string& path)
{
    ensureTheme();
    QString full = toQt(path);
    if (full.startsWith(QLatin1String("~/")) || full == QLatin1String("~")) {
        full.replace(0, 1, QDir::homePath());
    }
    const QString clean = QDir::cleanPath(full);
    if (clean == QDir::cleanPath(QDir::homePath())) {
        return themeIcon({"user-home", "folder"});
    }
    if (clean
        == QDir::cleanPath(QStandardPaths::writableLocation(QStandardPaths::DesktopLocation))) {
        return themeIcon({"user-desktop", "folder"});
    }
    static const QMimeDatabase database;
    const QMimeType type = database.mimeTypeForFile(clean);
    if (type.inherits(QStringLiteral("inode/directory"))) {
        return themeIcon({"folder"});
    }
    for (const QString& name : {type.iconName(), type.genericIconName()}) {
        if (QIcon::hasThemeIcon(name)) {
            return QIcon::fromTheme(name);
        }
    }
    return themeIcon({"text-x-generic", "unknown"});
}

DrawingWarmUp::DrawingWarmUp()
    : m_thread([] {
        // Both are documented as safe off the main thread: plug-in loading and the font
        // database; text drawn into an image is how the latter gets filled.
        QImageReader::supportedImageFormats();
        QImage image = blank(32);
        QPainter painter(&image);
        QFont font = QGuiApplication::font();
        font.setBold(true);
        font.setPixelSize(22);
        painter.setFont(font);
        painter.drawText(QPointF(2, 24), QStringLiteral("Ag"));
    })
{}

DrawingWarmUp::~DrawingWarmUp()
{
    m_thread.join();
}

QtIconRenderer::QtIconRenderer(SiteIconSource siteIcons)
    : m_siteIcons(std::move(siteIcons))
{
    ensureTheme();
}

Glyph QtIconRenderer::glyph(const kit::library::Shortcut& shortcut, double pointSize) const
{
    return m_standard.glyph(shortcut, pointSize);
}

Glyph QtIconRenderer::playing(const Glyph& glyph, double pointSize) const
{
    return m_standard.playing(glyph, pointSize);
}

Glyph QtIconRenderer::numbered(const Glyph& glyph, int number, double pointSize) const
{
    return m_standard.numbered(glyph, number, pointSize);
}

QColor QtIconRenderer::foreground(Appearance appearance)
{
    const kit::menubar::Rgb ink = kit::menubar::templateForeground(appearance);
    return {ink.red, ink.green, ink.blue};
}

QImage QtIconRenderer::themed(const std::string& name, int side, bool& isTemplate) const
{
    if (name.empty()) {
        return {};
    }
    const QString base = toQt(name);
    QStringList candidates{base};
    // A plain name shows the theme's full-colour picture; a name the theme has only as a
    // symbolic shape falls back to that.
    if (!kit::menubar::isSymbolicName(name)) {
        candidates << base + QLatin1String("-symbolic");
    }
    for (const QString& candidate : candidates) {
        // One look-up rather than asking whether it exists first: each walks the theme's folders.
        const QIcon icon = QIcon::fromTheme(candidate);
        if (icon.isNull()) {
            continue;
        }
        QImage image = fromIcon(icon, side);
        if (!image.isNull() && hasVisiblePixel(image)) {
            isTemplate = candidate.endsWith(QLatin1String("-symbolic"));
            return image;
        }
    }
    return {};
}

QImage QtIconRenderer::fallback(Glyph::Source source, int side) const
{
    bool ignored = false;
    QStyle::StandardPixmap standard = QStyle::SP_FileIcon;
    QImage image;
    switch (source) {
    case Glyph::Source::AppIcon:
        image = themed("application-x-executable", side, ignored);
        standard = QStyle::SP_ComputerIcon;
        break;
    case Glyph::Source::SiteIcon:
        image = themed("text-html", side, ignored);
        standard = QStyle::SP_DriveNetIcon;
        break;
    case Glyph::Source::Picture:
        image = themed("image-x-generic", side, ignored);
        break;
    case Glyph::Source::FileIcon:
        image = themed("text-x-generic", side, ignored);
        break;
    case Glyph::Source::Symbol:
    case Glyph::Source::Letters:
    case Glyph::Source::Divider:
        return {};
    }
    if (image.isNull() && qApp) {
        image = fromIcon(QApplication::style()->standardIcon(standard), side);
    }
    return image;
}

QImage QtIconRenderer::picture(const Glyph& glyph, int side, bool& isTemplate) const
{
    isTemplate = false;
    QImage image;
    switch (glyph.source) {
    case Glyph::Source::Symbol:
        image = themed(glyph.name, side, isTemplate);
        break;
    case Glyph::Source::Letters:
    case Glyph::Source::Divider:
        // Drawn by the caller, in their final colour.
        return {};
    case Glyph::Source::Picture:
        if (!glyph.data.empty()) {
            image = fitted(QImage::fromData(glyph.data.data(), static_cast<int>(glyph.data.size())),
                           side);
        }
        break;
    case Glyph::Source::AppIcon:
        image = fromIcon(desktopEntryIcon(glyph.name), side);
        break;
    case Glyph::Source::FileIcon:
        image = fromIcon(fileIcon(glyph.name), side);
        break;
    case Glyph::Source::SiteIcon:
        if (auto site = siteIcon(glyph)) {
            image = fitted(*site, side);
        }
        break;
    }
    if (image.isNull() || !hasVisiblePixel(image)) {
        image = fallback(glyph.source, side);
        isTemplate = false;
    }
    if (image.isNull()) {
        image = dashedRing(side);
        isTemplate = true;
    }
    return image;
}

std::optional<QImage> QtIconRenderer::siteIcon(const Glyph& glyph) const
{
    if (!m_siteIcons) {
        return std::nullopt;
    }
    return m_siteIcons(glyph.name);
}

QImage QtIconRenderer::draw(const Glyph& glyph, int side, Appearance appearance) const
{
    side = std::max(side, 1);
    const auto tint = colour(glyph.tint);
    const QColor ink = tint.value_or(foreground(appearance));
    QImage image;
    if (glyph.source == Glyph::Source::Letters) {
        // Colour fonts keep their own colours, so emoji ignore the pen and letters take it.
        image = letters(toQt(glyph.name), side, ink);
    } else if (glyph.source == Glyph::Source::SiteIcon && glyph.monogram && !siteIcon(glyph)) {
        const QColor fill = tint.value_or(QColor::fromString(toQt(glyph.monogram->colour)));
        image =
            monogram(*glyph.monogram, side, fill.isValid() ? fill : QColor(Qt::gray), appearance);
    } else if (glyph.source == Glyph::Source::Divider) {
        QColor line = ink;
        line.setAlphaF(tint ? 1.0 : 0.7);
        image = divider(side, line);
    } else {
        bool isTemplate = false;
        image = picture(glyph, side, isTemplate);
        if (tint || isTemplate) {
            recolour(image, ink);
        }
    }
    image = withOpacity(image, glyph.opacity);
    if (glyph.playing) {
        drawPlaying(image, appearance);
    }
    if (glyph.number) {
        drawBadge(image, QString::number(*glyph.number), false, appearance);
    }
    if (glyph.count) {
        drawBadge(image, toQt(*glyph.count), true, appearance);
    }
    return image;
}

QImage QtIconRenderer::draw(const AppIconImage& image, int side) const
{
    side = std::max(side, 1);
    const Appearance appearance = image.dark ? Appearance::Dark : Appearance::Light;
    const bool hasGauge = image.gauge && !image.gauge->bars.empty();
    // With a gauge the symbol gives up the right part of the square to the bars.
    const int symbolSide =
        hasGauge ? std::max(1, side - static_cast<int>(image.gauge->bars.size()) * side / 7) : side;
    bool isTemplate = false;
    QImage symbol;
    if (image.imageName) {
        symbol = themed(*image.imageName, symbolSide, isTemplate);
    }
    if (symbol.isNull()) {
        symbol = themed(image.symbolName, symbolSide, isTemplate);
    }
    if (symbol.isNull()) {
        symbol = dashedRing(symbolSide);
        isTemplate = true;
    }
    if (isTemplate) {
        recolour(symbol, foreground(appearance));
    }
    QImage result = blank(side);
    {
        QPainter painter(&result);
        painter.drawImage(0, (side - symbolSide) / 2, symbol);
    }
    if (hasGauge) {
        drawGauge(result, *image.gauge, appearance);
    }
    if (image.alert) {
        drawAlert(result);
    }
    return result;
}

QIcon QtIconRenderer::icon(const Glyph& glyph, Appearance appearance) const
{
    QIcon icon;
    for (const int side : kTraySizes) {
        icon.addPixmap(QPixmap::fromImage(draw(glyph, side, appearance)));
    }
    return icon;
}

QIcon QtIconRenderer::icon(const AppIconImage& image) const
{
    QIcon icon;
    for (const int side : kTraySizes) {
        icon.addPixmap(QPixmap::fromImage(draw(image, side)));
    }
    return icon;
}

} // namespace desktop
