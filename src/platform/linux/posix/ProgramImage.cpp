#include "platform/linux/posix/ProgramImage.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <span>
#include <string_view>
#include <system_error>

namespace tessivox::posix {
namespace {

std::size_t padded(std::size_t size) { return (size + 3) / 4 * 4; }

std::string hexOf(std::span<const unsigned char> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const auto byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

/// The build identifier among a segment's notes; see elf(5).
std::string buildIDIn(std::span<const unsigned char> notes) {
    while (notes.size() >= sizeof(ElfW(Nhdr))) {
        ElfW(Nhdr) header;
        std::memcpy(&header, notes.data(), sizeof header);
        const auto descriptor = sizeof header + padded(header.n_namesz);
        const auto end = descriptor + padded(header.n_descsz);
        if (end > notes.size()) break;
        const bool isGnu =
            header.n_namesz == sizeof ELF_NOTE_GNU && std::memcmp(&notes[sizeof header], ELF_NOTE_GNU, 4) == 0;
        if (isGnu && header.n_type == NT_GNU_BUILD_ID) return hexOf(notes.subspan(descriptor, header.n_descsz));
        notes = notes.subspan(end);
    }
    return {};
}

void takeSegment(ProgramImage& image, const ElfW(Phdr) & segment) {
    const auto begin = image.loadAddress + segment.p_vaddr;
    if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
        image.codeBegin = std::min(image.codeBegin, begin);
        image.codeEnd = std::max(image.codeEnd, begin + segment.p_memsz);
    }
    if (segment.p_type == PT_NOTE && image.buildID.empty()) {
        image.buildID = buildIDIn({reinterpret_cast<const unsigned char*>(begin), segment.p_memsz});
    }
}

/// The program comes first; one call is enough.
int takeProgram(dl_phdr_info* info, std::size_t, void* result) {
    auto& image = *static_cast<ProgramImage*>(result);
    image.loadAddress = info->dlpi_addr;
    for (const auto& segment : std::span(info->dlpi_phdr, info->dlpi_phnum)) takeSegment(image, segment);
    return 1;
}

}  // namespace

ProgramImage ProgramImage::current() {
    ProgramImage image;
    image.codeBegin = std::numeric_limits<std::uintptr_t>::max();
    ::dl_iterate_phdr(takeProgram, &image);
    std::error_code ignored;
    image.path = std::filesystem::read_symlink("/proc/self/exe", ignored).native();
    std::ranges::replace(image.path, '\n', ' ');
    return image;
}

}  // namespace tessivox::posix
