#include "backend/http/MultipartReader.h"

#include <gtest/gtest.h>

namespace tessivox::testing {
namespace {

using backend::MultipartReader;

/// What comes out of a body that arrives in pieces of that size; absent if it is refused or not whole.
std::optional<std::string> read(const std::string& body, std::size_t piece) {
    std::string file;
    MultipartReader reader("B", [&](std::span<const char> bytes) {
        file.append(bytes.data(), bytes.size());
        return true;
    });
    for (std::size_t at = 0; at < body.size(); at += piece) {
        if (!reader.take(std::span(body).subspan(at, std::min(piece, body.size() - at)))) return std::nullopt;
    }
    if (!reader.isComplete()) return std::nullopt;
    return file;
}

std::string part(const std::string& disposition, const std::string& bytes) {
    return "--B\r\nContent-Type: audio/m4a\r\n" + disposition + "\r\n\r\n" + bytes + "\r\n--B--\r\n";
}

TEST(MultipartReaderTest, FindsTheFileHoweverTheBodyArrives) {
    for (const std::string content : {"", "\r\n", "\r\n--", "\r\n-\r\n--A\r\n--", "x\r\r\n--\r\n--\r\n", "--B--"}) {
        const auto body = part("content-disposition: FORM-DATA; Name=\"file\"; filename=\"a\"b;c\"", content);
        for (std::size_t piece = 1; piece <= body.size(); ++piece) EXPECT_EQ(read(body, piece), content) << piece;
    }
}

TEST(MultipartReaderTest, RefusesEverythingElse) {
    const std::string good = "Content-Disposition: form-data; name=\"file\"";
    EXPECT_TRUE(read(part(good, "x"), 7));
    EXPECT_FALSE(read(part("Content-Disposition: form-data; name=\"files\"", "x"), 7));
    EXPECT_FALSE(read(part("Content-Disposition: form-data; filename=\"; name=\"file\"", "x"), 7));
    EXPECT_FALSE(read(part("Content-Disposition: attachment; name=\"file\"", "x"), 7));
    EXPECT_FALSE(read("x" + part(good, "x"), 7));
    EXPECT_FALSE(read("--B\r\n\r\nx\r\n--B--\r\n", 7));
    EXPECT_FALSE(read("--B\r\n" + good + "\r\n\r\nx\r\n--B\r\n" + good + "\r\n\r\ny\r\n--B--", 7));
    EXPECT_FALSE(read("--B\r\n" + good + "\r\n\r\nx", 7));
    EXPECT_FALSE(read("--B\r\nX: " + std::string(20000, 'x') + "\r\n" + good + "\r\n\r\nx\r\n--B--", 999));
    EXPECT_FALSE(read("", 1));
}

TEST(MultipartReaderTest, ReadsTheBoundaryOfAContentType) {
    EXPECT_EQ(MultipartReader::boundary("Multipart/Form-Data; Boundary=a-b"), "a-b");
    EXPECT_EQ(MultipartReader::boundary("multipart/form-data;boundary=\"a b\"; charset=x"), "a b");
    EXPECT_EQ(MultipartReader::boundary("multipart/form-data; boundary="), std::nullopt);
    EXPECT_EQ(MultipartReader::boundary("multipart/form-data"), std::nullopt);
    EXPECT_EQ(MultipartReader::boundary("multipart/mixed; boundary=a"), std::nullopt);
    EXPECT_EQ(MultipartReader::boundary("multipart/form-data; boundary=" + std::string(71, 'a')), std::nullopt);
}

}  // namespace
}  // namespace tessivox::testing
