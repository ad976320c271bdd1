#include "audio/Mpeg4Duration.h"

#include <gtest/gtest.h>

#include <string>

#include "support/MemoryFile.h"

namespace tessivox::audio {
namespace {

using testing::MemoryDisk;
using testing::MemoryFile;

std::string number(std::uint64_t value, int width) {
    std::string bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string box(const std::string& type, const std::string& payload) {
    return number(8 + payload.size(), 4) + type + payload;
}

std::string wideBox(const std::string& type, const std::string& payload) {
    return number(1, 4) + type + number(16 + payload.size(), 8) + payload;
}

std::string openEndedBox(const std::string& type, const std::string& payload) { return number(0, 4) + type + payload; }

std::string movieHeader(std::uint32_t timescale, std::uint64_t duration, int version = 0) {
    const int width = version == 0 ? 4 : 8;
    return box("mvhd", number(static_cast<std::uint64_t>(version), 1) + number(0, 3) + number(1, width) +
                           number(2, width) + number(timescale, 4) + number(duration, width) + std::string(80, '\0'));
}

const std::string kType = box("ftyp", "M4A 0000M4A ");
const std::string kSound = box("mdat", std::string(100, 'x'));
const std::string kMovie = box("moov", movieHeader(48000, 144017) + box("trak", "moov"));

struct Mpeg4DurationTest : ::testing::Test {
    MemoryDisk disk;

    std::optional<Mpeg4Duration> read(const std::string& contents) {
        const auto bytes = std::as_bytes(std::span(contents));
        disk.contents.assign(bytes.begin(), bytes.end());
        disk.reads = 0;
        MemoryFile file(disk);
        return readMpeg4Duration(file);
    }
};

TEST_F(Mpeg4DurationTest, FindsTheMovieHeaderWhereverItStands) {
    const Mpeg4Duration expected{144017, 48000};
    EXPECT_EQ(read(kType + kSound + kMovie), expected);
    EXPECT_EQ(read(kType + kMovie + kSound), expected);
    EXPECT_EQ(read(kType + wideBox("mdat", std::string(30, 'x')) + kMovie), expected);
    EXPECT_EQ(read(kType + kMovie + openEndedBox("mdat", "to the end")), expected);
    EXPECT_EQ(read(kType + kSound + openEndedBox("moov", movieHeader(48000, 144017))), expected);
    EXPECT_EQ(read(box("moov", box("udta", "") + wideBox("free", "") + movieHeader(48000, 144017))), expected);
}

TEST_F(Mpeg4DurationTest, ReadsBothVersionsToTheirLimits) {
    const std::uint64_t fiveDays = 48000ULL * 86400 * 5;
    EXPECT_EQ(read(box("moov", movieHeader(48000, fiveDays, 1))), (Mpeg4Duration{fiveDays, 48000}));
    EXPECT_EQ(read(box("moov", movieHeader(0xFFFFFFFF, 0xFFFFFFFE))), (Mpeg4Duration{0xFFFFFFFE, 0xFFFFFFFF}));
    EXPECT_EQ(read(box("moov", movieHeader(1000, 0))), (Mpeg4Duration{0, 1000}));
}

TEST_F(Mpeg4DurationTest, NoDurationFromAFileThatIsCutShort) {
    const auto whole = kType + kSound + kMovie;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(read(whole.substr(0, size)), std::nullopt) << size << " bytes";
    }
    const auto indexFirst = kType + kMovie + kSound;
    EXPECT_EQ(read(indexFirst.substr(0, indexFirst.size() - 1)), std::nullopt);
    EXPECT_EQ(read(indexFirst + "\1\2\3"), std::nullopt);
}

TEST_F(Mpeg4DurationTest, NoDurationFromAMalformedFile) {
    const auto header = movieHeader(48000, 1);
    EXPECT_EQ(read(kType + kSound), std::nullopt);
    EXPECT_EQ(read(header), std::nullopt);
    EXPECT_EQ(read(box("moov", box("trak", header))), std::nullopt);
    EXPECT_EQ(read(number(7, 4) + "free" + kMovie), std::nullopt);
    EXPECT_EQ(read(number(1, 4) + "free" + number(15, 8) + kMovie), std::nullopt);
    EXPECT_EQ(read(number(1, 4) + "free" + number(~std::uint64_t{0}, 8) + kMovie), std::nullopt);
    EXPECT_EQ(read(box("moov", number(200, 4) + "mvhd" + header) + std::string(300, '\0')), std::nullopt);
    EXPECT_EQ(read(box("moov", movieHeader(0, 1))), std::nullopt);
    EXPECT_EQ(read(box("moov", movieHeader(48000, 1, 2))), std::nullopt);
    EXPECT_EQ(read(box("moov", box("mvhd", ""))), std::nullopt);
    EXPECT_EQ(read(box("moov", box("mvhd", std::string(19, '\0')) + kType)), std::nullopt);
    EXPECT_EQ(read(box("moov", box("mvhd", "\1" + std::string(30, '\1')) + kType)), std::nullopt);
}

TEST_F(Mpeg4DurationTest, NoDurationFromAHeaderThatDoesNotKnowIt) {
    EXPECT_EQ(read(box("moov", movieHeader(48000, 0xFFFFFFFF))), std::nullopt);
    EXPECT_EQ(read(box("moov", movieHeader(48000, ~std::uint64_t{0}, 1))), std::nullopt);
    EXPECT_EQ(read(box("moov", movieHeader(48000, 0) + box("mvex", "")) + box("moof", "")), std::nullopt);
}

TEST_F(Mpeg4DurationTest, GivesUpOnEndlessBoxes) {
    std::string boxes;
    for (int i = 0; i < 100'000; ++i) boxes += box("free", "");
    EXPECT_EQ(read(boxes + kMovie), std::nullopt);
    EXPECT_LT(disk.reads, 1000);
}

}  // namespace
}  // namespace tessivox::audio
