// SPDX-License-Identifier: MIT
#include "kit/support/uuid.h"

#include "kit/support/text.h"

#include <mutex>
#include <random>

namespace kit::support {

Uuid Uuid::random()
{
    // One seeded engine per thread: random_device is a system call, too slow for every id.
    thread_local std::mt19937_64 engine{[] {
        std::random_device device;
        std::seed_seq seq{device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seq);
    }()};
    Uuid u;
    uint64_t hi = engine();
    uint64_t lo = engine();
    for (int i = 0; i < 8; ++i) {
        u.bytes[i] = static_cast<uint8_t>(hi >> (56 - 8 * i));
        u.bytes[i + 8] = static_cast<uint8_t>(lo >> (56 - 8 * i));
    }
    u.bytes[6] = static_cast<uint8_t>((u.bytes[6] & 0x0F) | 0x40);
    u.bytes[8] = static_cast<uint8_t>((u.bytes[8] & 0x3F) | 0x80);
    return u;
}

std::optional<Uuid> Uuid::parse(std::string_view text)
{
    if (text.size() != 36) {
        return std::nullopt;
    }
    Uuid u;
    size_t byte = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        int high = hexValue(text[i]);
        int low = hexValue(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        u.bytes[byte++] = static_cast<uint8_t>(high * 16 + low);
        i += 2;
    }
    return u;
}

std::string Uuid::string() const
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    // Filled in place: answers about long proposals write thousands of these.
    std::string text(36, '-');
    size_t at = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        at += i == 4 || i == 6 || i == 8 || i == 10 ? 1 : 0;
        text[at++] = kDigits[bytes[i] >> 4];
        text[at++] = kDigits[bytes[i] & 0x0F];
    }
    return text;
}

} // namespace kit::support
