#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/Units.h"

namespace tessivox::library {

/// What tells a file from another that later has its name.
struct FileIdentity {
    std::uint64_t inode = 0;
    base::WallTime birth;

    bool operator==(const FileIdentity&) const = default;
};

/// The attributes of one folder's files as JSON: an object "files" of percent-encoded file names, each with "inode",
/// "birth" (nanoseconds since 1970) and "attributes".
///
/// An entry belongs to the file of its name if inode or birth time agree, since some file systems number their files
/// anew with each mount and others change what stands for a birth time. To a file of another name it belongs if both
/// agree: that one was renamed.
class AttributeDocument {
public:
    /// The longest text that is read or written, in bytes.
    static constexpr std::size_t kMaxSize = std::size_t{8} << 20;

    struct Reading;
    /// Understands as much as it can.
    static Reading parsed(std::string_view text);

    std::optional<std::string> value(const std::string& file, const FileIdentity& identity,
                                     const std::string& attribute) const;
    bool has(const std::string& file, const FileIdentity& identity) const { return !keyOf(file, identity).empty(); }

    /// Without a value the attribute is removed, and the entry with its last attribute.
    void set(const std::string& file, const FileIdentity& identity, const std::string& attribute,
             std::optional<std::string_view> value);
    /// What the file had under one name it has under the other.
    void rename(const std::string& from, const std::string& to, const FileIdentity& identity);
    void erase(const std::string& file, const FileIdentity& identity);
    /// Drops the entries of files for which this is false.
    void keepOnly(const std::function<bool(const std::string& encodedName)>& isThere);

    std::string text() const;

private:
    struct Entry {
        FileIdentity identity;
        std::map<std::string, std::string> attributes;
    };

    std::map<std::string, Entry> entries_;                    ///< by encoded name
    std::unordered_map<std::uint64_t, std::string> byInode_;  ///< their encoded names; may name some that are gone

    bool take(const std::string& key, const nlohmann::json& member);
    void put(const std::string& key, Entry entry);
    /// The encoded name of a file's entry; empty if it has none.
    std::string keyOf(const std::string& file, const FileIdentity& identity) const;
};

struct AttributeDocument::Reading {
    AttributeDocument document;
    bool isSound = true;  ///< false if there was something that it does not hold
};

}  // namespace tessivox::library
