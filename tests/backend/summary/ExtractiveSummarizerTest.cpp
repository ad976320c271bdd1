#include "backend/summary/ExtractiveSummarizer.h"

#include <gtest/gtest.h>

#include <chrono>

#include "backend/summary/SentenceRank.h"
#include "backend/summary/TranscriptSentences.h"

namespace tessivox::backend {
namespace {

constexpr const char* kMeeting =
    "[00:00] Speaker A: Good morning everyone, thanks for joining. Can you hear me?\n"
    "[00:06] Speaker B: Yes, good morning. Loud and clear.\n"
    "[00:10] Speaker A: Great. The main topic today is the launch of the mobile app in March. We agreed last week that "
    "the "
    "beta would go out on the first.\n"
    "[00:24] Speaker B: Right, but the payment module is still failing on older phones. Dr. Weber found the problem on "
    "Tuesday, and about 12 percent of our test customers are affected.\n"
    "[00:41] Speaker C: I think that the payment module needs another week of testing before the launch. It is the "
    "same\n"
    "[00:50] Speaker C: library that we had trouble with in the autumn.\n"
    "[00:55] Speaker A: Okay. So what does that do to the budget?\n"
    "[00:59] Speaker B: The budget for testing is 20 thousand, and we have spent 14 so far. One more week costs "
    "three.\n"
    "[01:10] Speaker A: That works for me. Then we decided to move the launch of the mobile app to the fifteenth of "
    "March.\n"
    "[01:20] Speaker C: I will send the new test plan to everyone by Friday.\n"
    "[01:26] Speaker A: Perfect. Bob, could you call the payment provider and ask about the older phones?\n"
    "[01:33] Speaker B: Sure, I'll call them tomorrow. I'll be honest, their support is slow.\n"
    "[01:41] Speaker A: We also need to update the website before the launch. Anna has the texts.\n"
    "[01:50] Speaker C: The texts are ready, but the pictures of the app are missing.\n"
    "[01:57] Speaker A: Okay, sounds good. Thank you all, bye.\n";

std::string section(const std::string& summary, const std::string& heading) {
    const auto from = summary.find(heading + "\n") + heading.size() + 1;
    return summary.substr(from, summary.find("\n\n", from) - from);
}

TEST(ExtractiveSummarizerTest, FindsWhatAMeetingWasAbout) {
    const auto summary = extractSummary(kMeeting, std::nullopt);
    SCOPED_TRACE(summary);
    EXPECT_TRUE(summary.starts_with("# Title: Meeting notes, 2 min, 3 speakers\n\n## Summary\n"));
    EXPECT_TRUE(summary.ends_with("\n\nExtracted from the transcript; not written by a person or a language model.\n"));
    const auto paragraph = section(summary, "## Summary");
    EXPECT_NE(paragraph.find("move the launch of the mobile app"), std::string::npos);
    EXPECT_EQ(paragraph.find('\n'), std::string::npos);
    const auto points = section(summary, "## Key points");
    EXPECT_EQ(points.find("ood morning"), std::string::npos);
    EXPECT_TRUE(points.starts_with("- [0"));
    const auto actions = section(summary, "## Possible action items");
    for (const auto* line :
         {"- [01:20] Speaker C: I will send the new test plan to everyone by Friday.",
          "- [01:26] Speaker A: Bob, could you call the payment provider and ask about the older phones?",
          "- [01:33] Speaker B: Sure, I'll call them tomorrow.",
          "- [01:41] Speaker A: We also need to update the website before the launch."}) {
        EXPECT_NE(actions.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(actions.find("honest"), std::string::npos);
    EXPECT_EQ(extractSummary(kMeeting, std::nullopt), summary);
}

TEST(ExtractiveSummarizerTest, GivesATrueHeading) {
    EXPECT_EQ(summaryHeading(kMeeting, "Launch plan"), "Launch plan");
    EXPECT_EQ(summaryHeading(kMeeting, " Two\nlines\x1b \u202Eof "), "Two lines of");
    EXPECT_EQ(summaryHeading(kMeeting, "Q3"), "Q3, 2 min, 3 speakers");
    EXPECT_EQ(summaryHeading(kMeeting, ""), "Meeting notes, 2 min, 3 speakers");
    EXPECT_EQ(summaryHeading("[02:59] Ann: Hello there, this is short.", std::nullopt), "Voice notes, 3 min");
    EXPECT_EQ(summaryHeading("[01:14:10] A: x\n[01:14:12] B: y", std::nullopt),
              "Meeting notes, 1 h 14 min, 2 speakers");
    EXPECT_EQ(summaryHeading("[00:10] no name", std::nullopt), "Notes, under 1 min");
    EXPECT_EQ(summaryHeading("plain words", std::nullopt), "Notes");
    EXPECT_EQ(summaryHeading("plain words", "Q3"), "Q3: notes");
    EXPECT_LE(summaryHeading("", std::string(5000, 'x')).size(), 120U);
}

TEST(ExtractiveSummarizerTest, SaysWhenThereIsTooLittleText) {
    EXPECT_EQ(
        extractSummary("[00:01] Ann: One two three. Four five.", std::nullopt),
        "# Title: Voice notes, under 1 min\n\n## Summary\nThere is too little text for a summary: 2 sentences.\n");
    EXPECT_NE(extractSummary("", std::nullopt).find("0 sentences"), std::string::npos);
    EXPECT_NE(extractSummary("\n \n[00:00] \n[x\n#\n", std::nullopt).find("## Summary\n"), std::string::npos);
}

TEST(ExtractiveSummarizerTest, LetsNoSentencePassForMarkup) {
    std::string transcript;
    for (const auto* line :
         {"## Summary of the mess we made", "* the budget is **gone** entirely", "- the plan has failed us",
          "> the launch was the issue", "# Title: the decision on costs", "```the customers left us"}) {
        transcript += std::string(line) + " today, all of it.\n";
    }
    const auto summary = extractSummary(transcript, std::nullopt);
    std::size_t headings = 0;
    for (std::size_t at = 0; (at = summary.find("\n## ", at)) != summary.npos; ++at) ++headings;
    EXPECT_EQ(headings, 3U) << summary;
    EXPECT_NE(section(summary, "## Summary").find_first_of("#*->"), 0U) << summary;
}

TEST(ExtractiveSummarizerTest, TakesMillisecondsForHours) {
    std::string transcript;
    for (int copy = 0; copy < 240; ++copy) {
        for (const char* at = kMeeting; *at != '\0'; ++at) {
            transcript += *at;
            if (*at == '.') transcript += " Number " + std::to_string(copy) + " of item" + std::to_string(copy % 37);
        }
    }
    const auto begin = std::chrono::steady_clock::now();
    const auto summary = extractSummary(transcript, std::nullopt);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
    RecordProperty("milliseconds", std::to_string(taken.count()));
    EXPECT_LT(taken.count(), 10'000) << "even with sanitizers on a busy machine";
    EXPECT_LT(summary.size(), 8000U);
}

TEST(ExtractiveSummarizerTest, CondensesATranscriptToItsMostTellingSentences) {
    EXPECT_EQ(condensedTranscript(kMeeting, 10'000), kMeeting);
    const auto brief = condensedTranscript(kMeeting, 700);
    EXPECT_LE(brief.size(), 700U);
    EXPECT_NE(brief.find("we decided to move the launch"), std::string::npos) << brief;
    EXPECT_EQ(brief.find("Loud and clear"), std::string::npos);
}

TEST(TranscriptSentencesTest, SplitsAndJoinsLinesIntoSentences) {
    const auto textsOf = [](const char* transcript) {
        std::string texts;
        for (const auto& sentence : readSentences(transcript).sentences) texts += sentence.text + "|";
        return texts;
    };
    EXPECT_EQ(textsOf("[00:01] A: Dr. J. Smith paid 3.5 dollars, e.g. for tea. \"Really?\" He did... Fine!"),
              "Dr. J. Smith paid 3.5 dollars, e.g. for tea.|\"Really?\"|He did...|Fine!|");
    EXPECT_EQ(textsOf("[00:01] A: This goes to\n[00:02] A: Bob. Next\n[00:03] B: one\n[00:04] B: Another one."),
              "This goes to Bob.|Next|one Another one.|");
    EXPECT_EQ(textsOf("[00:03] B: no marks\n[00:03] B: in here\n[00:04] B: Another one"),
              "no marks in here|Another one|");
    EXPECT_EQ(textsOf("我们决定推迟发布。预算是多少？"), "我们决定推迟发布。|预算是多少？|");
    EXPECT_EQ(textsOf("[00:05] This is a rather long opening sentence: it goes on"),
              "This is a rather long opening sentence: it goes on|");
    EXPECT_EQ(readSentences("[01:02:03] Bob: hi").sentences.at(0).speaker, "Bob");
}

TEST(SentenceRankTest, PutsTheCentralTextFirst) {
    const SentenceRank rank({"The launch depends on payment tests.", "Payment tests failed again.",
                             "The launch is in March.", "My cat likes fish.", "and so it is"});
    EXPECT_EQ(rank.score(0), 1);
    EXPECT_GT(rank.score(1), rank.score(3));
    EXPECT_GT(rank.similarity(0, 1), rank.similarity(0, 2));
    EXPECT_EQ(rank.similarity(0, 3), 0);
    EXPECT_EQ(rank.similarity(4, 4), 0);
    EXPECT_EQ(wordsOf("It's Ann’s 2nd “naïve” idea—now!"),
              (std::vector<std::string>{"it's", "ann's", "2nd", "naïve", "idea", "now"}));
}

}  // namespace
}  // namespace tessivox::backend
