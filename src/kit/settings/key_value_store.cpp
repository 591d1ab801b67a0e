// SPDX-License-Identifier: MIT
#include "kit/settings/key_value_store.h"

#include "kit/support/atomic_file.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <system_error>

namespace kit::settings {

using nlohmann::json;

size_t KeyValueStore::observe(Observer observer)
{
    const size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void KeyValueStore::removeObserver(size_t token)
{
    std::erase_if(m_observers, [token](const auto& entry) { return entry.first == token; });
}

void KeyValueStore::notify(const std::string& key) const
{
    // A copy: an observer may add or remove observers.
    const auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer(key);
    }
}

std::optional<Value> MemoryKeyValueStore::value(const std::string& key) const
{
    const auto found = m_values.find(key);
    if (found == m_values.end()) {
        return std::nullopt;
    }
    return found->second;
}

void MemoryKeyValueStore::setValue(const std::string& key, Value value)
{
    const auto found = m_values.find(key);
    if (found != m_values.end() && found->second == value) {
        return;
    }
    m_values[key] = std::move(value);
    notify(key);
}

void MemoryKeyValueStore::remove(const std::string& key)
{
    if (m_values.erase(key) > 0) {
        notify(key);
    }
}

void MemoryKeyValueStore::replaceAll(std::map<std::string, Value> values)
{
    std::set<std::string> changed;
    for (const auto& [key, value] : m_values) {
        const auto found = values.find(key);
        if (found == values.end() || found->second != value) {
            changed.insert(key);
        }
    }
    for (const auto& [key, value] : values) {
        if (!m_values.contains(key)) {
            changed.insert(key);
        }
    }
    m_values = std::move(values);
    for (const auto& key : changed) {
        notify(key);
    }
}

namespace {

constexpr const char* kBytesKey = "base64";

json toJson(const Value& value)
{
    return std::visit(
        [](const auto& v) -> json {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, support::Bytes>) {
                return json{{kBytesKey, support::base64Encode(v)}};
            } else {
                return json(v);
            }
        },
        value);
}

std::optional<Value> fromJson(const json& value)
{
    switch (value.type()) {
    case json::value_t::boolean:
        return Value(value.get<bool>());
    case json::value_t::number_integer:
        return Value(value.get<std::int64_t>());
    case json::value_t::number_unsigned:
        if (value.get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX)) {
            return Value(value.get<double>());
        }
        return Value(value.get<std::int64_t>());
    case json::value_t::number_float:
        return Value(value.get<double>());
    case json::value_t::string:
        return Value(value.get<std::string>());
    case json::value_t::object:
        if (value.size() == 1 && value.contains(kBytesKey) && value[kBytesKey].is_string()) {
            if (auto bytes = support::base64Decode(value[kBytesKey].get<std::string>())) {
                return Value(std::move(*bytes));
            }
        }
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

// Serialises read-modify-write cycles between processes. The lock lives in a file of its own,
// since the settings file is replaced by every write; without one (a read-only folder) writes go
// ahead unlocked.
class WriteLock
{
public:
    explicit WriteLock(const std::filesystem::path& file)
        : m_fd(::open((file.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        if (m_fd >= 0) {
            while (::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~WriteLock()
    {
        if (m_fd >= 0) {
            ::close(m_fd); // also releases the lock
        }
    }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

private:
    int m_fd;
};

std::string notSaved(std::string_view readError)
{
    if (readError.ends_with('.')) {
        readError.remove_suffix(1);
    }
    return std::string(readError) + "; settings changed now are not saved.";
}

} // namespace

JsonFileKeyValueStore::JsonFileKeyValueStore(std::filesystem::path file)
    : m_file(std::move(file))
{
    readFile();
}

void JsonFileKeyValueStore::reload()
{
    readFile();
}

void JsonFileKeyValueStore::readFile()
{
    auto read = support::readWholeFile(m_file);
    if (auto* failure = std::get_if<support::ReadError>(&read)) {
        if (failure->isMissing()) {
            m_error.reset();
            m_unreadable = false;
            m_foreign.clear();
            replaceAll({});
        } else {
            // Perhaps passing (a permission being fixed): keep what was read before.
            m_error = notSaved(failure->message);
            m_unreadable = true;
        }
        return;
    }
    const json document = json::parse(std::get<std::string>(read), nullptr, false);
    if (!document.is_object()) {
        // Likely a hand edit in progress: keep the values read before rather than telling every
        // observer that each setting went back to its default.
        m_error = notSaved("Could not read “" + m_file.filename().string()
                           + "”: it is not a JSON object");
        m_unreadable = true;
        return;
    }
    m_error.reset();
    m_unreadable = false;
    m_foreign.clear();
    std::map<std::string, Value> values;
    for (const auto& [key, stored] : document.items()) {
        if (auto value = fromJson(stored)) {
            values.emplace(key, std::move(*value));
        } else {
            m_foreign.emplace(key, stored.dump());
        }
    }
    replaceAll(std::move(values));
}

void JsonFileKeyValueStore::update(const std::function<bool()>& change)
{
    const WriteLock lock(m_file);
    readFile();
    if (change() && !m_unreadable) {
        write();
    }
}

void JsonFileKeyValueStore::setValue(const std::string& key, Value value)
{
    update([&] {
        const auto current = this->value(key);
        if (current && *current == value) {
            return false;
        }
        MemoryKeyValueStore::setValue(key, std::move(value));
        return true;
    });
}

void JsonFileKeyValueStore::remove(const std::string& key)
{
    update([&] {
        if (!value(key)) {
            return false;
        }
        MemoryKeyValueStore::remove(key);
        return true;
    });
}

std::optional<std::string> JsonFileKeyValueStore::startFresh()
{
    const WriteLock lock(m_file);
    if (m_unreadable) {
        std::error_code error;
        std::filesystem::path aside = m_file.string() + ".unreadable";
        for (int n = 2; std::filesystem::symlink_status(aside, error).type()
                        != std::filesystem::file_type::not_found;
             ++n) {
            aside = m_file.string() + ".unreadable-" + std::to_string(n);
        }
        std::filesystem::rename(m_file, aside, error);
        if (error) {
            return "Could not set “" + m_file.filename().string() + "” aside: " + error.message()
                   + ".";
        }
        m_unreadable = false;
    }
    write();
    return m_error;
}

void JsonFileKeyValueStore::write()
{
    json document = json::object();
    for (const auto& [key, text] : m_foreign) {
        document[key] = json::parse(text);
    }
    for (const auto& [key, value] : values()) {
        document[key] = toJson(value);
    }
    m_error = support::writeFileAtomically(m_file, document.dump(2) + "\n");
}

} // namespace kit::settings
