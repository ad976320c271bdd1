#include "backend/summary/CuePhrases.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <vector>

#include "backend/summary/SentenceRank.h"

namespace tessivox::backend {
namespace {

using Phrases = std::span<const std::string_view>;

constexpr std::array<std::string_view, 9> kDecisions = {"we agreed",    "agreed to",  "decided",
                                                        "decision",     "in summary", "to sum up",
                                                        "to summarize", "conclusion", "approved"};
constexpr std::array<std::string_view, 35> kWeighty = {
    "the plan",  "our goal",  "the goal",  "deadline", "budget",    "the problem", "real problem",
    "the main",  "agenda",    "important", "priority", "result",    "results",     "the reason",
    "launch",    "release",   "customers", "customer", "increase",  "increased",   "decrease",
    "risk",      "blocked",   "topics",    "cost",     "costs",     "target",      "revenue",
    "cancelled", "postponed", "percent",   "contract", "first the", "main topic",  "topic"};
constexpr std::array<std::string_view, 24> kChatter = {
    "good morning", "good afternoon", "good evening", "how are you", "can you hear",      "hear me",
    "thank you",    "thanks",         "bye",          "goodbye",     "let's get started", "let's start",
    "welcome",      "see you",        "nice to meet", "no problem",  "sounds good",       "makes sense",
    "that's right", "i don't know",   "have a good",  "have a nice", "share my screen",   "on mute"};
/// Sentences that begin so lean on the one before, or ask; machines leave question marks out.
constexpr std::array<std::string_view, 21> kVagueStarts = {"it",  "it's",  "that", "that's", "this", "they", "he",
                                                           "she", "those", "is",   "are",    "do",   "does", "did",
                                                           "can", "what",  "why",  "who",    "how",  "when", "where"};
constexpr std::array<std::string_view, 7> kFillers = {"yeah", "yes", "no", "okay", "ok", "well", "um"};

constexpr std::array<std::string_view, 24> kPromises = {
    "i will", "i'll",      "we will",    "we'll",        "needs to",       "has to",        "have to", "we must",
    "must",   "please",    "can you",    "could you",    "would you",      "will you",      "i can",   "let's",
    "let us", "we should", "you should", "i'm going to", "we're going to", "i am going to", "will",    "need to"};
constexpr std::array<std::string_view, 48> kTasks = {
    "send",     "write",     "prepare",   "schedule", "call",         "email",       "mail",    "review",
    "update",   "check",     "fix",       "finish",   "draft",        "book",        "arrange", "organize",
    "organise", "contact",   "talk to",   "speak to", "ask",          "share",       "create",  "test",
    "set up",   "follow up", "look into", "confirm",  "order",        "add",         "deliver", "complete",
    "publish",  "submit",    "invite",    "present",  "report",       "investigate", "plan",    "remind",
    "collect",  "make sure", "take care", "get back", "put together", "sign",        "upload",  "ship"};
constexpr std::array<std::string_view, 26> kDates = {
    "by monday", "by tuesday",   "by wednesday", "by thursday",    "by friday",   "by saturday", "by sunday",
    "on monday", "on tuesday",   "on wednesday", "on thursday",    "on friday",   "tomorrow",    "today",
    "tonight",   "this week",    "next week",    "next month",     "this month",  "end of",      "before the",
    "by then",   "until friday", "by the",       "this afternoon", "next meeting"};
constexpr std::array<std::string_view, 5> kNamedTasks = {"action item", "action items", "follow up", "don't forget",
                                                         "remember to"};
/// They begin like a promise and are none.
constexpr std::array<std::string_view, 16> kNoTasks = {
    "i'll be honest", "i will be honest", "i'll say",    "i will say",       "i'll tell you", "we'll see",
    "we will see",    "please welcome",   "i can see",   "i can hear",       "can you hear",  "can you see",
    "have to say",    "i'll start",       "let's start", "let's get started"};

/// Counts the phrases that stand in a text of words with blanks around each.
int count(std::string_view words, Phrases phrases) {
    return static_cast<int>(std::ranges::count_if(phrases, [&](std::string_view phrase) {
        const auto at = words.find(phrase);
        for (auto found = at; found != words.npos; found = words.find(phrase, found + 1)) {
            if (words[found - 1] == ' ' && words[found + phrase.size()] == ' ') return true;
        }
        return false;
    }));
}

bool has(std::string_view words, Phrases phrases) { return count(words, phrases) > 0; }

double lengthPenalty(std::size_t words) {
    if (words < 5) return -0.7;
    if (words < 8) return -0.25;
    return words > 40 ? -0.3 : 0;
}

double actionOf(std::string_view words, std::size_t count, bool isQuestion) {
    if (count < 4 || has(words, kNoTasks)) return 0;
    const bool isNamed = has(words, kNamedTasks);
    const bool isPromised = has(words, kPromises);
    const bool isTask = has(words, kTasks);
    const bool isDated = has(words, kDates);
    if (isQuestion &&
        !(has(words, std::array<std::string_view, 4>{"can you", "could you", "would you", "will you"}) && isTask)) {
        return 0;
    }
    if (!isNamed && !(isPromised && isTask)) return 0;
    const bool isCertain =
        has(words, std::array<std::string_view, 5>{"i will", "i'll", "please", "could you", "can you"});
    return 1.0 + (isNamed ? 0.5 : 0) + (isDated ? 1 : 0) + (isCertain ? 0.5 : 0);
}

}  // namespace

Cues cuesOf(std::string_view sentence) {
    const auto list = wordsOf(sentence);
    std::string words = " ";
    for (const auto& word : list) words += word + ' ';
    Cues cues;
    cues.isQuestion = sentence.find('?') != sentence.npos;
    cues.isPersonal = has(words, std::array<std::string_view, 5>{"i", "i'll", "i'm", "i've", "i'd"});
    cues.action = actionOf(words, list.size(), cues.isQuestion);
    const bool hasFigures = std::ranges::any_of(sentence, [](char c) { return (c >= '0' && c <= '9') || c == '%'; });
    cues.point = (has(words, kDecisions) ? 0.6 : 0) + std::min(0.4, 0.2 * count(words, kWeighty)) +
                 (hasFigures ? 0.15 : 0) + lengthPenalty(list.size());
    if (has(words, kChatter)) cues.point -= 0.6;
    if (cues.isQuestion) cues.point -= 1;
    const auto beginsWith = [&](Phrases starts) {
        return !list.empty() && std::ranges::count(starts, list.front()) > 0;
    };
    if (beginsWith(kVagueStarts) || words.starts_with(" if that ")) cues.point -= 0.4;
    if (beginsWith(kFillers)) cues.point -= 0.1;
    return cues;
}

}  // namespace tessivox::backend
