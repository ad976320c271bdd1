// How fast a transcript is read, against a reader made of QString and a QRegularExpression in the same run.
//   bench_parsing [--smoke] [--lines N]
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Measure.h"
#include "Report.h"
#include "base/Text.h"
#include "reader/ReaderParsing.h"

namespace tessivox::bench {
namespace {

constexpr int kRuns = 9;
/// What the notes of many meetings come to: "[hh:mm:ss] Speaker: text", 20 MB.
constexpr int kLines = 139'729;
constexpr double kWantedRatio = 30;

std::string transcriptText(int lines) {
    static constexpr const char* kSpeakers[] = {"Speaker A", "Speaker B", "Dr. Marjorie Quill", "Tom"};
    static constexpr const char* kSentences[] = {
        "I think that we should look at the numbers for the last quarter once more, since the two tables do not agree "
        "about the costs of travel.",
        "Yes.",
        "Before we do so: who has seen the draft? It went out on Tuesday, and so far I have heard from three of the "
        "nine "
        "people who are to sign it off by the end of this month, which leaves us little room for any change.",
        "That is true, but nobody will mind if it takes another week, as long as somebody tells them why it does."};
    std::string text;
    for (int line = 0; line < lines; ++line) {
        const int seconds = line * 4;
        text += "[" + base::paddedNumber(seconds / 3600, 2) + ":" + base::paddedNumber(seconds / 60 % 60, 2) + ":" +
                base::paddedNumber(seconds % 60, 2) + "] " + kSpeakers[line / 3 % 4] + ": " + kSentences[line % 4] +
                (line % 4 == 3 ? kSentences[0] : "") + "\n";
    }
    return text;
}

struct QtSegment {
    QString time;
    double start = 0;
    QString speaker;
    QString text;
};

double startOf(const QString& time) {
    double seconds = 0;
    for (const auto& part : time.split(u':', Qt::SkipEmptyParts)) seconds = seconds * 60 + part.toDouble();
    return seconds;
}

std::vector<QtSegment> parsedByQt(const std::string& text) {
    static const QRegularExpression line(QStringLiteral(R"(^\[([^\]]*)\]\s*(?:([^:]{0,24}):)?\s*(.*)$)"));
    std::vector<QtSegment> segments;
    for (const auto& piece :
         QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).split(u'\n', Qt::SkipEmptyParts)) {
        const auto match = line.match(piece);
        if (match.hasMatch())
            segments.push_back({match.captured(1), startOf(match.captured(1)), match.captured(2), match.captured(3)});
        else
            segments.push_back({{}, 0, {}, piece});
    }
    return segments;
}

/// Both have to have read the same.
void compare(const reader::Transcript& ours, const std::vector<QtSegment>& theirs) {
    if (ours.size() != theirs.size()) throw std::runtime_error("the two readers disagree about the number of lines");
    for (std::size_t index = 0; index < ours.size(); index += 97) {
        const auto& [time, start, speaker, text] = theirs[index];
        if (ours[index].start != start || ours[index].speaker != speaker.toStdString() ||
            ours[index].text != text.toStdString())
            throw std::runtime_error("the two readers disagree about line " + std::to_string(index));
    }
}

struct Speeds {
    double ours = 0;    ///< MB/s, median
    double theirs = 0;  ///< likewise
};

/// By turns, so that a busy moment of the machine hits both.
Speeds measured(const std::string& text, int runs) {
    std::vector<double> ours, theirs;
    const double megabytes = static_cast<double>(text.size()) / 1e6;
    for (int run = 0; run < runs; ++run) {
        auto copy = text;
        const Stopwatch watch;
        const auto transcript = reader::parseTranscript(std::move(copy));
        ours.push_back(megabytes / watch.elapsed().wall);
        const Stopwatch peerWatch;
        const auto segments = parsedByQt(text);
        theirs.push_back(megabytes / peerWatch.elapsed().wall);
        if (run == 0) compare(transcript, segments);
    }
    return {median(ours), median(theirs)};
}

int run(const Arguments& arguments) {
    const int lines = arguments.isSmoke() ? 5000 : static_cast<int>(arguments.number("--lines", kLines));
    const auto text = transcriptText(lines);
    Report report(arguments.isSmoke());
    report.note(std::to_string(lines) + " lines, " + base::fixedNumber(static_cast<double>(text.size()) / 1e6, 1) +
                " MB");
    const auto speeds = measured(text, arguments.isSmoke() ? 1 : kRuns);
    report.atLeast("transcript parsing, times a QRegularExpression", kWantedRatio, speeds.ours / speeds.theirs, "x");
    report.peer("QString and QRegularExpression", speeds.ours, speeds.theirs, "MB/s");
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_parsing", [&] { return tessivox::bench::run({count, values}); });
}
