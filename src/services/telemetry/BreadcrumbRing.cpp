#include "services/telemetry/BreadcrumbRing.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace tessivox::telemetry {
namespace {

constexpr auto kRelease = std::memory_order_release;
constexpr auto kAcquire = std::memory_order_acquire;

bool isControl(char letter) { return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F; }
bool continuesCharacter(char letter) { return (static_cast<unsigned char>(letter) & 0xC0) == 0x80; }

std::string lineOf(const Breadcrumb& breadcrumb) {
    std::string line(levelName(breadcrumb.level));
    line += " " + breadcrumb.category + ": " + breadcrumb.message;
    for (const auto& [key, value] : breadcrumb.data) line += " " + key + "=" + value;
    std::ranges::replace_if(line, isControl, ' ');
    if (line.size() > BreadcrumbRing::kLineSize) {
        auto size = BreadcrumbRing::kLineSize;
        while (size > 0 && continuesCharacter(line[size])) --size;
        line.resize(size);
    }
    return line;
}

}  // namespace

void BreadcrumbRing::add(base::WallTime time, const Breadcrumb& breadcrumb) {
    const auto line = lineOf(breadcrumb);
    const auto ticket = next_.fetch_add(1, std::memory_order_acq_rel);
    auto& slot = slots_[ticket % kCapacity];
    auto found = slot.sequence.load(kAcquire);
    // Odd: a writer that was overtaken by a whole round is still at it. Greater: this one was.
    if (found % 2 == 1 || found > 2 * ticket) return;
    if (!slot.sequence.compare_exchange_strong(found, 2 * ticket + 1, std::memory_order_acq_rel)) return;
    slot.time.store(static_cast<std::uint64_t>(time.time_since_epoch().count()), kRelease);
    slot.size.store(line.size(), kRelease);
    for (std::size_t at = 0; at < line.size(); at += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, line.data() + at, std::min(sizeof word, line.size() - at));
        slot.words[at / sizeof word].store(word, kRelease);
    }
    slot.sequence.store(2 * ticket + 2, kRelease);
}

bool BreadcrumbRing::read(std::uint64_t ticket, Record& record) const noexcept {
    const auto& slot = slots_[ticket % kCapacity];
    if (slot.sequence.load(kAcquire) != 2 * ticket + 2) return false;
    record.time = base::WallTime(base::Duration(static_cast<std::int64_t>(slot.time.load(kAcquire))));
    record.size = std::min<std::size_t>(slot.size.load(kAcquire), kLineSize);
    for (std::size_t index = 0; index < kWords; ++index) {
        const auto word = slot.words[index].load(kAcquire);
        std::memcpy(record.bytes.data() + index * sizeof word, &word, sizeof word);
    }
    return slot.sequence.load(kAcquire) == 2 * ticket + 2;
}

}  // namespace tessivox::telemetry
