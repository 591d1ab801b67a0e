// SPDX-License-Identifier: MIT
#include "desktop/qsettings_store.h"

#include "desktop/qt_text.h"
#include "kit/support/log.h"

#include <QByteArray>
#include <QRegularExpression>
#include <QString>

#include <set>

namespace desktop {

using kit::settings::Value;

namespace {

constexpr kit::support::Logger kLog("settings");

const char* statusText(QSettings::Status status)
{
    switch (status) {
    case QSettings::NoError:
        return "no error";
    case QSettings::AccessError:
        return "cannot be written";
    case QSettings::FormatError:
        return "cannot be read";
    }
    return "unknown error";
}

std::string toStd(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    return {utf8.constData(), static_cast<size_t>(utf8.size())};
}

// The file holds text, so a value read back from it has lost its type: guess it from the text.
Value fromText(const QString& text)
{
    if (text == QLatin1String("true")) {
        return true;
    }
    if (text == QLatin1String("false")) {
        return false;
    }
    static const QRegularExpression kWhole(QStringLiteral("^-?[0-9]+$"));
    static const QRegularExpression kNumber(
        QStringLiteral("^-?([0-9]+\\.[0-9]*|\\.[0-9]+|[0-9]+)([eE][-+]?[0-9]+)?$"));
    bool ok = false;
    if (kWhole.match(text).hasMatch()) {
        const qlonglong whole = text.toLongLong(&ok);
        if (ok) {
            return static_cast<std::int64_t>(whole);
        }
    }
    if (kNumber.match(text).hasMatch()) {
        const double number = text.toDouble(&ok);
        if (ok) {
            return number;
        }
    }
    return toStd(text);
}

} // namespace

QVariant toVariant(const Value& value)
{
    return std::visit(
        [](const auto& v) -> QVariant {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) {
                return QVariant(v);
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                return QVariant(static_cast<qlonglong>(v));
            } else if constexpr (std::is_same_v<T, double>) {
                return QVariant(v);
            } else if constexpr (std::is_same_v<T, std::string>) {
                return QVariant(toQt(v));
            } else {
                return QVariant(QByteArray(reinterpret_cast<const char*>(v.data()),
                                           static_cast<qsizetype>(v.size())));
            }
        },
        value);
}

std::optional<Value> fromVariant(const QVariant& variant)
{
    switch (variant.metaType().id()) {
    case QMetaType::Bool:
        return variant.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return static_cast<std::int64_t>(variant.toLongLong());
    case QMetaType::Float:
    case QMetaType::Double:
        return variant.toDouble();
    case QMetaType::QByteArray: {
        const QByteArray bytes = variant.toByteArray();
        return kit::support::Bytes(bytes.begin(), bytes.end());
    }
    case QMetaType::QString:
        return fromText(variant.toString());
    default:
        // Lists, rectangles and the like were written by hand or by another program.
        return std::nullopt;
    }
}

QSettingsStore::QSettingsStore()
    : m_open([] {
        return std::make_unique<QSettings>(QSettings::NativeFormat,
                                           QSettings::UserScope,
                                           QStringLiteral("Vantorel"),
                                           QStringLiteral("Vantorel"));
    })
    , m_settings(m_open())
{
    m_known = readAll();
}

QSettingsStore::QSettingsStore(const QString& file)
    : m_open([file] { return std::make_unique<QSettings>(file, QSettings::IniFormat); })
    , m_settings(m_open())
{
    m_known = readAll();
}

QString QSettingsStore::fileName() const
{
    return m_settings->fileName();
}

std::optional<Value> QSettingsStore::value(const std::string& key) const
{
    const QVariant stored = m_settings->value(toQt(key));
    if (!stored.isValid()) {
        return std::nullopt;
    }
    return fromVariant(stored);
}

void QSettingsStore::setValue(const std::string& key, Value value)
{
    if (this->value(key) == value) {
        return;
    }
    m_settings->setValue(toQt(key), toVariant(value));
    m_known[key] = std::move(value);
    write();
    notify(key);
}

void QSettingsStore::remove(const std::string& key)
{
    if (!m_settings->contains(toQt(key))) {
        return;
    }
    m_settings->remove(toQt(key));
    m_known.erase(key);
    write();
    notify(key);
}

void QSettingsStore::reload()
{
    m_settings->sync();
    auto now = readAll();
    std::set<std::string> changed;
    for (const auto& [key, value] : m_known) {
        const auto found = now.find(key);
        if (found == now.end() || found->second != value) {
            changed.insert(key);
        }
    }
    for (const auto& [key, value] : now) {
        if (!m_known.contains(key)) {
            changed.insert(key);
        }
    }
    m_known = std::move(now);
    for (const auto& key : changed) {
        notify(key);
    }
}

std::map<std::string, Value> QSettingsStore::readAll() const
{
    std::map<std::string, Value> values;
    const QStringList keys = m_settings->allKeys();
    for (const QString& key : keys) {
        if (auto value = fromVariant(m_settings->value(key))) {
            values.emplace(toStd(key), std::move(*value));
        }
    }
    return values;
}

void QSettingsStore::write()
{
    if (m_settings->status() != QSettings::NoError) {
        // QSettings keeps its first error for good, so no later change could succeed: a fresh
        // object carrying the values not yet saved tries again.
        auto fresh = m_open();
        for (const QString& key : fresh->allKeys()) {
            if (!m_known.contains(toStd(key))) {
                fresh->remove(key);
            }
        }
        for (const auto& [key, value] : m_known) {
            fresh->setValue(toQt(key), toVariant(value));
        }
        m_settings = std::move(fresh);
    }
    m_settings->sync();
    if (m_settings->status() == QSettings::NoError) {
        m_error.reset();
        return;
    }
    kLog.error("the settings file " + toStd(m_settings->fileName()) + " "
               + statusText(m_settings->status()));
    m_error = "Your settings could not be saved to \u201C" + toStd(m_settings->fileName())
              + "\u201D; changes last only until Vantorel quits.";
}

} // namespace desktop
