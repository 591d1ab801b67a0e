// SPDX-License-Identifier: MIT
#pragma once

#include "kit/settings/key_value_store.h"

#include <QSettings>

#include <functional>
#include <map>
#include <memory>

class QString;

namespace desktop {

// The person's settings in QSettings: by default the native file of organisation and application
// "Vantorel" (~/.config/Vantorel/Vantorel.conf). Main thread only. Each change is written through
// before returning; reload() picks up what another process wrote and tells observers of each key
// that changed. Text that reads as true/false or as a number comes back as that type after the
// file is read again, since the file keeps no types; the settings readers accept both.
class QSettingsStore final : public kit::settings::KeyValueStore
{
public:
    QSettingsStore();
    // An INI file at `file`, for tests and for a settings file chosen by hand.
    explicit QSettingsStore(const QString& file);

    std::optional<kit::settings::Value> value(const std::string& key) const override;
    void setValue(const std::string& key, kit::settings::Value value) override;
    void remove(const std::string& key) override;
    void reload() override;
    std::optional<std::string> error() const override { return m_error; }

    // Where the values are kept.
    QString fileName() const;

private:
    std::map<std::string, kit::settings::Value> readAll() const;
    void write();

    std::function<std::unique_ptr<QSettings>()> m_open;
    std::unique_ptr<QSettings> m_settings;
    // What observers were last told of, to find the keys another process changed.
    std::map<std::string, kit::settings::Value> m_known;
    std::optional<std::string> m_error;
};

// The stored form of a value and back: exposed for the tests.
QVariant toVariant(const kit::settings::Value& value);
std::optional<kit::settings::Value> fromVariant(const QVariant& variant);

} // namespace desktop
