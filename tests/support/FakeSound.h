#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "audio/ports/AudioDevices.h"
#include "audio/ports/CaptureBackend.h"
#include "base/Scheduler.h"

namespace tessivox::testing {

/// A sound server with one microphone, "pci", and one output, until a test changes that.
class FakeSound final : public audio::AudioDevices, public audio::CaptureBackend {
public:
    explicit FakeSound(base::Scheduler& scheduler) : scheduler_(scheduler) {}

    void plug(const std::string& uid, const std::string& name);
    void unplug(const std::string& uid);
    void setDefaultInput(const std::string& uid);
    void setOutput(const std::string& monitorName);
    void die();
    void comeBack();
    /// Opening that source takes so long from now on.
    void delay(const std::string& source, base::Duration span) { delays_[source] = span; }
    /// Opening that source fails from now on, or works again.
    void refuse(const std::string& source, bool refused);

    /// Every open stream of the source hears a buffer.
    void play(const std::string& source, const audio::AudioBuffer& buffer, base::HostTime time);
    bool isOpen(const std::string& source) const;
    int openStreams() const { return static_cast<int>(streams_.size()); }

    base::Task<audio::AudioDeviceSnapshot> snapshot() override;
    base::Subscription onChange(std::function<void()> handler) override { return changed_.observe(std::move(handler)); }
    base::Task<std::unique_ptr<audio::CaptureStream>> openMicrophone(std::string uid,
                                                                     audio::CaptureSink& sink) override;
    base::Task<std::unique_ptr<audio::CaptureStream>> openSystemAudio(std::string source,
                                                                      audio::CaptureSink& sink) override;

private:
    class Stream;
    base::Scheduler& scheduler_;
    audio::AudioDeviceSnapshot now_{true, {{1, "Built-in", "pci"}}, "pci", "speakers.monitor"};
    audio::AudioDeviceSnapshot beforeDeath_;
    base::Signal<> changed_;
    std::set<Stream*> streams_;
    std::map<std::string, base::Duration> delays_;
    std::set<std::string> refused_;

    void end(const std::string& source);
    base::Task<std::unique_ptr<audio::CaptureStream>> open(std::string source, audio::CaptureSink& sink);
};

}  // namespace tessivox::testing
