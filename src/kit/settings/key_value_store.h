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
    // One sentence saying why the values could not be read or saved last time, if they could not.
    virtual std::optional<std::string> error() const { return std::nullopt; }

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
// command). Each change takes a lock beside the file, re-reads it, applies itself and writes the
// whole file atomically before returning, so a change made meanwhile by another process is not
// lost. Bytes are kept as {"base64": "..."}; members of other shapes are not values but survive
// writes. A file that exists but cannot be read or parsed is never written over: the values read
// before stay, changes live in memory only and error() says so, until the file is repaired (seen
// on reload) or the person chooses startFresh(). Main thread only; writes block on the disk.
class JsonFileKeyValueStore : public MemoryKeyValueStore
{
public:
    explicit JsonFileKeyValueStore(std::filesystem::path file);

    void setValue(const std::string& key, Value value) override;
    void remove(const std::string& key) override;
    void reload() override;
    std::optional<std::string> error() const override { return m_error; }

    // Sets an unreadable file aside under a name no earlier copy has (".unreadable", then
    // ".unreadable-2", ...) and writes the values in memory in its place. Nothing when written,
    // else why not; a readable file is simply written.
    std::optional<std::string> startFresh();

    const std::filesystem::path& file() const { return m_file; }
    // Whether the file exists but could not be read, so it is being left alone.
    bool isUnreadable() const { return m_unreadable; }

private:
    // Re-reads the file under the lock, lets `change` edit the values, and writes them back when
    // it changed something and the file may be written.
    void update(const std::function<bool()>& change);
    void readFile();
    void write();

    std::filesystem::path m_file;
    // Members of shapes this store does not read (a list typed in by hand), as JSON text, kept
    // on writes.
    std::map<std::string, std::string> m_foreign;
    std::optional<std::string> m_error;
    bool m_unreadable = false;
};

} // namespace kit::settings
