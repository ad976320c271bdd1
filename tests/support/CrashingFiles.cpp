#include "support/CrashingFiles.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "support/CrashingFilesParts.h"
#include "support/SparseBytes.h"

namespace tessivox::testing {
namespace {

using Path = base::Files::Path;

/// As the model keeps paths: absolute, without dots and trailing slashes.
Path normal(const Path& path) {
    auto result = (Path("/") / path).lexically_normal();
    return result.has_filename() ? result : result.parent_path();
}

bool isBelow(const Path& path, const Path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

}  // namespace

CrashingFiles::CrashingFiles() : root_(makeNode(true)) {}

CrashingFiles::~CrashingFiles() = default;

// What tests do to the disk

void CrashingFiles::crash(Unsynced unsynced, std::uint64_t seed) {
    const std::lock_guard guard(mutex_);
    std::mt19937_64 random(seed);
    settle(*root_, unsynced, random);
    ++crashes_;
    haltAt_ = std::numeric_limits<std::uint64_t>::max();
    unlocked_.notify_all();
}

void CrashingFiles::settle(Inode& node, Unsynced unsynced, std::mt19937_64& random) {
    node.lockedBy = nullptr;
    if (node.isFolder) {
        const bool keepsNames = unsynced == Unsynced::kept || (unsynced == Unsynced::prefix && random() % 2 == 0);
        (keepsNames ? node.durableNames : node.names) = keepsNames ? node.names : node.durableNames;
        for (const auto& [name, child] : node.names) {
            child->parent = &node;
            settle(*child, unsynced, random);
        }
        return;
    }
    const auto& bytes = node.bytes;
    auto left = node.durableBytes;
    if (unsynced == Unsynced::zeros) left.resize(bytes.size());
    if (unsynced == Unsynced::prefix) {
        const auto [shorter, longer] = std::minmax({left.size(), bytes.size()});
        const auto size = shorter + random() % (longer - shorter + 1);
        for (const auto index : bytes.dirty()) {
            const bool isAppended = (index + 1) * SparseBytes::kBlock > node.durableBytes.size();
            if (isAppended || random() % 2 == 0) left.takeBlock(bytes, index);
        }
        left.resize(size);
    }
    if (unsynced == Unsynced::kept) return node.sync();
    left.forgetDirty();
    node.bytes = node.durableBytes = left;
    node.attributes = node.durableAttributes;
}

void CrashingFiles::failAt(std::uint64_t n, Fault fault) {
    const std::lock_guard guard(mutex_);
    faults_[n] = fault;
}

void CrashingFiles::failFrom(std::uint64_t n, Fault fault, Path folder) {
    const std::lock_guard guard(mutex_);
    lastingFaults_.push_back({n, fault, normal(folder)});
}

void CrashingFiles::haltAt(std::uint64_t n) {
    const std::lock_guard guard(mutex_);
    haltAt_ = n;
}

bool CrashingFiles::isHalted() const {
    const std::lock_guard guard(mutex_);
    return operations_ >= haltAt_;
}

void CrashingFiles::heal() {
    const std::lock_guard guard(mutex_);
    faults_.clear();
    lastingFaults_.clear();
}

std::uint64_t CrashingFiles::operationCount() const {
    const std::lock_guard guard(mutex_);
    return operations_;
}

void CrashingFiles::setFreeSpace(std::uint64_t bytes) {
    const std::lock_guard guard(mutex_);
    freeSpace_ = bytes;
}

void CrashingFiles::setTime(base::WallTime time) {
    const std::lock_guard guard(mutex_);
    time_ = time;
}

void CrashingFiles::put(const Path& path, std::string_view contents) {
    const std::lock_guard guard(mutex_);
    ensureFolders(normal(path).parent_path());
    const auto place = placeOf(path, "put");
    const auto node = makeNode(false);
    node->parent = place.folder.get();
    node->bytes.write(0, std::as_bytes(std::span(contents)));
    node->sync();
    place.folder->names[place.name] = place.folder->durableNames[place.name] = node;
    node->touch(time_);
}

void CrashingFiles::emitChanges() {
    std::vector<base::Signal<>> changed;
    {
        const std::lock_guard guard(mutex_);
        for (const auto& [folder, signal] : watches_) {
            const auto node = find(folder);
            if (node && std::exchange(node->isChanged, false)) changed.push_back(signal);
        }
    }
    for (const auto& signal : changed) signal.emit();
}

std::optional<CrashingFiles::Fault> CrashingFiles::countOperation(const Path& path, Room room) {
    ++operations_;
    if (operations_ >= haltAt_) return Fault::noSpace;  // the fault that leaves the disk as it is
    if (const auto once = faults_.extract(operations_)) return once.mapped();
    for (auto& lasting : lastingFaults_) {
        if (operations_ < lasting.from || !isBelow(normal(path), lasting.folder)) continue;
        if (lasting.fault != Fault::ioError && room == Room::same) continue;
        // Only the first write finds some room.
        return lasting.fault == Fault::shortWrite ? std::exchange(lasting.fault, Fault::noSpace) : lasting.fault;
    }
    return std::nullopt;
}

void CrashingFiles::operate(const Path& path, const char* verb, Room room) {
    if (const auto fault = countOperation(path, room)) throw failure(errnoOf(*fault), verb, path);
}

// The tree; with the lock held

CrashingFiles::Node CrashingFiles::makeNode(bool isFolder) {
    auto node = std::make_shared<Inode>();
    node->number = ++lastInode_;
    node->isFolder = isFolder;
    node->birth = node->modified = time_;
    return node;
}

CrashingFiles::Node CrashingFiles::find(const Path& path) const {
    Node node = root_;
    for (const auto& part : normal(path).relative_path()) {
        const auto found = node->names.find(part.native());
        if (found == node->names.end()) return nullptr;
        node = found->second;
    }
    return node;
}

CrashingFiles::Node CrashingFiles::existing(const Path& path, const char* verb) const {
    if (auto node = find(path)) return node;
    throw failure(ENOENT, verb, path);
}

CrashingFiles::Place CrashingFiles::placeOf(const Path& path, const char* verb) const {
    const auto full = normal(path);
    if (full.filename().native().size() > 255) throw failure(ENAMETOOLONG, verb, path);
    const auto folder = existing(full.parent_path(), verb);
    if (!folder->isFolder) throw failure(ENOTDIR, verb, path);
    const auto found = folder->names.find(full.filename().native());
    return {folder, full.filename().native(), found == folder->names.end() ? nullptr : found->second};
}

void CrashingFiles::ensureFolders(const Path& folder) {
    Node node = root_;
    for (const auto& part : normal(folder).relative_path()) {
        auto& child = node->names[part.native()];
        if (!child) {
            child = makeNode(true);
            child->parent = node.get();
            node->durableNames[part.native()] = child;
            node->touch(time_);
        }
        if (!child->isFolder) throw failure(ENOTDIR, "make the folder", folder);
        node = child;
    }
}

void CrashingFiles::rename(const Path& from, const Path& to, bool mayReplace) {
    const auto source = placeOf(from, "move");
    const auto target = placeOf(to, "move");
    if (!source.node) throw failure(ENOENT, "move", from);
    if (target.node && !mayReplace) throw failure(EEXIST, "move", to);
    if (target.node && target.node->isFolder) throw failure(EISDIR, "move", to);
    if (target.node == source.node) return;
    source.folder->names.erase(source.name);
    source.folder->touch(time_);
    target.folder->names[target.name] = source.node;
    target.folder->touch(time_);
    source.node->parent = target.folder.get();
}

// Files

std::unique_ptr<base::File> CrashingFiles::create(const Path& path) {
    const std::lock_guard guard(mutex_);
    operate(path, "create", Room::more);
    const auto place = placeOf(path, "create");
    if (place.node) throw failure(EEXIST, "create", path);
    const auto node = makeNode(false);
    node->parent = place.folder.get();
    place.folder->names[place.name] = node;
    place.folder->touch(time_);
    return std::make_unique<Handle>(*this, node, path, true);
}

std::unique_ptr<base::File> CrashingFiles::open(const Path& path, base::FileAccess access) {
    const std::lock_guard guard(mutex_);
    const auto node = existing(path, "open");
    if (node->isFolder) throw failure(EISDIR, "open", path);
    return std::make_unique<Handle>(*this, node, path, access == base::FileAccess::update);
}

std::optional<base::FileStatus> CrashingFiles::status(const Path& path) const {
    const std::lock_guard guard(mutex_);
    const auto node = find(path);
    if (!node) return std::nullopt;
    base::FileStatus status;
    status.size = node->bytes.size();
    status.device = 1;
    status.inode = node->number;
    status.mode = node->isFolder ? 0700 : 0600;
    status.isFolder = node->isFolder;
    status.isRegular = !node->isFolder;
    status.modified = node->modified;
    status.birth = node->birth;
    return status;
}

Path CrashingFiles::canonical(const Path& path) const {
    const std::lock_guard guard(mutex_);
    existing(path, "find");
    return normal(path);
}

std::vector<Path> CrashingFiles::list(const Path& folder) const {
    const std::lock_guard guard(mutex_);
    const auto node = existing(folder, "list");
    if (!node->isFolder) throw failure(ENOTDIR, "list", folder);
    std::vector<Path> names;
    for (const auto& [name, child] : node->names) names.emplace_back(name);
    std::reverse(names.begin(), names.end());  // nobody may rely on an order
    return names;
}

void CrashingFiles::makeFolders(const Path& folder) {
    const std::lock_guard guard(mutex_);
    operate(folder, "make the folder", find(folder) ? Room::same : Room::more);
    ensureFolders(folder);
}

void CrashingFiles::move(const Path& from, const Path& to) {
    const std::lock_guard guard(mutex_);
    operate(to, "move", Room::same);
    rename(from, to, false);
}

void CrashingFiles::replace(const Path& from, const Path& to) {
    const std::lock_guard guard(mutex_);
    operate(to, "move", Room::same);
    rename(from, to, true);
}

void CrashingFiles::remove(const Path& path) {
    const std::lock_guard guard(mutex_);
    operate(path, "remove", Room::same);
    const auto place = placeOf(path, "remove");
    if (!place.node) throw failure(ENOENT, "remove", path);
    if (place.node->isFolder) throw failure(EISDIR, "remove", path);
    place.folder->names.erase(place.name);
    place.folder->touch(time_);
    place.node->parent = nullptr;
}

void CrashingFiles::syncFolder(const Path& folder) {
    const std::lock_guard guard(mutex_);
    operate(folder, "write to", Room::same);
    const auto node = existing(folder, "write to");
    if (!node->isFolder) throw failure(ENOTDIR, "write to", folder);
    node->durableNames = node->names;
}

std::uint64_t CrashingFiles::freeSpace(const Path&) const {
    const std::lock_guard guard(mutex_);
    return freeSpace_;
}

std::optional<std::string> CrashingFiles::attribute(const Path& path, const std::string& name) const {
    const std::lock_guard guard(mutex_);
    const auto node = existing(path, "read an attribute of");
    const auto found = node->attributes.find(name);
    if (found == node->attributes.end()) return std::nullopt;
    return found->second;
}

void CrashingFiles::setAttribute(const Path& path, const std::string& name, std::string_view value) {
    const std::lock_guard guard(mutex_);
    operate(path, "set an attribute of", Room::more);
    const auto node = existing(path, "set an attribute of");
    node->attributes[name] = value;
    node->touch(node->modified);
}

void CrashingFiles::removeAttribute(const Path& path, const std::string& name) {
    const std::lock_guard guard(mutex_);
    operate(path, "remove an attribute of", Room::same);
    const auto node = existing(path, "remove an attribute of");
    node->attributes.erase(name);
    node->touch(node->modified);
}

base::Subscription CrashingFiles::watch(const Path& folder, std::function<void()> handler) {
    const std::lock_guard guard(mutex_);
    const auto node = existing(folder, "watch");
    if (!watches_.contains(normal(folder))) node->isChanged = false;
    return watches_[normal(folder)].observe(std::move(handler));
}

}  // namespace tessivox::testing
