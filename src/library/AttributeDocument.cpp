#include "library/AttributeDocument.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "base/Json.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

using nlohmann::json;

/// An object of objects of objects is all there is; writing is recursive, so a text that only nests must not be let in.
constexpr int kMaxDepth = 8;

const json* member(const json& object, const char* name) {
    if (!object.is_object()) return nullptr;
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

}  // namespace

AttributeDocument::Reading AttributeDocument::parsed(std::string_view text) {
    Reading reading;
    const auto value = text.size() > kMaxSize ? json() : base::parsedJson(text, kMaxDepth);
    const auto* files = member(value, "files");
    if (!files || !files->is_object()) {
        reading.isSound = false;
        return reading;
    }
    for (const auto& [name, entry] : files->items()) {
        if (!reading.document.take(name, entry)) reading.isSound = false;
    }
    return reading;
}

/// False if not all of it is understood.
bool AttributeDocument::take(const std::string& key, const json& value) {
    const auto *inode = member(value, "inode"), *birth = member(value, "birth");
    const auto* attributes = member(value, "attributes");
    if (key.empty() || !inode || !inode->is_number_unsigned() || !birth || !birth->is_number_integer() || !attributes ||
        !attributes->is_object())
        return false;
    Entry entry{{inode->get<std::uint64_t>(), base::WallTime(base::Duration(birth->get<std::int64_t>()))}, {}};
    bool isComplete = true;
    for (const auto& [name, text] : attributes->items()) {
        if (text.is_string()) {
            entry.attributes.emplace(name, text.get<std::string>());
        } else {
            isComplete = false;
        }
    }
    put(key, std::move(entry));
    return isComplete;
}

void AttributeDocument::put(const std::string& key, Entry entry) {
    byInode_.insert_or_assign(entry.identity.inode, key);
    entries_.insert_or_assign(key, std::move(entry));
}

std::string AttributeDocument::keyOf(const std::string& file, const FileIdentity& identity) const {
    auto key = base::percentEncoded(file);
    const auto named = entries_.find(key);
    if (named != entries_.end()) {
        const auto& known = named->second.identity;
        if (known.inode == identity.inode || known.birth == identity.birth) return key;
    }
    const auto numbered = byInode_.find(identity.inode);
    if (numbered == byInode_.end()) return {};
    const auto entry = entries_.find(numbered->second);
    return entry != entries_.end() && entry->second.identity == identity ? entry->first : std::string();
}

std::optional<std::string> AttributeDocument::value(const std::string& file, const FileIdentity& identity,
                                                    const std::string& attribute) const {
    const auto entry = entries_.find(keyOf(file, identity));
    if (entry == entries_.end()) return std::nullopt;
    const auto found = entry->second.attributes.find(attribute);
    if (found == entry->second.attributes.end()) return std::nullopt;
    return found->second;
}

void AttributeDocument::set(const std::string& file, const FileIdentity& identity, const std::string& attribute,
                            std::optional<std::string_view> value) {
    rename(file, file, identity);
    const auto key = base::percentEncoded(file);
    auto& entry = entries_[key];
    if (entry.identity != identity) entry = {identity, {}};
    if (value) {
        entry.attributes.insert_or_assign(attribute, std::string(*value));
        byInode_.insert_or_assign(identity.inode, key);
    } else {
        entry.attributes.erase(attribute);
        if (entry.attributes.empty()) entries_.erase(key);
    }
}

void AttributeDocument::rename(const std::string& from, const std::string& to, const FileIdentity& identity) {
    auto entry = entries_.extract(keyOf(from, identity));
    if (entry.empty()) return;
    entry.mapped().identity = identity;
    put(base::percentEncoded(to), std::move(entry.mapped()));
}

void AttributeDocument::erase(const std::string& file, const FileIdentity& identity) {
    entries_.erase(keyOf(file, identity));
}

void AttributeDocument::keepOnly(const std::function<bool(const std::string&)>& isThere) {
    std::erase_if(entries_, [&](const auto& entry) { return !isThere(entry.first); });
}

std::string AttributeDocument::text() const {
    auto files = json::object();
    for (const auto& [name, entry] : entries_) {
        files[name] = {{"inode", entry.identity.inode},
                       {"birth", entry.identity.birth.time_since_epoch().count()},
                       {"attributes", entry.attributes}};
    }
    return json{{"files", std::move(files)}}.dump(1, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace tessivox::library
