// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/base64.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kit::settings {

// One stored setting: a boolean, a whole number, a number, text or bytes.
using Value = std::variant<bool, std::int64_t, double, std::string, support::Bytes>;

// Where the person's settings live, key by key. Main thread only. Observers hear of every key
// whose value changed, whether through this object or (after reload) through another process;
// writing a key's current value again tells nobody.
class KeyValueStore
{
public:
    using Observer = std::function<void(const std::string& key)>;

    virtual ~KeyValueStore() = default;

    virtual std::optional<Value> value(const std::string& key) const = 0;
    virtual void setValue(const std::string& key, Value value) = 0;
    virtual void remove(const std::string& key) = 0;
    // Picks up changes made elsewhere; a store that nobody else writes has none.
    virtual void reload() {}

    size_t observe(Observer observer);
    void removeObserver(size_t token);

protected:
    void notify(const std::string& key) const;

private:
    std::vector<std::pair<size_t, Observer>> m_observers;
    size_t m_nextObserver = 1;
};

// Keeps the values in memory only: for the headless app and the tests.
class MemoryKeyValueStore : public KeyValueStore
{
public:
    std::optional<Value> value(const std::string& key) const override;
    void setValue(const std::string& key, Value value) override;
    void remove(const std::string& key) override;

protected:
    // Replaces every value, telling observers of each key that changed.
    void replaceAll(std::map<std::string, Value> values);
    const std::map<std::string, Value>& values() const { return m_values; }

private:
    std::map<std::string, Value> m_values;
};

// Keeps the values in a JSON object file shared between processes (the app and a settings
// command). Each change re-reads the file, applies itself and writes the whole file atomically
// before returning, so a change made meanwhile by another process is not lost. Bytes are kept as
// {"base64": "..."}; members of other shapes are not values but survive writes. A file that cannot
// be parsed reads as empty; it is set aside beside itself
// (".unreadable") before the first write replaces it. Main thread only; writes block on the disk.
class JsonFileKeyValueStore : public MemoryKeyValueStore
{
public:
    explicit JsonFileKeyValueStore(std::filesystem::path file);

    void setValue(const std::string& key, Value value) override;
    void remove(const std::string& key) override;
    void reload() override;

    const std::filesystem::path& file() const { return m_file; }
    // Why the file could not be read or written last time, if it could not.
    const std::optional<std::string>& error() const { return m_error; }

private:
    void write();

    std::filesystem::path m_file;
    // Members of shapes this store does not read (a list typed in by hand), as JSON text, kept
    // on writes.
    std::map<std::string, std::string> m_foreign;
    std::optional<std::string> m_error;
    bool m_unreadable = false;
};

} // namespace kit::settings
