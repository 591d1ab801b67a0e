// SPDX-License-Identifier: MIT
#include "kit/blocking/disk_rule_list_store.h"

#include "kit/support/atomic_file.h"

#include <algorithm>
#include <system_error>

namespace kit::blocking {

namespace {

constexpr std::string_view kExtension = ".rules";

// Identifiers become file names: nothing that could leave the folder or hide the file.
bool isUsableIdentifier(std::string_view identifier)
{
    return !identifier.empty() && identifier.front() != '.' && identifier.size() <= 200
           && identifier.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos;
}

} // namespace

CompiledRuleList::CompiledRuleList(std::string identifier, std::shared_ptr<const Matcher> matcher)
    : m_identifier(std::move(identifier))
    , m_matcher(std::move(matcher))
{}

DiskRuleListStore::DiskRuleListStore(std::filesystem::path folder,
                                     std::filesystem::path publicSuffixList)
    : m_folder(std::move(folder))
    , m_publicSuffixList(std::move(publicSuffixList))
{}

std::filesystem::path DiskRuleListStore::fileFor(const std::string& identifier) const
{
    return m_folder / (identifier + std::string(kExtension));
}

web::ContentRuleListPtr DiskRuleListStore::lookUp(const std::string& identifier)
{
    if (!isUsableIdentifier(identifier)) {
        return nullptr;
    }
    auto bytes = support::readWholeFile(fileFor(identifier));
    auto* text = std::get_if<std::string>(&bytes);
    if (!text) {
        return nullptr;
    }
    auto matcher = Matcher::load(*text);
    if (!matcher) {
        return nullptr;
    }
    return std::make_shared<CompiledRuleList>(identifier,
                                              std::make_shared<const Matcher>(std::move(*matcher)));
}

web::ContentRuleListStore::Compiled DiskRuleListStore::compile(const std::string& identifier,
                                                               const std::string& encodedRules)
{
    if (!isUsableIdentifier(identifier)) {
        return {nullptr, "“" + identifier + "” cannot name a rule list."};
    }
    std::string suffixes;
    if (!m_publicSuffixList.empty()) {
        auto read = support::readWholeFile(m_publicSuffixList);
        if (auto* text = std::get_if<std::string>(&read)) {
            suffixes = std::move(*text);
        }
    }
    auto compiled = Matcher::compile(encodedRules, suffixes);
    if (auto* error = std::get_if<std::string>(&compiled)) {
        return {nullptr, *error};
    }
    auto matcher = std::make_shared<const Matcher>(std::move(std::get<Matcher>(compiled)));
    // A list that cannot be cached still blocks; the next launch compiles it again.
    m_lastSaveError = support::writeFileAtomically(fileFor(identifier), matcher->serialize())
                          .value_or(std::string());
    return {std::make_shared<CompiledRuleList>(identifier, std::move(matcher)), {}};
}

std::vector<std::string> DiskRuleListStore::identifiers()
{
    std::vector<std::string> found;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder, ec)) {
        std::string name = entry.path().filename().string();
        if (name.size() > kExtension.size() && name.ends_with(kExtension) && name.front() != '.') {
            found.push_back(name.substr(0, name.size() - kExtension.size()));
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

bool DiskRuleListStore::remove(const std::string& identifier)
{
    if (!isUsableIdentifier(identifier)) {
        return false;
    }
    std::error_code ec;
    return std::filesystem::remove(fileFor(identifier), ec) && !ec;
}

} // namespace kit::blocking
