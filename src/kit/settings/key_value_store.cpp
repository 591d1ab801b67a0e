// SPDX-License-Identifier: MIT
#include "kit/settings/key_value_store.h"

#include "kit/support/atomic_file.h"

#include <nlohmann/json.hpp>

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

} // namespace

JsonFileKeyValueStore::JsonFileKeyValueStore(std::filesystem::path file)
    : m_file(std::move(file))
{
    reload();
}

void JsonFileKeyValueStore::reload()
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
            m_error = failure->message;
        }
        return;
    }
    const json document = json::parse(std::get<std::string>(read), nullptr, false);
    if (!document.is_object()) {
        m_error = "The settings in “" + m_file.filename().string()
                  + "” could not be read; they start again from the defaults.";
        m_unreadable = true;
        m_foreign.clear();
        replaceAll({});
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

void JsonFileKeyValueStore::setValue(const std::string& key, Value value)
{
    reload();
    const auto current = this->value(key);
    if (current && *current == value) {
        return;
    }
    MemoryKeyValueStore::setValue(key, std::move(value));
    write();
}

void JsonFileKeyValueStore::remove(const std::string& key)
{
    reload();
    if (!value(key)) {
        return;
    }
    MemoryKeyValueStore::remove(key);
    write();
}

void JsonFileKeyValueStore::write()
{
    if (m_unreadable) {
        std::error_code ignored;
        std::filesystem::rename(m_file, m_file.string() + ".unreadable", ignored);
        m_unreadable = false;
    }
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
