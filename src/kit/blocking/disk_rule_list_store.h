// SPDX-License-Identifier: MIT
#pragma once

#include "kit/blocking/matcher.h"
#include "kit/web/web_engine.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kit::blocking {

// A compiled list as the rule-list store hands it out: the matcher pages decide requests with.
class CompiledRuleList final : public web::ContentRuleList
{
public:
    CompiledRuleList(std::string identifier, std::shared_ptr<const Matcher> matcher);

    std::string identifier() const override { return m_identifier; }
    const std::shared_ptr<const Matcher>& matcher() const { return m_matcher; }

private:
    std::string m_identifier;
    std::shared_ptr<const Matcher> m_matcher;
};

// Compiled rule lists kept as "<folder>/<identifier>.rules", one binary matcher each. A cache
// that is damaged or of an older format counts as absent, so it is compiled again. Called from
// one background thread at a time, as the interface asks.
class DiskRuleListStore final : public web::ContentRuleListStore
{
public:
    // Debian's copy of the public suffix list; without it first/third party is guessed.
    static constexpr const char* kPublicSuffixList =
        "/usr/share/publicsuffix/public_suffix_list.dat";

    explicit DiskRuleListStore(std::filesystem::path folder,
                               std::filesystem::path publicSuffixList = kPublicSuffixList);

    web::ContentRuleListPtr lookUp(const std::string& identifier) override;
    Compiled compile(const std::string& identifier, const std::string& encodedRules) override;
    std::vector<std::string> identifiers() override;
    bool remove(const std::string& identifier) override;

    // Why the last compiled list could not be cached, if it could not (it is used all the same).
    const std::string& lastSaveError() const { return m_lastSaveError; }

private:
    std::filesystem::path fileFor(const std::string& identifier) const;

    std::filesystem::path m_folder;
    std::filesystem::path m_publicSuffixList;
    std::string m_lastSaveError;
};

} // namespace kit::blocking
