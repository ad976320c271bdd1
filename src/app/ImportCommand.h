#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "app/Console.h"
#include "app/ExitCode.h"
#include "app/InterruptibleWork.h"
#include "app/LongWork.h"
#include "app/TranscriptionCommands.h"
#include "base/Task.h"
#include "library/AudioFileImporter.h"

namespace tessivox::app {

/// `tessivox import`: writes the path of each new recording to standard output, and then makes the transcripts, if the
/// settings want them. Main thread.
class ImportCommand {
public:
    struct Parts {
        base::Scheduler& scheduler;
        library::AudioFileImporter::Parts importer;  ///< startTranscription is filled here
        TranscriptionCommands& transcriptions;
        Console& console;
    };
    explicit ImportCommand(Parts parts);
    ImportCommand(const ImportCommand&) = delete;
    ImportCommand& operator=(const ImportCommand&) = delete;

    base::Task<ExitCode> run(std::vector<std::filesystem::path> files);
    /// Ctrl-C and its relatives.
    void interrupt();

private:
    struct Imported {
        std::filesystem::path recording;
        double duration = 0;  ///< seconds
    };

    base::Scheduler& scheduler_;
    base::Files& files_;
    core::AppSettings& settings_;
    TranscriptionCommands& transcriptions_;
    Console& console_;
    std::vector<Imported> waiting_;  ///< for their transcripts
    bool isInterrupted_ = false;
    bool hasFailed_ = false;
    library::AudioFileImporter importer_;
    InterruptibleWork work_;

    base::Task<void> importFile(std::filesystem::path file, std::string count);
    base::Task<void> importNow(std::filesystem::path file);
    base::Task<void> transcribe(Imported imported);
    library::AudioFileImporter::Parts withOurs(library::AudioFileImporter::Parts parts);
    void tellFailure(const std::filesystem::path& file, const std::string& reason);
};

}  // namespace tessivox::app
