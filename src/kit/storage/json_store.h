// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/serial_queue.h"

#include <chrono>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kit::storage {

struct LoadMissing
{
    bool operator==(const LoadMissing&) const = default;
};

struct LoadUnreadable
{
    std::string message;

    bool operator==(const LoadUnreadable&) const = default;
};

template <class Value> using LoadResult = std::variant<Value, LoadUnreadable, LoadMissing>;

template <class Value> struct JsonCoding
{
    std::function<std::string(const Value&)> encode; // may throw std::exception
    std::function<Value(std::string_view)> decode;   // throws std::exception; what() is a reason
};

// The untyped half of a JsonStore: keeps the newest pending write and runs it on the scheduler
// once the interval after the first unwritten submission has passed. A write the disk refused
// stays pending and is tried again: after a back-off, at the next submission and at `flush`.
// `submit`, `lastSaveError` and `writeCount` may be called from any thread and never wait for the
// disk; `flush` waits. Destruction flushes.
class DebouncedWriter
{
public:
    // Makes the bytes to write; runs on the scheduler, outside the lock. May throw std::exception.
    using Encode = std::function<std::string()>;

    DebouncedWriter(std::filesystem::path file,
                    std::chrono::milliseconds interval,
                    std::shared_ptr<support::Scheduler> scheduler);
    ~DebouncedWriter();
    DebouncedWriter(const DebouncedWriter&) = delete;
    DebouncedWriter& operator=(const DebouncedWriter&) = delete;

    void submit(Encode encode);
    void flush();
    // Told on the writing thread after a write whose outcome differs from the one before
    // (failed, or recovered). Set before the first submission.
    void onOutcome(std::function<void()> told);
    std::optional<std::string> lastSaveError() const;
    size_t writeCount() const;
    const std::filesystem::path& file() const { return m_file; }

private:
    struct State;

    std::filesystem::path m_file;
    std::chrono::milliseconds m_interval;
    // Scheduled writes hold it weakly, so one that comes due after the store is gone does nothing.
    std::shared_ptr<State> m_state;
    std::shared_ptr<support::Scheduler> m_scheduler;
};

// Reads the file for JsonStore::load: its text, or why there is none.
std::variant<std::string, LoadUnreadable, LoadMissing>
readStoreFile(const std::filesystem::path& file);

// One JSON file: load it, save it debounced and atomically off the caller's thread, flush at quit.
// `save` may be called from any thread; a burst of saves within the interval writes the file once,
// with the last value. A failed write is logged and kept in lastSaveError, and its value stays
// pending until a later try succeeds.
template <class Value> class JsonStore
{
public:
    // A null scheduler gives the store a worker thread of its own, labelled "store." + file name.
    JsonStore(std::filesystem::path file,
              std::chrono::milliseconds interval,
              JsonCoding<Value> coding,
              std::shared_ptr<support::Scheduler> scheduler = nullptr);
    // Flushes what is pending.
    ~JsonStore() = default;
    JsonStore(const JsonStore&) = delete;
    JsonStore& operator=(const JsonStore&) = delete;

    LoadResult<Value> load() const;
    void save(Value value);
    // Writes what is pending before returning.
    void flush() { m_writer.flush(); }
    // Cleared by the next successful write.
    std::optional<std::string> lastSaveError() const { return m_writer.lastSaveError(); }
    void onOutcome(std::function<void()> told) { m_writer.onOutcome(std::move(told)); }
    const std::filesystem::path& file() const { return m_writer.file(); }
    // Files actually written, for tests and benchmarks.
    size_t writeCount() const { return m_writer.writeCount(); }

private:
    // Shared with pending writes, which may outlive a store being torn down mid-write.
    std::shared_ptr<const JsonCoding<Value>> m_coding;
    DebouncedWriter m_writer;
};

template <class Value>
JsonStore<Value>::JsonStore(std::filesystem::path file,
                            std::chrono::milliseconds interval,
                            JsonCoding<Value> coding,
                            std::shared_ptr<support::Scheduler> scheduler)
    : m_coding(std::make_shared<const JsonCoding<Value>>(std::move(coding)))
    , m_writer(std::move(file), interval, std::move(scheduler))
{}

template <class Value> LoadResult<Value> JsonStore<Value>::load() const
{
    auto read = readStoreFile(file());
    if (auto* unreadable = std::get_if<LoadUnreadable>(&read)) {
        return std::move(*unreadable);
    }
    if (std::holds_alternative<LoadMissing>(read)) {
        return LoadMissing{};
    }
    try {
        return LoadResult<Value>(std::in_place_index<0>, m_coding->decode(std::get<0>(read)));
    } catch (const std::exception& e) {
        return LoadUnreadable{e.what()};
    }
}

template <class Value> void JsonStore<Value>::save(Value value)
{
    m_writer.submit([coding = m_coding, value = std::make_shared<const Value>(std::move(value))] {
        return coding->encode(*value);
    });
}

} // namespace kit::storage
