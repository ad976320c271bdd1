#include "backend/engines/CaptionFormats.h"

#include <gtest/gtest.h>

#include "backend/engines/EngineError.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

std::string shown(const std::vector<Utterance>& utterances) {
    std::string text;
    for (const auto& [start, end, words, speaker] : utterances) {
        text += base::fixedNumber(start, 2) + "-" + base::fixedNumber(end, 2) + " " +
                (speaker.empty() ? "" : speaker + ": ") + words + "|";
    }
    return text;
}

std::string parsed(std::string_view output, double seconds = 100) { return shown(parseCaptions(output, seconds)); }

TEST(CaptionFormatsTest, ReadsSubRip) {
    EXPECT_EQ(parsed("\xEF\xBB\xBF"
                     "1\r\n00:00:01,000 --> 00:00:02,500\r\nGood <i>morning</i>,\r\neveryone.\r\n\r\n"
                     "2\r\n00:01:03,250 --> 00:01:04,000\r\n42\r\n"),
              "1.00-2.50 Good morning, everyone.|63.25-64.00 42|");
    EXPECT_EQ(parsed("1\n00:00:01,000 --> 00:00:02,000\nOne.\n2\n00:00:03,000 --> 00:00:04,000\nTwo 2.\n"),
              "1.00-2.00 One.|3.00-4.00 Two 2.|");
}

TEST(CaptionFormatsTest, ReadsWebVttWithVoicesAndMarkup) {
    EXPECT_EQ(
        parsed("WEBVTT - meeting\n\nNOTE not said\n\nSTYLE\n::cue { color: red }\n\n"
               "first\n00:01.000 --> 00:02.000 align:start position:0%\n<v.loud Ann: Lee>R&amp;D &lt;b&gt; 3 < 4\n\n"
               "01:00:00.000 --> 01:00:01.000\n<00:01.500>later\n"),
        "1.00-2.00 Ann Lee: R&D <b> 3 < 4|100.00-100.00 later|");
    EXPECT_EQ(parsed("WEBVTT\n\n"), "");
}

TEST(CaptionFormatsTest, ReadsTheLinesThatWhisperPrints) {
    EXPECT_EQ(
        parsed("[00:00:00.000 --> 00:00:07.960]   And so, my fellow\n[00:00:07.960 --> 00:00:10.760]  ask not.\n"),
        "0.00-7.96 And so, my fellow|7.96-10.76 ask not.|");
    EXPECT_EQ(parsed("[00:00:00.000 --> 00:00:30.000]   [BLANK_AUDIO]\n"), "");
}

TEST(CaptionFormatsTest, ReadsJsonOfSeveralKinds) {
    EXPECT_EQ(parsed(R"({"result": {"language": "en"}, "transcription": [
                        {"timestamps": {"from": "x"}, "offsets": {"from": 500, "to": 2250}, "text": " Hi there."},
                        {"offsets": {"from": 3000, "to": 4000}, "text": "Bye.", "speaker": "1"}]})"),
              "0.50-2.25 Hi there.|3.00-4.00 Speaker B: Bye.|");
    EXPECT_EQ(parsed(R"({"task": "transcribe", "text": "all", "segments": [
                        {"start": 1.5, "end": 2, "text": "One", "speaker": "SPEAKER_00"},
                        {"start": 0, "end": 1, "text": "Zero", "speaker": "Ann"}, {"start": 3}, 7]})"),
              "0.00-1.00 Ann: Zero|1.50-2.00 Speaker A: One|");
    EXPECT_EQ(parsed(R"([{"start": 2, "text": "bare"}])"), "2.00-2.00 bare|");
    EXPECT_EQ(parsed(R"({"text": "Only words.", "segments": []})", 10), "0.00-10.00 Only words.|");
    EXPECT_EQ(parsed(R"({"text": ""})"), "");
    EXPECT_EQ(parsed("{\"text\": \"cut \xC3 character\"}", 10), "0.00-10.00 cut \uFFFD character|");
}

TEST(CaptionFormatsTest, SharesTheSoundAmongWordsWithoutTimes) {
    EXPECT_EQ(parsed("  One two.\n\nThree four five six\n", 27), "0.00-8.00 One two.|8.00-27.00 Three four five six|");
    EXPECT_EQ(parsed(" \n \n"), "");
    const auto pieces = parseCaptions(std::string(250, 'a') + ". " + std::string(400, 'b') + " c", 100);
    ASSERT_EQ(pieces.size(), 3U);
    EXPECT_EQ(pieces[0].text.size(), 251U);
    EXPECT_EQ(pieces[1].text, std::string(300, 'b'));
}

TEST(CaptionFormatsTest, TakesNoTextForMoreThanText) {
    EXPECT_EQ(parsed("a --> b\nno times", 10), "0.00-4.67 a --> b|4.67-10.00 no times|");
    EXPECT_EQ(parsed("one\x1b[31m two\u202Ethree\u2028four\tfive\x07", 10), "0.00-10.00 one [31m twothree four five|");
    EXPECT_EQ(parsed("[Music] plays", 10), "0.00-10.00 [Music] plays|");
}

TEST(CaptionFormatsTest, KeepsTimesWithinTheSoundAndInOrder) {
    EXPECT_EQ(parsed(R"([{"start": 9e300, "end": -5, "text": "late"}, {"start": -3, "end": 2, "text": "early"}])", 10),
              "0.00-2.00 early|10.00-10.00 late|");
    EXPECT_EQ(parsed("00:00:05,000 --> 00:00:04,000\nx", 10), "5.00-5.00 x|");
}

TEST(CaptionFormatsTest, RefusesWhatMakesNoSense) {
    EXPECT_THROW(parsed(R"({"segments": [{"start": 1, "text": "cu)"), EngineError);
    EXPECT_THROW(parsed(R"({"words": []})"), EngineError);
    EXPECT_THROW(parsed(std::string(100'000, '[')), EngineError);
    EXPECT_THROW(parsed(std::string((std::size_t{64} << 20U) + 1, 'a')), EngineError);
    std::string flood;
    for (int line = 0; line < 200'002; ++line) flood += "x\n";
    EXPECT_THROW(parsed(flood), EngineError);
}

}  // namespace
}  // namespace tessivox::backend
