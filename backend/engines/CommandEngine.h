#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "backend/Engine.h"

namespace tessivox::backend {

struct CommandSettings {
    /// The program and its arguments. In each, "{wav}" stands for the path of the sound, a WAV file of 16 kHz, one
    /// channel, 16 bits, and "{out}" for the path that the names of the program's output files are to begin with.
    std::vector<std::string> arguments;
    /// Where each run's private folder is made; it holds the sound and the output, and goes with the run.
    std::filesystem::path folder = std::filesystem::temp_directory_path();
    std::chrono::milliseconds leastTime = std::chrono::minutes(2);
    double timePerSecond = 5;  ///< further seconds that a run may take for each second of sound
};

/// Any speech program of the user's. Its result is its standard output, or, if an argument holds "{out}", the file it
/// made there; see parseCaptions(). For whisper.cpp: whisper-cli -m MODEL -f {wav} -osrt -of {out}
class CommandEngine final : public Engine {
public:
    /// Throws EngineError unless there is a program that is given the sound.
    explicit CommandEngine(CommandSettings settings);

    /// The program's name without its folder.
    std::string name() const override;
    /// Ends whatever the program started, also when this process is ended meanwhile.
    std::vector<Utterance> transcribe(const Sound& sound, const Progress& progress) override;

private:
    CommandSettings settings_;
};

}  // namespace tessivox::backend
