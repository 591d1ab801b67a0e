// SPDX-License-Identifier: MIT
#include "kit/web/rules_digest.h"

#include <openssl/evp.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace kit::web {

std::string sha256Hex(std::string_view bytes)
{
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1
        || EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) != 1
        || EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1) {
        throw std::runtime_error("SHA-256 is not available");
    }
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string out;
    out.reserve(static_cast<size_t>(length) * 2);
    for (unsigned int i = 0; i < length; ++i) {
        out += kHex[digest[i] >> 4];
        out += kHex[digest[i] & 0x0F];
    }
    return out;
}

} // namespace kit::web
